#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "QLSDKCoreKit/platform/Data.h"
#include "QLSDKCoreKit/platform/Export.h"

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
/// Nesting is bounded by who builds it: every decoder of this library stops at 512 levels.
class QLSDK_EXPORT Value {
  public:
    enum class Kind { null, boolean, integer, unsignedInteger, real, string, data, date, array, dictionary };

    Value() noexcept = default;
    Value(std::nullptr_t) noexcept {}
    Value(std::same_as<bool> auto boolean) noexcept : content_(boolean) {}
    Value(std::signed_integral auto number) noexcept : content_(static_cast<std::int64_t>(number)) {}
    template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>) Value(T number)
    noexcept {
        if (static_cast<std::uint64_t>(number) <= static_cast<std::uint64_t>(INT64_MAX)) {
            content_ = static_cast<std::int64_t>(number);
        } else {
            content_ = static_cast<std::uint64_t>(number);
        }
    }
    Value(double number) noexcept : content_(number) {}
    Value(Date date) noexcept : content_(date) {}
    Value(const char* text);
    Value(std::string_view text);
    Value(std::string text);
    Value(Data data);
    Value(Array array);
    Value(Dictionary dictionary);

    [[nodiscard]] Kind kind() const noexcept;
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
    using Content = std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double,
                                 std::shared_ptr<const std::string>, std::shared_ptr<const Data>, Date,
                                 std::shared_ptr<const Array>, std::shared_ptr<const Dictionary>>;
    Content content_;
};

/// String keys to values, in insertion order. A plain value type: copies are independent.
class QLSDK_EXPORT Dictionary {
  public:
    using Entry = std::pair<std::string, Value>;

    Dictionary() = default;
    /// Later entries replace earlier ones of the same key.
    Dictionary(std::initializer_list<Entry> entries);

    /// Sets or replaces; a replaced key keeps its place in the order.
    void set(std::string_view key, Value value);
    /// Removes the key if present; the others keep their order.
    void erase(std::string_view key);
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
    [[nodiscard]] std::size_t indexOf(std::string_view key) const noexcept;
    void rebuildIndex();

    std::vector<Entry> entries_;
    /// Filled only for large dictionaries, where a linear search would make building one quadratic.
    std::unordered_map<std::string, std::size_t> index_;
};

/// The platform's "%@" rendering of any value: "(null)" for null, the text itself for a string, decimal
/// digits that never depend on the locale for numbers (true is 1), containers in the old property-list style.
/// Cut past 64 KiB.
[[nodiscard]] QLSDK_EXPORT std::string describe(const Value& value);

/// "%@" for a text that may be absent.
[[nodiscard]] QLSDK_EXPORT std::string describe(const std::optional<std::string>& text);

/// A double as a signed 64-bit integer: cut toward zero, saturated outside the range, 0 for NaN.
[[nodiscard]] QLSDK_EXPORT std::int64_t truncateToInt64(double number) noexcept;

}  // namespace qlsdk
