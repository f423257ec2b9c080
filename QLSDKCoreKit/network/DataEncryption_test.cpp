#include "QLSDKCoreKit/network/DataEncryption.h"

#include "QLSDKCoreKit/core/Helpers.h"

namespace qlsdk {
namespace {

std::string hex(const std::optional<Data>& data) {
    std::string text;
    for (const std::uint8_t byte : data.value_or(Data())) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

TEST(DataEncryption, AgreesWithAnotherImplementation) {
    // echo -n "attack at dawn" | openssl enc -aes-256-cbc -K 000102…1f -iv 0f0e…00
    Data key(32);
    for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(i);
    Data iv(16);
    for (std::size_t i = 0; i < iv.size(); ++i) iv[i] = static_cast<std::uint8_t>(15 - i);
    const auto sealed = ql_secureEncryptWithKey(bytesOf("attack at dawn"), key, iv);
    EXPECT_EQ(hex(sealed), "e72b0e9007cfc22c704feec8c65d9bba");
    EXPECT_EQ(ql_secureDecryptWithKey(*sealed, key, iv), dataOf("attack at dawn"));
    EXPECT_EQ(ql_secureEncryptWithKey(bytesOf("attack at dawn"), ql_base64EncodedString(key), iv), sealed)
        << "a key as text and as data is the same key";
}

TEST(DataEncryption, FillsUpAndCutsKeys) {
    const Data iv(16);
    const Data shortKey(3, 'k');
    Data filled = shortKey;
    filled.resize(32);
    Data longer = filled;
    longer.push_back('x');
    const auto sealed = ql_secureEncryptWithKey({}, shortKey, iv);
    ASSERT_TRUE(sealed);
    EXPECT_EQ(sealed->size(), 16u) << "empty data takes one block";
    EXPECT_EQ(ql_secureEncryptWithKey({}, filled, Data()), sealed);
    EXPECT_EQ(ql_secureEncryptWithKey({}, longer, Data(20)), sealed);
}

TEST(DataEncryption, WhatCannotBeUsedGivesNothing) {
    const Data key(32, 1);
    const Data iv(16, 2);
    const Data sealed = *ql_secureEncryptWithKey(bytesOf("text"), key, iv);
    EXPECT_FALSE(ql_secureEncryptWithKey(bytesOf("text"), "not base64!", iv)) << "never a key of zeros";
    EXPECT_FALSE(ql_secureEncryptWithKey(bytesOf("text"), Value(), iv));
    EXPECT_FALSE(ql_secureEncryptWithKey(bytesOf("text"), key, 7));
    EXPECT_FALSE(ql_secureDecryptWithKey(DataView(sealed).first(15), key, iv));
    EXPECT_FALSE(ql_secureDecryptWithKey({}, key, iv));
    Data changed = sealed;
    changed[3] ^= 0xFF;
    EXPECT_NE(ql_secureDecryptWithKey(changed, key, iv), dataOf("text"));
}

}  // namespace
}  // namespace qlsdk
