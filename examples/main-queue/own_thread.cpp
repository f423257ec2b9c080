// A host that wants nothing to do with it: the main queue gets a thread of its own. The library's callbacks
// then come on that thread, and the host hands them over to its own as it likes.
#include <future>

#include "ExampleHost.h"

#include <QLSDKCoreKit/core/QLSDKClientSetup.h>

int main(int argc, char** argv) {
    std::promise<void> updated;
    if (!installExamplePlatform(argc, argv, [&updated] { updated.set_value(); })) return 1;
    qlsdk::platform::current().queues->mainQueue()->startThread();
    qlsdk::QLSDKClientSetup::sharedInstance();  // Queues the first update of the configuration.
    updated.get_future().wait();
}
