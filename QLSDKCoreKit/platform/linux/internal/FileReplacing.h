#pragma once

#include <span>
#include <string>

#include <sys/stat.h>

#include "QLSDKCoreKit/platform/Data.h"

namespace qlsdk::platform {

/// What every file of this library has, under any umask.
inline constexpr mode_t kPrivateFile = S_IRUSR | S_IWUSR;

/// Gives a new file that mode where the umask has taken something from it.
[[nodiscard]] bool makePrivate(int descriptor) noexcept;

/// Writes at most 16 pieces, one behind the other, at the start of the file, through interruptions and short
/// writes.
[[nodiscard]] bool writePieces(int descriptor, std::span<const DataView> pieces) noexcept;

/// Writes a new file beside the one at `path` and puts it in its place. False leaves everything as it was.
/// Throws only when memory runs out.
[[nodiscard]] bool replaceByTemporary(const std::string& path, std::span<const DataView> pieces);

/// Exchanges two files of one directory in one step.
[[nodiscard]] bool swapNames(const std::string& left, const std::string& right) noexcept;

/// The name of the spare beside a rewritten file.
[[nodiscard]] std::string spareOf(const std::string& path);

}  // namespace qlsdk::platform
