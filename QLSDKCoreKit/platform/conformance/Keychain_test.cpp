#include "QLSDKCoreKit/platform/conformance/KeychainConformance.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/testing/FakeFacts.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace qlsdk::platform::conformance {
namespace {

std::shared_ptr<Keychain> makeFake() {
    return std::make_shared<testing::FakeKeychain>();
}

std::shared_ptr<Keychain> makeOnLinux() {
    struct Store {
        testing::TemporaryDirectories home;
        std::shared_ptr<Keychain> keychain =
            makeLinuxKeychain(home.path(), std::make_shared<testing::FakeBundles>());
    };
    const auto store = std::make_shared<Store>();
    return {store, store->keychain.get()};
}

INSTANTIATE_TEST_SUITE_P(Fake, KeychainConformance, ::testing::Values(KeychainFactory{"Fake", &makeFake}));
INSTANTIATE_TEST_SUITE_P(Linux, KeychainConformance,
                         ::testing::Values(KeychainFactory{"Linux", &makeOnLinux}));

}  // namespace
}  // namespace qlsdk::platform::conformance
