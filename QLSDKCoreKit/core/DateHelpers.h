#pragma once

#include <cstdint>

#include "QLSDKCoreKit/platform/Export.h"

namespace qlsdk {

/// Milliseconds since 1970-01-01 UTC, rounded down also before that day. A clock beyond the range answers the
/// range's end, one that answers no number 0. Any thread.
[[nodiscard]] QLSDK_EXPORT std::int64_t currentTimeMillis();

}  // namespace qlsdk
