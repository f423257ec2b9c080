// Counts that come faster than the disk takes them one by one, until all of them are on disk or sent.

#include <chrono>
#include <ctime>
#include <functional>
#include <limits>
#include <string>

#include "BenchHost.h"
#include "Contest.h"
#include "EventTable.h"

#include "QLSDKCoreKit/control/Consent.h"
#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"
#include "QLSDKCoreKit/events/internal/StoredList.h"
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/values/internal/KeyedListArchive.h"

namespace qlsdk::bench {
namespace {

using Clock = std::chrono::steady_clock;

void settle() {
    require(platform::waitUntilIdle(std::chrono::minutes(5)), "the queue did not become idle");
}

void addCount() {
    QLSDKOperationalMetricsQueue::sharedInstance().addCount(1, "app.started.cold.now");
}

double secondsOf(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// `round` does `events` of them and says how many seconds that took.
void addRounds(const std::string& name, int events, const std::function<double()>& round) {
    benchmark::RegisterBenchmark(name.c_str(),
                                 [events, round](benchmark::State& state) {
                                     installAcceptingPlatform();
                                     double seconds = 0;
                                     for (auto _ : state) {
                                         const double took = round();
                                         state.SetIterationTime(took);
                                         seconds += took;
                                     }
                                     state.counters["events_per_second"] =
                                         static_cast<double>(state.iterations()) * events / seconds;
                                 })
        ->UseManualTime()
        ->Iterations(events > 50'000 ? 2 : 5)
        ->Unit(benchmark::kMicrosecond);
}

double burst(int events, platform::Consent consent) {
    platform::setConsent(consent, nullptr);
    settle();
    const double seconds = secondsOf([events] {
        for (int i = 0; i < events; ++i) addCount();
        settle();
    });
    platform::setConsent(platform::Consent::granted, nullptr);
    settle();
    return seconds;
}

double tableBurst(int events, bool isOneTransaction) {
    EventTable table(EventTable::Flush::atCheckpoints);
    const auto event = counterEvent();
    return secondsOf([&] {
        if (isOneTransaction) table.run("BEGIN");
        for (int i = 0; i < events; ++i) table.insert({event->ctx()->buffer, event->ctx()->length});
        if (isOneTransaction) table.run("COMMIT");
    });
}

void addBursts() {
    for (const int events : {10'000, 100'000}) {
        const std::string name = "push/burst-" + std::to_string(events) + "/";
        addRounds(name + "undecided", events, [=] { return burst(events, platform::Consent::undecided); });
        addRounds(name + "sent", events, [=] { return burst(events, platform::Consent::granted); });
        addRounds(name + "sqlite-each", events, [=] { return tableBurst(events, false); });
        addRounds(name + "sqlite-one", events, [=] { return tableBurst(events, true); });
    }
}

void addPaced() {
    constexpr int kEvents = 1000;
    addRounds("push/one-by-one/ours", kEvents, [] {
        settle();
        return secondsOf([] {
            for (int i = 0; i < kEvents; ++i) {
                addCount();
                settle();
            }
        });
    });
    addRounds("push/one-by-one/sqlite", kEvents, [] { return tableBurst(kEvents, false); });
}

double processSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// A queue in which so many records wait for a retry that is far away.
std::shared_ptr<AnalyticsEventsQueue> deferringQueue(int deferred) {
    platform::KeyedListArchive list(kQLSDKUnsentEventsKey, kQLSDKMaxSequenceIdKey);
    for (int i = 1; i <= deferred; ++i) {
        const auto record = std::make_shared<EventWrapper>(static_cast<std::uint64_t>(i), counterEvent());
        record->setIsRetry(true);
        record->setNextRetryTimeMillis(std::numeric_limits<std::int64_t>::max());
        list.pushFront(std::shared_ptr<platform::Archivable>(record));
    }
    const std::string archive = "bench-deferred-" + std::to_string(deferred) + ".plist";
    const std::string directory = platform::current().directories->cachesDirectory().value_or("");
    QueueFile file(directory + "/" + archive);
    require(file.write(list.file(static_cast<std::uint64_t>(deferred))), "no file");
    return AnalyticsEventsQueue::create("/v1/bench", std::make_shared<QLPayloadProvider>(), archive, 10,
                                        emptyBodies());
}

// Processor time of all threads, for pushes one by one.
void addDeferred() {
    constexpr int kEvents = 200;
    for (const int deferred : {0, 8000}) {
        addRounds("push/deferred-" + std::to_string(deferred) + "/cpu", kEvents, [deferred] {
            const auto queue = deferringQueue(deferred);
            settle();
            const double start = processSeconds();
            for (int i = 0; i < kEvents; ++i) {
                queue->pushEvent(counterEvent());
                settle();
            }
            return processSeconds() - start;
        });
    }
}

}  // namespace

void addBurstContests() {
    addBursts();
    addPaced();
    addDeferred();
}

}  // namespace qlsdk::bench
