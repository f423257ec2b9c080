#pragma once

#include <cstddef>
#include <optional>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/Value.h"

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

}  // namespace qlsdk::platform
