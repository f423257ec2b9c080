#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/internal/Utf8.h"

namespace qlsdk::platform {

/// How many 16-bit units the text takes. `text` must be valid UTF-8.
[[nodiscard]] std::size_t utf16Length(std::string_view text) noexcept;

/// Writes the text as big-endian UTF-16 and returns the end. There must be room for `utf16Length` units;
/// `text` must be valid UTF-8.
std::uint8_t* writeUtf16(std::string_view text, std::uint8_t* out) noexcept;

/// UTF-8 from big-endian UTF-16, two bytes for each unit. A surrogate without its other half becomes U+FFFD:
/// one broken character is no reason to lose a whole file.
[[nodiscard]] std::string utf8FromUtf16(DataView units);

}  // namespace qlsdk::platform
