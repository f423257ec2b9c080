#pragma once

#include <cstdint>
#include <span>

#include "QLSDKCoreKit/platform/Crypto.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk {

/// What `sealPayload` returns on success; any other value is a failure.
inline constexpr int kSealingSuccess = 2;

/// The key material that is built into the library (see the build option QLSDK_SEALING_KEY_FILE). 32 bytes.
[[nodiscard]] platform::Aes256Key sealingKey() noexcept;

/// The key of builds that name none, which is public. 32 bytes.
[[nodiscard]] platform::Aes256Key developmentSealingKey() noexcept;

/// Says once in this process that tokens are sealed with the development key, if they are. Any thread.
void reportDevelopmentKey() noexcept;

/// Seals the text of a client auth token: AES-256-GCM with a nonce of 16 bytes. `output` is as long as
/// `input`; `tag` is written. Any thread; stateless.
///
/// The arguments, their order and the status are the same wherever such tokens are made, so that a build can
/// put another routine in this one's place. The two numbers are reserved: callers pass 0, and this routine,
/// which has no use for them, ignores them.
[[nodiscard]] int sealPayload(std::span<std::uint8_t> output, platform::Block16& tag,
                              const platform::Block16& nonce, platform::Aes256Key key, int reservedBefore,
                              DataView input, int reservedAfter) noexcept;

}  // namespace qlsdk
