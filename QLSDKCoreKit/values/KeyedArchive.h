#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk::platform {

class KeyedEncoder;
class KeyedDecoder;

/// A type with a keyed-archive form of its own: a record of named fields under a class name.
class QLSDK_EXPORT Archivable {
  public:
    virtual ~Archivable() = default;

    /// The class name in the archive; its chain is this name and "NSObject". Lives as long as the process.
    [[nodiscard]] virtual std::string_view archivedClassName() const noexcept = 0;

    /// Writes the fields, always all of them and always in the same order.
    virtual void encodeWithCoder(KeyedEncoder& encoder) const = 0;
};

/// One node of an archive: a plain value, a record, or a list or dictionary that holds records somewhere.
/// Immutable and cheap to copy; nodes that an archive shares stay shared.
class QLSDK_EXPORT ArchivedObject {
  public:
    using List = std::vector<ArchivedObject>;
    using Entries = std::vector<std::pair<std::string, ArchivedObject>>;

    /// nil.
    ArchivedObject() noexcept = default;
    ArchivedObject(Value value) noexcept : content_(std::move(value)) {}
    /// A null pointer is nil.
    ArchivedObject(std::shared_ptr<Archivable> record) noexcept {
        if (record != nullptr) content_ = std::move(record);
    }
    ArchivedObject(List list);
    ArchivedObject(Entries entries);

    [[nodiscard]] bool isNil() const noexcept;
    /// The plain value; null when this is a record or holds records.
    [[nodiscard]] Value value() const;
    /// The record; null when this is none.
    [[nodiscard]] std::shared_ptr<Archivable> record() const noexcept;
    /// The elements of a list, of plain values or not; absent when this is no list.
    [[nodiscard]] std::optional<List> list() const;
    /// The entries of a dictionary in order, of plain values or not; absent when this is no dictionary.
    [[nodiscard]] std::optional<Entries> entries() const;

  private:
    friend class KeyedArchiver;
    std::variant<Value, std::shared_ptr<Archivable>, std::shared_ptr<const List>,
                 std::shared_ptr<const Entries>>
        content_;
};

/// How one class of records comes back from an archive.
struct ArchivableClass {
    std::string_view name;
    /// Reads the fields. Must not return null and must not throw.
    std::shared_ptr<Archivable> (*initWithCoder)(KeyedDecoder& decoder);
};

/// Which class the root dictionary of an archive names.
enum class RootClass { dictionary, mutableDictionary };

/// The archive of one object graph: a keyed archive in the binary property-list format. Containers that the
/// graph shares are written once. Empty when the graph nests over 512 levels, when reading it would take more
/// than `unarchiveRootObject` allows, or when memory runs out; never throws.
[[nodiscard]] QLSDK_EXPORT Data archiveRootObject(const ArchivedObject& root, RootClass rootClass);

/// Reads an archive back. Absent when it is damaged in any way, cyclic, nested over 512 levels, no keyed
/// archive, or names a class that is neither a standard one nor in `classes`. Takes at most 32 times the size
/// of `bytes` and a megabyte of memory, whatever they hold, and the time for as much; nothing is allocated by
/// a length field alone. Never throws.
[[nodiscard]] QLSDK_EXPORT std::optional<ArchivedObject> unarchiveRootObject(
    DataView bytes, std::span<const ArchivableClass> classes) noexcept;

/// The same for those who must tell damage from a want of memory: throws std::bad_alloc when that runs out.
[[nodiscard]] QLSDK_EXPORT std::optional<ArchivedObject> unarchiveRootObjectOrThrow(
    DataView bytes, std::span<const ArchivableClass> classes);

}  // namespace qlsdk::platform
