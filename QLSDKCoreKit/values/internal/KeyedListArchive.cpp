#include "QLSDKCoreKit/values/internal/KeyedListArchive.h"

#include <array>
#include <optional>
#include <vector>

#include "QLSDKCoreKit/values/internal/ArchiveChecksum.h"
#include "QLSDKCoreKit/values/internal/Checksum.h"
#include "QLSDKCoreKit/values/internal/FrontFirstBytes.h"
#include "QLSDKCoreKit/values/internal/KeyedArchiveFormat.h"
#include "QLSDKCoreKit/values/internal/KeyedArchiver.h"

namespace qlsdk::platform {

namespace {

constexpr std::array kArrayChain{keyed::kArray, keyed::kRootObject};
constexpr std::array kDictionaryChain{keyed::kDictionary, keyed::kRootObject};

constexpr std::size_t kKeptBytes = std::size_t{64} << 10;

/// The checksum of bytes that grow, taken on from where it was.
struct GrowingChecksum {
    void atEnd(DataView bytes) noexcept {
        checksum = crc32c(checksum, bytes.subspan(length));
        length = bytes.size();
    }
    void atFront(DataView bytes) noexcept {
        checksum = joinedCrc32c(crc32c(0, bytes.first(bytes.size() - length)), checksum, length);
        length = bytes.size();
    }
    /// That of `earlier` and of these.
    [[nodiscard]] std::uint32_t after(std::uint32_t earlier) const noexcept {
        return joinedCrc32c(earlier, checksum, length);
    }

    std::uint32_t checksum = 0;
    std::size_t length = 0;
};

}  // namespace

/// The archive at fixed widths.
///
/// The dictionary and the list are written first, with reserved numbers in the places of what changes with
/// every element: the references of the list, the array "$objects" and the number. These three stand behind
/// all other objects, in buffers of their own.
struct KeyedListArchive::Encoding {
    Encoding(std::string_view listKey, std::string_view numberKey, KeyedArchiver::Widths widths);
    // Refers to a part of itself.
    Encoding(const Encoding&) = delete;
    Encoding& operator=(const Encoding&) = delete;

    void pushFront(const ArchivedObject& element);
    std::span<const DataView> file(std::uint64_t number);
    /// False as soon as no file can be made of it at these widths.
    [[nodiscard]] bool mayFit() const { return writer.fits(writer.objects().size()); }
    /// Back to the empty list, with all buffers as they are.
    void clear();

    void writeRoot(std::string_view listKey, std::string_view numberKey);
    void noteNewObjects();
    [[nodiscard]] std::uint32_t checksum() noexcept;

    KeyedArchiver archiver;
    BinaryPropertyListWriter& writer = archiver.writer_;
    const KeyedArchiver::Node listReferences = writer.reserve();
    const KeyedArchiver::Node objects = writer.reserve();
    const KeyedArchiver::Node number = writer.reserve();

    std::size_t length = 0;
    FrontFirstBytes listBytes;
    std::size_t notedObjects = 0;
    ByteBuffer objectsBytes{256};
    ByteBuffer listHead{9};
    ByteBuffer objectsHead{9};
    ByteBuffer numberBytes{9};
    ByteBuffer trailer{kTrailerBytes};
    std::array<DataView, 8> pieces;
    KeyedArchiver::Mark empty{};
    /// Of what only grows from one file to the next.
    struct {
        GrowingChecksum objects;
        GrowingChecksum list;
        GrowingChecksum numbers;
        GrowingChecksum offsets;
    } sums;
};

KeyedListArchive::Encoding::Encoding(std::string_view listKey, std::string_view numberKey,
                                     KeyedArchiver::Widths widths)
    : archiver(RootClass::dictionary, widths, KeyedArchiver::Checksum::room) {
    writeRoot(listKey, numberKey);
    // Elements stand in the list, and that in the dictionary.
    archiver.depth_ = 2;
    empty = archiver.mark();
}

void KeyedListArchive::Encoding::writeRoot(std::string_view listKey, std::string_view numberKey) {
    // In the order of numbers that the archive of an empty list has.
    const auto root = archiver.takeNumber();
    const KeyedArchiver::Uid keys[] = {archiver.encodeText(listKey), archiver.encodeText(numberKey)};
    const auto list = archiver.takeNumber();
    const std::size_t firstField = archiver.fields_.size();
    archiver.addField(keyed::kObjectsListKey, listReferences);
    archiver.finishObject(list, firstField, kArrayChain);
    const auto numberUid = archiver.inlineObject(number);

    const KeyedArchiver::Node keyNodes[] = {archiver.uidNode(keys[0]), archiver.uidNode(keys[1])};
    const KeyedArchiver::Node valueNodes[] = {archiver.uidNode(list), archiver.uidNode(numberUid)};
    archiver.addField(keyed::kKeysListKey, writer.addArray(keyNodes));
    archiver.addField(keyed::kObjectsListKey, writer.addArray(valueNodes));
    archiver.finishObject(root, firstField, kDictionaryChain);

    archiver.setTop(root, objects);
    noteNewObjects();
}

void KeyedListArchive::Encoding::clear() {
    archiver.rollBack(empty);
    length = 0;
    sums = {};
    listBytes.clear();
    notedObjects = empty.objects;
    objectsBytes.truncate(notedObjects * writer.widths().referenceBytes);
}

void KeyedListArchive::Encoding::noteNewObjects() {
    const std::size_t width = writer.widths().referenceBytes;
    for (; notedObjects < archiver.objects_.size(); ++notedObjects) {
        appendNumber(archiver.objects_[notedObjects], width, objectsBytes);
    }
}

void KeyedListArchive::Encoding::pushFront(const ArchivedObject& element) {
    const auto node = archiver.uidNode(archiver.encodeListElement(element));
    const std::size_t width = writer.widths().referenceBytes;
    putNumber(node, width, listBytes.extendFront(width));
    ++length;
    noteNewObjects();
}

// A record that is added costs what it is long, whatever the length of the list.
std::uint32_t KeyedListArchive::Encoding::checksum() noexcept {
    // The offsets that change with each file are the first.
    const DataView offsets = writer.offsets();
    const std::size_t changing = (std::size_t{number} + 1) * writer.widths().offsetBytes;
    sums.objects.atEnd(writer.objects().subspan(kChecksummedFrom));
    sums.list.atFront(listBytes.view());
    sums.numbers.atEnd(objectsBytes.view());
    sums.offsets.atEnd(offsets.subspan(changing));
    std::uint32_t sum = crc32c(sums.objects.checksum, listHead.view());
    sum = crc32c(sums.list.after(sum), objectsHead.view());
    sum = crc32c(sums.numbers.after(sum), numberBytes.view());
    sum = crc32c(sum, offsets.first(changing));
    return crc32c(sums.offsets.after(sum), trailer.view());
}

std::span<const DataView> KeyedListArchive::Encoding::file(std::uint64_t numberValue) {
    const auto begin = [](ByteBuffer& piece) -> ByteBuffer& {
        piece.clear();
        return piece;
    };
    appendMarker(kArrayMarker, length, begin(listHead));
    appendMarker(kArrayMarker, notedObjects, begin(objectsHead));
    appendInteger(static_cast<std::int64_t>(numberValue), begin(numberBytes));

    const std::size_t listAt = writer.objects().size();
    const std::size_t objectsAt = listAt + listHead.size() + listBytes.view().size();
    const std::size_t numberAt = objectsAt + objectsHead.size() + objectsBytes.size();
    const std::size_t tableAt = numberAt + numberBytes.size();
    if (archiver.nestsTooDeep() || !writer.fits(tableAt)) return {};
    const std::size_t size = tableAt + writer.offsets().size() + kTrailerBytes;
    if (!archiver.isReadable(size, length)) return {};
    writer.setOffset(listReferences, listAt);
    writer.setOffset(objects, objectsAt);
    writer.setOffset(number, numberAt);
    appendTrailer(writer.count(), tableAt, writer.widths().referenceBytes, writer.widths().offsetBytes,
                  begin(trailer));
    writer.overwrite(kChecksumOffset, archiveChecksum(checksum()));
    pieces = {writer.objects(),    listHead.view(),    listBytes.view(), objectsHead.view(),
              objectsBytes.view(), numberBytes.view(), writer.offsets(), trailer.view()};
    return pieces;
}

/// The elements, and their encoding at the narrowest widths that do. The encodings at narrower ones wait for
/// the next list with their buffers.
struct KeyedListArchive::State {
    static constexpr std::size_t kLevels = std::size(BinaryPropertyListWriter::kWidths);

    State(std::string_view list, std::string_view number) : listKey(list), numberKey(number) {}

    /// All elements at the widths of the level; fewer when these turn out to be too narrow.
    Encoding& encodeAll();
    /// On to the next wider widths, for which all elements are encoded again.
    void widen() noexcept;
    /// Nothing of the list is encoded.
    void forgetEncodings() noexcept;

    const std::string_view listKey;
    const std::string_view numberKey;
    std::vector<ArchivedObject> elements;
    std::size_t level = 0;
    /// How many of the elements, from the first on, the encoding of the level holds.
    std::size_t encodedCount = 0;
    std::array<std::optional<Encoding>, kLevels> encodings;
};

namespace {

/// Ready for another list. A short list's buffers serve that, too; a long list's would be held for nothing.
template <typename Encoding>
void empty(std::optional<Encoding>& encoding) noexcept {
    if (!encoding) return;
    encoding->writer.objects().size() > kKeptBytes ? encoding.reset() : encoding->clear();
}

}  // namespace

KeyedListArchive::Encoding& KeyedListArchive::State::encodeAll() {
    std::optional<Encoding>& encoding = encodings[level];
    if (!encoding) encoding.emplace(listKey, numberKey, BinaryPropertyListWriter::kWidths[level]);
    try {
        for (; encodedCount < elements.size() && encoding->mayFit(); ++encodedCount) {
            encoding->pushFront(elements[encodedCount]);
        }
    } catch (...) {
        // Half an element was written; the next file encodes all of them again.
        encoding.reset();
        encodedCount = 0;
        throw;
    }
    return *encoding;
}

void KeyedListArchive::State::widen() noexcept {
    empty(encodings[level]);
    encodedCount = 0;
    ++level;
}

void KeyedListArchive::State::forgetEncodings() noexcept {
    if (level == 0 && encodedCount == 0) return;
    for (std::optional<Encoding>& encoding : encodings) empty(encoding);
    level = 0;
    encodedCount = 0;
}

KeyedListArchive::KeyedListArchive(std::string_view listKey, std::string_view numberKey)
    : state_(std::make_unique<State>(listKey, numberKey)) {}

KeyedListArchive::~KeyedListArchive() = default;

void KeyedListArchive::clear() noexcept {
    assign({});
}

void KeyedListArchive::assign(std::vector<ArchivedObject> elements) noexcept {
    state_->forgetEncodings();
    state_->elements = std::move(elements);
}

std::span<const ArchivedObject> KeyedListArchive::elements() const noexcept {
    return state_->elements;
}

void KeyedListArchive::pushFront(const ArchivedObject& element) {
    state_->elements.push_back(element);
}

std::span<const DataView> KeyedListArchive::file(std::uint64_t number) {
    State& state = *state_;
    for (; state.level < State::kLevels; state.widen()) {
        Encoding& encoding = state.encodeAll();
        if (!encoding.mayFit()) continue;
        const std::span<const DataView> pieces = encoding.file(number);
        if (!pieces.empty() || encoding.archiver.nestsTooDeep()) return pieces;
    }
    return {};
}

}  // namespace qlsdk::platform
