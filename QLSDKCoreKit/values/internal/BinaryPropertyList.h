#pragma once

#include <optional>

#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk::platform {

/// Whether the bytes claim to be a binary property list.
[[nodiscard]] bool isBinaryPropertyList(DataView bytes) noexcept;

/// Reads a binary property list. Objects that the file shares stay shared, so the effort is linear in its
/// size whatever it describes. Absent when it is damaged, cyclic, nested over 512 levels, or holds null, a
/// reference of an archive or a set. May throw std::bad_alloc.
[[nodiscard]] std::optional<Value> parseBinaryPropertyList(DataView bytes);

/// Writes one that shares nothing. Absent when the value holds what a property list cannot (see
/// `serializePropertyList`), is nested over 512 levels or would fill more than some 16 MiB. May throw
/// std::bad_alloc.
[[nodiscard]] std::optional<Data> serializeBinaryPropertyList(const Value& value);

}  // namespace qlsdk::platform
