#pragma once

#include <optional>
#include <span>
#include <string>

#include "QLSDKCoreKit/events/internal/QueueArchive.h"
#include "QLSDKCoreKit/platform/RewrittenFile.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk {

/// The file of an upload queue's list: what an earlier process has left in it, and its replacement.
///
/// A file that cannot be read is not overwritten: it is read again when the list is about to change, and set
/// aside where that fails for another reason than a want of descriptors. Until one of these succeeds nothing
/// is written. What fails is told through the diagnostics. Not synchronised.
class QueueFile {
  public:
    /// `path` may be empty; there is no file then.
    explicit QueueFile(std::string path);

    /// What an earlier process has left; absent when there is nothing or nothing that can be read. A damaged
    /// file is set aside. Removes what killed writers have left.
    [[nodiscard]] std::optional<QueueArchive> load();
    /// The file is there and could not be read so far.
    [[nodiscard]] bool isUnread() const noexcept { return isUnread_; }
    /// What was read could not be kept; the file is as if it had not been read.
    void keepUnread() noexcept { isUnread_ = true; }
    /// Once more.
    [[nodiscard]] std::optional<QueueArchive> loadAgain();

    /// Replaces the file; false when that failed and the old one still stands. No pieces are a list that has
    /// no file.
    [[nodiscard]] bool write(std::span<const DataView> pieces) noexcept;
    /// Tells that a write could not even begin.
    void tellFailedWrite(int errorNumber) const noexcept;
    /// Removes the file, which is soon written again, or else empties it. False when it is still there with
    /// its content. A file that nobody could read stays.
    bool remove() noexcept;
    /// Removes all that is on the disk, for good.
    void erase() noexcept;

  private:
    std::optional<QueueArchive> read();

    const std::string path_;
    bool isUnread_ = false;
    int readError_ = 0;
    std::optional<platform::RewrittenFile> file_;
};

}  // namespace qlsdk
