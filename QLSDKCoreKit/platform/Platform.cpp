#include "QLSDKCoreKit/platform/Platform.h"

#include <memory>
#include <utility>

#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"
#include "QLSDKCoreKit/platform/internal/Policy.h"

namespace qlsdk::platform {

namespace {

template <typename Port>
void fill(std::shared_ptr<Port>& member, std::shared_ptr<Port>& fallback) {
    if (member == nullptr) member = std::move(fallback);
}

Platform completed(Platform platform) {
    Platform defaults = makeDefaultPlatform();
    fill(platform.clock, defaults.clock);
    fill(platform.bundles, defaults.bundles);
    fill(platform.userDefaults, defaults.userDefaults);
    fill(platform.keychain, defaults.keychain);
    fill(platform.urlSession, defaults.urlSession);
    fill(platform.application, defaults.application);
    fill(platform.device, defaults.device);
    fill(platform.locale, defaults.locale);
    fill(platform.process, defaults.process);
    fill(platform.log, defaults.log);
    fill(platform.directories, defaults.directories);
    fill(platform.random, defaults.random);
    fill(platform.queues, defaults.queues);
    fill(platform.fonts, defaults.fonts);
    fill(platform.notificationCenter, defaults.notificationCenter);
    fill(platform.activity, defaults.activity);
    fill(platform.diagnostics, defaults.diagnostics);
    return platform;
}

struct Settled {
    Platform platform;
    std::unique_ptr<Policy> policy;

    explicit Settled(Platform wanted)
        : platform(completed(std::move(wanted))), policy(makePolicy(platform)) {}
};

// Never destroyed: threads of the kit may still read it while the process ends.
constinit ForkSafeOnce<Settled> theSettled;

}  // namespace

InstallResult install(Platform platform) {
    InstallResult result = InstallResult::tooLate;
    Settled& settled = theSettled.get([&] {
        result = InstallResult::installed;
        return Settled(std::move(platform));
    });
    if (result != InstallResult::installed) return result;
    settled.policy->begin();
    return result;
}

const Platform& current() {
    if (const Settled* settled = theSettled.ifMade()) return settled->platform;
    // Losing this race to another first use is fine: both mean the same platform.
    (void)install({});
    return theSettled.ifMade()->platform;
}

Policy& policy() {
    (void)current();
    return *theSettled.ifMade()->policy;
}

bool waitUntilIdle(std::chrono::milliseconds timeout) {
    return current().activity->waitUntilIdle(timeout);
}

}  // namespace qlsdk::platform
