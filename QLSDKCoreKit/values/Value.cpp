#include "QLSDKCoreKit/values/Value.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <charconv>
#include <functional>
#include <iterator>

#include "QLSDKCoreKit/values/internal/Hex.h"

namespace qlsdk {

namespace {

constexpr std::size_t kIndexedFrom = 32;

template <typename T>
std::string digits(T number) {
    char buffer[40];
    const auto result = std::to_chars(std::begin(buffer), std::end(buffer), number);
    return {buffer, result.ptr};
}

// A rendering is for people: past this size nothing is added. The bound also holds for values that share
// their parts so often that writing them out in full would never end.
constexpr std::size_t kRenderingBytes = 65536;

void appendData(std::string& text, const Data& data) {
    text += '<';
    for (const std::uint8_t byte : data) {
        if (text.size() > kRenderingBytes) break;
        appendHex(text, byte, kLowerHex);
    }
    text += '>';
}

/// Renders one value. The containers that are open wait in a list, so that no depth costs stack.
class Renderer {
  public:
    std::string render(const Value& value) {
        append(value);
        while (!open_.empty()) appendNextElement();
        return std::move(text_);
    }

  private:
    struct Open {
        const Array* array;
        const Dictionary* dictionary;
        std::size_t next = 0;

        [[nodiscard]] std::size_t size() const noexcept {
            return array != nullptr ? array->size() : dictionary->size();
        }
    };

    void appendNextElement() {
        Open& container = open_.back();
        const bool isFirst = container.next == 0;
        if (container.dictionary != nullptr && !isFirst) text_ += "; ";
        if (text_.size() > kRenderingBytes || container.next == container.size()) {
            text_ += container.array != nullptr ? ')' : '}';
            open_.pop_back();
            return;
        }
        const std::size_t place = container.next++;
        if (container.array != nullptr) {
            if (!isFirst) text_ += ", ";
            return append((*container.array)[place]);
        }
        const auto& [key, element] = container.dictionary->begin()[static_cast<std::ptrdiff_t>(place)];
        text_ += key;
        text_ += " = ";
        append(element);
    }

    void append(const Value& value) {
        switch (value.kind()) {
            case Value::Kind::null:
                text_ += "(null)";
                break;
            case Value::Kind::string:
                text_ += *value.string();
                break;
            case Value::Kind::unsignedInteger:
                text_ += digits(static_cast<std::uint64_t>(value.longValue()));
                break;
            case Value::Kind::real:
                text_ += digits(value.doubleValue());
                break;
            case Value::Kind::data:
                appendData(text_, *value.data());
                break;
            case Value::Kind::date:
                text_ += digits(value.date()->secondsSince1970);
                break;
            case Value::Kind::array:
                text_ += '(';
                open_.push_back({.array = value.array(), .dictionary = nullptr});
                break;
            case Value::Kind::dictionary:
                text_ += '{';
                open_.push_back({.array = nullptr, .dictionary = value.dictionary()});
                break;
            default:
                text_ += digits(value.longValue());
                break;
        }
    }

    std::string text_;
    std::vector<Open> open_;
};

/// Pairs of values that have still to be compared.
using Pairs = std::vector<std::pair<const Value*, const Value*>>;

bool compareArrays(const Array& left, const Array& right, Pairs& pending) {
    if (left.size() != right.size()) return false;
    for (std::size_t i = 0; i < left.size(); ++i) pending.emplace_back(&left[i], &right[i]);
    return true;
}

bool compareDictionaries(const Dictionary& left, const Dictionary& right, Pairs& pending) {
    if (left.size() != right.size()) return false;
    for (const auto& [key, value] : left) {
        const Value* other = right.find(key);
        if (other == nullptr) return false;
        pending.emplace_back(&value, other);
    }
    return true;
}

/// False when they differ; what containers hold is left to be compared.
bool compare(const Value& left, const Value& right, Pairs& pending) {
    if (left.kind() != right.kind()) return false;
    switch (left.kind()) {
        case Value::Kind::null:
            return true;
        case Value::Kind::real:
            return left.doubleValue() == right.doubleValue();
        case Value::Kind::string:
            return *left.string() == *right.string();
        case Value::Kind::data:
            return *left.data() == *right.data();
        case Value::Kind::date:
            return *left.date() == *right.date();
        case Value::Kind::array:
            return left.array() == right.array() || compareArrays(*left.array(), *right.array(), pending);
        case Value::Kind::dictionary:
            return left.dictionary() == right.dictionary() ||
                   compareDictionaries(*left.dictionary(), *right.dictionary(), pending);
        default:
            return left.longValue() == right.longValue();
    }
}

bool comparePending(Pairs& pending) {
    while (!pending.empty()) {
        const auto [left, right] = pending.back();
        pending.pop_back();
        if (!compare(*left, *right, pending)) return false;
    }
    return true;
}

}  // namespace

struct Value::Shared {
    explicit Shared(Kind kindOfContent) noexcept : kind(kindOfContent) {}

    std::atomic<std::size_t> owners{1};
    const Kind kind;
    /// Among those that nobody owns any more and that are being taken apart.
    Shared* next = nullptr;
};

template <typename T>
struct Value::Holder : Shared {
    Holder(Kind kindOfContent, T&& given) noexcept : Shared(kindOfContent), content(std::move(given)) {}

    T content;
};

template <typename T>
Value::Value(Kind kind, std::in_place_type_t<T>, T content)
    : kind_(kind), content_{.shared = new Holder<T>(kind, std::move(content))} {}

Value::Value(const char* text) {
    if (text != nullptr) *this = Value(std::string(text));
}
Value::Value(std::string_view text) : Value(std::string(text)) {}
Value::Value(std::string text) : Value(Kind::string, std::in_place_type<std::string>, std::move(text)) {}
Value::Value(Data data) : Value(Kind::data, std::in_place_type<Data>, std::move(data)) {}
Value::Value(Array array) : Value(Kind::array, std::in_place_type<Array>, std::move(array)) {}
Value::Value(Dictionary dictionary)
    : Value(Kind::dictionary, std::in_place_type<Dictionary>, std::move(dictionary)) {}

template <typename T>
const T* Value::sharedContent(Kind kind) const noexcept {
    return kind_ == kind ? &static_cast<const Holder<T>*>(content_.shared)->content : nullptr;
}

void Value::retain() const noexcept {
    if (isShared()) content_.shared->owners.fetch_add(1, std::memory_order_relaxed);
}

/// Becomes null. The content, when this was its last owner.
Value::Shared* Value::letGo() noexcept {
    if (!isShared()) return nullptr;
    kind_ = Kind::null;
    Shared* shared = content_.shared;
    return shared->owners.fetch_sub(1, std::memory_order_acq_rel) == 1 ? shared : nullptr;
}

/// Containers hand over what only they owned before they go, so that the depth costs neither stack nor
/// memory.
void Value::release() noexcept {
    Shared* first = letGo();
    const auto take = [&first](Value& value) {
        Shared* shared = value.letGo();
        if (shared == nullptr) return;
        shared->next = first;
        first = shared;
    };
    while (first != nullptr) {
        Shared* const shared = std::exchange(first, first->next);
        switch (shared->kind) {
            case Kind::string:
                delete static_cast<Holder<std::string>*>(shared);
                break;
            case Kind::data:
                delete static_cast<Holder<Data>*>(shared);
                break;
            case Kind::array: {
                const std::unique_ptr<Holder<Array>> holder(static_cast<Holder<Array>*>(shared));
                for (Value& element : holder->content) take(element);
                break;
            }
            default: {
                const std::unique_ptr<Holder<Dictionary>> holder(static_cast<Holder<Dictionary>*>(shared));
                for (auto& entry : holder->content.entries_) take(entry.second);
                break;
            }
        }
    }
}

bool Value::isNumber() const noexcept {
    return kind() >= Kind::boolean && kind() <= Kind::real;
}

const std::string* Value::string() const noexcept {
    return sharedContent<std::string>(Kind::string);
}
const Data* Value::data() const noexcept {
    return sharedContent<Data>(Kind::data);
}
const Date* Value::date() const noexcept {
    return kind_ == Kind::date ? &content_.date : nullptr;
}
const Array* Value::array() const noexcept {
    return sharedContent<Array>(Kind::array);
}
const Dictionary* Value::dictionary() const noexcept {
    return sharedContent<Dictionary>(Kind::dictionary);
}

bool Value::boolValue() const noexcept {
    return kind_ == Kind::real ? content_.real != 0 : longValue() != 0;
}

std::int64_t Value::longValue() const noexcept {
    switch (kind_) {
        case Kind::boolean:
            return content_.boolean ? 1 : 0;
        case Kind::integer:
        case Kind::unsignedInteger:
            return content_.integer;
        case Kind::real:
            return truncateToInt64(content_.real);
        default:
            return 0;
    }
}

double Value::doubleValue() const noexcept {
    switch (kind()) {
        case Kind::unsignedInteger:
            return static_cast<double>(static_cast<std::uint64_t>(content_.integer));
        case Kind::real:
            return content_.real;
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
    Pairs pending;
    return compare(left, right, pending) && comparePending(pending);
}

Dictionary::Dictionary(std::initializer_list<Entry> entries) {
    for (const Entry& entry : entries) set(entry.first, entry.second);
}

/// The slot of the index that holds the key, or the free one where it belongs. The index is never full.
std::size_t Dictionary::slotOf(std::string_view key) const noexcept {
    const std::size_t mask = index_.size() - 1;
    std::size_t slot = std::hash<std::string_view>()(key) & mask;
    while (index_[slot] != 0 && entries_[index_[slot] - 1].first != key) slot = (slot + 1) & mask;
    return slot;
}

std::size_t Dictionary::indexOf(std::string_view key) const noexcept {
    if (!index_.empty()) {
        const std::uint32_t place = index_[slotOf(key)];
        return place != 0 ? place - 1 : entries_.size();
    }
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [key](const Entry& entry) { return entry.first == key; });
    return static_cast<std::size_t>(found - entries_.begin());
}

void Dictionary::fillIndex() noexcept {
    std::fill(index_.begin(), index_.end(), 0);
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        index_[slotOf(entries_[i].first)] = static_cast<std::uint32_t>(i + 1);
    }
}

void Dictionary::set(std::string_view key, Value value) {
    const std::size_t place = indexOf(key);
    if (place < entries_.size()) {
        entries_[place].second = std::move(value);
        return;
    }
    // Whatever needs memory comes before the change.
    const std::size_t size = place + 1;
    const bool grows = size >= kIndexedFrom && 2 * size > index_.size();
    std::vector<std::uint32_t> grown(grows ? std::bit_ceil(4 * size) : 0);
    entries_.emplace_back(key, std::move(value));
    if (grows) {
        index_.swap(grown);
        fillIndex();
    } else if (!index_.empty()) {
        index_[slotOf(entries_.back().first)] = static_cast<std::uint32_t>(size);
    }
}

void Dictionary::erase(std::string_view key) noexcept {
    const std::size_t place = indexOf(key);
    if (place >= entries_.size()) return;
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(place));
    if (!index_.empty()) fillIndex();
}

const Value* Dictionary::find(std::string_view key) const noexcept {
    const std::size_t place = indexOf(key);
    return place < entries_.size() ? &entries_[place].second : nullptr;
}

bool operator==(const Dictionary& left, const Dictionary& right) {
    Pairs pending;
    return compareDictionaries(left, right, pending) && comparePending(pending);
}

std::string describe(const Value& value) {
    return Renderer().render(value);
}

std::string describe(const std::optional<std::string>& text) {
    return text.value_or("(null)");
}

}  // namespace qlsdk
