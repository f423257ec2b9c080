// A host that never pumps the main queue. It is unharmed: what the library queued there just never runs, and
// the process ends when the host is done.
#include "ExampleHost.h"

#include <QLSDKCoreKit/core/QLSDKClientSetup.h>

int main(int argc, char** argv) {
    if (!installExamplePlatform(argc, argv, [] {})) return 1;
    std::cout << "client: " << qlsdk::QLSDKClientSetup::sharedInstance().clientIDText().value_or("none")
              << std::endl;
}
