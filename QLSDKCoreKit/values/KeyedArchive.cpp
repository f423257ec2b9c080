#include "QLSDKCoreKit/values/KeyedArchive.h"

#include <algorithm>
#include <new>

#include "QLSDKCoreKit/values/internal/ArchiveChecksum.h"
#include "QLSDKCoreKit/values/internal/KeyedArchiver.h"
#include "QLSDKCoreKit/values/internal/KeyedUnarchiver.h"

namespace qlsdk::platform {

namespace {

bool isPlain(const ArchivedObject& object) noexcept {
    return object.isNil() || !object.value().isNull();
}

}  // namespace

ArchivedObject::ArchivedObject(List list) {
    if (!std::all_of(list.begin(), list.end(), isPlain)) {
        content_ = std::make_shared<const List>(std::move(list));
        return;
    }
    Array array;
    array.reserve(list.size());
    for (const ArchivedObject& element : list) array.push_back(element.value());
    content_ = Value(std::move(array));
}

ArchivedObject::ArchivedObject(Entries entries) {
    if (!std::all_of(entries.begin(), entries.end(),
                     [](const auto& entry) { return isPlain(entry.second); })) {
        content_ = std::make_shared<const Entries>(std::move(entries));
        return;
    }
    Dictionary dictionary;
    for (const auto& [key, element] : entries) dictionary.set(key, element.value());
    content_ = Value(std::move(dictionary));
}

bool ArchivedObject::isNil() const noexcept {
    const Value* value = std::get_if<Value>(&content_);
    return value != nullptr && value->isNull();
}

Value ArchivedObject::value() const {
    const Value* value = std::get_if<Value>(&content_);
    return value != nullptr ? *value : Value();
}

std::shared_ptr<Archivable> ArchivedObject::record() const noexcept {
    const auto* record = std::get_if<std::shared_ptr<Archivable>>(&content_);
    return record != nullptr ? *record : nullptr;
}

std::optional<ArchivedObject::List> ArchivedObject::list() const {
    if (const auto* list = std::get_if<std::shared_ptr<const List>>(&content_)) return **list;
    const Value plain = value();
    if (plain.array() == nullptr) return std::nullopt;
    return List(plain.array()->begin(), plain.array()->end());
}

std::optional<ArchivedObject::Entries> ArchivedObject::entries() const {
    if (const auto* entries = std::get_if<std::shared_ptr<const Entries>>(&content_)) return **entries;
    const Value plain = value();
    if (plain.dictionary() == nullptr) return std::nullopt;
    return Entries(plain.dictionary()->begin(), plain.dictionary()->end());
}

Data archiveRootObject(const ArchivedObject& root, RootClass rootClass) try {
    for (const auto widths : BinaryPropertyListWriter::kWidths) {
        KeyedArchiver archiver(rootClass, widths);
        Data file = archiver.archive(root);
        if (!file.empty() || archiver.nestsTooDeep()) return file;
    }
    return {};
} catch (...) {
    // Out of memory, or a record that threw: an archive is best effort, and half of one is worth nothing.
    return {};
}

std::optional<ArchivedObject> unarchiveRootObjectOrThrow(DataView bytes,
                                                         std::span<const ArchivableClass> classes) try {
    if (contradictsItsChecksum(bytes)) return std::nullopt;
    const auto reader = BinaryPropertyListReader::open(bytes);
    return reader ? KeyedUnarchiver(*reader, bytes, classes).unarchive() : std::nullopt;
} catch (const std::bad_alloc&) {
    throw;
} catch (...) {
    // A class that broke its promise: there is no archive for the caller.
    return std::nullopt;
}

std::optional<ArchivedObject> unarchiveRootObject(DataView bytes,
                                                  std::span<const ArchivableClass> classes) noexcept try {
    return unarchiveRootObjectOrThrow(bytes, classes);
} catch (...) {
    return std::nullopt;
}

}  // namespace qlsdk::platform
