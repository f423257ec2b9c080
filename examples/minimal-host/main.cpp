// The smallest useful host: reports that one of its kits is alive, counts something, and gives the uploads a
// chance before it ends.
//
//     minimal-host [HOST:PORT CA.pem]
//
// With arguments requests go to a server of one's own, such as `quillkit collect`.
#include <chrono>
#include <cstdio>

#include <QLSDKCoreKit/QLSDKCoreKit.h>
#include <QLSDKCoreKit/platform/linux/LinuxPlatform.h>

int main(int argc, char** argv) {
    using namespace std::chrono_literals;
    if (argc == 3) {
        qlsdk::platform::LinuxPlatformOptions options;
        options.http.connectTo = argv[1];
        options.http.caFile = argv[2];
        // Before anything else of the library: its first use settles the platform.
        const auto result = qlsdk::platform::install(qlsdk::platform::makeLinuxPlatform(options));
        if (result != qlsdk::platform::InstallResult::installed) return 1;
    }

    // At most one heartbeat a day and kit is sent, however often this runs.
    qlsdk::QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({qlsdk::QLSDKKitTypeSharing, "1.0"});
    qlsdk::QLSDKOperationalMetricsQueue::sharedInstance().addCount(1, "minimal-host.started");

    // Both calls have only queued something. A host that goes on living does nothing more; this one ends.
    const bool idle = qlsdk::platform::waitUntilIdle(5s);
    std::puts(idle ? "done" : "still uploading; what was not sent waits for the next start");
}
