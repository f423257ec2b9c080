#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

/// Whose files are read. `own`: only regular files of this user that are no links, the rule for state the
/// library wrote itself. `system`: what the machine or the application's package installed, in any way.
enum class FileOrigin { own, system };

/// The whole content of a regular file. Memory follows the bytes that were really read. Any thread; never
/// throws.
[[nodiscard]] FileContent readContentFrom(FileOrigin origin, const std::string& path,
                                          std::size_t ceilingBytes) noexcept;

/// The same for those who do not ask why there is none. Absent when it is missing, larger than
/// `ceilingBytes`, of the wrong origin or unreadable.
[[nodiscard]] std::optional<Data> readFileFrom(FileOrigin origin, const std::string& path,
                                               std::size_t ceilingBytes) noexcept;

}  // namespace qlsdk::platform
