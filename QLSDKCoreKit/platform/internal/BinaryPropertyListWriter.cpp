#include "QLSDKCoreKit/platform/internal/BinaryPropertyListWriter.h"

#include <bit>
#include <cstring>

#include "QLSDKCoreKit/platform/internal/Unicode.h"

namespace qlsdk::platform {

namespace {

constexpr std::string_view kHeader = "bplist00";
constexpr std::size_t kTrailerBytes = 32;
// A marker and eight bytes: the longest number, and more than any marker with its count.
constexpr std::size_t kEntryBytes = 9;

constexpr std::size_t widthFor(std::uint64_t number) noexcept {
    return number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : number <= 0xFFFFFFFF ? 4 : 8;
}

std::uint8_t* writeNumber(std::uint64_t number, std::size_t width, std::uint8_t* out) noexcept {
    for (std::size_t shift = 8 * width; shift != 0; shift -= 8) {
        *out++ = static_cast<std::uint8_t>(number >> (shift - 8));
    }
    return out;
}

std::uint8_t* writeInteger(std::uint64_t number, std::uint8_t* out) noexcept {
    const std::size_t width = widthFor(number);
    *out++ = static_cast<std::uint8_t>(0x10 | std::countr_zero(width));
    return writeNumber(number, width, out);
}

std::uint8_t* writeMarker(std::uint8_t high, std::size_t count, std::uint8_t* out) noexcept {
    if (count < 15) {
        *out++ = static_cast<std::uint8_t>(high | count);
        return out;
    }
    *out++ = high | 0x0F;
    return writeInteger(count, out);
}

std::uint8_t* writeBytes(const void* bytes, std::size_t count, std::uint8_t* out) noexcept {
    if (count != 0) std::memcpy(out, bytes, count);
    return out + count;
}

}  // namespace

BinaryPropertyListWriter::BinaryPropertyListWriter() {
    entries_.reserve(256);
    references_.reserve(512);
    add(Kind::dictionary, 0);
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::add(Kind kind, std::uint64_t bits) {
    entries_.push_back({.kind = kind, .count = 0, .bits = bits});
    return static_cast<Node>(entries_.size() - 1);
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addBytes(Kind kind, DataView bytes,
                                                                  std::size_t writtenBytes) {
    if (bytes.size() > UINT32_MAX) tooLarge_ = true;
    contentBytes_ += writtenBytes;
    entries_.push_back(
        {.kind = kind, .count = static_cast<std::uint32_t>(bytes.size()), .bytes = bytes.data()});
    return static_cast<Node>(entries_.size() - 1);
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addBoolean(bool boolean) {
    return add(boolean ? Kind::yes : Kind::no, 0);
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addInteger(std::int64_t number) {
    return add(Kind::integer, static_cast<std::uint64_t>(number));
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addReal(double number) {
    return add(Kind::real, std::bit_cast<std::uint64_t>(number));
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addData(DataView bytes) {
    return addBytes(Kind::data, bytes, bytes.size());
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addText(std::string_view text) {
    if (isAscii(text)) return addBytes(Kind::ascii, bytesOf(text), text.size());
    return addBytes(Kind::utf16, bytesOf(text), 2 * text.size());
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addUid(std::uint32_t uid) {
    return add(Kind::uid, uid);
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addArray(std::span<const Node> elements) {
    entries_.push_back({.kind = Kind::array,
                        .count = static_cast<std::uint32_t>(elements.size()),
                        .first = references_.size()});
    references_.insert(references_.end(), elements.begin(), elements.end());
    return static_cast<Node>(entries_.size() - 1);
}

BinaryPropertyListWriter::Entry BinaryPropertyListWriter::dictionaryEntry(std::span<const Field> fields) {
    const std::size_t first = references_.size();
    for (const Field& field : fields) references_.push_back(field.key);
    for (const Field& field : fields) references_.push_back(field.value);
    return {.kind = Kind::dictionary, .count = static_cast<std::uint32_t>(fields.size()), .first = first};
}

BinaryPropertyListWriter::Node BinaryPropertyListWriter::addDictionary(std::span<const Field> fields) {
    entries_.push_back(dictionaryEntry(fields));
    return static_cast<Node>(entries_.size() - 1);
}

void BinaryPropertyListWriter::setTop(std::span<const Field> fields) {
    entries_.front() = dictionaryEntry(fields);
}

std::uint8_t* BinaryPropertyListWriter::writeEntry(const Entry& entry, std::size_t referenceBytes,
                                                   std::uint8_t* out) const {
    const auto writeReferences = [&](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            out = writeNumber(references_[entry.first + i], referenceBytes, out);
        }
        return out;
    };
    switch (entry.kind) {
        case Kind::no:
            *out++ = 0x08;
            return out;
        case Kind::yes:
            *out++ = 0x09;
            return out;
        case Kind::integer:
            return writeInteger(entry.bits, out);
        case Kind::real:
            *out++ = 0x23;
            return writeNumber(entry.bits, 8, out);
        case Kind::data:
            out = writeMarker(0x40, entry.count, out);
            break;
        case Kind::ascii:
            out = writeMarker(0x50, entry.count, out);
            break;
        case Kind::utf16: {
            const std::string_view text(reinterpret_cast<const char*>(entry.bytes), entry.count);
            return writeUtf16(text, writeMarker(0x60, utf16Length(text), out));
        }
        case Kind::uid: {
            const std::size_t width = widthFor(entry.bits);
            *out++ = static_cast<std::uint8_t>(0x80 + width - 1);
            return writeNumber(entry.bits, width, out);
        }
        case Kind::array:
            out = writeMarker(0xA0, entry.count, out);
            return writeReferences(entry.count);
        case Kind::dictionary:
            out = writeMarker(0xD0, entry.count, out);
            return writeReferences(std::size_t{2} * entry.count);
    }
    return writeBytes(entry.bytes, entry.count, out);
}

Data BinaryPropertyListWriter::finish() const {
    const std::size_t count = entries_.size();
    const std::size_t referenceBytes = widthFor(count);
    const std::size_t objectBytes =
        kHeader.size() + count * kEntryBytes + contentBytes_ + references_.size() * referenceBytes;
    const std::size_t offsetBound = widthFor(objectBytes);
    if (tooLarge_ || offsetBound > 4) return {};

    Data file(objectBytes + count * offsetBound + kTrailerBytes);
    std::vector<std::uint32_t> offsets;
    offsets.reserve(count);
    std::uint8_t* out = writeBytes(kHeader.data(), kHeader.size(), file.data());
    for (const Entry& entry : entries_) {
        offsets.push_back(static_cast<std::uint32_t>(out - file.data()));
        out = writeEntry(entry, referenceBytes, out);
    }

    const auto tableOffset = static_cast<std::uint64_t>(out - file.data());
    const std::size_t offsetBytes = widthFor(tableOffset);
    for (const std::uint32_t offset : offsets) out = writeNumber(offset, offsetBytes, out);
    out = writeNumber(0, 6, out);
    *out++ = static_cast<std::uint8_t>(offsetBytes);
    *out++ = static_cast<std::uint8_t>(referenceBytes);
    out = writeNumber(count, 8, out);
    out = writeNumber(0, 8, out);
    out = writeNumber(tableOffset, 8, out);
    file.resize(static_cast<std::size_t>(out - file.data()));
    return file;
}

}  // namespace qlsdk::platform
