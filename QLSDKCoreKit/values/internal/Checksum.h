#pragma once

#include <cstddef>
#include <cstdint>

#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

/// CRC-32C, the one of iSCSI and ext4, of the bytes of `checksum` (0 for none) followed by `more`.
[[nodiscard]] std::uint32_t crc32c(std::uint32_t checksum, DataView more) noexcept;

/// That of bytes followed by `rightLength` others, when only the checksums of both are at hand. Takes the
/// time of some hundred bytes, whatever the length; fewer than 2^28 bytes.
[[nodiscard]] std::uint32_t joinedCrc32c(std::uint32_t left, std::uint32_t right,
                                         std::size_t rightLength) noexcept;

}  // namespace qlsdk::platform
