#include "QLSDKCoreKit/platform/Value.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>

namespace qlsdk {

namespace {

constexpr std::size_t kIndexedFrom = 32;

template <typename T>
const T* shared(const auto& content) noexcept {
    const auto* pointer = std::get_if<std::shared_ptr<const T>>(&content);
    return pointer != nullptr ? pointer->get() : nullptr;
}

template <typename T>
std::string digits(T number) {
    char buffer[40];
    const auto result = std::to_chars(std::begin(buffer), std::end(buffer), number);
    return {buffer, result.ptr};
}

// A rendering is for people: past this size nothing is added. The bound also holds for values that share
// their parts so often that writing them out in full would never end.
constexpr std::size_t kRenderingBytes = 65536;

void append(std::string& text, const Value& value);

void appendData(std::string& text, const Data& data) {
    static constexpr char kHex[] = "0123456789abcdef";
    text += '<';
    for (const std::uint8_t byte : data) {
        if (text.size() > kRenderingBytes) break;
        text += kHex[byte >> 4];
        text += kHex[byte & 15];
    }
    text += '>';
}

void appendArray(std::string& text, const Array& array) {
    text += '(';
    bool first = true;
    for (const Value& element : array) {
        if (text.size() > kRenderingBytes) break;
        if (!std::exchange(first, false)) text += ", ";
        append(text, element);
    }
    text += ')';
}

void appendDictionary(std::string& text, const Dictionary& dictionary) {
    text += '{';
    for (const auto& [key, element] : dictionary) {
        if (text.size() > kRenderingBytes) break;
        text += key + " = ";
        append(text, element);
        text += "; ";
    }
    text += '}';
}

void append(std::string& text, const Value& value) {
    switch (value.kind()) {
        case Value::Kind::null:
            text += "(null)";
            break;
        case Value::Kind::string:
            text += *value.string();
            break;
        case Value::Kind::unsignedInteger:
            text += digits(static_cast<std::uint64_t>(value.longValue()));
            break;
        case Value::Kind::real:
            text += digits(value.doubleValue());
            break;
        case Value::Kind::data:
            appendData(text, *value.data());
            break;
        case Value::Kind::date:
            text += digits(value.date()->secondsSince1970);
            break;
        case Value::Kind::array:
            appendArray(text, *value.array());
            break;
        case Value::Kind::dictionary:
            appendDictionary(text, *value.dictionary());
            break;
        default:
            text += digits(value.longValue());
            break;
    }
}

}  // namespace

Value::Value(const char* text) {
    if (text != nullptr) content_ = std::make_shared<const std::string>(text);
}
Value::Value(std::string_view text) : content_(std::make_shared<const std::string>(text)) {}
Value::Value(std::string text) : content_(std::make_shared<const std::string>(std::move(text))) {}
Value::Value(Data data) : content_(std::make_shared<const Data>(std::move(data))) {}
Value::Value(Array array) : content_(std::make_shared<const Array>(std::move(array))) {}
Value::Value(Dictionary dictionary) : content_(std::make_shared<const Dictionary>(std::move(dictionary))) {}

Value::Kind Value::kind() const noexcept {
    return static_cast<Kind>(content_.index());
}

bool Value::isNumber() const noexcept {
    return kind() >= Kind::boolean && kind() <= Kind::real;
}

const std::string* Value::string() const noexcept {
    return shared<std::string>(content_);
}
const Data* Value::data() const noexcept {
    return shared<Data>(content_);
}
const Date* Value::date() const noexcept {
    return std::get_if<Date>(&content_);
}
const Array* Value::array() const noexcept {
    return shared<Array>(content_);
}
const Dictionary* Value::dictionary() const noexcept {
    return shared<Dictionary>(content_);
}

bool Value::boolValue() const noexcept {
    const double* real = std::get_if<double>(&content_);
    return real != nullptr ? *real != 0 : longValue() != 0;
}

std::int64_t Value::longValue() const noexcept {
    switch (kind()) {
        case Kind::boolean:
            return std::get<bool>(content_) ? 1 : 0;
        case Kind::integer:
            return std::get<std::int64_t>(content_);
        case Kind::unsignedInteger:
            return static_cast<std::int64_t>(std::get<std::uint64_t>(content_));
        case Kind::real:
            return truncateToInt64(std::get<double>(content_));
        default:
            return 0;
    }
}

double Value::doubleValue() const noexcept {
    switch (kind()) {
        case Kind::unsignedInteger:
            return static_cast<double>(std::get<std::uint64_t>(content_));
        case Kind::real:
            return std::get<double>(content_);
        default:
            return static_cast<double>(longValue());
    }
}

Value Value::operator[](std::string_view key) const {
    const Dictionary* entries = dictionary();
    const Value* found = entries != nullptr ? entries->find(key) : nullptr;
    return found != nullptr ? *found : Value();
}

bool operator==(const Value& left, const Value& right) {
    if (left.content_ == right.content_) return true;
    if (left.kind() != right.kind()) return false;
    switch (left.kind()) {
        case Value::Kind::string:
            return *left.string() == *right.string();
        case Value::Kind::data:
            return *left.data() == *right.data();
        case Value::Kind::array:
            return *left.array() == *right.array();
        case Value::Kind::dictionary:
            return *left.dictionary() == *right.dictionary();
        default:
            return false;
    }
}

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
    for (const Entry& entry : entries) set(entry.first, entry.second);
}

std::size_t Dictionary::indexOf(std::string_view key) const noexcept {
    if (index_.empty()) {
        const auto found = std::find_if(entries_.begin(), entries_.end(),
                                        [key](const Entry& entry) { return entry.first == key; });
        return static_cast<std::size_t>(found - entries_.begin());
    }
    const auto found = index_.find(std::string(key));
    return found != index_.end() ? found->second : entries_.size();
}

void Dictionary::rebuildIndex() {
    index_.clear();
    if (entries_.size() < kIndexedFrom) return;
    for (std::size_t i = 0; i < entries_.size(); ++i) index_.emplace(entries_[i].first, i);
}

void Dictionary::set(std::string_view key, Value value) {
    const std::size_t place = indexOf(key);
    if (place < entries_.size()) {
        entries_[place].second = std::move(value);
        return;
    }
    entries_.emplace_back(std::string(key), std::move(value));
    if (!index_.empty()) {
        index_.emplace(std::string(key), place);
    } else if (entries_.size() >= kIndexedFrom) {
        rebuildIndex();
    }
}

void Dictionary::erase(std::string_view key) {
    const std::size_t place = indexOf(key);
    if (place >= entries_.size()) return;
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(place));
    rebuildIndex();
}

const Value* Dictionary::find(std::string_view key) const noexcept {
    const std::size_t place = indexOf(key);
    return place < entries_.size() ? &entries_[place].second : nullptr;
}

bool operator==(const Dictionary& left, const Dictionary& right) {
    return left.size() == right.size() && std::all_of(left.begin(), left.end(), [&](const auto& entry) {
               const Value* other = right.find(entry.first);
               return other != nullptr && *other == entry.second;
           });
}

std::string describe(const Value& value) {
    std::string text;
    append(text, value);
    return text;
}

std::string describe(const std::optional<std::string>& text) {
    return text.value_or("(null)");
}

std::int64_t truncateToInt64(double number) noexcept {
    // 2^63 is exactly representable; the signed maximum is not, so the upper bound excludes it.
    constexpr double kLimit = 9223372036854775808.0;
    if (std::isnan(number)) return 0;
    if (number >= kLimit) return INT64_MAX;
    if (number < -kLimit) return INT64_MIN;
    return static_cast<std::int64_t>(number);
}

}  // namespace qlsdk
