#pragma once

#include <chrono>

#include "CommandLine.h"

namespace quillkit {

/// How long the send actions wait for the outcome without "--wait".
inline constexpr std::int64_t kDefaultWaitSeconds = 10;

/// The value of "--wait".
[[nodiscard]] std::chrono::seconds waitArgument(const Arguments& arguments);

/// `send heartbeat`: queues one and says what became of it. Returns the exit status.
[[nodiscard]] int sendHeartbeat(const Arguments& arguments);

/// `send count`, `send latency` and `send latency-from`: record one metric for each value and say what became
/// of them. Returns the exit status.
[[nodiscard]] int sendMetrics(const Arguments& arguments);

}  // namespace quillkit
