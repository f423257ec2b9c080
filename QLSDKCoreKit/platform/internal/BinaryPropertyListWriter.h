#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "QLSDKCoreKit/platform/Data.h"

namespace qlsdk::platform {

/// Builds a binary property list from nodes in one flat arena: no allocation for a node of its own, and one
/// pass into one buffer when all are known, because only then the width of a reference is.
///
/// Text and data are borrowed until `finish`. Node 0 is the top dictionary, set last with `setTop`.
class BinaryPropertyListWriter {
  public:
    using Node = std::uint32_t;
    struct Field {
        Node key;
        Node value;
    };

    BinaryPropertyListWriter();

    Node addBoolean(bool boolean);
    /// As everyone reads it: 1, 2 or 4 bytes unsigned, else (and when negative) 8 bytes signed.
    Node addInteger(std::int64_t number);
    Node addReal(double number);
    Node addData(DataView bytes);
    /// `text` must be valid UTF-8.
    Node addText(std::string_view text);
    Node addUid(std::uint32_t uid);
    Node addArray(std::span<const Node> elements);
    Node addDictionary(std::span<const Field> fields);
    void setTop(std::span<const Field> fields);

    /// The file. Empty when it would pass 4 GiB, where offsets end.
    [[nodiscard]] Data finish() const;

  private:
    enum class Kind : std::uint8_t { no, yes, integer, real, data, ascii, utf16, uid, array, dictionary };
    struct Entry {
        Kind kind;
        /// Bytes of data and text, elements of an array, fields of a dictionary.
        std::uint32_t count;
        union {
            std::uint64_t bits;
            const std::uint8_t* bytes;
            /// Where the references begin in `references_`.
            std::size_t first;
        };
    };

    Node add(Kind kind, std::uint64_t bits);
    Node addBytes(Kind kind, DataView bytes, std::size_t writtenBytes);
    Entry dictionaryEntry(std::span<const Field> fields);
    std::uint8_t* writeEntry(const Entry& entry, std::size_t referenceBytes, std::uint8_t* out) const;

    std::vector<Entry> entries_;
    std::vector<Node> references_;
    /// At least what data and text take in the file.
    std::size_t contentBytes_ = 0;
    bool tooLarge_ = false;
};

}  // namespace qlsdk::platform
