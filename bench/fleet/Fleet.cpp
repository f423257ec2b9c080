#include "Fleet.h"

#include <algorithm>

#include "Random.h"

namespace qlsdk::fleet {

namespace {

// As the library has them: how long a kit's heartbeat lasts, and the list lengths that publish.
constexpr std::int64_t kHeartbeatPeriodMillis = 86'400 * kSecond;
constexpr std::size_t kHeartbeatBuffer = 1;
constexpr std::size_t kMetricsBuffer = 10;

/// One person with one device.
class Client {
  public:
    Client(Endpoint endpoint, Random random, Service& service)
        : endpoint_(endpoint),
          random_(random),
          queue_(endpoint == Endpoint::heartbeat ? kHeartbeatBuffer : kMetricsBuffer, service) {}

    [[nodiscard]] Fates play();

  private:
    [[nodiscard]] std::int64_t firstHeartbeatDue();
    void playSession(std::int64_t begins, std::int64_t ends);
    void beatIfDue(std::int64_t nowMillis);
    void pushMetrics(std::int64_t begins, std::int64_t ends);

    static constexpr Habits kHabits{};
    const Endpoint endpoint_;
    Random random_;
    ClientQueue queue_;
    std::int64_t heartbeatDue_ = 0;
};

Fates Client::play() {
    heartbeatDue_ = firstHeartbeatDue();
    constexpr std::int64_t kCycle = kHabits.pauseMillis + kHabits.sessionMillis;
    const bool isInSession =
        random_.uniform() * static_cast<double>(kCycle) < static_cast<double>(kHabits.sessionMillis);
    std::int64_t now = kBeginning;
    if (!isInSession) now += random_.untilNext(kHabits.pauseMillis);
    while (now < kEnd) {
        const std::int64_t ends = now + random_.untilNext(kHabits.sessionMillis);
        playSession(now, ends);
        now = ends + random_.untilNext(kHabits.pauseMillis);
    }
    return queue_.fates();
}

// The heartbeats are where they would be after many days: the last one lies anywhere in the period, or the
// period is over and the next session is awaited.
std::int64_t Client::firstHeartbeatDue() {
    const std::int64_t cycle = kHeartbeatPeriodMillis + kHabits.pauseMillis + kHabits.sessionMillis;
    const auto age = static_cast<std::int64_t>(random_.uniform() * static_cast<double>(cycle));
    return kBeginning + kHeartbeatPeriodMillis - age;
}

void Client::playSession(std::int64_t begins, std::int64_t ends) {
    if (endpoint_ == Endpoint::heartbeat) {
        beatIfDue(begins);
    } else {
        pushMetrics(begins, ends);
    }
    if (ends < kEnd) queue_.publish(ends);
}

void Client::beatIfDue(std::int64_t nowMillis) {
    if (nowMillis <= heartbeatDue_) return;
    queue_.push(nowMillis);
    heartbeatDue_ = nowMillis + kHeartbeatPeriodMillis;
}

void Client::pushMetrics(std::int64_t begins, std::int64_t ends) {
    const std::int64_t last = std::min(ends, kEnd);
    for (std::int64_t now = begins + random_.untilNext(kHabits.metricGapMillis); now < last;
         now += random_.untilNext(kHabits.metricGapMillis)) {
        queue_.push(now);
    }
}

}  // namespace

FleetRun playFleet(Endpoint endpoint, const Scenario& scenario, std::uint64_t clients, std::uint64_t seed) {
    FailingService service(scenario, seed);
    Fates fates;
    for (std::uint64_t i = 0; i < clients; ++i) {
        fates += Client(endpoint, Random(seed, i + 1), service).play();
    }
    return {.load = {service.load().begin(), service.load().end()},
            .largestRequest = service.largestRequest(),
            .fates = fates};
}

}  // namespace qlsdk::fleet
