#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "QLSDKCoreKit/values/Data.h"
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

/// Writes the objects of a binary property list one behind the other, each once and at once, into one buffer,
/// and the table of their offsets into another. Both only grow.
///
/// An object names the objects that it holds by number, in a width that is fixed from the start: a writer
/// that has outgrown its widths no longer fits, and the list is written again with the next wider ones.
class BinaryPropertyListWriter {
  public:
    using Node = PropertyListNode;
    using Field = PropertyListField;
    struct Widths {
        std::uint8_t referenceBytes;
        std::uint8_t offsetBytes;
    };
    /// From small files to those of 4 GiB, where offsets end.
    static constexpr Widths kWidths[] = {{1, 2}, {2, 4}, {4, 4}};

    /// Node 0, the top object, is reserved.
    explicit BinaryPropertyListWriter(Widths widths);

    Node addBoolean(bool boolean);
    Node addInteger(std::int64_t number);
    Node addReal(double number);
    Node addDate(double secondsSince2001);
    Node addData(DataView bytes);
    /// `text` must be valid UTF-8.
    Node addText(std::string_view text);
    Node addUid(std::uint32_t uid);
    Node addArray(std::span<const Node> elements);
    Node addDictionary(std::span<const Field> fields);

    /// The number of an object whose bytes come later.
    Node reserve();
    void setOffset(Node node, std::size_t offset) noexcept;
    /// Other bytes in the place of some that are there.
    void overwrite(std::size_t offset, DataView bytes) noexcept;

    /// How far the writer has come; it may be taken back to there.
    struct Mark {
        std::size_t objectBytes;
        std::size_t offsetBytes;
        std::size_t count;
    };
    [[nodiscard]] Mark mark() const noexcept { return {objects_.size(), offsets_.size(), count_}; }
    void rollBack(const Mark& mark) noexcept;

    [[nodiscard]] Widths widths() const noexcept { return widths_; }
    [[nodiscard]] std::size_t count() const noexcept { return count_; }
    [[nodiscard]] DataView objects() const noexcept { return objects_.view(); }
    [[nodiscard]] DataView offsets() const noexcept { return offsets_.view(); }
    /// Whether the widths do for the objects so far and an offset table that begins at `tableOffset`.
    [[nodiscard]] bool fits(std::size_t tableOffset) const noexcept;

    void setTop(std::span<const Field> fields);
    /// The file; empty when it does not fit. The writer is of no use afterwards.
    [[nodiscard]] Data finish();

  private:
    Node begin();

    const Widths widths_;
    ByteBuffer objects_{4096};
    ByteBuffer offsets_{1024};
    std::size_t count_ = 0;
};

}  // namespace qlsdk::platform
