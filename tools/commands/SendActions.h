#pragma once

#include <chrono>
#include <vector>

#include "tools/cli/Subcommand.h"

namespace quillkit {

/// Of the actions that wait for an outcome.
inline constexpr Option kWaitOption{"--wait", "SECONDS", "how long to wait for the outcome; 10 without it"};

/// The value of "--wait".
[[nodiscard]] std::chrono::seconds waitArgument(const Arguments& arguments);

/// `send heartbeat`: queues one and says what became of it.
[[nodiscard]] Subcommand heartbeatAction();

/// `send count`, `send latency` and `send latency-from`: record one metric for each value and say what became
/// of them.
[[nodiscard]] std::vector<Subcommand> metricActions();

}  // namespace quillkit
