#include "QLSDKCoreKit/platform/Platform.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "QLSDKCoreKit/platform/ConsentGate.h"
#include "QLSDKCoreKit/platform/internal/ControlledUrlSession.h"

namespace qlsdk::platform {

namespace {

// Never destroyed: threads of the kit may still read it while the process ends.
std::atomic<const Platform*> theCurrent{nullptr};
// Written before the platform is published.
ConsentGate* theGate = nullptr;
std::once_flag theOnce;

template <typename Port>
void fill(std::shared_ptr<Port>& member, std::shared_ptr<Port>& fallback) {
    if (member == nullptr) member = std::move(fallback);
}

Platform* completed(Platform platform) {
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
    return new Platform(std::move(platform));
}

const Platform* controlled(Platform* platform) {
    theGate = new ConsentGate(*platform);
    platform->urlSession = std::make_shared<ControlledUrlSession>(std::move(platform->urlSession), *theGate,
                                                                  platform->controls.dryRun);
    return platform;
}

}  // namespace

InstallResult install(Platform platform) {
    InstallResult result = InstallResult::tooLate;
    std::call_once(theOnce, [&] {
        theCurrent.store(controlled(completed(std::move(platform))), std::memory_order_release);
        result = InstallResult::installed;
    });
    // What an earlier process kept is deleted.
    if (result == InstallResult::installed && !mayKeep(consent())) setConsent(Consent::refused);
    return result;
}

const Platform& current() {
    if (const Platform* settled = theCurrent.load(std::memory_order_acquire)) return *settled;
    // Losing this race to another first use is fine: both mean the same platform.
    (void)install({});
    return *theCurrent.load(std::memory_order_acquire);
}

ConsentGate& consentGate() {
    (void)current();
    return *theGate;
}

bool waitUntilIdle(std::chrono::milliseconds timeout) {
    return current().activity->waitUntilIdle(timeout);
}

}  // namespace qlsdk::platform
