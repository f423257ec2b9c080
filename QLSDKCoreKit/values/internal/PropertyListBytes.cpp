#include "QLSDKCoreKit/values/internal/PropertyListBytes.h"

#include <bit>

namespace qlsdk::platform {

namespace {

constexpr std::uint8_t kDictionaryMarker = 0xD0;

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

}  // namespace qlsdk::platform
