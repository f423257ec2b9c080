#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "QLSDKCoreKit/values/internal/ByteBuffer.h"

namespace qlsdk::platform {

// The bytes of single objects of a binary property list, written at the end of a buffer.

/// The number of an object in its file.
using PropertyListNode = std::uint32_t;

struct PropertyListField {
    PropertyListNode key;
    PropertyListNode value;
};

template <std::size_t Width>
std::uint8_t* putNumber(std::uint64_t number, std::uint8_t* out) noexcept {
    for (std::size_t i = 0; i < Width; ++i)
        out[i] = static_cast<std::uint8_t>(number >> (8 * (Width - 1 - i)));
    return out + Width;
}

/// Big-endian in `width` bytes, of which there are 1, 2, 4 or 8; higher bits are cut. Returns the end.
inline std::uint8_t* putNumber(std::uint64_t number, std::size_t width, std::uint8_t* out) noexcept {
    switch (width) {
        case 1:
            return putNumber<1>(number, out);
        case 2:
            return putNumber<2>(number, out);
        case 4:
            return putNumber<4>(number, out);
        default:
            return putNumber<8>(number, out);
    }
}

void appendNumber(std::uint64_t number, std::size_t width, ByteBuffer& out);

/// As everyone reads it: 1, 2 or 4 bytes unsigned, else (and when negative) 8 bytes signed.
void appendInteger(std::int64_t number, ByteBuffer& out);

/// The kind of an object and how many bytes, units or elements follow.
void appendMarker(std::uint8_t kind, std::size_t count, ByteBuffer& out);

void appendArray(std::span<const PropertyListNode> elements, std::size_t referenceBytes, ByteBuffer& out);
void appendDictionary(std::span<const PropertyListField> fields, std::size_t referenceBytes, ByteBuffer& out);

inline constexpr std::uint8_t kArrayMarker = 0xA0;

inline constexpr std::size_t kTrailerBytes = 32;
/// The end of a file whose top object is node 0.
void appendTrailer(std::size_t objectCount, std::size_t tableOffset, std::size_t referenceBytes,
                   std::size_t offsetBytes, ByteBuffer& out);

}  // namespace qlsdk::platform
