#pragma once

#include <span>
#include <string>

#include <sys/stat.h>

#include "QLSDKCoreKit/platform/RewrittenFile.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

/// What every file of this library has, under any umask.
inline constexpr mode_t kPrivateFile = S_IRUSR | S_IWUSR;

/// Gives a new file that mode where the umask has taken something from it.
[[nodiscard]] bool makePrivate(int descriptor) noexcept;

/// Writes at most 16 pieces, one behind the other, at the start of the file, through interruptions and short
/// writes.
[[nodiscard]] bool writePieces(int descriptor, std::span<const DataView> pieces) noexcept;

/// Flushes the names in the directory of a file, where its file system can.
[[nodiscard]] bool flushNamesBeside(const std::string& path);

/// Writes a new file beside the one at `path` and puts it in its place. False leaves everything as it was,
/// and `errno` says why. The bytes are on the medium before they are put in place, if so asked; the name is
/// not. Throws only when memory runs out.
[[nodiscard]] bool replaceByTemporary(const std::string& path, std::span<const DataView> pieces,
                                      Flush flush = Flush::no);

/// Exchanges two files of one directory in one step.
[[nodiscard]] bool swapNames(const std::string& left, const std::string& right) noexcept;

/// Removes the file or, where that is not possible, empties it in place if it is a file of ours without a
/// second hard link. False when it is still there with its content, and `errno` says why it was not removed.
[[nodiscard]] bool removeOrEmpty(const std::string& path) noexcept;

/// What stands between a file's name and the six letters or digits of a new one on its way to replace it: no
/// suffix that a person gives to a copy.
inline constexpr const char* kTemporaryMark = ".qlsdk~";

/// The name of the spare beside a rewritten file.
[[nodiscard]] std::string spareOf(const std::string& path);

}  // namespace qlsdk::platform
