#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

// Digests, ciphers and base64. Stateless, any thread, nothing is thrown. Once OpenSSL has been torn down, by
// the host's call or in its exit handler, digests are absent and ciphers fail.

using Aes256Key = std::span<const std::uint8_t, 32>;
/// Initialisation vector, nonce or authentication tag.
using Block16 = std::array<std::uint8_t, 16>;

/// Absent where the system's policy forbids the digest, and without OpenSSL or the memory to set it up.
[[nodiscard]] QLSDK_EXPORT std::optional<Block16> md5(DataView bytes) noexcept;
[[nodiscard]] QLSDK_EXPORT std::optional<std::array<std::uint8_t, 32>> sha256(DataView bytes) noexcept;

/// Standard alphabet, "=" padding, no line breaks.
[[nodiscard]] QLSDK_EXPORT std::string base64Encode(DataView bytes);
/// Strict: the standard alphabet only, padding required and in its place. Absent for anything else.
[[nodiscard]] QLSDK_EXPORT std::optional<Data> base64Decode(std::string_view text);

/// AES-256 in CBC mode with PKCS#7 padding. Decryption is absent when the length or the padding is wrong.
[[nodiscard]] QLSDK_EXPORT std::optional<Data> aes256CbcEncrypt(DataView plain, Aes256Key key,
                                                                const Block16& iv) noexcept;
[[nodiscard]] QLSDK_EXPORT std::optional<Data> aes256CbcDecrypt(DataView sealed, Aes256Key key,
                                                                const Block16& iv) noexcept;

/// AES-256-GCM with a 16-byte nonce and tag; `output` has the size of `input`. False on failure: for opening,
/// when the tag does not fit key, nonce and bytes; `output` must then not be used.
[[nodiscard]] QLSDK_EXPORT bool aes256GcmSeal(std::span<std::uint8_t> output, Block16& tag,
                                              const Block16& nonce, Aes256Key key, DataView input) noexcept;
[[nodiscard]] QLSDK_EXPORT bool aes256GcmOpen(std::span<std::uint8_t> output, const Block16& tag,
                                              const Block16& nonce, Aes256Key key, DataView input) noexcept;

}  // namespace qlsdk::platform
