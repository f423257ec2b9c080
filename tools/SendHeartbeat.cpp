#include <algorithm>
#include <chrono>
#include <iostream>
#include <thread>

#include "Failure.h"
#include "HeartbeatFate.h"
#include "HostOptions.h"
#include "JsonText.h"
#include "SendActions.h"
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/events/QLSDKHeartbeat.h"
#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace quillkit {

namespace {

constexpr std::string_view kDefaultsKeyPrefix = "com.quillo.quill-kit.heartbeat.";
constexpr std::string_view kHeartbeatPath = "/v1/sdk/heartbeat";

std::string requiredValue(const Arguments& arguments, std::string_view option) {
    const auto value = arguments.value(option);
    if (!value.has_value()) throw UsageError("a heartbeat wants " + std::string(option));
    return *value;
}

qlsdk::QLSDKKitType kitTypeOf(const std::string& text) {
    if (text == "access") return qlsdk::QLSDKKitTypeAccess;
    if (text == "avatar") return qlsdk::QLSDKKitTypeAvatar;
    if (text == "sharing") return qlsdk::QLSDKKitTypeSharing;
    if (text == "feed") return qlsdk::QLSDKKitTypeFeed;
    return static_cast<qlsdk::QLSDKKitType>(integerArgument(text, "--kit", INT32_MIN, INT32_MAX));
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
    nlohmann::ordered_json json{{"fate", "notDue"}, {"lastQueuedSecondsAgo", nullptr}};
    if (age.has_value()) json["lastQueuedSecondsAgo"] = *age;
    printJson(json);
    return 0;
}

void report(const HeartbeatFate& fate, const std::string& path) {
    switch (fate.fate) {
        case Fate::delivered:
            std::cout << "delivered: " << fate.answer << "\n";
            return;
        case Fate::kept:
            std::cout << "kept for one retry in " << path << ": " << fate.answer << "\n";
            break;
        case Fate::lost:
            std::cout << "lost: " << fate.answer << ", and the record could not be kept in " << path << "\n";
            break;
        case Fate::underWay:
            std::cout << "still under way; it is lost when this process ends\n";
            break;
    }
    if (fate.droppedCount != 0) {
        std::cout << "dropped after a second failure: " << fate.droppedCount << " of earlier runs\n";
    }
}

void reportAsJson(const HeartbeatFate& fate, const std::string& path) {
    constexpr std::array<const char*, 4> kWords{"delivered", "kept", "lost", "underWay"};
    nlohmann::ordered_json json{{"fate", kWords[static_cast<std::size_t>(fate.fate)]}, {"answer", nullptr}};
    if (!fate.answer.empty()) json["answer"] = fate.answer;
    json["dropped"] = fate.droppedCount;
    json["archive"] = path;
    printJson(json);
}

}  // namespace

int sendHeartbeat(const Arguments& arguments) {
    if (arguments.operands().size() != 1) throw UsageError("heartbeat takes no operand");
    const qlsdk::QLSDKHeartbeat heartbeat(kitTypeOf(requiredValue(arguments, "--kit")),
                                          requiredValue(arguments, "--kit-version"));
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
    const HeartbeatFate fate = heartbeatFate(observed, before, readWaitingRecords(path));
    asJson ? reportAsJson(fate, path) : report(fate, path);
    std::cout.flush();
    if (arguments.has("--stay")) std::this_thread::sleep_until(deadline);
    return fate.fate == Fate::delivered ? 0 : 1;
}

}  // namespace quillkit
