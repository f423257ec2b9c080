#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "tools/host/ObservingPorts.h"

namespace quillkit {

/// The waiting records of the heartbeat queue's file.
struct WaitingRecords {
    std::set<std::uint64_t> sequenceIds;
    /// The last id that the queue gave out.
    std::uint64_t maxSequenceId = 0;
};

/// What the queue itself would read from the file; one that it could not read holds nothing.
[[nodiscard]] WaitingRecords readWaitingRecords(const std::string& path);

/// True when the queue counts the ended upload as done and never sends its records again.
[[nodiscard]] bool isDone(const ObservedTask& task);

enum class DeliveryOutcome {
    /// The upload is done: see `isDone`.
    delivered,
    /// Not accepted; the record waits in the file for its one retry.
    kept,
    /// Not accepted, and not in the file either.
    lost,
    /// No request has ended in the time given.
    underWay,
};

/// What became of the record that was queued last, from what a host can see.
struct HeartbeatOutcome {
    DeliveryOutcome outcome = DeliveryOutcome::underWay;
    /// How the request ended, in words.
    std::string answer;
    /// Records of earlier runs that went along and are gone for good after a second failure.
    std::size_t droppedCount = 0;
};

/// `task`: the upload that carried the record, or null when none was started.
[[nodiscard]] HeartbeatOutcome heartbeatOutcome(const ObservedTask* task, const WaitingRecords& before,
                                                const WaitingRecords& after);

}  // namespace quillkit
