#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "BenchHost.h"
#include <curl/curl.h>
#include <dirent.h>

#include "QLSDKCoreKit/QLSDKCoreKit.h"

// One process's beginnings: a library starts only once in a process, so the benchmarks run this again and
// again.

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

namespace {

int probe(int events) {
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

// The library's way to a first heartbeat: everything that a host's first call sets off.
int sendHeartbeat(const char* baseUrl, const char* caFile) {
    qlsdk::bench::installLocalPlatform(baseUrl, caFile);
    qlsdk::QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({qlsdk::QLSDKKitTypeSharing, "1.0"});
    return waitUntilIdle() ? 0 : 1;
}

// The least that any program needs to send as much.
int sendByCurl(const char* baseUrl, const char* caFile) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL* handle = curl_easy_init();
    const std::string url = std::string(baseUrl) + "/v1/sdk/heartbeat";
    const std::string body(138, 'q');
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_CAINFO, caFile);
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.data());
    return curl_easy_perform(handle) == CURLE_OK ? 0 : 1;
}

}  // namespace

// probe EVENTS | heartbeat BASE_URL CA_FILE | curl BASE_URL CA_FILE
int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "probe" && argc == 3) return probe(std::atoi(argv[2]));
    if (mode == "heartbeat" && argc == 4) return sendHeartbeat(argv[2], argv[3]);
    if (mode == "curl" && argc == 4) return sendByCurl(argv[2], argv[3]);
    return 2;
}
