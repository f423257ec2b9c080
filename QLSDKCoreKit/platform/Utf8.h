#pragma once

#include <string_view>

#include "QLSDKCoreKit/platform/Export.h"

namespace qlsdk::platform {

/// True when `text` is well-formed UTF-8: no overlong forms, no surrogates, nothing past U+10FFFF.
[[nodiscard]] QLSDK_EXPORT bool isValidUtf8(std::string_view text) noexcept;

}  // namespace qlsdk::platform
