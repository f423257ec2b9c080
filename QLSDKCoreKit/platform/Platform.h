#pragma once

#include <chrono>
#include <memory>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Activity.h"
#include "QLSDKCoreKit/platform/Application.h"
#include "QLSDKCoreKit/platform/Bundle.h"
#include "QLSDKCoreKit/platform/Clock.h"
#include "QLSDKCoreKit/platform/Device.h"
#include "QLSDKCoreKit/platform/DiagnosticsSink.h"
#include "QLSDKCoreKit/platform/Directories.h"
#include "QLSDKCoreKit/platform/Fonts.h"
#include "QLSDKCoreKit/platform/HostControls.h"
#include "QLSDKCoreKit/platform/Keychain.h"
#include "QLSDKCoreKit/platform/Log.h"
#include "QLSDKCoreKit/platform/NotificationCenter.h"
#include "QLSDKCoreKit/platform/Process.h"
#include "QLSDKCoreKit/platform/Queues.h"
#include "QLSDKCoreKit/platform/Random.h"
#include "QLSDKCoreKit/platform/UrlSession.h"
#include "QLSDKCoreKit/platform/UserDefaults.h"

namespace qlsdk::platform {

/// Everything the kit asks of the system it runs on: one member per port. A host replaces the ones it wants
/// to bring itself and leaves the rest null; those are taken from the default platform of the build.
struct Platform {
    std::shared_ptr<Clock> clock;
    std::shared_ptr<Bundles> bundles;
    std::shared_ptr<UserDefaults> userDefaults;
    std::shared_ptr<Keychain> keychain;
    std::shared_ptr<UrlSession> urlSession;
    std::shared_ptr<Application> application;
    std::shared_ptr<Device> device;
    std::shared_ptr<Locale> locale;
    std::shared_ptr<Process> process;
    std::shared_ptr<Log> log;
    std::shared_ptr<Directories> directories;
    std::shared_ptr<Random> random;
    std::shared_ptr<Queues> queues;
    std::shared_ptr<Fonts> fonts;
    /// The process's default notification center.
    std::shared_ptr<NotificationCenter> notificationCenter;
    /// What the queues and the URL session above count their work in.
    std::shared_ptr<Activity> activity;
    /// Who hears of failures when `controls` names no callback for them.
    std::shared_ptr<DiagnosticsSink> diagnostics;
    /// No port: what the host decides about the library's requests. `current().urlSession` obeys it.
    HostControls controls{};
};

enum class InstallResult {
    installed,
    /// The kit has been used already, with another platform; nothing was changed.
    tooLate,
};

/// Replaces the platform before the kit's first use; null members keep their default. Any thread, once. The
/// platform lives until the process ends.
[[nodiscard]] QLSDK_EXPORT InstallResult install(Platform platform);

/// The platform in use; the first call settles it. Never destroyed, no member is null. Any thread.
[[nodiscard]] QLSDK_EXPORT const Platform& current();

/// Blocks until the kit has nothing more to do (no queued work, no request in flight) or `timeout` has
/// passed; true when idle. For a short-lived host that wants to give its last events a chance. Work that
/// waits on the main queue does not count. Any thread but the kit's own.
[[nodiscard]] QLSDK_EXPORT bool waitUntilIdle(std::chrono::milliseconds timeout);

/// The platform of this build for this system, every member set. Defined by the adapters linked in.
[[nodiscard]] QLSDK_EXPORT Platform makeDefaultPlatform();

}  // namespace qlsdk::platform
