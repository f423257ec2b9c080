#pragma once

#include <optional>

#include "QLSDKCoreKit/platform/Data.h"
#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/Value.h"

namespace qlsdk::platform {

/// Reads a property list, XML or binary. Absent when it is neither, damaged, nested over 512 levels or holds
/// what a property list cannot. Objects that a binary list shares stay shared. Any thread; never throws.
[[nodiscard]] QLSDK_EXPORT std::optional<Value> parsePropertyList(DataView bytes) noexcept;

/// Writes an XML property list. Absent when the value holds what one cannot: null, text that is not UTF-8 or
/// holds a NUL, an unsigned integer above the signed maximum, a real that is not finite. Any thread; never
/// throws.
[[nodiscard]] QLSDK_EXPORT std::optional<Data> serializePropertyList(const Value& value) noexcept;

}  // namespace qlsdk::platform
