#include <algorithm>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/c/QLSDK.h"
#include "QLSDKCoreKit/c/internal/Diagnostics.h"
#include "QLSDKCoreKit/c/internal/Facade.h"
#include "QLSDKCoreKit/c/internal/Growing.h"
#include "QLSDKCoreKit/c/internal/HostPlatform.h"
#include "QLSDKCoreKit/control/Consent.h"
#include "QLSDKCoreKit/control/DeliveryCounters.h"
#include "QLSDKCoreKit/control/Durability.h"
#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/storage/QLSDKInstallation.h"

namespace {

namespace platform = qlsdk::platform;
using platform::Consent;
using platform::Delivery;
using qlsdk::answerOr;
using qlsdk::runSwallowing;

Consent consentOf(QLSDKConsent consent) noexcept {
    switch (consent) {
        case QLSDKConsentGranted:
            return Consent::granted;
        case QLSDKConsentUndecided:
            return Consent::undecided;
        default:
            return Consent::refused;
    }
}

QLSDKConsent consentFor(Consent consent) noexcept {
    switch (consent) {
        case Consent::granted:
            return QLSDKConsentGranted;
        case Consent::undecided:
            return QLSDKConsentUndecided;
        case Consent::refused:
            break;
    }
    return QLSDKConsentRefused;
}

void handOver(const platform::UrlRequest& request, QLSDKDryRunSink sink, void* context) {
    std::vector<QLSDKHeader> headers;
    for (const auto& [name, value] : request.headers) headers.push_back({name.c_str(), value.c_str()});
    static constexpr std::uint8_t kEmpty = 0;
    const std::uint8_t* body = nullptr;
    if (request.body) body = request.body->empty() ? &kEmpty : request.body->data();
    const QLSDKRequest given = {sizeof given,
                                request.method.c_str(),
                                request.url.c_str(),
                                headers.data(),
                                headers.size(),
                                body,
                                request.body ? request.body->size() : 0};
    sink(&given, context);
}

platform::HostControls controlsOf(const QLSDKStartOptions& options) {
    platform::HostControls controls;
    controls.consent = consentOf(options.consent);
    if (options.dryRun != nullptr) {
        controls.dryRun = [sink = options.dryRun, context = options.dryRunContext](const auto& request) {
            handOver(request, sink, context);
        };
    }
    if (options.diagnostics != nullptr) {
        controls.diagnostics = [tell = options.diagnostics,
                                context = options.diagnosticsContext](const auto& diagnostic) {
            qlsdk::giveDiagnostic(diagnostic, tell, context);
        };
    }
    if (options.longestRetryDelayMillis > 0) {
        controls.longestRetryDelay = std::chrono::milliseconds(options.longestRetryDelayMillis);
    }
    return controls;
}

QLSDKDeliveryCounts named(const platform::DeliveryCounts& counts) noexcept {
    return {.size = sizeof(QLSDKDeliveryCounts),
            .accepted = counts[Delivery::accepted],
            .retried = counts[Delivery::retried],
            .droppedAfterRetry = counts[Delivery::droppedAfterRetry],
            .refusedByServer = counts[Delivery::refusedByServer],
            .filtered = counts[Delivery::filtered],
            .lostToFailedWrite = counts[Delivery::lostToFailedWrite],
            .discarded = counts[Delivery::discarded],
            .heldBack = counts[Delivery::heldBack]};
}

}  // namespace

QLSDKStartResult QLSDKStart(const QLSDKStartOptions* options) {
    const QLSDKStartResult result = answerOr(QLSDKStartFailed, [options] {
        const auto given = options != nullptr ? qlsdk::fromHost(options) : QLSDKStartOptions{};
        if (!given) return QLSDKStartInvalid;
        platform::Platform wanted = qlsdk::platformFor(*given);
        wanted.controls = controlsOf(*given);
        if (platform::install(std::move(wanted)) == platform::InstallResult::tooLate)
            return QLSDKStartedBefore;
        if (given->durability == QLSDKDurabilityPowerCut) {
            platform::setDurability(platform::Durability::powerCut);
        }
        (void)qlsdk::QLSDKClientSetup::sharedInstance();
        return QLSDKStarted;
    });
    if (result == QLSDKStartFailed) {
        platform::reportDiagnostic({platform::DiagnosticKind::resources, "no memory to start the library"});
    } else if (result == QLSDKStartInvalid) {
        platform::reportDiagnostic(
            {platform::DiagnosticKind::invalidOption, "the start options do not tell their size"});
    } else if (result == QLSDKStartedBefore) {
        platform::reportDiagnostic({platform::DiagnosticKind::invalidOption,
                                    "the library has been used before: the start options have no effect"});
    }
    return result;
}

bool QLSDKWaitUntilIdle(int64_t timeoutMillis) {
    constexpr std::int64_t kDayMillis = 86'400'000;
    const std::chrono::milliseconds timeout(std::clamp<std::int64_t>(timeoutMillis, 0, kDayMillis));
    return answerOr(false, [timeout] { return platform::waitUntilIdle(timeout); });
}

int QLSDKMainQueueFileDescriptor() {
    return answerOr(-1, [] { return platform::current().queues->mainQueue()->fileDescriptor(); });
}

size_t QLSDKMainQueueDrain() {
    return answerOr(std::size_t{0}, [] { return platform::current().queues->mainQueue()->drain(); });
}

void QLSDKMainQueueStartThread() {
    runSwallowing([] { platform::current().queues->mainQueue()->startThread(); });
}

QLSDKConsent QLSDKGetConsent() {
    return answerOr(QLSDKConsent{QLSDKConsentRefused}, [] { return consentFor(platform::consent()); });
}

void QLSDKSetConsent(QLSDKConsent consent, void (*done)(void* context), void* context) {
    const auto notify = [done, context] {
        if (done != nullptr) done(context);
    };
    const bool isTaken = answerOr(false, [&] {
        platform::setConsent(consentOf(consent), notify);
        return true;
    });
    if (!isTaken) notify();
}

bool QLSDKReadDeliveryCounts(const char* archiveOrEndpoint, QLSDKDeliveryCounts* counts) {
    if (counts != nullptr && !qlsdk::hasSize(*counts)) return false;
    return answerOr(false, [=] {
        const std::optional<platform::DeliveryCounts> found =
            archiveOrEndpoint != nullptr ? platform::deliveryCounts(archiveOrEndpoint)
                                         : platform::totalDeliveryCounts();
        if (counts != nullptr) qlsdk::toHost(named(found.value_or(platform::DeliveryCounts())), counts);
        return found.has_value();
    });
}

size_t QLSDKInstallationId(char* buffer, size_t capacity) {
    const auto identifier =
        answerOr(std::optional<std::string>(), [] { return qlsdk::QLSDKInstallation().installationId(); });
    return qlsdk::giveText(identifier, buffer, capacity);
}
