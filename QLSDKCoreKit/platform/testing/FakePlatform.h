#pragma once

#include <memory>

#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/testing/FakeApplication.h"
#include "QLSDKCoreKit/platform/testing/FakeFacts.h"
#include "QLSDKCoreKit/platform/testing/FakeReports.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"
#include "QLSDKCoreKit/platform/testing/FakeUrlSession.h"
#include "QLSDKCoreKit/platform/testing/ManualQueues.h"

namespace qlsdk::platform::testing {

/// A whole platform of fakes for a host's own tests. Change the fakes, `install` the platform before the
/// kit's first use, and drive the kit from the test. The kit's shared objects live as long as the process, so
/// each test that touches them wants a process of its own.
struct FakePlatform {
    std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
    std::shared_ptr<FakeBundles> bundles = std::make_shared<FakeBundles>();
    std::shared_ptr<FakeUserDefaults> userDefaults = std::make_shared<FakeUserDefaults>();
    std::shared_ptr<FakeKeychain> keychain = std::make_shared<FakeKeychain>();
    std::shared_ptr<FakeUrlSession> urlSession = std::make_shared<FakeUrlSession>();
    std::shared_ptr<FakeApplication> application = std::make_shared<FakeApplication>();
    std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
    std::shared_ptr<FakeLocale> locale = std::make_shared<FakeLocale>();
    std::shared_ptr<FakeProcess> process = std::make_shared<FakeProcess>();
    std::shared_ptr<FakeLog> log = std::make_shared<FakeLog>();
    std::shared_ptr<TemporaryDirectories> directories = std::make_shared<TemporaryDirectories>();
    std::shared_ptr<FakeRandom> random = std::make_shared<FakeRandom>();
    std::shared_ptr<ManualQueues> queues = std::make_shared<ManualQueues>();
    std::shared_ptr<FakeFonts> fonts = std::make_shared<FakeFonts>();
    std::shared_ptr<FakeDiagnostics> diagnostics = std::make_shared<FakeDiagnostics>();
    std::shared_ptr<NotificationCenter> notificationCenter = std::make_shared<NotificationCenter>();

    [[nodiscard]] Platform platform() const;
    /// Makes these fakes the process's platform. False when the kit has been used already.
    [[nodiscard]] bool install() const;
};

}  // namespace qlsdk::platform::testing
