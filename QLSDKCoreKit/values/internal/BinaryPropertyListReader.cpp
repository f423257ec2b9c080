#include "QLSDKCoreKit/values/internal/BinaryPropertyListReader.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "QLSDKCoreKit/values/internal/Unicode.h"

namespace qlsdk::platform {

namespace {

using Kind = BinaryObject::Kind;

constexpr std::string_view kHeader = "bplist00";
constexpr std::size_t kTrailerBytes = 32;

std::string_view characters(DataView bytes) noexcept {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The last eight bytes count when there are more.
std::uint64_t bigEndian(DataView bytes) noexcept {
    std::uint64_t number = 0;
    for (const std::uint8_t byte : bytes) number = number << 8 | byte;
    return number;
}

std::optional<BinaryObject> integer(DataView rest, std::uint8_t power) noexcept {
    const std::size_t width = std::size_t{1} << power;
    if (power > 4 || rest.size() < width) return std::nullopt;
    BinaryObject object{.kind = Kind::integer, .number = bigEndian(rest.first(width))};
    // Up to eight bytes the sign is the top bit of the eighth; only the wide form has room for more.
    const bool wide = width == 16 && bigEndian(rest.first(8)) == 0;
    if (wide && object.number > static_cast<std::uint64_t>(INT64_MAX)) object.kind = Kind::unsignedInteger;
    return object;
}

std::optional<BinaryObject> real(Kind kind, DataView rest, std::uint8_t power) noexcept {
    if (power == 2 && kind == Kind::real && rest.size() >= 4) {
        const auto bits = static_cast<std::uint32_t>(bigEndian(rest.first(4)));
        return BinaryObject{.kind = kind, .real = static_cast<double>(std::bit_cast<float>(bits))};
    }
    if (power != 3 || rest.size() < 8) return std::nullopt;
    return BinaryObject{.kind = kind, .real = std::bit_cast<double>(bigEndian(rest.first(8)))};
}

std::optional<BinaryObject> uid(DataView rest, std::uint8_t low) noexcept {
    const std::size_t width = low + std::size_t{1};
    if (width > 8 || rest.size() < width) return std::nullopt;
    return BinaryObject{.kind = Kind::uid, .number = bigEndian(rest.first(width))};
}

std::optional<BinaryObject> simple(std::uint8_t low) noexcept {
    switch (low) {
        case 0:
            return BinaryObject{};
        case 8:
            return BinaryObject{.kind = Kind::boolean, .number = 0};
        case 9:
            return BinaryObject{.kind = Kind::boolean, .number = 1};
        default:
            return std::nullopt;
    }
}

}  // namespace

std::optional<BinaryPropertyListReader> BinaryPropertyListReader::open(DataView bytes) noexcept {
    if (bytes.size() < kHeader.size() + kTrailerBytes) return std::nullopt;
    if (characters(bytes.first(kHeader.size())) != kHeader) return std::nullopt;
    const DataView trailer = bytes.last(kTrailerBytes);
    const DataView body = bytes.first(bytes.size() - kTrailerBytes);
    const std::uint64_t tableOffset = bigEndian(trailer.subspan(24, 8));

    BinaryPropertyListReader reader;
    reader.offsetBytes_ = trailer[6];
    reader.referenceBytes_ = trailer[7];
    reader.objectCount_ = bigEndian(trailer.subspan(8, 8));
    reader.topObject_ = bigEndian(trailer.subspan(16, 8));
    if (reader.offsetBytes_ < 1 || reader.offsetBytes_ > 8) return std::nullopt;
    if (reader.referenceBytes_ < 1 || reader.referenceBytes_ > 8) return std::nullopt;
    if (tableOffset < kHeader.size() || tableOffset > body.size()) return std::nullopt;
    reader.objects_ = body.first(static_cast<std::size_t>(tableOffset));
    reader.table_ = body.subspan(reader.objects_.size());
    if (reader.objectCount_ > reader.table_.size() / reader.offsetBytes_) return std::nullopt;
    if (reader.topObject_ >= reader.objectCount_) return std::nullopt;
    return reader;
}

std::optional<BinaryObject> BinaryPropertyListReader::object(std::uint64_t number) const noexcept {
    if (number >= objectCount_) return std::nullopt;
    const std::size_t place = static_cast<std::size_t>(number) * offsetBytes_;
    const std::uint64_t named = bigEndian(table_.subspan(place, offsetBytes_));
    if (named < kHeader.size() || named >= objects_.size()) return std::nullopt;
    const auto offset = static_cast<std::size_t>(named);
    std::optional<BinaryObject> object = parse(objects_[offset], objects_.subspan(offset + 1));
    if (object) object->offset = offset;
    return object;
}

std::optional<BinaryObject> BinaryPropertyListReader::parse(std::uint8_t marker,
                                                            DataView rest) const noexcept {
    const std::uint8_t low = marker & 0x0F;
    switch (marker >> 4) {
        case 0x0:
            return simple(low);
        case 0x1:
            return integer(rest, low);
        case 0x2:
            return real(Kind::real, rest, low);
        case 0x3:
            return real(Kind::date, rest, low);
        case 0x4:
            return sized({.kind = Kind::data}, rest, low, 1);
        case 0x5:
            return sized({.kind = Kind::ascii}, rest, low, 1);
        case 0x6:
            return sized({.kind = Kind::utf16}, rest, low, 2);
        case 0x8:
            return uid(rest, low);
        case 0xA:
            return sized({.kind = Kind::array}, rest, low, referenceBytes_);
        case 0xD:
            return sized({.kind = Kind::dictionary}, rest, low, 2 * referenceBytes_);
        default:
            return std::nullopt;
    }
}

std::optional<BinaryObject> BinaryPropertyListReader::sized(BinaryObject object, DataView rest,
                                                            std::uint8_t low,
                                                            std::uint64_t elementBytes) const noexcept {
    object.count = low;
    if (low == 0x0F) {
        // The count is an integer object of its own, between the marker and the content.
        if (rest.empty() || rest[0] >> 4 != 1 || (rest[0] & 0x0F) > 3) return std::nullopt;
        const std::size_t width = std::size_t{1} << (rest[0] & 0x0F);
        if (rest.size() < 1 + width) return std::nullopt;
        object.count = bigEndian(rest.subspan(1, width));
        rest = rest.subspan(1 + width);
    }
    if (object.count > rest.size() / elementBytes) return std::nullopt;
    object.bytes = rest.first(static_cast<std::size_t>(object.count * elementBytes));
    return object;
}

std::uint64_t BinaryPropertyListReader::reference(const BinaryObject& container,
                                                  std::uint64_t index) const noexcept {
    const std::size_t place = static_cast<std::size_t>(index) * referenceBytes_;
    return bigEndian(container.bytes.subspan(place, referenceBytes_));
}

std::optional<BinaryObject> BinaryPropertyListReader::find(const BinaryObject& dictionary,
                                                           std::string_view key) const noexcept {
    if (dictionary.kind != Kind::dictionary) return std::nullopt;
    for (std::uint64_t i = 0; i < dictionary.count; ++i) {
        const std::optional<BinaryObject> candidate = object(reference(dictionary, i));
        if (candidate && holdsText(*candidate, key))
            return object(reference(dictionary, dictionary.count + i));
    }
    return std::nullopt;
}

std::optional<std::string> decodedText(const BinaryObject& object) {
    if (object.kind == Kind::utf16) return utf8FromUtf16(object.bytes);
    const std::string_view text = characters(object.bytes);
    if (object.kind != Kind::ascii || !(isAscii(text) || isValidUtf8(text))) return std::nullopt;
    return std::string(text);
}

bool holdsText(const BinaryObject& object, std::string_view ascii) noexcept {
    if (object.kind == Kind::ascii) return characters(object.bytes) == ascii;
    if (object.kind != Kind::utf16 || object.count != ascii.size()) return false;
    for (std::size_t i = 0; i < ascii.size(); ++i) {
        if (object.bytes[2 * i] != 0 || object.bytes[2 * i + 1] != static_cast<std::uint8_t>(ascii[i]))
            return false;
    }
    return true;
}

}  // namespace qlsdk::platform
