#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "QLSDKCoreKit/values/KeyedArchive.h"
#include "QLSDKCoreKit/values/internal/BinaryPropertyListWriter.h"
#include "QLSDKCoreKit/values/internal/IdentityMap.h"

namespace qlsdk::platform {

/// Writes the objects of one keyed archive. They are numbered depth first: an object takes its number before
/// its contents, and the record of its class follows the contents of the first instance.
///
/// An object that it has been given is written once, so all of them must live as long as the archiver.
class KeyedArchiver {
  public:
    using Widths = BinaryPropertyListWriter::Widths;
    using Node = BinaryPropertyListWriter::Node;
    using Field = BinaryPropertyListWriter::Field;
    /// The number of an object among "$objects"; 0 is nil.
    using Uid = std::uint32_t;
    using ClassChain = std::span<const std::string_view>;

    /// Whether the file begins with room for its checksum (`ArchiveChecksum.h`).
    enum class Checksum { no, room };
    KeyedArchiver(RootClass rootClass, Widths widths, Checksum checksum = Checksum::no);

    /// The whole file; empty when the graph nests too deep, does not fit the widths or could not be read
    /// again.
    [[nodiscard]] Data archive(const ArchivedObject& root);

    /// Forgets every object that was written after the mark, and all that were given.
    struct Mark {
        BinaryPropertyListWriter::Mark writer;
        std::size_t objects;
        std::size_t keys;
        std::size_t classes;
        std::uint64_t cost;
    };
    [[nodiscard]] Mark mark() const noexcept {
        return {writer_.mark(), objects_.size(), keys_.size(), classes_.size(), cost_};
    }
    void rollBack(const Mark& mark);

    /// The graph nests too deep, or the widths are too small: what was written is of no use.
    [[nodiscard]] bool failed() const noexcept {
        return nestsTooDeep_ || !writer_.fits(writer_.objects().size());
    }
    [[nodiscard]] bool nestsTooDeep() const noexcept { return nestsTooDeep_; }

    /// Whether our reader takes a file of that size, which refers to so many elements besides.
    [[nodiscard]] bool isReadable(std::size_t fileBytes, std::size_t moreElements = 0) const noexcept;

  private:
    friend class KeyedEncoder;
    friend class KeyedListArchive;

    // The top dictionary of the file; the array "$objects" has the number `objects`.
    void setTop(Uid root, Node objects);
    // One field of the record that is being written.
    void addField(std::string_view key, Node value);
    // Keeps an object that a record may have made for this call alone: its address stands for it.
    void retain(const ArchivedObject& object) { retained_.push_back(object); }

    Uid encode(const ArchivedObject& object);
    Uid encode(const Value& value);
    Uid encodeText(std::string_view text);
    Uid encodeNullText(std::string_view text);
    Uid encodeBytes(DataView bytes);
    Uid encodeShared(const Data& data);
    Uid encodeDate(double secondsSince1970);
    Uid encodeRecord(const Archivable& record);
    template <typename Elements>
    Uid encodeArray(const Elements& elements);
    template <typename Entries>
    Uid encodeDictionary(const Entries& entries);
    template <typename Element>
    Uid encodeElement(const Element& element);
    Uid encodeListElement(const ArchivedObject& element);
    Uid nullObject();

    Uid inlineObject(Node node);
    Uid takeNumber();
    void finishObject(Uid uid, std::size_t firstField, ClassChain chain);
    Uid classRecord(ClassChain chain);

    Node keyNode(std::string_view key);
    Node uidNode(Uid uid);
    Node integerNode(std::int64_t number);
    Node booleanNode(bool boolean);
    Node addPendingArray(std::size_t first);

    struct NamedNode {
        std::string_view name;
        Node node;
    };

    const RootClass rootClass_;
    BinaryPropertyListWriter writer_;
    std::vector<Node> objects_;
    std::vector<ArchivedObject> retained_;
    /// Stacks: the fields and elements of all objects that are open.
    std::vector<Field> fields_;
    std::vector<Node> elements_;
    IdentityMap identities_;
    struct TextHash : std::hash<std::string_view> {
        using is_transparent = void;
    };
    std::unordered_map<std::string, Uid, TextHash, std::equal_to<>> texts_;
    std::vector<NamedNode> keys_;
    std::size_t lastKey_ = 0;
    std::vector<NamedNode> classes_;
    /// Nodes made once, 0 while there is none: the reference to each object, small integers, booleans.
    std::vector<Node> uidNodes_;
    std::array<Node, 64> smallIntegers_{};
    std::array<Node, 2> booleans_{};
    Uid null_ = 0;
    std::size_t depth_ = 0;
    /// Of reading all that was written; a little more than the reader will spend.
    std::uint64_t cost_ = 0;
    bool nestsTooDeep_ = false;
};

}  // namespace qlsdk::platform
