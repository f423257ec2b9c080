#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "QLSDKCoreKit/platform/Data.h"

namespace qlsdk::platform {

// The bytes of single objects of a binary property list, written at the end of a buffer.

/// The number of an object in its file.
using PropertyListNode = std::uint32_t;

struct PropertyListField {
    PropertyListNode key;
    PropertyListNode value;
};

/// Room for `count` bytes more at the end; returns where they begin.
inline std::uint8_t* extend(Data& out, std::size_t count) {
    const std::size_t size = out.size();
    out.resize(size + count);
    return out.data() + size;
}

/// Big-endian in `width` bytes; higher bits are cut. Returns the end.
inline std::uint8_t* putNumber(std::uint64_t number, std::size_t width, std::uint8_t* out) noexcept {
    for (std::size_t shift = 8 * width; shift != 0; shift -= 8) {
        *out++ = static_cast<std::uint8_t>(number >> (shift - 8));
    }
    return out;
}

void appendNumber(std::uint64_t number, std::size_t width, Data& out);

/// As everyone reads it: 1, 2 or 4 bytes unsigned, else (and when negative) 8 bytes signed.
void appendInteger(std::int64_t number, Data& out);

/// The kind of an object and how many bytes, units or elements follow.
void appendMarker(std::uint8_t kind, std::size_t count, Data& out);

void appendArray(std::span<const PropertyListNode> elements, std::size_t referenceBytes, Data& out);
void appendDictionary(std::span<const PropertyListField> fields, std::size_t referenceBytes, Data& out);

inline constexpr std::uint8_t kArrayMarker = 0xA0;

inline constexpr std::size_t kTrailerBytes = 32;
/// The end of a file whose top object is node 0.
void appendTrailer(std::size_t objectCount, std::size_t tableOffset, std::size_t referenceBytes,
                   std::size_t offsetBytes, Data& out);

}  // namespace qlsdk::platform
