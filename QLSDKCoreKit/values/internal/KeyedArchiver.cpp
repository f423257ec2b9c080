#include "QLSDKCoreKit/values/internal/KeyedArchiver.h"

#include <algorithm>

#include "QLSDKCoreKit/values/KeyedCoder.h"
#include "QLSDKCoreKit/values/internal/ArchiveChecksum.h"
#include "QLSDKCoreKit/values/internal/KeyedArchiveFormat.h"
#include "QLSDKCoreKit/values/internal/Nesting.h"
#include "QLSDKCoreKit/values/internal/Unicode.h"

namespace qlsdk::platform {

namespace {

using namespace std::string_view_literals;
using keyed::kNullText;
namespace cost = keyed::cost;

constexpr std::array kArrayChain{keyed::kArray, keyed::kRootObject};
constexpr std::array kDictionaryChain{keyed::kDictionary, keyed::kRootObject};
constexpr std::array kMutableDictionaryChain{keyed::kMutableDictionary, keyed::kDictionary,
                                             keyed::kRootObject};
constexpr std::array kStringChain{keyed::kString, keyed::kRootObject};
constexpr std::array kDateChain{keyed::kDate, keyed::kRootObject};
constexpr std::array kNullChain{keyed::kNull, keyed::kRootObject};

/// Each record that shares a text copies it when it is read. A longer one stands in the file for each of
/// them, so that the file grows with what reading it takes.
constexpr std::size_t kLongestSharedText = 256;

}  // namespace

KeyedArchiver::KeyedArchiver(RootClass rootClass, Widths widths, Checksum checksum)
    : rootClass_(rootClass), writer_(widths) {
    // Room for an ordinary queue of some ten events, so that its archive takes a fixed number of allocations.
    objects_.reserve(64);
    uidNodes_.reserve(64);
    retained_.reserve(16);
    fields_.reserve(32);
    elements_.reserve(32);
    keys_.reserve(32);
    classes_.reserve(8);
    // Referred to by nobody.
    if (checksum == Checksum::room) writer_.addData(archiveChecksum(0));
    inlineObject(writer_.addText(kNullText));
}

Data KeyedArchiver::archive(const ArchivedObject& root) {
    const Uid uid = encode(root);
    if (failed()) return {};
    setTop(uid, writer_.addArray(objects_));
    Data file = writer_.finish();
    return isReadable(file.size()) ? file : Data();
}

bool KeyedArchiver::isReadable(std::size_t fileBytes, std::size_t moreElements) const noexcept {
    return cost_ + moreElements * cost::kElement <= DecodingBudget::allowanceFor(fileBytes);
}

void KeyedArchiver::setTop(Uid root, Node objects) {
    const Field top{keyNode(keyed::kRootKey), uidNode(root)};
    const Field fields[] = {
        {keyNode(keyed::kVersionKey), writer_.addInteger(keyed::kVersion)},
        {keyNode(keyed::kArchiverKey), writer_.addText(keyed::kArchiver)},
        {keyNode(keyed::kTopKey), writer_.addDictionary({&top, 1})},
        {keyNode(keyed::kObjectsKey), objects},
    };
    writer_.setTop(fields);
}

void KeyedArchiver::rollBack(const Mark& mark) {
    const auto isLater = [&mark](Node node) { return node >= mark.writer.count; };
    writer_.rollBack(mark.writer);
    objects_.resize(mark.objects);
    uidNodes_.resize(mark.objects);
    std::replace_if(uidNodes_.begin(), uidNodes_.end(), isLater, Node{0});
    std::replace_if(smallIntegers_.begin(), smallIntegers_.end(), isLater, Node{0});
    std::replace_if(booleans_.begin(), booleans_.end(), isLater, Node{0});
    std::erase_if(texts_, [&mark](const auto& text) { return text.second >= mark.objects; });
    keys_.resize(mark.keys);
    lastKey_ = 0;
    classes_.resize(mark.classes);
    cost_ = mark.cost;
    if (null_ >= mark.objects) null_ = 0;
    identities_.clear();
    retained_.clear();
    nestsTooDeep_ = false;
}

void KeyedArchiver::addField(std::string_view key, Node value) {
    fields_.push_back({keyNode(key), value});
}

KeyedArchiver::Uid KeyedArchiver::encode(const ArchivedObject& object) {
    if (const auto* value = std::get_if<Value>(&object.content_)) return encode(*value);
    if (const auto* list = std::get_if<std::shared_ptr<const ArchivedObject::List>>(&object.content_)) {
        return encodeArray(**list);
    }
    if (const auto* entries = std::get_if<std::shared_ptr<const ArchivedObject::Entries>>(&object.content_)) {
        return encodeDictionary(**entries);
    }
    return encodeRecord(*std::get<std::shared_ptr<Archivable>>(object.content_));
}

KeyedArchiver::Uid KeyedArchiver::encode(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::null:
            return 0;
        case Value::Kind::boolean:
            return inlineObject(booleanNode(value.boolValue()));
        case Value::Kind::integer:
        case Value::Kind::unsignedInteger:
            return inlineObject(integerNode(value.longValue()));
        case Value::Kind::real:
            return inlineObject(writer_.addReal(value.doubleValue()));
        case Value::Kind::string:
            return encodeText(*value.string());
        case Value::Kind::data:
            return encodeShared(*value.data());
        case Value::Kind::date:
            return encodeDate(value.date()->secondsSince1970);
        case Value::Kind::array:
            return encodeArray(*value.array());
        case Value::Kind::dictionary:
            return encodeDictionary(*value.dictionary());
    }
    return 0;
}

KeyedArchiver::Uid KeyedArchiver::encodeText(std::string_view text) {
    cost_ += text.size();
    const bool isShared = text.size() <= kLongestSharedText;
    const auto known = isShared ? texts_.find(text) : texts_.end();
    if (known != texts_.end()) return known->second;
    if (!isAscii(text) && !isValidUtf8(text)) return 0;
    // In UTF-16 at most twice as many bytes.
    cost_ += 2 * text.size() + cost::kContent;
    if (!isShared) return inlineObject(writer_.addText(text));
    const Uid uid = text == kNullText ? encodeNullText(text) : inlineObject(writer_.addText(text));
    texts_.emplace(text, uid);
    return uid;
}

// Inline, this text would be read back as nil.
KeyedArchiver::Uid KeyedArchiver::encodeNullText(std::string_view text) {
    const Uid uid = takeNumber();
    const std::size_t firstField = fields_.size();
    addField(keyed::kStringKey, writer_.addText(text));
    finishObject(uid, firstField, kStringChain);
    return uid;
}

KeyedArchiver::Uid KeyedArchiver::encodeBytes(DataView bytes) {
    cost_ += bytes.size() + cost::kContent;
    return inlineObject(writer_.addData(bytes));
}

KeyedArchiver::Uid KeyedArchiver::encodeShared(const Data& data) {
    if (const Uid known = identities_.find(&data)) {
        cost_ += data.size();
        return known;
    }
    const Uid uid = encodeBytes(data);
    identities_.insert(&data, uid);
    return uid;
}

KeyedArchiver::Uid KeyedArchiver::encodeDate(double secondsSince1970) {
    const Uid uid = takeNumber();
    const std::size_t firstField = fields_.size();
    addField(keyed::kTimeKey, writer_.addReal(secondsSince1970 - kSecondsFrom1970To2001));
    finishObject(uid, firstField, kDateChain);
    return uid;
}

KeyedArchiver::Uid KeyedArchiver::encodeRecord(const Archivable& record) {
    if (const Uid known = identities_.find(&record)) return known;
    const NestingScope level(depth_);
    nestsTooDeep_ = nestsTooDeep_ || level.tooDeep();
    if (failed()) return 0;
    const Uid uid = takeNumber();
    identities_.insert(&record, uid);
    const std::size_t firstField = fields_.size();
    cost_ += cost::kRecord;
    KeyedEncoder encoder(*this);
    record.encodeWithCoder(encoder);
    const std::string_view chain[] = {record.archivedClassName(), keyed::kRootObject};
    finishObject(uid, firstField, chain);
    return uid;
}

template <typename Elements>
KeyedArchiver::Uid KeyedArchiver::encodeArray(const Elements& elements) {
    if (const Uid known = identities_.find(&elements)) return known;
    const NestingScope level(depth_);
    nestsTooDeep_ = nestsTooDeep_ || level.tooDeep();
    if (failed()) return 0;
    const Uid uid = takeNumber();
    identities_.insert(&elements, uid);
    const std::size_t first = elements_.size();
    for (const auto& element : elements) elements_.push_back(uidNode(encodeElement(element)));
    const std::size_t firstField = fields_.size();
    addField(keyed::kObjectsListKey, addPendingArray(first));
    finishObject(uid, firstField, kArrayChain);
    return uid;
}

template <typename Entries>
KeyedArchiver::Uid KeyedArchiver::encodeDictionary(const Entries& entries) {
    if (const Uid known = identities_.find(&entries)) return known;
    const bool isMutableRoot = depth_ == 0 && rootClass_ == RootClass::mutableDictionary;
    const NestingScope level(depth_);
    nestsTooDeep_ = nestsTooDeep_ || level.tooDeep();
    if (failed()) return 0;
    const Uid uid = takeNumber();
    identities_.insert(&entries, uid);

    // A key that is no text cannot be written, so its entry is left out; the others survive.
    const auto isWritable = [](const auto& entry) {
        return isAscii(entry.first) || isValidUtf8(entry.first);
    };
    const std::size_t first = elements_.size();
    for (const auto& entry : entries) {
        if (isWritable(entry)) elements_.push_back(uidNode(encodeText(entry.first)));
    }
    const Node keys = addPendingArray(first);
    for (const auto& entry : entries) {
        if (isWritable(entry)) elements_.push_back(uidNode(encodeElement(entry.second)));
    }
    const Node values = addPendingArray(first);

    const std::size_t firstField = fields_.size();
    addField(keyed::kKeysListKey, keys);
    addField(keyed::kObjectsListKey, values);
    finishObject(uid, firstField, isMutableRoot ? ClassChain(kMutableDictionaryChain) : kDictionaryChain);
    return uid;
}

// A container cannot hold nil; the null object stands for it there.
template <typename Element>
KeyedArchiver::Uid KeyedArchiver::encodeElement(const Element& element) {
    const Uid uid = encode(element);
    return uid != 0 || failed() ? uid : nullObject();
}

KeyedArchiver::Uid KeyedArchiver::encodeListElement(const ArchivedObject& element) {
    return encodeElement(element);
}

KeyedArchiver::Uid KeyedArchiver::nullObject() {
    if (null_ != 0) return null_;
    null_ = takeNumber();
    finishObject(null_, fields_.size(), kNullChain);
    return null_;
}

KeyedArchiver::Uid KeyedArchiver::inlineObject(Node node) {
    const Uid uid = takeNumber();
    objects_[uid] = node;
    return uid;
}

KeyedArchiver::Uid KeyedArchiver::takeNumber() {
    cost_ += cost::kNumber + cost::kRounding;
    objects_.push_back(0);
    uidNodes_.push_back(0);
    return static_cast<Uid>(objects_.size() - 1);
}

// Turns the fields from `firstField` on, and the class, into the record of an object.
void KeyedArchiver::finishObject(Uid uid, std::size_t firstField, ClassChain chain) {
    addField(keyed::kClassKey, uidNode(classRecord(chain)));
    const auto fields = std::span(fields_).subspan(firstField);
    cost_ += cost::kSearchedByte * 2 * fields.size() * writer_.widths().referenceBytes;
    objects_[uid] = writer_.addDictionary(fields);
    fields_.resize(firstField);
}

KeyedArchiver::Uid KeyedArchiver::classRecord(ClassChain chain) {
    for (const NamedNode& known : classes_) {
        if (known.name == chain.front()) return known.node;
    }
    const Uid uid = takeNumber();
    classes_.push_back({chain.front(), uid});
    const std::size_t first = elements_.size();
    for (const std::string_view name : chain) elements_.push_back(keyNode(name));
    const Field fields[] = {
        {keyNode(keyed::kClassNameKey), keyNode(chain.front())},
        {keyNode(keyed::kClassesKey), addPendingArray(first)},
    };
    cost_ += cost::kSearchedByte * 2 * std::size(fields) * writer_.widths().referenceBytes;
    objects_[uid] = writer_.addDictionary(fields);
    return uid;
}

// Records of one class name their keys in the same order again and again, each with the same literal: so the
// search begins behind the last key found, and looks at addresses before it looks at texts.
KeyedArchiver::Node KeyedArchiver::keyNode(std::string_view key) {
    for (std::size_t tried = 0; tried < keys_.size(); ++tried) {
        lastKey_ = lastKey_ + 1 < keys_.size() ? lastKey_ + 1 : 0;
        const std::string_view known = keys_[lastKey_].name;
        if (known.data() == key.data() && known.size() == key.size()) return keys_[lastKey_].node;
    }
    for (const NamedNode& known : keys_) {
        if (known.name == key) return known.node;
    }
    lastKey_ = keys_.size();
    keys_.push_back({key, writer_.addText(key)});
    return keys_.back().node;
}

KeyedArchiver::Node KeyedArchiver::uidNode(Uid uid) {
    if (uidNodes_[uid] == 0) uidNodes_[uid] = writer_.addUid(uid);
    return uidNodes_[uid];
}

KeyedArchiver::Node KeyedArchiver::integerNode(std::int64_t number) {
    if (number < 0 || number >= static_cast<std::int64_t>(smallIntegers_.size()))
        return writer_.addInteger(number);
    Node& node = smallIntegers_[static_cast<std::size_t>(number)];
    if (node == 0) node = writer_.addInteger(number);
    return node;
}

KeyedArchiver::Node KeyedArchiver::booleanNode(bool boolean) {
    Node& node = booleans_[boolean ? 1 : 0];
    if (node == 0) node = writer_.addBoolean(boolean);
    return node;
}

KeyedArchiver::Node KeyedArchiver::addPendingArray(std::size_t first) {
    cost_ += cost::kElement * (elements_.size() - first);
    const Node node = writer_.addArray(std::span(elements_).subspan(first));
    elements_.resize(first);
    return node;
}

void KeyedEncoder::encodeInt64(std::int64_t number, std::string_view key) {
    archiver_.addField(key, archiver_.integerNode(number));
}

void KeyedEncoder::encodeBool(bool boolean, std::string_view key) {
    archiver_.addField(key, archiver_.booleanNode(boolean));
}

void KeyedEncoder::encodeBytes(DataView bytes, std::string_view key) {
    archiver_.addField(key, archiver_.uidNode(archiver_.encodeBytes(bytes)));
}

void KeyedEncoder::encodeText(std::optional<std::string_view> text, std::string_view key) {
    archiver_.addField(key, archiver_.uidNode(text ? archiver_.encodeText(*text) : 0));
}

void KeyedEncoder::encodeObject(const ArchivedObject& object, std::string_view key) {
    archiver_.retain(object);
    archiver_.addField(key, archiver_.uidNode(archiver_.encode(object)));
}

}  // namespace qlsdk::platform
