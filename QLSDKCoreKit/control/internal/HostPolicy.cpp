#include "QLSDKCoreKit/control/internal/HostPolicy.h"

#include <utility>

#include "QLSDKCoreKit/control/internal/ControlledUrlSession.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk::platform {

HostPolicy::HostPolicy(Platform& platform) : gate_(platform) {
    platform.urlSession = std::make_shared<ControlledUrlSession>(std::move(platform.urlSession), gate_,
                                                                 platform.controls.dryRun);
    diagnostics_ = DiagnosticsDelivery::create(platform);
}

void HostPolicy::begin() {
    DiagnosticsDelivery::begin(std::move(diagnostics_));
    // What an earlier process kept is deleted.
    if (!mayKeep(gate_.consent())) gate_.setConsent(Consent::refused, nullptr);
}

std::unique_ptr<Policy> makePolicy(Platform& platform) {
    return std::make_unique<HostPolicy>(platform);
}

ConsentGate& consentGate() {
    return static_cast<HostPolicy&>(policy()).gate();
}

}  // namespace qlsdk::platform
