#include "QLSDKCoreKit/values/internal/Unicode.h"

#include <algorithm>
#include <cstring>

namespace qlsdk::platform {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

std::uint8_t byteAt(std::string_view text, std::size_t index) noexcept {
    return static_cast<std::uint8_t>(text[index]);
}

struct Sequence {
    std::size_t length;
    bool wellFormed;
};

// The character at `index`; where there is none, the longest part of one that stands there, at least a byte.
Sequence sequenceAt(std::string_view text, std::size_t index) noexcept {
    const std::uint8_t lead = byteAt(text, index);
    if (lead < 0x80) return {1, true};
    if (lead < 0xC2 || lead > 0xF4) return {1, false};
    const std::size_t whole = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    // The second byte alone tells overlong forms, surrogates and what is past U+10FFFF.
    std::uint8_t lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    std::uint8_t highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    for (std::size_t length = 1; length < whole; ++length) {
        if (index + length >= text.size()) return {length, false};
        const std::uint8_t next = byteAt(text, index + length);
        if (next < lowest || next > highest) return {length, false};
        lowest = 0x80;
        highest = 0xBF;
    }
    return {whole, true};
}

// Decodes the sequence at `index` of valid UTF-8 and moves past it.
char32_t nextCharacter(std::string_view text, std::size_t& index) noexcept {
    const std::uint8_t lead = byteAt(text, index++);
    if (lead < 0x80) return lead;
    const int more = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    char32_t character = lead & (0x3FU >> more);
    for (int i = 0; i < more; ++i) character = character << 6 | (byteAt(text, index++) & 0x3FU);
    return character;
}

std::uint8_t* writeUnit(char32_t unit, std::uint8_t* out) noexcept {
    *out++ = static_cast<std::uint8_t>(unit >> 8);
    *out++ = static_cast<std::uint8_t>(unit);
    return out;
}

void appendUtf8(std::string& text, char32_t character) {
    const auto put = [&text](char32_t byte) { text += static_cast<char>(byte); };
    const auto putLow = [&put, character](int shift) { put(0x80 | (character >> shift & 0x3F)); };
    if (character < 0x80) return put(character);
    if (character < 0x800) {
        put(0xC0 | character >> 6);
    } else if (character < 0x10000) {
        put(0xE0 | character >> 12);
        putLow(6);
    } else {
        put(0xF0 | character >> 18);
        putLow(12);
        putLow(6);
    }
    putLow(0);
}

bool isHighSurrogate(char32_t unit) noexcept {
    return unit >= 0xD800 && unit < 0xDC00;
}
bool isLowSurrogate(char32_t unit) noexcept {
    return unit >= 0xDC00 && unit < 0xE000;
}

}  // namespace

bool isWellFormedUtf8(std::string_view text) noexcept {
    for (std::size_t index = 0; index < text.size();) {
        const Sequence sequence = sequenceAt(text, index);
        if (!sequence.wellFormed) return false;
        index += sequence.length;
    }
    return true;
}

std::string repairedUtf8(std::string_view text) {
    std::string repaired;
    repaired.reserve(text.size());
    for (std::size_t index = 0; index < text.size();) {
        const Sequence sequence = sequenceAt(text, index);
        if (sequence.wellFormed) {
            repaired += text.substr(index, sequence.length);
        } else {
            appendUtf8(repaired, kReplacement);
        }
        index += sequence.length;
    }
    return repaired;
}

std::size_t utf16Length(std::string_view text) noexcept {
    std::size_t units = 0;
    for (std::size_t index = 0; index < text.size();) units += nextCharacter(text, index) < 0x10000 ? 1 : 2;
    return units;
}

std::uint8_t* writeUtf16(std::string_view text, std::uint8_t* out) noexcept {
    for (std::size_t index = 0; index < text.size();) {
        const char32_t character = nextCharacter(text, index);
        if (character < 0x10000) {
            out = writeUnit(character, out);
        } else {
            out = writeUnit(0xD7C0 + (character >> 10), out);
            out = writeUnit(0xDC00 + (character & 0x3FF), out);
        }
    }
    return out;
}

std::string utf8FromUtf16(DataView units) {
    const std::size_t count = units.size() / 2;
    const auto unitAt = [units](std::size_t i) -> char32_t { return units[2 * i] * 256U + units[2 * i + 1]; };
    std::string text;
    text.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const char32_t unit = unitAt(i);
        if (isHighSurrogate(unit) && i + 1 < count && isLowSurrogate(unitAt(i + 1))) {
            appendUtf8(text, 0x10000 + ((unit - 0xD800) << 10) + (unitAt(++i) - 0xDC00));
        } else {
            appendUtf8(text, isHighSurrogate(unit) || isLowSurrogate(unit) ? kReplacement : unit);
        }
    }
    return text;
}

}  // namespace qlsdk::platform
