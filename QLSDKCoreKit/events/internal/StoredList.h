#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "QLSDKCoreKit/control/DeliveryCounters.h"
#include "QLSDKCoreKit/events/EventWrapper.h"
#include "QLSDKCoreKit/events/internal/QueueArchive.h"
#include "QLSDKCoreKit/platform/RewrittenFile.h"
#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/internal/KeyedListArchive.h"

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

/// The records that an upload queue has not sent and the number of the last one it took, with their encoded
/// form and their file: who changes the list changes all three, here.
///
/// A change is owed to the file until `writeOwed`; its caller decides when, so that one write does for all
/// that waits. In a child of fork() what the parent owes is the parent's.
///
/// The list is newest first and has no upper bound. A write that fails costs only the survival of a restart:
/// it is told through the diagnostics, and the records that were new to the file are counted as
/// `lostToFailedWrite`.
///
/// Records from a file that can be neither rewritten nor removed nor emptied are held back: each process to
/// come would send them again. Not synchronised.
class StoredList {
  public:
    /// `path` may be empty; nothing is on disk then. Touches no file. The counters must outlive the list.
    StoredList(std::string path, platform::DeliveryCounters& deliveries);

    /// Takes over what an earlier process has left, which is then owed once more.
    void load();
    /// Once more, if the file was there and could not be read; what was added meanwhile is newer than all of
    /// it and numbered anew. To be called before anything is changed.
    void loadUnread();
    /// Whether the file may hold more than the list.
    [[nodiscard]] bool isUnread() const noexcept { return file_.isUnread(); }

    [[nodiscard]] std::size_t size() const noexcept { return encoded_.elements().size(); }
    [[nodiscard]] std::uint64_t maxSequenceId() const noexcept { return maxSequenceId_; }
    /// The number of the next record.
    [[nodiscard]] std::uint64_t takeSequenceId() noexcept { return ++maxSequenceId_; }

    /// Adds them one by one at the front.
    void add(const platform::ArchivedObject& record);
    void add(const EventList& records);

    /// Decides which records are held back in the run that begins; may have to write the file to know.
    void holdBack();
    /// What may be sent, newest first: all but the records that are held back.
    [[nodiscard]] EventList sendable() const;
    /// Of what may be sent only these stay, given oldest first; the next write leaves no file behind that
    /// holds the others. When memory runs out it throws and nothing has changed.
    void keepOnly(const EventList& staying);

    /// Drops all records, counted as `discarded`, removes everything from the disk and numbers from 1 again:
    /// a number that went on would still tell of what was there before.
    void discard() noexcept;
    /// Removes what is on the disk.
    void erase() noexcept { file_.erase(); }

    /// Writes the file if a change is owed to it. What fails is counted and then waits for the next change.
    void writeOwed() noexcept;
    /// More was changed than a write of the whole list costs: whoever puts writes off goes no further.
    [[nodiscard]] bool isWriteDue() const noexcept;

  private:
    void takeOver(const QueueArchive& archive);
    void renumber(std::uint64_t difference) noexcept;
    void owe(std::size_t records) noexcept;
    bool write() noexcept;

    platform::DeliveryCounters& deliveries_;
    const std::string path_;
    QueueFile file_;
    /// Holds the list, too, oldest first.
    platform::KeyedListArchive encoded_;
    std::uint64_t maxSequenceId_ = 0;
    /// The file does not say what the list does, because of a change in this fork generation.
    bool isOwed_ = false;
    std::uint64_t forkGeneration_ = 0;
    /// How many records are new to the file.
    std::size_t unwritten_ = 0;
    /// What was done since the last write: operations, and the records that they moved.
    std::size_t work_ = 0;
    /// Records have left the list that the file holds.
    bool haveLeft_ = false;
    /// The list may hold records of an earlier process that the file has held since.
    bool mayHoldLoaded_ = false;
    /// Newest first.
    EventList heldBack_;
};

}  // namespace qlsdk
