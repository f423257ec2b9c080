#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "QLSDKCoreKit/platform/Data.h"
#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/Value.h"

namespace qlsdk::platform {

/// Bounds of one parse; what exceeds them does not parse. 512 levels is what every decoder here allows.
struct JsonLimits {
    std::size_t bytes = std::size_t{1} << 20;
    std::size_t depth = 512;
};

/// Parses one JSON text. Absent when it is not JSON, not UTF-8, or beyond the limits. Of a key that occurs
/// twice in an object the last value counts. Integers beyond 64 bits become reals; a number too large for a
/// double does not parse. Any thread; never throws.
[[nodiscard]] QLSDK_EXPORT std::optional<Value> parseJson(DataView text, JsonLimits limits = {}) noexcept;

/// Compact JSON in the value's own key order. Absent when the value holds what JSON cannot: text that is not
/// UTF-8, a real that is not finite, data, a date; or when it is nested over 512 levels or longer than some
/// 16 MiB. Slashes are written bare. Any thread; never throws.
[[nodiscard]] QLSDK_EXPORT std::optional<std::string> serializeJson(const Value& value) noexcept;

}  // namespace qlsdk::platform
