#pragma once

#include <optional>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk::platform {

/// Reads a property list, XML or binary. Absent when it is neither, damaged, nested over 512 levels or holds
/// what a property list cannot. XML may have 16 MiB and no declarations of its own. Objects that a binary
/// list shares stay shared. Any thread; never throws.
[[nodiscard]] QLSDK_EXPORT std::optional<Value> parsePropertyList(DataView bytes) noexcept;

/// Writes a binary property list, which keeps dates to the last bit; an XML one has whole seconds only.
/// Absent when the value holds what a property list cannot: null, text that is not UTF-8, an unsigned integer
/// above the signed maximum, a real or a date that is not finite; or when it is nested over 512 levels or
/// would fill more than some 16 MiB. Any thread; never throws.
[[nodiscard]] QLSDK_EXPORT std::optional<Data> serializePropertyList(const Value& value) noexcept;

}  // namespace qlsdk::platform
