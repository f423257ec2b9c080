#include <algorithm>
#include <chrono>
#include <iostream>

#include "Failure.h"
#include "HeartbeatFate.h"
#include "HostOptions.h"
#include "Subcommand.h"

#include "QLSDKCoreKit/events/QLSDKHeartbeat.h"
#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace quillkit {

namespace {

constexpr std::string_view kDefaultsKeyPrefix = "com.quillo.quill-kit.heartbeat.";
constexpr std::string_view kHeartbeatPath = "/v1/sdk/heartbeat";
constexpr std::int64_t kDefaultWaitSeconds = 10;

constexpr std::array<Option, 3> kSendOptions{
    {{"--kit", "KIT", "access, avatar, sharing, feed or a number", Occurrence::required},
     {"--kit-version", "VERSION", "the kit's version", Occurrence::required},
     {"--wait", "SECONDS", "how long to wait for the outcome; 10 without it"}}};

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

int send(const Arguments& arguments) {
    if (arguments.operands().front() != "heartbeat") {
        throw UsageError("cannot send '" + arguments.operands().front() + "', only heartbeat");
    }
    const qlsdk::QLSDKHeartbeat heartbeat(kitTypeOf(*arguments.value("--kit")),
                                          *arguments.value("--kit-version"));
    const std::string waitText = arguments.value("--wait").value_or(std::to_string(kDefaultWaitSeconds));
    const std::chrono::seconds wait(integerArgument(waitText, "--wait", 0, 3600));
    const Host host = installHost(arguments);

    const std::string path = archivePath();
    const WaitingRecords before = readWaitingRecords(path);
    qlsdk::QLSDKHeartbeatEventsQueue::sharedInstance().addEvent(heartbeat);
    // The date is stored exactly when a heartbeat is queued.
    if (!host.userDefaults->wasSet(kDefaultsKeyPrefix)) return reportNotDue(*host.userDefaults);
    std::cout << "queued\n";

    const bool idle = qlsdk::platform::waitUntilIdle(wait);
    const std::vector<ObservedTask> tasks = host.urlSession->tasks();
    const auto upload = std::find_if(tasks.begin(), tasks.end(), [](const ObservedTask& task) {
        return task.url.ends_with(kHeartbeatPath);
    });
    const ObservedTask* observed = idle && upload != tasks.end() ? &*upload : nullptr;
    return report(heartbeatFate(observed, before, readWaitingRecords(path)), path);
}

}  // namespace

Subcommand sendCommand() {
    return {.name = "send",
            .operandNames = "heartbeat",
            .operandCount = 1,
            .summary = "sends a heartbeat as a host application would, and says what became of it",
            .description =
                "Exit status 0 when the heartbeat was delivered (answered 200, or 403, which is final) or\n"
                "was not due; 1 when it is kept for its retry, lost or still under way.\n",
            .options = joined(kSendOptions, kHostOptions),
            .run = send};
}

}  // namespace quillkit
