#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "QLSDKCoreKit/platform/KeyedArchive.h"
#include "QLSDKCoreKit/platform/internal/BinaryPropertyListWriter.h"
#include "QLSDKCoreKit/platform/internal/IdentityMap.h"

namespace qlsdk::platform {

/// Writes one keyed archive; used once. Objects are numbered depth first: an object takes its number before
/// its contents, and the record of its class follows the contents of the first instance.
class KeyedArchiver {
  public:
    explicit KeyedArchiver(RootClass rootClass) noexcept : rootClass_(rootClass) {}

    /// The file; empty when the graph nests too deep. Text and data are borrowed from `root`.
    [[nodiscard]] Data archive(const ArchivedObject& root);

  private:
    friend class KeyedEncoder;
    using Node = BinaryPropertyListWriter::Node;
    using Field = BinaryPropertyListWriter::Field;
    /// The number of an object among "$objects"; 0 is nil.
    using Uid = std::uint32_t;
    using ClassChain = std::span<const std::string_view>;

    // One field of the record that is being written.
    void addField(std::string_view key, Node value);
    // Keeps an object that a record may have made for this call alone until the file is written.
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
    std::unordered_map<std::string_view, Uid> texts_;
    std::vector<NamedNode> keys_;
    std::size_t lastKey_ = 0;
    std::vector<NamedNode> classes_;
    /// Nodes made once, 0 while there is none: the reference to each object, small integers, booleans.
    std::vector<Node> uidNodes_;
    std::array<Node, 64> smallIntegers_{};
    std::array<Node, 2> booleans_{};
    Uid null_ = 0;
    std::size_t depth_ = 0;
    bool failed_ = false;
};

}  // namespace qlsdk::platform
