#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

/// Seconds between 1970-01-01 and 2001-01-01 UTC, where property lists begin to count.
inline constexpr double kSecondsFrom1970To2001 = 978307200.0;

/// One object of a binary property list, as it stands in the file.
struct BinaryObject {
    enum class Kind {
        null,
        boolean,
        integer,
        unsignedInteger,
        real,
        date,
        data,
        ascii,
        utf16,
        uid,
        array,
        dictionary
    };

    Kind kind = Kind::null;
    /// Where it begins in the file.
    std::size_t offset = 0;
    /// boolean, uid; integers of both kinds as 64 bits.
    std::uint64_t number = 0;
    /// real; date, in seconds since 2001.
    double real = 0;
    /// The content of data and strings; the references of a container (of a dictionary: keys, then values).
    DataView bytes = {};
    /// Elements of an array, entries of a dictionary.
    std::uint64_t count = 0;

    /// What decoding it costs, in bytes of memory.
    [[nodiscard]] std::uint64_t cost() const noexcept {
        const bool refers = kind == Kind::array || kind == Kind::dictionary;
        return refers ? kReferenceCost * bytes.size() : bytes.size();
    }

  private:
    // A reference takes at least one byte and becomes at most so many.
    static constexpr std::uint64_t kReferenceCost = 32;
};

/// Random access to the objects of a binary property list. A view: the bytes must outlive it. Total: whatever
/// the bytes hold, no operation reads outside them, allocates by a length field or throws; what is damaged is
/// absent. It follows no references by itself, so cycles, sharing and depth are the caller's to watch.
class BinaryPropertyListReader {
  public:
    /// Checks the header, the trailer and the bounds of the offset table. Absent when they are damaged.
    [[nodiscard]] static std::optional<BinaryPropertyListReader> open(DataView bytes) noexcept;

    /// Never more than there are bytes.
    [[nodiscard]] std::uint64_t objectCount() const noexcept { return objectCount_; }
    [[nodiscard]] std::uint64_t topObject() const noexcept { return topObject_; }

    /// The object of that number; absent when it is out of range, damaged or of an unknown kind. Integers of
    /// 16 bytes count by their low 64 bits.
    [[nodiscard]] std::optional<BinaryObject> object(std::uint64_t number) const noexcept;

    /// The number of the object that a container refers to. `index` is below `count` for an array, below
    /// twice `count` for a dictionary.
    [[nodiscard]] std::uint64_t reference(const BinaryObject& container, std::uint64_t index) const noexcept;

    /// The value that a dictionary holds under an ASCII key; absent when there is none.
    [[nodiscard]] std::optional<BinaryObject> find(const BinaryObject& dictionary,
                                                   std::string_view key) const noexcept;

  private:
    BinaryPropertyListReader() = default;

    [[nodiscard]] std::optional<BinaryObject> parse(std::uint8_t marker, DataView rest) const noexcept;
    [[nodiscard]] std::optional<BinaryObject> sized(BinaryObject object, DataView rest, std::uint8_t low,
                                                    std::uint64_t elementBytes) const noexcept;

    /// Header and objects, without the table and the trailer.
    DataView objects_;
    DataView table_;
    std::uint64_t objectCount_ = 0;
    std::uint64_t topObject_ = 0;
    std::size_t offsetBytes_ = 0;
    std::size_t referenceBytes_ = 0;
};

/// The text of a string object as UTF-8. Absent when one-byte characters are neither ASCII nor UTF-8 (which
/// some writers put there).
[[nodiscard]] std::optional<std::string> decodedText(const BinaryObject& object);

/// Whether the object is a string of exactly this ASCII text.
[[nodiscard]] bool holdsText(const BinaryObject& object, std::string_view ascii) noexcept;

/// How much may still be decoded from one file. Objects that a file shares, or lays over each other, could
/// make few bytes describe any amount of work; the allowance is a multiple of the file's size that no honest
/// file needs, which keeps the effort linear.
class DecodingBudget {
  public:
    explicit DecodingBudget(std::size_t fileBytes) noexcept : left_(allowanceFor(fileBytes)) {}

    /// An event without content counts for at most 24 times its bytes; the megabyte is for small files.
    [[nodiscard]] static constexpr std::uint64_t allowanceFor(std::size_t fileBytes) noexcept {
        return (std::uint64_t{1} << 20) + std::uint64_t{32} * fileBytes;
    }

    /// Takes the cost of one object; false when it is beyond what is left.
    [[nodiscard]] bool spend(std::uint64_t bytes) noexcept {
        const std::uint64_t cost = bytes + 1;
        if (cost > left_) return false;
        left_ -= cost;
        return true;
    }

  private:
    std::uint64_t left_;
};

}  // namespace qlsdk::platform
