#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

// Small private files. All calls are synchronous, work from any thread and never throw.

/// What came of reading a file.
enum class FileOutcome {
    read,
    /// There is nothing of that name.
    absent,
    /// What is there is no file of ours: no regular file (a directory, a link, a device), owned by another
    /// user or larger than the ceiling.
    unfit,
    /// The system did not let us read it, for now or for good: no descriptor, no memory, no permission, a
    /// disk error. It may hold all that it ever held.
    unreadable,
};

struct FileContent {
    FileOutcome outcome = FileOutcome::absent;
    /// Empty unless `read`.
    Data bytes{};
    /// Why not, as the system numbers it; 0 when read.
    int errorNumber = 0;
};

/// The whole content, up to `ceilingBytes`, and what kept it from being read.
[[nodiscard]] QLSDK_EXPORT FileContent readFileContent(const std::string& path,
                                                       std::size_t ceilingBytes) noexcept;

/// The same for those who do not ask why: absent when the file is missing, unfit or unreadable.
[[nodiscard]] QLSDK_EXPORT std::optional<Data> readFile(const std::string& path,
                                                        std::size_t ceilingBytes) noexcept;

/// Replaces or creates the file in one step: readers see the old bytes or the new ones, never a mixture. Mode
/// 0600 under any umask. False when it could not be written, and `errno` says why; the old file is then
/// untouched and nothing is left beside it.
[[nodiscard]] QLSDK_EXPORT bool replaceFile(const std::string& path, DataView bytes) noexcept;

/// Makes the directory of a file with mode 0700, and what is missing above it. True when it was missing and
/// is there now.
QLSDK_EXPORT bool makeDirectoryOf(const std::string& path) noexcept;

/// Removes the file, and the spare of a rewritten one. Where the directory does not allow that, a file of
/// ours is emptied in place, unless it has a second hard link. True when something of that name was removed.
/// A directory is not.
QLSDK_EXPORT bool removeFile(const std::string& path) noexcept;

/// Renames a regular file by adding `suffix`, for a person to look at; an earlier one of that name gives way.
/// False when there is no such file or it cannot be renamed, and `errno` says why.
QLSDK_EXPORT bool setFileAside(const std::string& path, const char* suffix) noexcept;
/// What `setFileAside` adds to a file that could not be read, and to one whose content is damaged.
inline constexpr const char* kUnreadableSuffix = ".unreadable";
inline constexpr const char* kDamagedSuffix = ".corrupt";

/// Removes what killed writers of the file have left beside it: files of ours under its name, ".qlsdk~" and
/// six letters or digits that no running writer holds. Nothing else of whatever name.
QLSDK_EXPORT void removeAbandonedTemporaries(const std::string& path) noexcept;

/// Removes the file and all that was ever written beside it: the spare, what was set aside, temporary files.
/// False when the file, the spare or something set aside is still there with its content, or when memory or
/// descriptors are missing to look for the rest, and `errno` says why.
QLSDK_EXPORT bool eraseFile(const std::string& path) noexcept;

/// True when something of that name exists, whatever it is.
[[nodiscard]] QLSDK_EXPORT bool fileExists(const std::string& path) noexcept;

}  // namespace qlsdk::platform
