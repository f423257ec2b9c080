#include <charconv>
#include <functional>
#include <iostream>
#include <thread>

#include "Failure.h"
#include "HeartbeatFate.h"
#include "HostOptions.h"
#include "JsonText.h"
#include "SendActions.h"
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace quillkit {

namespace {

constexpr std::string_view kMetricsPath = "/v1/sdk/metrics/operational";

double secondsArgument(const std::string& text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc{} && end == text.data() + text.size()) return number;
    throw UsageError("SECONDS_AGO wants a number, not '" + text + "'");
}

/// Records one value. The text has been checked when this comes back.
std::function<void()> recorderFor(const std::string& what, const std::string& name, const std::string& text) {
    using Queue = qlsdk::QLSDKOperationalMetricsQueue;
    if (what == "latency-from") {
        const double secondsAgo = secondsArgument(text);
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
        } else if (isFinal(task)) {
            ++uploads.accepted;
        } else {
            ++uploads.failed;
        }
    }
    return uploads;
}

}  // namespace

int sendMetrics(const Arguments& arguments) {
    const std::vector<std::string>& operands = arguments.operands();
    if (operands.size() < 3) throw UsageError(operands.front() + " wants a name and at least one number");
    std::vector<std::function<void()>> recorders;
    for (std::size_t i = 2; i < operands.size(); ++i) {
        recorders.push_back(recorderFor(operands[0], operands[1], operands[i]));
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

}  // namespace quillkit
