#include "QLSDKCoreKit/network/QLSDKPayload.h"

#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

class QLSDKPayloadTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(fakes.install()); }
    platform::testing::FakePlatform fakes;
};

TEST_F(QLSDKPayloadTest, ATokenOpensToItsAppAndTime) {
    fakes.clock->set(1700000000.1239);
    const auto token = QLPayloadProvider().authHeaderValue();
    ASSERT_TRUE(token);
    EXPECT_EQ(QLSDKPayload::serialize({}), "com.example.app:1700000000123");
    EXPECT_EQ(token->size(), 3u + 32 + 1 + 32 + 1 + 2 * 32) << "29 bytes of text are padded to 32";
    const auto opened = openToken(*token);
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->bundleIdentifier, "com.example.app");
    EXPECT_EQ(opened->createdMillis, 1700000000123);
    EXPECT_EQ(QLPayloadProvider().authHeaderName(), "X-Quill-SDK-Client-Auth-Token");
}

// The tests are built with the development key.
TEST_F(QLSDKPayloadTest, TheDevelopmentKeyIsReportedWithTheFirstToken) {
    EXPECT_TRUE(platform::diagnostics().empty());
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(QLSDKPayload::serializePayload({}));
    const std::vector<platform::Diagnostic> told = platform::diagnostics();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told.front().kind, platform::DiagnosticKind::developmentKey);
    EXPECT_EQ(told.front().times, 1u);
}

TEST_F(QLSDKPayloadTest, TwoTokensOfOneMomentShareNothing) {
    const std::string first = *QLSDKPayload::serializePayload({});
    const std::string second = *QLSDKPayload::serializePayload({});
    EXPECT_NE(first.substr(3, 32), second.substr(3, 32));
    EXPECT_NE(first.substr(36, 32), second.substr(36, 32));
    EXPECT_NE(first.substr(69), second.substr(69));
}

TEST_F(QLSDKPayloadTest, EveryChangedOrMisshapenTokenStaysShut) {
    const std::string token = *QLSDKPayload::serializePayload({});
    for (std::size_t i = 0; i < token.size(); ++i) {
        std::string changed = token;
        changed[i] = changed[i] == '0' ? '1' : '0';
        EXPECT_FALSE(openToken(changed)) << i;
        EXPECT_FALSE(openToken(token.substr(0, i))) << i;
    }
    std::string lower = token;
    for (char& c : lower) c = c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c;
    EXPECT_FALSE(openToken(lower));
    EXPECT_FALSE(openToken("v2:(null)"));
    EXPECT_FALSE(openToken("v2:::"));
    EXPECT_FALSE(openToken(token + "00"));
    EXPECT_FALSE(openToken("v2:" + std::string(100000, 'A')));
}

TEST_F(QLSDKPayloadTest, ABrokenRandomSourceMeansNoTokenOrTheLiteralNull) {
    fakes.random->failAfter(1, 5);
    EXPECT_EQ(QLSDKPayload::serializePayload({}), "v2:(null)") << "only the nonce failed";
    EXPECT_EQ(QLSDKPayload::serializePayload({}), std::nullopt) << "the health check failed";
    EXPECT_EQ(QLSDKPayload::formatSerializedPayload(std::nullopt), std::nullopt);
}

TEST_F(QLSDKPayloadTest, PadsToMoreThanTheLengthAndPrintsUpperCase) {
    for (const auto& [length, padded] : {std::pair{28u, 32u}, {29u, 32u}, {31u, 32u}, {32u, 36u}, {0u, 4u}}) {
        EXPECT_EQ(QLSDKPayload::getPaddedLength(length, 4), padded);
    }
    EXPECT_EQ(QLSDKPayload::getPaddedLength(7, 0), 7u);
    EXPECT_EQ(QLSDKPayload::convertDataToHexString(Data{0x00, 0xAB, 0xFF}), "00ABFF");
    EXPECT_EQ(QLSDKPayload::convertBytesToHexString(nullptr, 3), "");
}

TEST(QLSDKPayload, AnAbsentBundleIdentifierIsRendered) {
    platform::testing::FakePlatform fakes;
    fakes.bundles->setMain({});
    fakes.clock->set(-0.5);
    ASSERT_TRUE(fakes.install());
    EXPECT_EQ(QLSDKPayload::serialize({}), "(null):-500");
    EXPECT_EQ(openToken(*QLSDKPayload::serializePayload({}))->bundleIdentifier, "(null)");
}

}  // namespace
}  // namespace qlsdk
