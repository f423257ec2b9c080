// A host with a poll loop of its own: the library's main queue is one more descriptor in it, and everything
// that concerns the host's state happens on its one thread.
#include <cerrno>
#include <cstdio>
#include <memory>

#include <poll.h>

#include <QLSDKCoreKit/QLSDKCoreKit.h>

namespace {

// The host's state. Only the loop's thread touches it.
struct Host {
    bool isDone = false;

    void configurationArrived(bool success) {
        std::printf("configuration: %s\n", success ? "new" : "none");
        isDone = true;
    }
};

// The library calls back on queues of its own; the callback hands over to the loop.
std::shared_ptr<const qlsdk::DynamicConfigCallback> callbackFor(Host& host,
                                                                qlsdk::platform::MainQueue& mainQueue) {
    return std::make_shared<const qlsdk::DynamicConfigCallback>(
        [&](bool success) { mainQueue.async([&host, success] { host.configurationArrived(success); }); });
}

}  // namespace

int main() {
    Host host;
    qlsdk::platform::MainQueue& mainQueue = *qlsdk::platform::current().queues->mainQueue();
    qlsdk::QLSDKDynamicConfigManager::shared().updateIfNecessary(callbackFor(host, mainQueue));

    // The host's own descriptors stand beside it.
    pollfd descriptors[] = {{.fd = mainQueue.fileDescriptor(), .events = POLLIN, .revents = 0}};
    while (!host.isDone) {
        if (::poll(descriptors, std::size(descriptors), -1) < 0 && errno != EINTR) return 1;
        if (descriptors[0].revents != 0) mainQueue.drain();
    }
}
