#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

[[nodiscard]] inline bool isAscii(std::string_view text) noexcept {
    std::size_t index = 0;
    for (; index + 8 <= text.size(); index += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + index, 8);
        if ((word & 0x8080808080808080U) != 0) return false;
    }
    return std::all_of(text.begin() + static_cast<std::ptrdiff_t>(index), text.end(),
                       [](char character) { return static_cast<std::uint8_t>(character) < 0x80; });
}

/// What `isValidUtf8` says, without its short way for ASCII.
[[nodiscard]] QLSDK_EXPORT bool isWellFormedUtf8(std::string_view text) noexcept;

/// True when `text` is well-formed UTF-8: no overlong forms, no surrogates, nothing past U+10FFFF.
[[nodiscard]] inline bool isValidUtf8(std::string_view text) noexcept {
    return isAscii(text) || isWellFormedUtf8(text);
}

/// `text` as well-formed UTF-8: U+FFFD stands for each maximal part that could have begun a character, and
/// for each byte that could not, as Unicode recommends and most decoders do. Well-formed text comes back as
/// it is.
[[nodiscard]] QLSDK_EXPORT std::string repairedUtf8(std::string_view text);

}  // namespace qlsdk::platform
