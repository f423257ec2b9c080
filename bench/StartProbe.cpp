#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dirent.h>

#include "QLSDKCoreKit/QLSDKCoreKit.h"

// One process's beginnings, printed as one line of JSON: a library starts only once in a process.
// scripts/bench runs it again and again.

namespace {

using Clock = std::chrono::steady_clock;

long residentKilobytes() {
    std::FILE* file = std::fopen("/proc/self/smaps_rollup", "re");
    char line[256];
    long kilobytes = 0;
    while (file != nullptr && std::fgets(line, sizeof line, file) != nullptr) {
        if (std::sscanf(line, "Rss: %ld", &kilobytes) == 1) break;
    }
    if (file != nullptr) std::fclose(file);
    return kilobytes;
}

int entriesOf(const char* directory) {
    DIR* entries = opendir(directory);
    int count = -2;  // "." and ".."
    while (entries != nullptr && readdir(entries) != nullptr) ++count;
    if (entries != nullptr) closedir(entries);
    return count;
}

int threads() {
    return entriesOf("/proc/self/task");
}

double microsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

bool waitUntilIdle() {
    return qlsdk::platform::waitUntilIdle(std::chrono::minutes(1));
}

}  // namespace

int main(int argc, char** argv) {
    const int events = argc > 1 ? std::atoi(argv[1]) : 0;
    const long before = residentKilobytes();
    const int threadsBefore = threads();

    auto start = Clock::now();
    (void)qlsdk::QLSDKClientSetup::sharedInstance();
    const double setup = microsSince(start);
    const int threadsAfterSetup = threads();

    start = Clock::now();
    auto& metrics = qlsdk::QLSDKOperationalMetricsQueue::sharedInstance();
    metrics.addCount(1, "app.started");
    const double firstPush = microsSince(start);
    const bool idle = waitUntilIdle();
    const long afterIdle = residentKilobytes();

    int most = threads();
    for (int i = 0; i < events; ++i) {
        metrics.addCount(1, "app.started");
        if (i % 10 != 9) continue;
        (void)waitUntilIdle();
        most = std::max(most, threads());
    }
    std::printf(
        "{\"setup_us\": %.1f, \"first_push_us\": %.1f, \"threads_before\": %d, \"threads_after_setup\": %d, "
        "\"threads_most\": %d, \"rss_before_kb\": %ld, \"rss_idle_kb\": %ld, \"rss_after_kb\": %ld, "
        "\"idle\": %s}\n",
        setup, firstPush, threadsBefore, threadsAfterSetup, most, before, afterIdle, residentKilobytes(),
        idle ? "true" : "false");
    return idle ? 0 : 1;
}
