#pragma once

#include <memory>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/Keychain.h"

namespace qlsdk::platform::conformance {

/// Makes the keychain under test: empty of items of the service "com.example.app..QLSDK", and of others if it
/// can be. Include this header in one source of a test program and instantiate:
///
///     INSTANTIATE_TEST_SUITE_P(Mine, KeychainConformance, ::testing::Values(KeychainFactory{"Mine",
///     &make}));
struct KeychainFactory {
    const char* name;
    std::shared_ptr<Keychain> (*make)();

    friend void PrintTo(const KeychainFactory& factory, std::ostream* out) { *out << factory.name; }
};

class KeychainConformance : public ::testing::TestWithParam<KeychainFactory> {
  protected:
    void SetUp() override { ASSERT_NE(keychain, nullptr); }

    static Dictionary query(const std::string& key) {
        return {{std::string(kSecClass), std::string(kSecClassGenericPassword)},
                {std::string(kSecAttrService), "com.example.app..QLSDK"},
                {std::string(kSecAttrGeneric), dataOf(key)},
                {std::string(kSecAttrAccount), dataOf(key)},
                {std::string(kSecAttrSynchronizable), false}};
    }
    static Dictionary item(const std::string& key, const std::string& text,
                           std::string_view access = kSecAttrAccessibleWhenUnlockedThisDeviceOnly) {
        Dictionary attributes = query(key);
        attributes.set(kSecAttrAccessible, std::string(access));
        attributes.set(kSecValueData, dataOf(text));
        return attributes;
    }
    /// Matches every item of the suite's service.
    static Dictionary serviceQuery() {
        return {{std::string(kSecClass), std::string(kSecClassGenericPassword)},
                {std::string(kSecAttrService), "com.example.app..QLSDK"},
                {std::string(kSecAttrSynchronizable), false}};
    }
    /// The stored bytes as text, or the status in angle brackets.
    std::string read(const std::string& key) {
        Dictionary one = query(key);
        one.set(kSecMatchLimit, std::string(kSecMatchLimitOne));
        one.set(kSecReturnData, true);
        Value result;
        const OSStatus status = keychain->itemCopyMatching(one, &result);
        if (status != errSecSuccess) return "<" + std::to_string(status) + ">";
        return result.data() != nullptr ? textOf(*result.data()) : "<no data>";
    }
    /// The keys of the service's items in the order returned.
    std::string keys() {
        Dictionary all = serviceQuery();
        all.set(kSecMatchLimit, std::string(kSecMatchLimitAll));
        all.set(kSecReturnAttributes, true);
        Value result;
        if (keychain->itemCopyMatching(all, &result) != errSecSuccess || result.array() == nullptr)
            return "<none>";
        std::string text;
        for (const Value& attributes : *result.array()) {
            const Value generic = attributes[kSecAttrGeneric];
            text += generic.data() != nullptr ? textOf(*generic.data()) + " " : "<no data> ";
        }
        return text;
    }

    std::shared_ptr<Keychain> keychain = GetParam().make();
};

TEST_P(KeychainConformance, AnEmptyStoreFindsNothing) {
    EXPECT_EQ(read("k"), "<-25300>");
    EXPECT_EQ(keychain->itemUpdate(query("k"), {{std::string(kSecValueData), dataOf("x")}}),
              errSecItemNotFound);
    EXPECT_EQ(keychain->itemDelete(query("k")), errSecItemNotFound);
}

TEST_P(KeychainConformance, KeepsBytesOfAnyKind) {
    const std::string bytes("\0\xFF'; DROP\n", 10);
    ASSERT_EQ(keychain->itemAdd(item("k", bytes)), errSecSuccess);
    EXPECT_EQ(read("k"), bytes);
    ASSERT_EQ(keychain->itemAdd(item("empty", "")), errSecSuccess);
    EXPECT_EQ(read("empty"), "");
    const std::string keys[] = {std::string("a\0b", 3), "a", "\xFF\xFE"};
    for (const std::string& key : keys) ASSERT_EQ(keychain->itemAdd(item(key, key)), errSecSuccess);
    for (const std::string& key : keys) EXPECT_EQ(read(key), key);
    EXPECT_EQ(keychain->itemDelete(query(keys[0])), errSecSuccess);
    EXPECT_EQ(read("a"), "a");
    ASSERT_EQ(keychain->itemUpdate(query("k"), {{std::string(kSecValueData), dataOf("new")}}), errSecSuccess);
    EXPECT_EQ(read("k"), "new");
    EXPECT_EQ(keychain->itemCopyMatching(query("k"), nullptr), errSecSuccess);
}

TEST_P(KeychainConformance, ServiceAccountGenericAndSynchronizableAreTheIdentity) {
    ASSERT_EQ(keychain->itemAdd(item("k", "first")), errSecSuccess);
    EXPECT_EQ(keychain->itemAdd(item("k", "again")), errSecDuplicateItem);
    EXPECT_EQ(keychain->itemAdd(item("k", "again", kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly)),
              errSecDuplicateItem);
    EXPECT_EQ(read("k"), "first");
    const std::pair<std::string_view, Value> others[] = {{kSecAttrService, "com.example.other..QLSDK"},
                                                         {kSecAttrAccount, dataOf("other")},
                                                         {kSecAttrGeneric, dataOf("other")},
                                                         {kSecAttrSynchronizable, true}};
    for (const auto& [attribute, value] : others) {
        Dictionary other = item("k", "other");
        other.set(attribute, value);
        EXPECT_EQ(keychain->itemAdd(other), errSecSuccess) << attribute;
    }
    EXPECT_EQ(read("k"), "first");
}

TEST_P(KeychainConformance, AnItemWithoutItsIdentityIsRefused) {
    for (const std::string_view attribute :
         {kSecClass, kSecAttrService, kSecAttrAccount, kSecAttrGeneric, kSecAttrSynchronizable}) {
        Dictionary incomplete = item("k", "x");
        incomplete.erase(attribute);
        EXPECT_EQ(keychain->itemAdd(incomplete), errSecParam) << attribute;
    }
    EXPECT_EQ(keys(), "<none>");
}

TEST_P(KeychainConformance, AQueryWithAnotherAccessibilityMatchesNothing) {
    ASSERT_EQ(keychain->itemAdd(item("k", "first")), errSecSuccess);
    const Dictionary background = item("k", "second", kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly);
    EXPECT_EQ(keychain->itemUpdate(background, {{std::string(kSecValueData), dataOf("second")}}),
              errSecItemNotFound);
    EXPECT_EQ(read("k"), "first");
    // The value in a query is no condition: the same call with the stored accessibility matches.
    EXPECT_EQ(keychain->itemUpdate(item("k", "second"), {{std::string(kSecValueData), dataOf("second")}}),
              errSecSuccess);
    EXPECT_EQ(read("k"), "second");
}

TEST_P(KeychainConformance, ReturnsAttributesInTheOrderOfCreationWithoutTheData) {
    for (const char* key : {"b", "c", "a"}) ASSERT_EQ(keychain->itemAdd(item(key, "x")), errSecSuccess);
    ASSERT_EQ(keychain->itemDelete(query("b")), errSecSuccess);
    ASSERT_EQ(keychain->itemAdd(item("b", "x")), errSecSuccess);
    EXPECT_EQ(keys(), "c a b ");

    Dictionary unlimited = query("a");
    unlimited.set(kSecReturnAttributes, true);
    Value result;
    ASSERT_EQ(keychain->itemCopyMatching(unlimited, &result), errSecSuccess);
    Dictionary expected = item("a", "x");
    expected.erase(kSecValueData);
    EXPECT_EQ(result, Value(Array{expected}));
}

TEST_P(KeychainConformance, RemovesEveryItemThatMatchesAndNoOther) {
    for (const char* key : {"a", "b"}) ASSERT_EQ(keychain->itemAdd(item(key, "x")), errSecSuccess);
    Dictionary other = item("a", "kept");
    other.set(kSecAttrService, "com.example.other..QLSDK");
    ASSERT_EQ(keychain->itemAdd(other), errSecSuccess);
    EXPECT_EQ(keychain->itemDelete(serviceQuery()), errSecSuccess);
    EXPECT_EQ(keys(), "<none>");
    other.erase(kSecValueData);
    EXPECT_EQ(keychain->itemDelete(other), errSecSuccess);
}

TEST_P(KeychainConformance, AFailedLookLeavesTheResultAlone) {
    Value result = "before";
    EXPECT_EQ(keychain->itemCopyMatching(query("k"), &result), errSecItemNotFound);
    EXPECT_EQ(result, Value("before"));
}

}  // namespace qlsdk::platform::conformance
