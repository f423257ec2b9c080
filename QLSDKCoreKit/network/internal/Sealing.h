#pragma once

#include <cstdint>
#include <span>

#include "QLSDKCoreKit/platform/Crypto.h"
#include "QLSDKCoreKit/platform/Data.h"

namespace qlsdk {

/// What the two transformations return on success; any other value is a failure.
inline constexpr int kSealingSuccess = 2;

/// The key material that is built into the library (see the build option QLSDK_SEALING_KEY_FILE).
[[nodiscard]] platform::Aes256Key sealingKey() noexcept;

/// Authenticated encryption: AES-256-GCM. `output` has the size of `input`; `tag` receives 16 bytes. The two
/// reserved numbers are 0.
[[nodiscard]] int sealPayload(std::span<std::uint8_t> output, platform::Block16& tag,
                              const platform::Block16& nonce, platform::Aes256Key key, int reservedBefore,
                              DataView input, int reservedAfter) noexcept;

/// The way back. On failure `output` must not be used.
[[nodiscard]] int openPayload(std::span<std::uint8_t> output, const platform::Block16& tag,
                              const platform::Block16& nonce, platform::Aes256Key key,
                              DataView input) noexcept;

}  // namespace qlsdk
