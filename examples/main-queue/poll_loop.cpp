// A host with a poll loop of its own: the main queue is one more descriptor in it. Everything runs on one
// thread of the host's.
#include <cerrno>

#include "ExampleHost.h"
#include <poll.h>

#include <QLSDKCoreKit/core/QLSDKClientSetup.h>

int main(int argc, char** argv) {
    bool isDone = false;
    // The log is written on any thread; what concerns the host's state is handed over to its own, like this.
    const auto finish = [&isDone] {
        qlsdk::platform::current().queues->mainQueue()->async([&isDone] { isDone = true; });
    };
    if (!installExamplePlatform(argc, argv, finish)) return 1;
    qlsdk::QLSDKClientSetup::sharedInstance();  // Queues the first update of the configuration.

    qlsdk::platform::MainQueue& mainQueue = *qlsdk::platform::current().queues->mainQueue();
    pollfd descriptors[] = {
        {.fd = mainQueue.fileDescriptor(), .events = POLLIN, .revents = 0}};  // and the host's
    while (!isDone) {
        if (::poll(descriptors, 1, -1) < 0 && errno != EINTR) return 1;
        if (descriptors[0].revents != 0) mainQueue.drain();
    }
}
