// Counts one thing and waits until it is in the file, with callgrind's instrumentation on for just that.
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include <sys/stat.h>
#include <valgrind/callgrind.h>

#include "QLSDKCoreKit/QLSDKCoreKit.h"

namespace {

using namespace std::chrono_literals;

/// Which file has the name now: every change of the list exchanges it for another.
ino_t fileOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

/// Looks at the count again and again: a thread that wakes somebody who waits would still do so in the next
/// event.
bool becomesIdle() {
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (qlsdk::platform::current().activity->count() != 0) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

}  // namespace

int main() {
    // Without consent nothing is sent, and the file is all there is to see.
    qlsdk::platform::Platform wanted;
    wanted.controls.consent = qlsdk::platform::Consent::undecided;
    if (qlsdk::platform::install(std::move(wanted)) != qlsdk::platform::InstallResult::installed) return 1;
    auto& queue = qlsdk::QLSDKOperationalMetricsQueue::sharedInstance();
    // The first ones find what is made once; the third is like every other.
    for (int i = 0; i < 2; ++i) {
        queue.addCount(1, "path.walked");
        if (!becomesIdle()) return 1;
    }
    const std::string path = qlsdk::platform::current().directories->cachesDirectory().value_or("") +
                             "/qlsdk-operational-metrics2.plist";
    const ino_t before = fileOf(path);

    CALLGRIND_START_INSTRUMENTATION;
    queue.addCount(1, "path.walked");
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (fileOf(path) == before && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    CALLGRIND_STOP_INSTRUMENTATION;
    return before != 0 && fileOf(path) != before ? 0 : 1;
}
