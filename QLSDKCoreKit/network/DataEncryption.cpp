#include "QLSDKCoreKit/network/DataEncryption.h"

#include <algorithm>
#include <array>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/platform/Crypto.h"

namespace qlsdk {

namespace {

template <std::size_t size>
std::optional<std::array<std::uint8_t, size>> material(const Value& source) {
    std::optional<Data> bytes;
    if (source.string() != nullptr) bytes = ql_dataWithBase64EncodedString(*source.string());
    if (source.data() != nullptr) bytes = *source.data();
    if (!bytes) return std::nullopt;
    std::array<std::uint8_t, size> filled{};
    std::copy_n(bytes->begin(), std::min(bytes->size(), size), filled.begin());
    return filled;
}

using Cipher = std::optional<Data> (*)(DataView, platform::Aes256Key, const platform::Block16&) noexcept;

std::optional<Data> transformed(Cipher cipher, DataView data, const Value& key, const Value& iv) {
    const auto keyBytes = material<32>(key);
    const auto ivBytes = material<16>(iv);
    if (!keyBytes || !ivBytes) return std::nullopt;
    return cipher(data, *keyBytes, *ivBytes);
}

}  // namespace

std::optional<Data> ql_secureEncryptWithKey(DataView data, const Value& key, const Value& iv) {
    return transformed(platform::aes256CbcEncrypt, data, key, iv);
}

std::optional<Data> ql_secureDecryptWithKey(DataView data, const Value& key, const Value& iv) {
    return transformed(platform::aes256CbcDecrypt, data, key, iv);
}

}  // namespace qlsdk
