#pragma once

#include <memory>
#include <span>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

/// Whether a change must be on the medium when the call returns.
enum class Flush { no, toMedium };

/// A small private file that is written anew after every change of what it holds, several times faster than
/// by a new file for each change.
///
/// Keeps a spare beside it (the path and ".spare"), which the next change overwrites and exchanges with the
/// file; the spare holds an older content. Both stay open between changes: at most two descriptors. Processes
/// and objects may rewrite one path at once. A directory that was removed meanwhile is made again. Readers
/// that may meet a rewrite go through `readFile`. After fork(), parent and child may both go on. Not
/// synchronised; never throws but from the constructor, when memory runs out.
class QLSDK_EXPORT RewrittenFile {
  public:
    /// Touches nothing yet.
    explicit RewrittenFile(std::string path);
    ~RewrittenFile();
    RewrittenFile(const RewrittenFile&) = delete;
    RewrittenFile& operator=(const RewrittenFile&) = delete;

    /// Replaces or creates the file in one step, from at most 16 pieces in order: readers see the old bytes
    /// or the new ones, never a mixture. Mode 0600 under any umask. False when it could not be written, and
    /// `errno` says why; the old file is then untouched.
    ///
    /// `toMedium`: after a power cut the file is there as it was written last, or as it is being written. The
    /// bytes are flushed before they get the name, and the name before the spare is overwritten once more.
    /// False also when only the flush of the name has failed; the new file is in place then. This begins with
    /// the end of the first such write.
    [[nodiscard]] bool rewrite(std::span<const DataView> pieces, Flush flush = Flush::no) noexcept;

    /// Removes the file and leaves its spare for the next content. Where the directory does not allow that,
    /// the file is emptied in place. False when it is still there with its content, and `errno` says why.
    [[nodiscard]] bool remove(Flush flush = Flush::no) noexcept;

    /// Removes both and closes them, and all else of `eraseFile`, so that nothing of an earlier content is
    /// left on the disk. False where something is, and `errno` says why.
    bool erase() noexcept;

  private:
    class Files;
    const std::shared_ptr<Files> files_;
};

}  // namespace qlsdk::platform
