#pragma once

#include <optional>

#include "QLSDKCoreKit/platform/Data.h"
#include "QLSDKCoreKit/platform/Value.h"

namespace qlsdk::platform {

/// Whether the bytes claim to be a binary property list.
[[nodiscard]] bool isBinaryPropertyList(DataView bytes) noexcept;

/// Reads a binary property list. Objects that the file shares stay shared, so the effort is linear in its
/// size whatever it describes. Absent when it is damaged, cyclic, nested over 512 levels, or holds null, a
/// reference of an archive or a set. May throw std::bad_alloc.
[[nodiscard]] std::optional<Value> parseBinaryPropertyList(DataView bytes);

}  // namespace qlsdk::platform
