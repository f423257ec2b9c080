#pragma once

#include <cstdint>
#include <span>

#include "QLSDKCoreKit/platform/Export.h"

namespace qlsdk::platform {

/// Port: the system's cryptographically secure random source. Any thread.
class QLSDK_EXPORT Random {
  public:
    virtual ~Random() = default;

    /// Fills `bytes` and returns 0. Any other status says that the bytes must not be used, and `errno` holds
    /// the reason; the buffer's content is then unspecified.
    [[nodiscard]] virtual int copyBytes(std::span<std::uint8_t> bytes) noexcept = 0;
};

}  // namespace qlsdk::platform
