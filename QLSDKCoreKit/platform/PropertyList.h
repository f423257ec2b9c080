#pragma once

#include <optional>

#include "QLSDKCoreKit/platform/Data.h"
#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/Value.h"

namespace qlsdk::platform {

/// Reads a property list, XML or binary. Absent when it is neither, damaged, nested over 512 levels or holds
/// what a property list cannot. XML may have 16 MiB and no declarations of its own. Objects that a binary
/// list shares stay shared. Any thread; never throws.
[[nodiscard]] QLSDK_EXPORT std::optional<Value> parsePropertyList(DataView bytes) noexcept;

/// Writes an XML property list. Absent when the value holds what one cannot: null, text that is not UTF-8 or
/// holds a control character other than tab and line feed, an unsigned integer above the signed maximum, a
/// real that is not finite, a date more than 68 years from 2001; or when it is nested over 512 levels or
/// would fill more than some 16 MiB. Dates are written in whole seconds. Any thread; never throws.
[[nodiscard]] QLSDK_EXPORT std::optional<Data> serializePropertyList(const Value& value) noexcept;

}  // namespace qlsdk::platform
