#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/internal/BinaryPropertyListWriter.h"
#include "QLSDKCoreKit/values/internal/Checksum.h"

// The checksum in an archive whose pages may reach the disk one by one: its first object, eight bytes of data
// that nothing refers to, "C32C" and the CRC-32C of all bytes behind it. It stands at a fixed place in the
// first page, so that no loss of other pages makes a checksummed file look like one without.

namespace qlsdk::platform {

inline constexpr std::array<std::uint8_t, 5> kChecksumMark = {0x48, 'C', '3', '2', 'C'};
/// Where the mark is looked for: behind "bplist00".
inline constexpr std::size_t kChecksumMarkOffset = 8;
/// Where the bytes of the data object begin.
inline constexpr std::size_t kChecksumOffset = kChecksumMarkOffset + 1;
inline constexpr std::size_t kChecksummedFrom = kChecksumOffset + 8;

/// The bytes of the data object.
[[nodiscard]] inline std::array<std::uint8_t, 8> archiveChecksum(std::uint32_t checksum) noexcept {
    std::array<std::uint8_t, 8> bytes{};
    std::copy(kChecksumMark.begin() + 1, kChecksumMark.end(), bytes.begin());
    putNumber<4>(checksum, bytes.data() + 4);
    return bytes;
}

/// False also for a file without a checksum.
[[nodiscard]] inline bool contradictsItsChecksum(DataView file) noexcept {
    if (file.size() < kChecksummedFrom) return false;
    const DataView mark = file.subspan(kChecksumMarkOffset, kChecksumMark.size());
    if (!std::equal(mark.begin(), mark.end(), kChecksumMark.begin())) return false;
    const auto expected = archiveChecksum(crc32c(0, file.subspan(kChecksummedFrom)));
    return !std::equal(expected.begin(), expected.end(), file.begin() + kChecksumOffset);
}

}  // namespace qlsdk::platform
