#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "BenchHost.h"
#include "Contest.h"
#include "EventTable.h"

#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk::bench {
namespace {

using Clock = std::chrono::steady_clock;
using Nanos = std::chrono::nanoseconds;

constexpr auto kLongEnough = std::chrono::minutes(5);

double quantileOf(std::vector<double>& values, double quantile) {
    const auto place = static_cast<std::ptrdiff_t>(quantile * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + place, values.end());
    return values[static_cast<std::size_t>(place)];
}

// What two looks at the clock cost by themselves; taken off every call that is timed by itself.
double clockNanos() {
    std::vector<double> looks;
    for (int i = 0; i < 10'000; ++i) {
        const auto start = Clock::now();
        looks.push_back(std::chrono::duration<double, std::nano>(Clock::now() - start).count());
    }
    return quantileOf(looks, 0.5);
}

// One burst on the calling thread: what each call took, as the host sees it. The queue catches up in between.
template <typename Call>
void timeCalls(benchmark::State& state, int burst, Nanos pause, Call call) {
    const double own = clockNanos();
    std::vector<double> calls;
    for (auto _ : state) {
        for (int i = 0; i < burst; ++i) {
            const auto start = Clock::now();
            call();
            const auto end = Clock::now();
            calls.push_back(std::chrono::duration<double, std::nano>(end - start).count() - own);
            while (pause > Nanos(0) && Clock::now() - end < pause) {
            }
        }
        state.PauseTiming();
        require(platform::waitUntilIdle(kLongEnough), "the queue did not become idle");
        state.ResumeTiming();
    }
    state.counters["p50_ns"] = quantileOf(calls, 0.5);
    state.counters["p99_ns"] = quantileOf(calls, 0.99);
}

void addCountOnce() {
    QLSDKOperationalMetricsQueue::sharedInstance().addCount(1, "app.started.cold.now");
}

void addCallerSide() {
    for (const auto& [name, pause] : {std::pair{"burst", Nanos(0)}, {"paced", Nanos(100'000)}}) {
        benchmark::RegisterBenchmark((std::string("push/caller-") + name + "/ours").c_str(),
                                     [pause = pause](benchmark::State& state) {
                                         installAcceptingPlatform();
                                         addCountOnce();
                                         timeCalls(state, 500, pause, addCountOnce);
                                     })
            ->Iterations(20)
            ->Unit(benchmark::kMicrosecond);
    }
    benchmark::RegisterBenchmark("push/caller-8-threads/ours",
                                 [](benchmark::State& state) {
                                     installAcceptingPlatform();
                                     timeCalls(state, 60, Nanos(0), addCountOnce);
                                 })
        ->Threads(8)
        ->Iterations(20)
        ->Unit(benchmark::kMicrosecond);
}

// Pushes, and the wait until the queue has written them all. A short list is kept short by a flush whenever
// it has grown to its length; a long one waits from the start.
double secondsOfBurst(AnalyticsEventsQueue& queue, int burst, int flushEvery) {
    require(platform::waitUntilIdle(kLongEnough), "the queue did not become idle");
    const auto start = Clock::now();
    for (int i = 1; i <= burst; ++i) {
        queue.pushEvent(counterEvent());
        if (flushEvery != 0 && i % flushEvery == 0) queue.flushQueue();
    }
    require(platform::waitUntilIdle(kLongEnough), "the queue did not become idle");
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void addPersisted() {
    struct Case {
        int length;
        int burst;
        int rounds;
    };
    for (const Case& c :
         {Case{1, 1000, 20}, {10, 1000, 20}, {100, 1000, 20}, {1000, 200, 20}, {20'000, 50, 5}}) {
        const std::string name = "push/persisted-" + std::to_string(c.length) + "/ours";
        benchmark::RegisterBenchmark(
            name.c_str(),
            [c](benchmark::State& state) {
                const bool isLong = c.length >= 1000;
                double seconds = 0;
                for (auto _ : state) {
                    const auto queue = waitingQueue("bench-persisted.plist", isLong ? c.length : 0);
                    const double took = secondsOfBurst(*queue, c.burst, isLong ? 0 : c.length);
                    state.SetIterationTime(took);
                    seconds += took;
                }
                state.counters["events_per_second"] =
                    static_cast<double>(state.iterations()) * c.burst / seconds;
            })
            ->UseManualTime()
            ->Iterations(c.rounds)
            ->Unit(benchmark::kMicrosecond);
    }
    benchmark::RegisterBenchmark("push/persisted-10/sqlite", [](benchmark::State& state) {
        EventTable table(EventTable::Flush::never);
        const auto event = counterEvent();
        for (auto _ : state) {
            for (int i = 0; i < 10; ++i) table.insert({event->ctx()->buffer, event->ctx()->length});
        }
        state.counters["events_per_second"] =
            benchmark::Counter(10.0 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    })->Unit(benchmark::kMicrosecond);
}

}  // namespace

void addPushContests() {
    addCallerSide();
    addPersisted();
}

}  // namespace qlsdk::bench
