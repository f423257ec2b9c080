#include "QLSDKCoreKit/values/internal/KeyedUnarchiver.h"

#include <algorithm>
#include <array>
#include <utility>

#include "QLSDKCoreKit/values/KeyedCoder.h"
#include "QLSDKCoreKit/values/internal/KeyedArchiveFormat.h"
#include "QLSDKCoreKit/values/internal/Nesting.h"

namespace qlsdk::platform {

namespace {

using Kind = BinaryObject::Kind;
namespace cost = keyed::cost;

std::uint64_t searchCost(const BinaryObject& dictionary) noexcept {
    return cost::kSearchedByte * dictionary.bytes.size();
}

std::optional<DataView> plainBytes(const BinaryObject& object) noexcept {
    return object.kind == Kind::data ? std::optional(object.bytes) : std::nullopt;
}

}  // namespace

std::optional<ArchivedObject> KeyedUnarchiver::unarchive() {
    std::uint64_t root = 0;
    if (!openTop(root)) return std::nullopt;
    const ArchivedObject& object = objectAt(root);
    return failed_ ? std::nullopt : std::optional(object);
}

bool KeyedUnarchiver::openTop(std::uint64_t& root) {
    const auto top = reader_.object(reader_.topObject());
    if (!top || !spend(searchCost(*top))) return false;
    const auto version = reader_.find(*top, keyed::kVersionKey);
    const auto archiver = reader_.find(*top, keyed::kArchiverKey);
    const auto roots = reader_.find(*top, keyed::kTopKey);
    const auto objects = reader_.find(*top, keyed::kObjectsKey);
    if (!version || version->kind != Kind::integer || version->number != keyed::kVersion) return false;
    if (!archiver || !holdsText(*archiver, keyed::kArchiver)) return false;
    if (!roots || !spend(searchCost(*roots))) return false;
    const auto reference = reader_.find(*roots, keyed::kRootKey);
    if (!reference || reference->kind != Kind::uid) return false;
    if (!objects || objects->kind != Kind::array || objects->count == 0) return false;
    root = reference->number;
    objects_ = *objects;
    if (!spend(cost::kNumber * objects_.count)) return false;
    slots_.resize(static_cast<std::size_t>(objects_.count));
    return true;
}

ArchivedObject KeyedUnarchiver::fail() noexcept {
    failed_ = true;
    return {};
}

bool KeyedUnarchiver::spend(std::uint64_t bytes) noexcept {
    failed_ = failed_ || !budget_.spend(bytes);
    return !failed_;
}

// The number in the file of an object of the archive; absent for nil, and when there is no such object.
std::optional<std::uint64_t> KeyedUnarchiver::numberOf(std::uint64_t uid) noexcept {
    if (uid == 0) return std::nullopt;
    failed_ = failed_ || uid >= slots_.size();
    if (failed_) return std::nullopt;
    return reader_.reference(objects_, uid);
}

const ArchivedObject& KeyedUnarchiver::objectAt(std::uint64_t uid) {
    const auto number = numberOf(uid);
    if (!number) return nil_;
    Slot& slot = slots_[static_cast<std::size_t>(uid)];
    if (slot.state == Slot::State::read) return slot.object;
    if (slot.state == Slot::State::reading) {
        failed_ = true;
        return nil_;
    }
    slot.state = Slot::State::reading;
    slot.object = decode(*number);
    slot.state = Slot::State::read;
    return slot.object;
}

ArchivedObject KeyedUnarchiver::decode(std::uint64_t number) {
    const auto object = reader_.object(number);
    if (!object || failed_) return fail();
    return object->kind == Kind::dictionary ? decodeInstance(number, *object) : decodeScalar(*object);
}

ArchivedObject KeyedUnarchiver::decodeScalar(const BinaryObject& object) {
    switch (object.kind) {
        case Kind::null:
            return {};
        case Kind::boolean:
            return Value(object.number != 0);
        case Kind::integer:
            return Value(static_cast<std::int64_t>(object.number));
        case Kind::unsignedInteger:
            return Value(object.number);
        case Kind::real:
            return Value(object.real);
        case Kind::date:
            return Value(Date{object.real + kSecondsFrom1970To2001});
        case Kind::ascii:
        case Kind::utf16:
            if (holdsText(object, keyed::kNullText)) return {};
            return decodeContent(object);
        case Kind::data:
            return decodeContent(object);
        // A bare reference or container stands for no object.
        default:
            return fail();
    }
}

// A text or data. One object in the file may stand for many in the archive, so it is copied once.
Value KeyedUnarchiver::decodeContent(const BinaryObject& object) {
    if (const auto known = contents_.find(object.offset); known != contents_.end()) return known->second;
    if (!spend(cost::kContent + object.bytes.size())) return {};
    Value value;
    if (object.kind == Kind::data) {
        value = Data(object.bytes.begin(), object.bytes.end());
    } else if (std::optional<std::string> text = decodedText(object)) {
        value = *std::move(text);
    } else {
        failed_ = true;
    }
    return contents_.emplace(object.offset, std::move(value)).first->second;
}

// What holds no more than a value of its own. The writer counts no level for it.
bool KeyedUnarchiver::isLeaf(Standard standard) noexcept {
    switch (standard) {
        case Standard::text:
        case Standard::data:
        case Standard::date:
        case Standard::null:
            return true;
        default:
            return false;
    }
}

ArchivedObject KeyedUnarchiver::decodeInstance(std::uint64_t number, const BinaryObject& record) {
    const NestingScope level(depth_);
    if (!spend(searchCost(record))) return fail();
    const auto type = classOf(record);
    if (!type || depth_ > kMaximumNesting + (isLeaf(type->standard) ? 1 : 0)) return fail();
    switch (type->standard) {
        case Standard::array:
            return decodeList(record, keyed::kObjectsListKey);
        case Standard::dictionary:
            return decodeDictionary(record);
        case Standard::text:
            return decodeContained(record, keyed::kStringKey, Value::Kind::string);
        case Standard::data:
            return decodeContained(record, keyed::kDataKey, Value::Kind::data);
        case Standard::date:
            return decodeDate(record);
        case Standard::record:
            return decodeRecord(number, *type->archivable);
        case Standard::null:
            break;
    }
    return {};
}

ArchivedObject KeyedUnarchiver::decodeDictionary(const BinaryObject& record) {
    const ArchivedObject::List keys = decodeList(record, keyed::kKeysListKey);
    ArchivedObject::List values = decodeList(record, keyed::kObjectsListKey);
    if (failed_ || keys.size() != values.size()) return fail();
    ArchivedObject::Entries entries;
    entries.reserve(keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const Value key = keys[i].value();
        if (key.string() == nullptr || !spend(key.string()->size())) return fail();
        entries.emplace_back(*key.string(), std::move(values[i]));
    }
    return entries;
}

ArchivedObject::List KeyedUnarchiver::decodeList(const BinaryObject& record, std::string_view key) {
    ArchivedObject::List list;
    const auto references = reader_.find(record, key);
    if (failed_ || !references) return list;
    failed_ = references->kind != Kind::array;
    if (spend(cost::kElement * references->count)) list.reserve(static_cast<std::size_t>(references->count));
    for (std::uint64_t i = 0; i < references->count && !failed_; ++i) {
        const auto element = reader_.object(reader_.reference(*references, i));
        if (element && element->kind == Kind::uid) {
            list.push_back(objectAt(element->number));
        } else {
            failed_ = true;
        }
    }
    return list;
}

ArchivedObject KeyedUnarchiver::decodeDate(const BinaryObject& record) {
    const auto time = reader_.find(record, keyed::kTimeKey);
    const double seconds = time ? resolve(*time).value().doubleValue() : 0;
    return Value(Date{seconds + kSecondsFrom1970To2001});
}

ArchivedObject KeyedUnarchiver::decodeRecord(std::uint64_t number, const ArchivableClass& archivable) {
    if (!spend(cost::kRecord)) return fail();
    KeyedDecoder decoder(*this, number);
    std::shared_ptr<Archivable> instance = archivable.initWithCoder(decoder);
    if (instance == nullptr || failed_) return fail();
    return instance;
}

// The text or data of its container object, which holds it inline or by reference.
ArchivedObject KeyedUnarchiver::decodeContained(const BinaryObject& record, std::string_view key,
                                                Value::Kind kind) {
    const auto content = reader_.find(record, key);
    if (!content) return {};
    // Inside its container this text means itself; that is what the container is for.
    if (holdsText(*content, keyed::kNullText)) return decodeContent(*content);
    const Value value = resolve(*content).value();
    return value.kind() == kind ? value : Value();
}

std::optional<BinaryObject> KeyedUnarchiver::field(std::uint64_t record,
                                                   std::string_view key) const noexcept {
    const auto object = reader_.object(record);
    if (failed_ || !object) return std::nullopt;
    return reader_.find(*object, key);
}

// What a field holds: a reference to an object, or a scalar inline.
ArchivedObject KeyedUnarchiver::resolve(const BinaryObject& content) {
    if (content.kind == Kind::uid) return objectAt(content.number);
    const bool isContainer = content.kind == Kind::array || content.kind == Kind::dictionary;
    return isContainer ? ArchivedObject() : decodeScalar(content);
}

// The object itself, or the one it refers to.
std::optional<BinaryObject> KeyedUnarchiver::target(const std::optional<BinaryObject>& content) noexcept {
    if (!content || content->kind != Kind::uid) return content;
    const auto number = numberOf(content->number);
    return number ? reader_.object(*number) : std::nullopt;
}

// The bytes of a data object in the file, or of the container of one.
std::optional<DataView> KeyedUnarchiver::bytesOf(const BinaryObject& content) {
    std::optional<BinaryObject> object = target(content);
    if (object && object->kind == Kind::dictionary) {
        const auto type = spend(searchCost(*object)) ? classOf(*object) : std::nullopt;
        failed_ = failed_ || !type;
        if (!type || type->standard != Standard::data) return std::nullopt;
        object = target(reader_.find(*object, keyed::kDataKey));
    }
    return object ? plainBytes(*object) : std::nullopt;
}

std::optional<KeyedUnarchiver::Class> KeyedUnarchiver::classOf(const BinaryObject& record) {
    const auto reference = reader_.find(record, keyed::kClassKey);
    if (!reference || reference->kind != Kind::uid) return std::nullopt;
    if (const auto known = classes_.find(reference->number); known != classes_.end()) return known->second;
    const auto object = target(reference);
    if (!object || !spend(searchCost(*object))) return std::nullopt;
    const auto name = reader_.find(*object, keyed::kClassNameKey);
    const auto type = name ? classNamed(*name) : std::nullopt;
    if (type) classes_.emplace(reference->number, *type);
    return type;
}

std::optional<KeyedUnarchiver::Class> KeyedUnarchiver::classNamed(const BinaryObject& name) const noexcept {
    using Entry = std::pair<std::string_view, Standard>;
    static constexpr std::array kStandard{
        Entry{keyed::kArray, Standard::array},
        Entry{keyed::kMutableArray, Standard::array},
        Entry{keyed::kDictionary, Standard::dictionary},
        Entry{keyed::kMutableDictionary, Standard::dictionary},
        Entry{keyed::kString, Standard::text},
        Entry{keyed::kMutableString, Standard::text},
        Entry{keyed::kData, Standard::data},
        Entry{keyed::kMutableData, Standard::data},
        Entry{keyed::kDate, Standard::date},
        Entry{keyed::kNull, Standard::null},
    };
    for (const Entry& entry : kStandard) {
        if (holdsText(name, entry.first)) return Class{.standard = entry.second};
    }
    for (const ArchivableClass& archivable : archivables_) {
        if (holdsText(name, archivable.name))
            return Class{.standard = Standard::record, .archivable = &archivable};
    }
    return std::nullopt;
}

std::int64_t KeyedDecoder::decodeInt64(std::string_view key) {
    return decodeObject(key).value().longValue();
}

bool KeyedDecoder::decodeBool(std::string_view key) {
    return decodeObject(key).value().boolValue();
}

std::optional<DataView> KeyedDecoder::decodeBytes(std::string_view key) {
    const auto content = unarchiver_.field(record_, key);
    auto bytes = content ? unarchiver_.bytesOf(*content) : std::nullopt;
    // Whoever asks is going to copy them.
    if (bytes && !unarchiver_.spend(bytes->size())) return std::nullopt;
    return bytes;
}

std::optional<std::string> KeyedDecoder::decodeText(std::string_view key) {
    const Value value = decodeObject(key).value();
    const std::string* text = value.string();
    if (text == nullptr || !unarchiver_.spend(text->size())) return std::nullopt;
    return *text;
}

ArchivedObject KeyedDecoder::decodeObject(std::string_view key) {
    const auto content = unarchiver_.field(record_, key);
    return content ? unarchiver_.resolve(*content) : ArchivedObject();
}

}  // namespace qlsdk::platform
