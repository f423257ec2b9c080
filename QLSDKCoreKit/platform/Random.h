#pragma once

#include <cstdint>
#include <span>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// Port: the system's cryptographically secure random source. Any thread.
class QLSDK_EXPORT Random {
  public:
    virtual ~Random() = default;

    /// Fills `bytes` and returns 0. Any other status says that the bytes must not be used, and `errno` holds
    /// the reason; the buffer's content is then unspecified.
    [[nodiscard]] virtual int copyBytes(std::span<std::uint8_t> bytes) noexcept = 0;
};

/// Fills `bytes` from the random source of the platform in use. False when it fails, with `errno` as above;
/// that is told as a diagnostic. Any thread.
[[nodiscard]] QLSDK_EXPORT bool copyRandomBytes(std::span<std::uint8_t> bytes);

}  // namespace qlsdk::platform
