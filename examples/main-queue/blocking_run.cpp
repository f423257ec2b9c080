// A host without a loop, such as a command-line tool: lends the library its thread until there is a reason to
// stop.
#include "ExampleHost.h"

#include <QLSDKCoreKit/core/QLSDKClientSetup.h>

int main(int argc, char** argv) {
    const auto stop = [] { qlsdk::platform::current().queues->mainQueue()->stop(); };
    if (!installExamplePlatform(argc, argv, stop)) return 1;
    qlsdk::QLSDKClientSetup::sharedInstance();  // Queues the first update of the configuration.
    qlsdk::platform::current().queues->mainQueue()->run();
}
