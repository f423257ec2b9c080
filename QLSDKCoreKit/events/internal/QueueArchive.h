#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "QLSDKCoreKit/events/EventWrapper.h"
#include "QLSDKCoreKit/platform/KeyedListArchive.h"
#include "QLSDKCoreKit/platform/RewrittenFile.h"

namespace qlsdk {

/// A larger file is treated as absent and not read. At some 300 bytes a record it holds 200,000 of them.
inline constexpr std::size_t kQueueArchiveCeilingBytes = std::size_t{64} << 20;

/// What an upload queue keeps on disk.
struct QueueArchive {
    EventList unsentEvents;
    std::uint64_t maxSequenceId = 0;
};

/// Absent when the file is missing, unreadable, damaged or no dictionary; `path` may be empty.
[[nodiscard]] std::optional<QueueArchive> readQueueArchive(const std::string& path);

/// Writes the archive of a list that grows at its front: each record is encoded once, when it is added.
class QueueArchiveWriter {
  public:
    /// `path` may be empty; nothing is written then.
    explicit QueueArchiveWriter(std::string path);

    void pushFront(const platform::ArchivedObject& event) { bytes_.pushFront(event); }
    void clear() { bytes_.clear(); }
    /// Replaces the file; false when that failed and the old one still stands.
    [[nodiscard]] bool write(std::uint64_t maxSequenceId);
    /// Removes the file, which is soon written again.
    void removeFile() noexcept;
    /// Removes all that is on the disk, for good.
    void eraseFile() noexcept;

  private:
    std::optional<platform::RewrittenFile> file_;
    platform::KeyedListArchive bytes_;
};

}  // namespace qlsdk
