#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"

#include <filesystem>
#include <utility>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"

namespace qlsdk::platform {

namespace {

// Settled here, so that a host that changes its working directory later does not move its state.
std::optional<std::string> absolutePath(const std::optional<std::string>& path) {
    if (!path) return std::nullopt;
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(*path, error);
    return error ? *path : absolute.string();
}

}  // namespace

Platform makeLinuxPlatform(const LinuxPlatformOptions& options) {
    const std::optional<std::string> home = absolutePath(options.home);
    const auto activity = std::make_shared<Activity>();
    const auto queues = makeLinuxQueues(activity);
    const auto locale = makeLinuxLocale();
    const auto bundles = makeLinuxBundles(absolutePath(options.infoPlist), locale, options.infoDictionary);
    return {.clock = makeLinuxClock(),
            .bundles = bundles,
            .userDefaults = makeLinuxUserDefaults(home, bundles, queues),
            .keychain = makeLinuxKeychain(home, bundles),
            .urlSession = makeLinuxUrlSession(options.http, activity),
            .application = makeHeadlessApplication(queues),
            .device = makeLinuxDevice(),
            .locale = locale,
            .process = makeLinuxProcess(),
            .log = makeLinuxLog(),
            .directories = makeLinuxDirectories(home, bundles),
            .random = makeLinuxRandom(),
            .queues = queues,
            .fonts = makeHeadlessFonts(),
            .notificationCenter = std::make_shared<NotificationCenter>(),
            .activity = activity,
            .diagnostics = makeStderrDiagnostics()};
}

Platform makeDefaultPlatform() {
    return makeLinuxPlatform({});
}

}  // namespace qlsdk::platform
