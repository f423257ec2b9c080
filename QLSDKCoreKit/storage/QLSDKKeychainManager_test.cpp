#include "QLSDKCoreKit/storage/QLSDKKeychainManager.h"

#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

using platform::testing::FakePlatform;

class QLSDKKeychainManagerTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(fakes.install()); }
    FakePlatform fakes;
};

TEST_F(QLSDKKeychainManagerTest, AQueryIdentifiesTheItemUnderTheDoublyDottedService) {
    const Dictionary query = QLSDKKeychainManager::queryForKey("k");
    EXPECT_EQ(query, (Dictionary{{"class", "genp"},
                                 {"gena", dataOf("k")},
                                 {"acct", dataOf("k")},
                                 {"svce", "com.example.app..QLSDK"},
                                 {"sync", false}}));
    const Dictionary withAccess =
        QLSDKKeychainManager::queryForKey("k", platform::kSecAttrAccessibleWhenUnlockedThisDeviceOnly);
    EXPECT_EQ(withAccess.size(), 6u);
    EXPECT_EQ(*withAccess.find("pdmn"), Value("aku"));
}

TEST_F(QLSDKKeychainManagerTest, StoringTwiceLeavesOneItemWithTheSecondData) {
    EXPECT_TRUE(QLSDKKeychainManager::setData(bytesOf("one"), "k"));
    EXPECT_TRUE(QLSDKKeychainManager::setData(bytesOf("two"), "k"));
    ASSERT_EQ(fakes.keychain->items().size(), 1u);
    platform::OSStatus status = 1;
    EXPECT_EQ(QLSDKKeychainManager::dataForKey("k", &status), dataOf("two"));
    EXPECT_EQ(status, 0);
}

TEST_F(QLSDKKeychainManagerTest, ABackgroundStoreDoesNotTouchANormalItem) {
    EXPECT_TRUE(QLSDKKeychainManager::setData(bytesOf("normal"), "k"));
    EXPECT_EQ(QLSDKKeychainManager::setBackgroundDataWithStatus(bytesOf("background"), "k"),
              platform::errSecItemNotFound);
    EXPECT_FALSE(QLSDKKeychainManager::setBackgroundData(bytesOf("background"), "k"));
    EXPECT_EQ(QLSDKKeychainManager::dataForKey("k"), dataOf("normal"));
    EXPECT_EQ(fakes.keychain->items().at(0).find("pdmn")->string()->compare("aku"), 0);

    EXPECT_TRUE(QLSDKKeychainManager::setBackgroundData(bytesOf("b"), "other"));
    EXPECT_EQ(QLSDKKeychainManager::dataForKey("other"), dataOf("b")) << "a read matches either kind";
}

TEST_F(QLSDKKeychainManagerTest, AMissingKeySaysSo) {
    platform::OSStatus status = 0;
    EXPECT_EQ(QLSDKKeychainManager::dataForKey("none", &status), std::nullopt);
    EXPECT_EQ(status, -25300);
    EXPECT_FALSE(QLSDKKeychainManager::removeDataForKey("none"));
    EXPECT_EQ(QLSDKKeychainManager::removeDataForKeyWithStatus("none"), -25300);
}

TEST_F(QLSDKKeychainManagerTest, RemovingAllSparesTheWhitelistAndOtherServices) {
    for (const char* key : {"a", "b", "c"}) ASSERT_TRUE(QLSDKKeychainManager::setData(bytesOf(key), key));
    Dictionary foreign = QLSDKKeychainManager::queryForKey("b");
    foreign.set(platform::kSecAttrService, "another");
    ASSERT_EQ(fakes.keychain->itemAdd(foreign), 0);
    // As older versions stored it; today it is refused.
    ASSERT_EQ(fakes.keychain->itemAdd(QLSDKKeychainManager::queryForKey("\xFF")), 0);
    EXPECT_EQ(QLSDKKeychainManager::setDataWithStatus(bytesOf("x"), "\xFE"), platform::errSecParam);
    EXPECT_FALSE(QLSDKKeychainManager::setBackgroundData(bytesOf("x"), "\xFE"));
    const std::string withNul("a\0b", 3);
    ASSERT_TRUE(QLSDKKeychainManager::setData(bytesOf("nul"), withNul));
    EXPECT_EQ(QLSDKKeychainManager::dataForKey(withNul), dataOf("nul"));

    const std::set<std::string, std::less<>> whitelist = {"a"};
    QLSDKKeychainManager::removeAllDataExcludingWhitelist(&whitelist);
    EXPECT_EQ(fakes.keychain->items().size(), 2u) << "the listed one and the other service's";
    EXPECT_TRUE(QLSDKKeychainManager::dataForKey("a"));
    QLSDKKeychainManager::removeAllData();
    EXPECT_EQ(fakes.keychain->items().size(), 1u);
}

TEST_F(QLSDKKeychainManagerTest, ALockedStoreIsAStatusAndNeverNotFound) {
    ASSERT_TRUE(QLSDKKeychainManager::setData(bytesOf("one"), "k"));
    fakes.keychain->failWith(platform::errSecInteractionNotAllowed);
    platform::OSStatus status = 0;
    EXPECT_EQ(QLSDKKeychainManager::dataForKey("k", &status), std::nullopt);
    EXPECT_EQ(status, platform::errSecInteractionNotAllowed);
    EXPECT_FALSE(QLSDKKeychainManager::setData(bytesOf("two"), "k"));
    QLSDKKeychainManager::removeAllData();
    fakes.keychain->failWith(std::nullopt);
    EXPECT_EQ(QLSDKKeychainManager::dataForKey("k"), dataOf("one"));
}

TEST(QLSDKKeychainManager, AMissingBundleIdentifierIsRenderedAsNull) {
    FakePlatform fakes;
    fakes.bundles->setMain({});
    ASSERT_TRUE(fakes.install());
    EXPECT_EQ(*QLSDKKeychainManager::queryForKey("k").find("svce"), Value("(null)..QLSDK"));
}

}  // namespace
}  // namespace qlsdk
