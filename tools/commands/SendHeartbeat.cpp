#include <algorithm>
#include <chrono>
#include <iostream>
#include <thread>

#include "tools/cli/Failure.h"
#include "tools/collector/Endpoints.h"
#include "tools/commands/SendActions.h"
#include "tools/host/HeartbeatOutcome.h"
#include "tools/host/HostOptions.h"
#include "tools/inspect/JsonText.h"
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/events/QLSDKHeartbeat.h"
#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace quillkit {

namespace {

constexpr std::string_view kDefaultsKeyPrefix = "com.quillo.quill-kit.heartbeat.";

/// The kits that have a name.
constexpr std::string_view kKitNames = "access avatar sharing feed";

constexpr std::array<Option, 5> kHeartbeatOptions{
    {{"--kit", "KIT", "the kit: access, avatar, sharing, feed or a number", Occurrence::required, kKitNames},
     {"--kit-version", "VERSION", "the kit's version", Occurrence::required},
     kWaitOption,
     {"--stay", "", "goes on running until the time of --wait is over"},
     kJsonOption}};

qlsdk::QLSDKKitType kitTypeOf(const std::string& text) {
    if (text == "access") return qlsdk::QLSDKKitTypeAccess;
    if (text == "avatar") return qlsdk::QLSDKKitTypeAvatar;
    if (text == "sharing") return qlsdk::QLSDKKitTypeSharing;
    if (text == "feed") return qlsdk::QLSDKKitTypeFeed;
    try {
        return static_cast<qlsdk::QLSDKKitType>(integerArgument(
            text, "--kit, unless it is access, avatar, sharing or feed,", INT32_MIN, INT32_MAX));
    } catch (const UsageError& error) {
        const std::string_view nearest = nearestName(kKitNames, text);
        if (nearest.empty()) throw;
        throw UsageError(std::string(error.what()) + "; did you mean " + std::string(nearest) + "?");
    }
}

std::string archivePath() {
    return qlsdk::platform::current().directories->cachesDirectory().value_or("") + "/qlsdk-heartbeat.plist";
}

/// How long ago the last one was queued, in whole seconds; absent when none ever is.
std::optional<std::int64_t> lastQueuedAge(const ObservingUserDefaults& defaults) {
    const qlsdk::Value last = defaults.lastRead(kDefaultsKeyPrefix);
    if (last.isNull()) return std::nullopt;
    if (last.date() == nullptr) return 0;
    const double now = qlsdk::platform::current().clock->secondsSince1970();
    return qlsdk::truncateToInt64(now - last.date()->secondsSince1970);
}

int reportNotDue(std::optional<std::int64_t> age) {
    if (age.has_value()) {
        std::cout << "not due: the last one was queued " << *age << " s ago\n";
    } else {
        std::cout << "not due: no heartbeat is ever sent for this kit\n";
    }
    return 0;
}

int reportNotDueAsJson(std::optional<std::int64_t> age) {
    nlohmann::ordered_json json{{"outcome", "notDue"}, {"lastQueuedSecondsAgo", nullptr}};
    if (age.has_value()) json["lastQueuedSecondsAgo"] = *age;
    printJson(json);
    return 0;
}

void report(const HeartbeatOutcome& outcome, const std::string& path) {
    switch (outcome.outcome) {
        case DeliveryOutcome::delivered:
            std::cout << "delivered: " << outcome.answer << "\n";
            return;
        case DeliveryOutcome::kept:
            std::cout << "kept for one retry in " << path << ": " << outcome.answer << "\n";
            break;
        case DeliveryOutcome::lost:
            std::cout << "lost: " << outcome.answer << ", and the record could not be kept in " << path
                      << "\n";
            break;
        case DeliveryOutcome::underWay:
            std::cout << "still under way; it is lost when this process ends\n";
            break;
    }
    if (outcome.droppedCount != 0) {
        std::cout << "dropped after a second failure: " << outcome.droppedCount << " of earlier runs\n";
    }
}

void reportAsJson(const HeartbeatOutcome& outcome, const std::string& path) {
    constexpr std::array<const char*, 4> kWords{"delivered", "kept", "lost", "underWay"};
    nlohmann::ordered_json json{{"outcome", kWords[static_cast<std::size_t>(outcome.outcome)]},
                                {"answer", nullptr}};
    if (!outcome.answer.empty()) json["answer"] = outcome.answer;
    json["dropped"] = outcome.droppedCount;
    json["archive"] = path;
    printJson(json);
}

int sendHeartbeat(const Arguments& arguments) {
    const qlsdk::QLSDKHeartbeat heartbeat(kitTypeOf(*arguments.value("--kit")),
                                          *arguments.value("--kit-version"));
    const std::chrono::seconds wait = waitArgument(arguments);
    const Host host = installHost(arguments);

    const std::string path = archivePath();
    const WaitingRecords before = readWaitingRecords(path);
    const auto deadline = std::chrono::steady_clock::now() + wait;
    qlsdk::QLSDKHeartbeatEventsQueue::sharedInstance().addEvent(heartbeat);
    // The date is stored exactly when a heartbeat is queued.
    const bool asJson = arguments.has(kJsonOption.name);
    if (!host.userDefaults->wasSet(kDefaultsKeyPrefix)) {
        const auto age = lastQueuedAge(*host.userDefaults);
        return asJson ? reportNotDueAsJson(age) : reportNotDue(age);
    }
    if (!asJson) std::cout << "queued" << std::endl;

    const bool idle = qlsdk::platform::waitUntilIdle(wait);
    const std::vector<ObservedTask> tasks = host.urlSession->tasks();
    const auto upload = std::find_if(tasks.begin(), tasks.end(), [](const ObservedTask& task) {
        return task.url.ends_with(kHeartbeatPath);
    });
    const ObservedTask* observed = idle && upload != tasks.end() ? &*upload : nullptr;
    const HeartbeatOutcome outcome = heartbeatOutcome(observed, before, readWaitingRecords(path));
    asJson ? reportAsJson(outcome, path) : report(outcome, path);
    std::cout.flush();
    if (arguments.has("--stay")) std::this_thread::sleep_until(deadline);
    return outcome.outcome == DeliveryOutcome::delivered ? 0 : 1;
}

}  // namespace

Subcommand heartbeatAction() {
    return {.name = "heartbeat", .options = joined(kHeartbeatOptions, kHostOptions), .run = sendHeartbeat};
}

}  // namespace quillkit
