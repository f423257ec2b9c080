#include "QLSDKCoreKit/control/Consent.h"

#include <utility>

#include "QLSDKCoreKit/control/ConsentGate.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"

namespace qlsdk::platform {

Consent consent() {
    return consentGate().consent();
}

namespace {

void refuse(Task completion) noexcept {
    // Before the look, so that whoever makes the gate meanwhile knows of it.
    ConsentGate::refuseBeforehand();
    try {
        return consentGate().setConsent(Consent::refused, std::move(completion));
    } catch (...) {
        reportDiagnostic({.kind = DiagnosticKind::resources,
                          .cause = "no memory to start the library, which will start with consent refused"});
    }
    try {
        if (completion) completion();
    } catch (...) {
        // What the host throws is its own affair.
    }
}

}  // namespace

void setConsent(Consent consent, Task completion) {
    if (!mayKeep(consent)) return refuse(std::move(completion));
    consentGate().setConsent(consent, std::move(completion));
}

}  // namespace qlsdk::platform
