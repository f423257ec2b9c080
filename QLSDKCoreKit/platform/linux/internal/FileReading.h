#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "QLSDKCoreKit/platform/Data.h"

namespace qlsdk::platform {

/// Whose files are read. `own`: only regular files of this user that are no links, the rule for state the
/// library wrote itself. `system`: what the machine or the application's package installed, in any way.
enum class FileOrigin { own, system };

/// The whole content of a regular file. Absent when it is missing, larger than `ceilingBytes`, of the wrong
/// origin or unreadable. Memory follows the bytes that were really read. Any thread; never throws.
[[nodiscard]] std::optional<Data> readFileFrom(FileOrigin origin, const std::string& path,
                                               std::size_t ceilingBytes) noexcept;

}  // namespace qlsdk::platform
