#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "ObservingPorts.h"

namespace quillkit {

/// The waiting records of the heartbeat queue's file.
struct WaitingRecords {
    std::set<std::uint64_t> sequenceIds;
    /// The last id that the queue gave out.
    std::uint64_t maxSequenceId = 0;
};

/// Reads the file; an unreadable or missing one holds nothing.
[[nodiscard]] WaitingRecords readWaitingRecords(const std::string& path);

/// True when an ended upload needs no retry: answered 200, or 403, which is never tried again.
[[nodiscard]] bool isFinal(const ObservedTask& task);

enum class Fate {
    /// Answered with a status that ends it: 200, or 403, which is never tried again.
    delivered,
    /// Not accepted; the record waits in the file for its one retry.
    kept,
    /// Not accepted, and not in the file either.
    lost,
    /// No request has ended in the time given.
    underWay,
};

/// What became of the record that was queued last, from what a host can see.
struct HeartbeatFate {
    Fate fate = Fate::underWay;
    /// How the request ended, in words.
    std::string answer;
    /// Records of earlier runs that went along and are gone for good after a second failure.
    std::size_t droppedCount = 0;
};

/// `task`: the upload that carried the record, or null when none was started.
[[nodiscard]] HeartbeatFate heartbeatFate(const ObservedTask* task, const WaitingRecords& before,
                                          const WaitingRecords& after);

}  // namespace quillkit
