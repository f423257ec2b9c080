#include "QLSDKCoreKit/values/internal/BinaryPropertyListWriter.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "QLSDKCoreKit/values/internal/Unicode.h"

namespace qlsdk::platform {

namespace {

constexpr std::string_view kHeader = "bplist00";
constexpr std::uint8_t kDictionaryMarker = 0xD0;

constexpr std::uint64_t greatest(std::size_t width) noexcept {
    return (std::uint64_t{1} << (8 * width)) - 1;
}

}  // namespace

void appendNumber(std::uint64_t number, std::size_t width, ByteBuffer& out) {
    putNumber(number, width, out.extend(width));
}

void appendInteger(std::int64_t number, ByteBuffer& out) {
    const auto bits = static_cast<std::uint64_t>(number);
    const std::size_t width = bits <= 0xFF ? 1 : bits <= 0xFFFF ? 2 : bits <= 0xFFFFFFFF ? 4 : 8;
    std::uint8_t* end = out.extend(1 + width);
    *end++ = static_cast<std::uint8_t>(0x10 | std::countr_zero(width));
    putNumber(bits, width, end);
}

void appendMarker(std::uint8_t kind, std::size_t count, ByteBuffer& out) {
    if (count < 15) {
        out.append(static_cast<std::uint8_t>(kind | count));
        return;
    }
    out.append(kind | 0x0F);
    appendInteger(static_cast<std::int64_t>(count), out);
}

void appendArray(std::span<const PropertyListNode> elements, std::size_t referenceBytes, ByteBuffer& out) {
    appendMarker(kArrayMarker, elements.size(), out);
    std::uint8_t* end = out.extend(elements.size() * referenceBytes);
    for (const PropertyListNode element : elements) end = putNumber(element, referenceBytes, end);
}

void appendDictionary(std::span<const PropertyListField> fields, std::size_t referenceBytes,
                      ByteBuffer& out) {
    appendMarker(kDictionaryMarker, fields.size(), out);
    std::uint8_t* end = out.extend(2 * fields.size() * referenceBytes);
    for (const PropertyListField& field : fields) end = putNumber(field.key, referenceBytes, end);
    for (const PropertyListField& field : fields) end = putNumber(field.value, referenceBytes, end);
}

void appendTrailer(std::size_t objectCount, std::size_t tableOffset, std::size_t referenceBytes,
                   std::size_t offsetBytes, ByteBuffer& out) {
    std::uint8_t* end = out.extend(kTrailerBytes);
    std::fill_n(end, 6, std::uint8_t{0});
    end += 6;
    *end++ = static_cast<std::uint8_t>(offsetBytes);
    *end++ = static_cast<std::uint8_t>(referenceBytes);
    end = putNumber(objectCount, 8, end);
    end = putNumber(0, 8, end);
    putNumber(tableOffset, 8, end);
}

BinaryPropertyListWriter::BinaryPropertyListWriter(Widths widths) : widths_(widths) {
    objects_.append(bytesOf(kHeader));
    reserve();
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::begin() {
    appendNumber(objects_.size(), widths_.offsetBytes, offsets_);
    return static_cast<Node>(count_++);
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::reserve() {
    return begin();
}

void BinaryPropertyListWriter::setOffset(Node node, std::size_t offset) noexcept {
    const std::size_t width = widths_.offsetBytes;
    putNumber(offset, width, offsets_.data() + std::size_t{node} * width);
}

void BinaryPropertyListWriter::overwrite(std::size_t offset, DataView bytes) noexcept {
    std::memcpy(objects_.data() + offset, bytes.data(), bytes.size());
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addBoolean(bool boolean) {
    const Node node = begin();
    objects_.append(static_cast<std::uint8_t>(boolean ? 0x09 : 0x08));
    return node;
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addInteger(std::int64_t number) {
    const Node node = begin();
    appendInteger(number, objects_);
    return node;
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addReal(double number) {
    const Node node = begin();
    objects_.append(std::uint8_t{0x23});
    appendNumber(std::bit_cast<std::uint64_t>(number), 8, objects_);
    return node;
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addDate(double secondsSince2001) {
    const Node node = begin();
    objects_.append(std::uint8_t{0x33});
    appendNumber(std::bit_cast<std::uint64_t>(secondsSince2001), 8, objects_);
    return node;
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addData(DataView bytes) {
    const Node node = begin();
    appendMarker(0x40, bytes.size(), objects_);
    objects_.append(bytes);
    return node;
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addText(std::string_view text) {
    const Node node = begin();
    if (isAscii(text)) {
        appendMarker(0x50, text.size(), objects_);
        objects_.append(bytesOf(text));
        return node;
    }
    const std::size_t units = utf16Length(text);
    appendMarker(0x60, units, objects_);
    writeUtf16(text, objects_.extend(2 * units));
    return node;
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addUid(std::uint32_t uid) {
    const Node node = begin();
    const std::size_t width = uid <= 0xFF ? 1 : uid <= 0xFFFF ? 2 : 4;
    objects_.append(static_cast<std::uint8_t>(0x80 + width - 1));
    appendNumber(uid, width, objects_);
    return node;
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addArray(std::span<const Node> elements) {
    const Node node = begin();
    appendArray(elements, widths_.referenceBytes, objects_);
    return node;
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addDictionary(std::span<const Field> fields) {
    const Node node = begin();
    appendDictionary(fields, widths_.referenceBytes, objects_);
    return node;
}

void BinaryPropertyListWriter::rollBack(const Mark& mark) noexcept {
    objects_.truncate(mark.objectBytes);
    offsets_.truncate(mark.offsetBytes);
    count_ = mark.count;
}

bool BinaryPropertyListWriter::fits(std::size_t tableOffset) const noexcept {
    return count_ <= greatest(widths_.referenceBytes) && tableOffset <= greatest(widths_.offsetBytes);
}

void BinaryPropertyListWriter::setTop(std::span<const Field> fields) {
    setOffset(0, objects_.size());
    appendDictionary(fields, widths_.referenceBytes, objects_);
}

Data BinaryPropertyListWriter::finish() {
    const std::size_t tableOffset = objects_.size();
    if (!fits(tableOffset)) return {};
    objects_.append(offsets_.view());
    appendTrailer(count_, tableOffset, widths_.referenceBytes, widths_.offsetBytes, objects_);
    const DataView file = objects_.view();
    return Data(file.begin(), file.end());
}

}  // namespace qlsdk::platform
