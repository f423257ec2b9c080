#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "QLSDKCoreKit/events/EventWrapper.h"

namespace qlsdk {

/// A larger file is neither written nor read. At some 300 bytes a record it holds 200,000 of them.
inline constexpr std::size_t kQueueArchiveCeilingBytes = std::size_t{64} << 20;

/// What an upload queue keeps on disk.
struct QueueArchive {
    /// Newest first.
    EventList unsentEvents;
    std::uint64_t maxSequenceId = 0;
};

/// Absent when the file is missing, unreadable, damaged or no dictionary; `path` may be empty. The workbench
/// reads with it, too.
[[nodiscard]] QLSDK_EXPORT std::optional<QueueArchive> readQueueArchive(const std::string& path) noexcept;

enum class ArchiveOutcome {
    read,
    /// There is no file, or one of no bytes.
    absent,
    /// It can be read and not be decoded.
    damaged,
    /// The system, or a want of memory, kept it from being read; it may hold all that it ever held.
    unreadable,
};

struct ArchiveReading {
    ArchiveOutcome outcome = ArchiveOutcome::absent;
    /// Empty unless `read`.
    QueueArchive archive{};
    /// Why not, as the system numbers it; 0 where it has no number.
    int errorNumber = 0;
};

/// The same, and what kept the file from being read.
[[nodiscard]] ArchiveReading queueArchiveReading(const std::string& path) noexcept;

}  // namespace qlsdk
