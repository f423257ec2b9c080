#pragma once

#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// True when `text` is well-formed UTF-8: no overlong forms, no surrogates, nothing past U+10FFFF.
[[nodiscard]] QLSDK_EXPORT bool isValidUtf8(std::string_view text) noexcept;

/// `text` as well-formed UTF-8: U+FFFD stands for each maximal part that could have begun a character, and
/// for each byte that could not, as Unicode recommends and most decoders do. Well-formed text comes back as
/// it is.
[[nodiscard]] QLSDK_EXPORT std::string repairedUtf8(std::string_view text);

}  // namespace qlsdk::platform
