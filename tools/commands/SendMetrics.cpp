#include <functional>
#include <iostream>
#include <thread>

#include "tools/cli/Failure.h"
#include "tools/collector/Endpoints.h"
#include "tools/commands/SendActions.h"
#include "tools/host/HeartbeatOutcome.h"
#include "tools/host/HostOptions.h"
#include "tools/inspect/JsonText.h"
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace quillkit {

namespace {

constexpr std::array<Option, 4> kMetricOptions{
    {{"--repeat", "K", "records each value so many times on each thread; 1 without it"},
     {"--threads", "T", "records from so many threads at once; 1 without it"},
     kWaitOption,
     kJsonOption}};

/// Records one value. The text has been checked when this comes back.
std::function<void()> recorderFor(const std::string& what, const std::string& name, const std::string& text) {
    using Queue = qlsdk::QLSDKOperationalMetricsQueue;
    if (what == "latency-from") {
        const double secondsAgo = numberArgument(text, "SECONDS_AGO");
        return [name, secondsAgo] {
            const double now = qlsdk::platform::current().clock->secondsSince1970();
            Queue::sharedInstance().addLatencyFromTime(now - secondsAgo, name);
        };
    }
    const std::int64_t number = integerArgument(text, what, INT64_MIN, INT64_MAX);
    if (what == "latency") return [name, number] { Queue::sharedInstance().addLatency(number, name); };
    return [name, number] { Queue::sharedInstance().addCount(number, name); };
}

std::int64_t countArgument(const Arguments& arguments, std::string_view option, std::int64_t most) {
    return integerArgument(arguments.value(option).value_or("1"), option, 1, most);
}

void record(const std::vector<std::function<void()>>& recorders, std::int64_t threads, std::int64_t repeat) {
    std::vector<std::thread> running;
    for (std::int64_t t = 0; t < threads; ++t) {
        running.emplace_back([&recorders, repeat] {
            for (std::int64_t i = 0; i < repeat; ++i) {
                for (const auto& recordOne : recorders) recordOne();
            }
        });
    }
    for (std::thread& thread : running) thread.join();
}

struct Uploads {
    std::size_t accepted = 0;
    std::size_t failed = 0;
    std::size_t underWay = 0;
};

Uploads uploadsAmong(const std::vector<ObservedTask>& tasks) {
    Uploads uploads;
    for (const ObservedTask& task : tasks) {
        if (!task.url.ends_with(kMetricsPath)) continue;
        if (!task.ended) {
            ++uploads.underWay;
        } else if (isDone(task)) {
            ++uploads.accepted;
        } else {
            ++uploads.failed;
        }
    }
    return uploads;
}

int sendMetrics(const std::string& what, const Arguments& arguments) {
    const std::vector<std::string>& operands = arguments.operands();
    std::vector<std::function<void()>> recorders;
    for (std::size_t i = 1; i < operands.size(); ++i) {
        recorders.push_back(recorderFor(what, operands[0], operands[i]));
    }
    const std::int64_t repeat = countArgument(arguments, "--repeat", 10'000'000);
    const std::int64_t threads = countArgument(arguments, "--threads", 256);
    const std::chrono::seconds wait = waitArgument(arguments);
    const Host host = installHost(arguments);

    record(recorders, threads, repeat);
    const bool idle = qlsdk::platform::waitUntilIdle(wait);
    const Uploads uploads = uploadsAmong(host.urlSession->tasks());
    const std::string path = qlsdk::platform::current().directories->cachesDirectory().value_or("") +
                             "/qlsdk-operational-metrics2.plist";
    const std::int64_t recorded = static_cast<std::int64_t>(recorders.size()) * repeat * threads;
    const std::size_t waiting = readWaitingRecords(path).sequenceIds.size();
    if (arguments.has(kJsonOption.name)) {
        printJson(
            {{"recorded", recorded},
             {"uploads",
              {{"accepted", uploads.accepted}, {"failed", uploads.failed}, {"underWay", uploads.underWay}}},
             {"waiting", waiting},
             {"archive", path}});
    } else {
        std::cout << "recorded " << recorded << "; uploads: " << uploads.accepted << " accepted, "
                  << uploads.failed << " failed, " << uploads.underWay << " under way; " << waiting
                  << " waiting in " << path << "\n";
    }
    return idle && uploads.failed == 0 && uploads.underWay == 0 ? 0 : 1;
}

int sendCount(const Arguments& arguments) {
    return sendMetrics("count", arguments);
}

int sendLatency(const Arguments& arguments) {
    return sendMetrics("latency", arguments);
}

int sendLatencyFrom(const Arguments& arguments) {
    return sendMetrics("latency-from", arguments);
}

}  // namespace

std::vector<Subcommand> metricActions() {
    const std::vector<Option> options = joined(kMetricOptions, kHostOptions);
    // A name and at least one number.
    constexpr OperandCount kCount{2, SIZE_MAX};
    return {{.name = "count",
             .operandNames = "NAME N...",
             .operandCount = kCount,
             .options = options,
             .run = sendCount},
            {.name = "latency",
             .operandNames = "NAME MS...",
             .operandCount = kCount,
             .options = options,
             .run = sendLatency},
            {.name = "latency-from",
             .operandNames = "NAME SECONDS_AGO...",
             .operandCount = kCount,
             .options = options,
             .run = sendLatencyFrom}};
}

}  // namespace quillkit
