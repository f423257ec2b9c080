#include "SessionKeychain.h"

#include "QLSDKCoreKit/platform/conformance/KeychainConformance.h"

namespace qlsdk::platform::conformance {
namespace {

std::shared_ptr<Keychain> makeSessionKeychain() {
    return std::make_shared<SessionKeychain>();
}

INSTANTIATE_TEST_SUITE_P(Session, KeychainConformance,
                         ::testing::Values(KeychainFactory{"Session", &makeSessionKeychain}));

}  // namespace
}  // namespace qlsdk::platform::conformance
