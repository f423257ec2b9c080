#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "QLSDKCoreKit/values/KeyedArchive.h"
#include "QLSDKCoreKit/values/internal/BinaryPropertyListReader.h"

namespace qlsdk::platform {

/// Reads one keyed archive; used once. Only what is asked for is decoded: the root, the elements of
/// containers, and of a record the fields that its class reads. The first damage found ends it all: from then
/// on everything reads as nil, and `unarchive` is absent.
class KeyedUnarchiver {
  public:
    /// `bytes` are what `reader` views.
    KeyedUnarchiver(const BinaryPropertyListReader& reader, DataView bytes,
                    std::span<const ArchivableClass> archivables) noexcept
        : reader_(reader), archivables_(archivables), budget_(bytes.size()) {}

    [[nodiscard]] std::optional<ArchivedObject> unarchive();

  private:
    friend class KeyedDecoder;
    enum class Standard { array, dictionary, text, data, date, null, record };
    struct Class {
        Standard standard = Standard::null;
        /// Only for records.
        const ArchivableClass* archivable = nullptr;
    };
    struct Slot {
        enum class State : std::uint8_t { unread, reading, read };
        State state = State::unread;
        ArchivedObject object;
    };

    // What a record, given by the number of its dictionary in the file, holds under a key.
    [[nodiscard]] std::optional<BinaryObject> field(std::uint64_t record,
                                                    std::string_view key) const noexcept;
    ArchivedObject resolve(const BinaryObject& content);
    std::optional<DataView> bytesOf(const BinaryObject& content);
    bool spend(std::uint64_t bytes) noexcept;

    bool openTop(std::uint64_t& root);
    std::optional<std::uint64_t> numberOf(std::uint64_t uid) noexcept;
    std::optional<BinaryObject> target(const std::optional<BinaryObject>& content) noexcept;
    const ArchivedObject& objectAt(std::uint64_t uid);
    ArchivedObject decode(std::uint64_t number);
    ArchivedObject decodeScalar(const BinaryObject& object);
    Value decodeContent(const BinaryObject& object);
    static bool isLeaf(Standard standard) noexcept;
    ArchivedObject decodeInstance(std::uint64_t number, const BinaryObject& record);
    ArchivedObject decodeDictionary(const BinaryObject& record);
    ArchivedObject::List decodeList(const BinaryObject& record, std::string_view key);
    ArchivedObject decodeDate(const BinaryObject& record);
    ArchivedObject decodeContained(const BinaryObject& record, std::string_view key, Value::Kind kind);
    ArchivedObject decodeRecord(std::uint64_t number, const ArchivableClass& archivable);

    std::optional<Class> classOf(const BinaryObject& record);
    [[nodiscard]] std::optional<Class> classNamed(const BinaryObject& name) const noexcept;
    ArchivedObject fail() noexcept;

    const BinaryPropertyListReader reader_;
    const std::span<const ArchivableClass> archivables_;
    DecodingBudget budget_;
    /// The list of all objects, and what has been read of them, by their number in it.
    BinaryObject objects_;
    std::vector<Slot> slots_;
    const ArchivedObject nil_;
    std::unordered_map<std::uint64_t, Class> classes_;
    /// Texts and data, by their place in the file.
    std::unordered_map<std::size_t, Value> contents_;
    std::size_t depth_ = 0;
    bool failed_ = false;
};

}  // namespace qlsdk::platform
