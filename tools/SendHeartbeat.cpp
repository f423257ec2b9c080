#include <algorithm>
#include <chrono>
#include <iostream>
#include <thread>

#include "Failure.h"
#include "HeartbeatFate.h"
#include "HostOptions.h"
#include "SendActions.h"

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

int reportNotDue(const ObservingUserDefaults& defaults) {
    const qlsdk::Value last = defaults.lastRead(kDefaultsKeyPrefix);
    if (last.isNull()) {
        std::cout << "not due: no heartbeat is ever sent for this kit\n";
    } else {
        const double now = qlsdk::platform::current().clock->secondsSince1970();
        const double age = last.date() == nullptr ? 0 : now - last.date()->secondsSince1970;
        std::cout << "not due: the last one was queued " << qlsdk::truncateToInt64(age) << " s ago\n";
    }
    return 0;
}

int report(const HeartbeatFate& fate, const std::string& path) {
    switch (fate.fate) {
        case Fate::delivered:
            std::cout << "delivered: " << fate.answer << "\n";
            return 0;
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
    return 1;
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
    if (!host.userDefaults->wasSet(kDefaultsKeyPrefix)) return reportNotDue(*host.userDefaults);
    std::cout << "queued" << std::endl;

    const bool idle = qlsdk::platform::waitUntilIdle(wait);
    const std::vector<ObservedTask> tasks = host.urlSession->tasks();
    const auto upload = std::find_if(tasks.begin(), tasks.end(), [](const ObservedTask& task) {
        return task.url.ends_with(kHeartbeatPath);
    });
    const ObservedTask* observed = idle && upload != tasks.end() ? &*upload : nullptr;
    const int status = report(heartbeatFate(observed, before, readWaitingRecords(path)), path);
    std::cout.flush();
    if (arguments.has("--stay")) std::this_thread::sleep_until(deadline);
    return status;
}

}  // namespace quillkit
