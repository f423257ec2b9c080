#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/internal/PropertyListBytes.h"

namespace qlsdk::platform {

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
