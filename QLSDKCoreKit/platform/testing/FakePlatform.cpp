#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk::platform::testing {

Platform FakePlatform::platform() const {
    return {.clock = clock,
            .bundles = bundles,
            .userDefaults = userDefaults,
            .keychain = keychain,
            .urlSession = urlSession,
            .application = application,
            .device = device,
            .locale = locale,
            .process = process,
            .log = log,
            .directories = directories,
            .random = random,
            .queues = queues,
            .fonts = fonts,
            .notificationCenter = notificationCenter,
            .activity = std::make_shared<Activity>(),
            .diagnostics = diagnostics};
}

bool FakePlatform::install() const {
    return platform::install(platform()) == InstallResult::installed;
}

}  // namespace qlsdk::platform::testing
