#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "QLSDKCoreKit/platform/Data.h"
#include "QLSDKCoreKit/platform/Export.h"

namespace qlsdk::platform {

// Small private files. All calls are synchronous, work from any thread and never throw.

/// The whole content. Absent when the file is missing, larger than `ceilingBytes`, no regular file (a
/// directory, a link, a device), owned by another user or unreadable.
[[nodiscard]] QLSDK_EXPORT std::optional<Data> readFile(const std::string& path,
                                                        std::size_t ceilingBytes) noexcept;

/// Replaces or creates the file in one step: readers see the old bytes or the new ones, never a mixture. Mode
/// 0600 under any umask. False when it could not be written; the old file is then untouched and nothing is
/// left beside it.
[[nodiscard]] QLSDK_EXPORT bool replaceFile(const std::string& path, DataView bytes) noexcept;

/// True when something of that name was removed. A directory is not. The spare of a rewritten file goes too.
QLSDK_EXPORT bool removeFile(const std::string& path) noexcept;

/// True when something of that name exists, whatever it is.
[[nodiscard]] QLSDK_EXPORT bool fileExists(const std::string& path) noexcept;

}  // namespace qlsdk::platform
