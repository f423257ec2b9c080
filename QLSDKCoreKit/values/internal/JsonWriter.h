#pragma once

#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk::platform {

/// Compact JSON in the value's own key order. Absent when the value holds what JSON cannot: text that is not
/// UTF-8, a real that is not finite, data, a date; or when it is nested over 512 levels or longer than some
/// 16 MiB. Slashes are written bare. Any thread; never throws.
[[nodiscard]] QLSDK_EXPORT std::optional<std::string> serializeJson(const Value& value) noexcept;

}  // namespace qlsdk::platform
