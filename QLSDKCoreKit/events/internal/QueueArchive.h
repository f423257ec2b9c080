#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "QLSDKCoreKit/events/EventWrapper.h"

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

/// Replaces the file; false when that failed and the old one still stands.
[[nodiscard]] bool writeQueueArchive(const std::string& path, EventList unsentEvents,
                                     std::uint64_t maxSequenceId);

}  // namespace qlsdk
