#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk {

class Value;
class Dictionary;

using Array = std::vector<Value>;

/// A point in time: seconds since 1970-01-01 UTC.
struct Date {
    double secondsSince1970 = 0;
    friend bool operator==(const Date&, const Date&) = default;
};

/// The one dynamic type for property lists, JSON, user defaults, keychain attributes and metadata.
///
/// Immutable and cheap to copy: strings, data and containers are shared between copies, so one value may be
/// read from any number of threads. Booleans are numbers, yet 1, 1.0 and true stay apart: equality compares
/// the kind as well as the content. Integers up to the signed maximum are `integer`, larger ones
/// `unsignedInteger`, whichever constructor made them.
///
/// Nesting is bounded by who builds it: every decoder and encoder of this library stops at 512 levels.
/// Copying, comparing, describing and destroying take the same stack for any depth.
class QLSDK_EXPORT Value {
  public:
    enum class Kind { null, boolean, integer, unsignedInteger, real, string, data, date, array, dictionary };

    Value() noexcept = default;
    Value(std::nullptr_t) noexcept {}
    Value(std::same_as<bool> auto boolean) noexcept : kind_(Kind::boolean), content_{.boolean = boolean} {}
    Value(std::signed_integral auto number) noexcept
        : kind_(Kind::integer), content_{.integer = static_cast<std::int64_t>(number)} {}
    template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>) Value(T number)
    noexcept
        : kind_(static_cast<std::uint64_t>(number) <= static_cast<std::uint64_t>(INT64_MAX)
                    ? Kind::integer
                    : Kind::unsignedInteger),
          content_{.integer = static_cast<std::int64_t>(number)} {}
    Value(double number) noexcept : kind_(Kind::real), content_{.real = number} {}
    Value(Date date) noexcept : kind_(Kind::date), content_{.date = date} {}
    Value(const char* text);
    Value(std::string_view text);
    Value(std::string text);
    Value(Data data);
    Value(Array array);
    Value(Dictionary dictionary);

    Value(const Value& other) noexcept : kind_(other.kind_), content_(other.content_) { retain(); }
    /// Leaves null behind.
    Value(Value&& other) noexcept : kind_(std::exchange(other.kind_, Kind::null)), content_(other.content_) {}
    Value& operator=(Value other) noexcept {
        std::swap(kind_, other.kind_);
        std::swap(content_, other.content_);
        return *this;
    }
    ~Value() {
        if (isShared()) release();
    }

    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    [[nodiscard]] bool isNull() const noexcept { return kind() == Kind::null; }
    /// True for booleans, integers of both signs and reals.
    [[nodiscard]] bool isNumber() const noexcept;

    /// The content when the kind matches, else null. Borrowed from this value.
    [[nodiscard]] const std::string* string() const noexcept;
    [[nodiscard]] const Data* data() const noexcept;
    [[nodiscard]] const Date* date() const noexcept;
    [[nodiscard]] const Array* array() const noexcept;
    [[nodiscard]] const Dictionary* dictionary() const noexcept;

    /// A number's content in another shape; anything that is no number reads as false or zero.
    /// `boolValue`: non-zero is true. `longValue`: fractions are cut toward zero, values outside the range
    /// saturate, NaN is 0; an unsigned integer above the signed maximum keeps its bits.
    [[nodiscard]] bool boolValue() const noexcept;
    [[nodiscard]] std::int64_t longValue() const noexcept;
    [[nodiscard]] double doubleValue() const noexcept;

    /// The element of a dictionary under `key`; null when this is no dictionary or holds no such key.
    [[nodiscard]] Value operator[](std::string_view key) const;

    friend QLSDK_EXPORT bool operator==(const Value& left, const Value& right);

  private:
    /// What copies share. It counts its owners itself, so that a tree can be taken apart without recursion.
    struct Shared;
    template <typename T>
    struct Holder;
    union Content {
        Shared* shared = nullptr;
        bool boolean;
        std::int64_t integer;
        double real;
        Date date;
    };

    template <typename T>
    Value(Kind kind, std::in_place_type_t<T>, T content);

    [[nodiscard]] bool isShared() const noexcept { return kind_ >= Kind::string && kind_ != Kind::date; }
    template <typename T>
    [[nodiscard]] const T* sharedContent(Kind kind) const noexcept;
    void retain() const noexcept;
    void release() noexcept;
    [[nodiscard]] Shared* letGo() noexcept;

    Kind kind_ = Kind::null;
    Content content_{};
};

/// String keys to values, in insertion order. A plain value type: copies are independent.
class QLSDK_EXPORT Dictionary {
  public:
    using Entry = std::pair<std::string, Value>;

    Dictionary() = default;
    /// Later entries replace earlier ones of the same key.
    Dictionary(std::initializer_list<Entry> entries);

    Dictionary(const Dictionary&) = default;
    Dictionary(Dictionary&&) noexcept = default;
    Dictionary& operator=(const Dictionary& other) { return *this = Dictionary(other); }
    Dictionary& operator=(Dictionary&&) noexcept = default;
    ~Dictionary() = default;

    /// Sets or replaces; a replaced key keeps its place in the order. Without the memory for it
    /// (`std::bad_alloc`) nothing has changed.
    void set(std::string_view key, Value value);
    /// Removes the key if present; the others keep their order.
    void erase(std::string_view key) noexcept;
    /// Borrowed; null when absent. Valid until the next change.
    [[nodiscard]] const Value* find(std::string_view key) const noexcept;
    [[nodiscard]] bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }

    [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }
    [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }
    [[nodiscard]] auto begin() const noexcept { return entries_.begin(); }
    [[nodiscard]] auto end() const noexcept { return entries_.end(); }

    /// Equal when both hold the same keys with equal values, in any order.
    friend QLSDK_EXPORT bool operator==(const Dictionary& left, const Dictionary& right);

  private:
    friend class Value;

    [[nodiscard]] std::size_t indexOf(std::string_view key) const noexcept;
    [[nodiscard]] std::size_t slotOf(std::string_view key) const noexcept;
    void fillIndex() noexcept;

    std::vector<Entry> entries_;
    /// Only for large dictionaries, where a linear search would make building one quadratic: a hash table of
    /// places in `entries_`, counted from 1; 0 is free. Its size is a power of two and over the entries'
    /// number.
    std::vector<std::uint32_t> index_;
};

/// The platform's "%@" rendering of any value: "(null)" for null, the text itself for a string, decimal
/// digits that never depend on the locale for numbers (true is 1), containers in the old property-list style.
/// Cut past 64 KiB.
[[nodiscard]] QLSDK_EXPORT std::string describe(const Value& value);

/// "%@" for a text that may be absent.
[[nodiscard]] QLSDK_EXPORT std::string describe(const std::optional<std::string>& text);

/// A double as a signed 64-bit integer: cut toward zero, saturated outside the range, 0 for NaN.
[[nodiscard]] constexpr std::int64_t truncateToInt64(double number) noexcept {
    // 2^63 is exactly representable; the signed maximum is not, so the upper bound excludes it.
    constexpr double kLimit = 9223372036854775808.0;
    if (number != number) return 0;
    if (number >= kLimit) return INT64_MAX;
    if (number < -kLimit) return INT64_MIN;
    return static_cast<std::int64_t>(number);
}

}  // namespace qlsdk
