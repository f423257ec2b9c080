#include "QLSDKCoreKit/core/QLSDKClientSetup.h"

#include <atomic>

#include "QLSDKCoreKit/core/QLSDKTweaks.h"
#include "QLSDKCoreKit/core/internal/Assertion.h"
#include "QLSDKCoreKit/core/internal/ConfigUpdate.h"
#include "QLSDKCoreKit/core/internal/SharedClientSetup.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Log.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk {

namespace {

// The one-time block is written out because of those who come while it runs: whoever wants the setup waits
// for it, an assertion report must not. While it runs the stage is the generation of its process: a child of
// fork() that finds another's does not wait for a thread that it does not have.
constexpr int kUntouched = 0;
constexpr int kReady = -1;
std::atomic<int> theStage{kUntouched};
// Written before the stage becomes ready, never destroyed.
QLSDKClientSetup* theSetup = nullptr;

void enterStage(int stage) noexcept {
    theStage.store(stage, std::memory_order_release);
    theStage.notify_all();
}

void tellMissingClientId() noexcept {
    try {
        platform::reportDiagnostic({platform::DiagnosticKind::propertyList,
                                    "the host's property list has no QLSDKClientId: requests name no client",
                                    0, platform::current().bundles->mainBundle()->path()});
    } catch (...) {
        // A host's own bundles may throw; the assertion report is still to come.
    }
}

std::optional<platform::Url> urlFrom(const Value& value) {
    const std::string* text = value.string();
    return text != nullptr ? platform::Url::parse(*text) : std::nullopt;
}

}  // namespace

QLSDKClientSetup& QLSDKClientSetup::sharedInstance() {
    while (theStage.load(std::memory_order_acquire) != kReady) {
        if (_makeShared() == nullptr) theStage.wait(platform::processGeneration(), std::memory_order_acquire);
    }
    return *theSetup;
}

QLSDKClientSetup* QLSDKClientSetup::_makeShared() {
    int stage = theStage.load(std::memory_order_acquire);
    const int here = platform::processGeneration();
    if (stage == kReady || stage == here) return nullptr;
    if (!theStage.compare_exchange_strong(stage, here, std::memory_order_acquire)) return nullptr;
    try {
        theSetup = new QLSDKClientSetup(platform::current().bundles->mainBundle()->infoDictionary());
    } catch (...) {
        // Those who wait must not wait for ever: the next one tries again.
        enterStage(kUntouched);
        throw;
    }
    enterStage(kReady);
    // After publishing, so that a crash logger may ask for the setup whose fault it is told of.
    theSetup->_reportMissingClientId();
    _schedulePostInitialization();
    return theSetup;
}

QLSDKClientSetup::QLSDKClientSetup(const Value& infoDictionary)
    : clientID_(infoDictionary["QLSDKClientId"]),
      redirectURL_(urlFrom(infoDictionary["QLSDKRedirectUrl"])),
      scopes_(infoDictionary["QLSDKScopes"]),
      font_(infoDictionary["QLSDKFonts"]) {}

Value QLSDKClientSetup::clientID() const {
    if (!_shouldOverrideClientId()) return clientID_;
    const std::optional<std::string> override = QLSDKTweaks::shared().overrideClientId();
    return override ? Value(*override) : Value();
}

std::optional<std::string> QLSDKClientSetup::clientIDText() const {
    const Value identifier = clientID();
    return identifier.isNull() ? std::nullopt : std::optional(describe(identifier));
}

// On purpose: always false here, and the getter asks all the same, so that a development build changes two
// constants and nothing else.
bool QLSDKClientSetup::_shouldOverrideClientId() {
    return false;
}

void QLSDKClientSetup::_reportMissingClientId() const noexcept {
    if (!clientID_.isNull()) return;
    tellMissingClientId();
    reportFailedAssertion("-[QLSDKClientSetup initPrivate]", "_clientID",
                          "QLSDKClientId MUST be set in your Info.plist!");
}

void QLSDKClientSetup::_schedulePostInitialization() noexcept {
    try {
        platform::current().queues->mainQueue()->async([] { _postInitialization(); });
    } catch (...) {
        // Without the memory for a task there is no update in this process; cached values serve.
    }
}

void QLSDKClientSetup::_postInitialization() {
    requestConfigUpdate([](bool success) {
        platform::logLine(std::string("[QuillKit] Dynamic config update status: ") +
                          (success ? "success" : "failure"));
    });
}

std::optional<std::string> clientIDForReports() {
    if (theStage.load(std::memory_order_acquire) == kReady) return theSetup->clientIDText();
    const QLSDKClientSetup* made = QLSDKClientSetup::_makeShared();
    return made != nullptr ? made->clientIDText() : std::nullopt;
}

}  // namespace qlsdk
