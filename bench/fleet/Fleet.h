#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ClientQueue.h"
#include "Scenario.h"

namespace qlsdk::fleet {

/// The library's two upload queues.
enum class Endpoint { heartbeat, metrics };

/// How people use the app. Pauses, sessions and the gaps between metrics have no memory (exponentially
/// distributed), each with this mean. A session begins with the heartbeat of one kit, brings metrics, and
/// ends with the app resigning active.
struct Habits {
    std::int64_t pauseMillis = 115 * kMinute;
    std::int64_t sessionMillis = 5 * kMinute;
    std::int64_t metricGapMillis = 20 * kSecond;
};

/// What a fleet did to a service, and what became of its records.
struct FleetRun {
    /// One for each `FailingService::kStretch` from `kBeginning` on.
    std::vector<Load> load;
    std::size_t largestRequest = 0;
    Fates fates;
};

/// Plays all clients through the simulated day, one after the other: they do not know of each other, and the
/// service's answers depend on the time alone. The same seed lets people do the same in every scenario.
[[nodiscard]] FleetRun playFleet(Endpoint endpoint, const Scenario& scenario, std::uint64_t clients,
                                 std::uint64_t seed);

}  // namespace qlsdk::fleet
