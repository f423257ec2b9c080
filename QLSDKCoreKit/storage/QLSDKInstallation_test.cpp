#include "QLSDKCoreKit/storage/QLSDKInstallation.h"

#include <regex>

#include "QLSDKCoreKit/platform/testing/FakePlatform.h"
#include "QLSDKCoreKit/storage/QLSDKKeychainManager.h"

namespace qlsdk {
namespace {

class QLSDKInstallationTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(fakes.install()); }
    platform::testing::FakePlatform fakes;
};

TEST_F(QLSDKInstallationTest, MakesOneVersionFourIdentifierAndKeepsIt) {
    const auto first = QLSDKInstallation().installationId();
    ASSERT_TRUE(first);
    EXPECT_TRUE(std::regex_match(
        *first, std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
        << *first;
    EXPECT_EQ(QLSDKInstallation().installationId(), first);
    EXPECT_EQ(QLSDKKeychainManager::dataForKey("com.quillo.quill-kit.installation-id"), dataOf(*first));
}

TEST_F(QLSDKInstallationTest, AFailedReadMakesANewIdentifierWhichIsCached) {
    const auto stored = QLSDKInstallation().installationId();
    fakes.keychain->failWith(platform::errSecNotAvailable);
    QLSDKInstallation installation;
    const auto fresh = installation.installationId();
    ASSERT_TRUE(fresh);
    EXPECT_NE(fresh, stored);
    EXPECT_EQ(installation.installationId(), fresh);
    fakes.keychain->failWith(std::nullopt);
    EXPECT_EQ(QLSDKInstallation().installationId(), stored) << "the store had failed too";
}

TEST_F(QLSDKInstallationTest, UndecodableBytesGiveNothingUntilTheyAreMended) {
    ASSERT_TRUE(QLSDKKeychainManager::setData(Data{0xFF, 0xFE}, QLSDKInstallation::installationIdKey()));
    QLSDKInstallation installation;
    EXPECT_EQ(installation.installationId(), std::nullopt);
    ASSERT_TRUE(QLSDKKeychainManager::setData(bytesOf("ID"), QLSDKInstallation::installationIdKey()));
    EXPECT_EQ(installation.installationId(), "ID");
}

TEST_F(QLSDKInstallationTest, NoRandomnessMeansNoIdentifierRatherThanZeros) {
    fakes.random->failAfter(0, 5);
    QLSDKInstallation installation;
    EXPECT_EQ(installation.installationId(), std::nullopt);
    EXPECT_TRUE(fakes.keychain->items().empty());
    fakes.random->failAfter(-1, 0);
    EXPECT_TRUE(installation.installationId());
}

}  // namespace
}  // namespace qlsdk
