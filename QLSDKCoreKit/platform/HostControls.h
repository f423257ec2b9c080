#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Queues.h"
#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk::platform {

/// What the host's user says to the library's requests.
enum class Consent : std::uint8_t {
    /// Requests are sent: what a host gets that never mentions consent.
    granted,
    /// The user has not been asked yet: events are kept on disk, nothing is sent.
    undecided,
    /// Nothing is sent and nothing is kept.
    refused,
};

/// Whether requests may leave the process.
[[nodiscard]] constexpr bool maySend(Consent consent) noexcept {
    return consent == Consent::granted;
}

/// Whether events may be kept for a later request.
[[nodiscard]] constexpr bool mayKeep(Consent consent) noexcept {
    return consent != Consent::refused;
}

/// Takes the requests that would have left: method, URL, every header field and the body. Called on a queue
/// of the library's own, one request at a time, in order. What it throws is swallowed.
using DryRunSink = std::function<void(const UrlRequest& request)>;

/// Hears of a failure the first time that it is met; `diagnostics` of Diagnostics.h says how often it was.
/// Called on a queue of the library's own, once for each failure, one at a time. It may call the library and
/// may take its time, though one that never returns keeps one of the library's two threads. What it throws is
/// swallowed.
using DiagnosticsCallback = std::function<void(const Diagnostic& diagnostic)>;

/// What a host decides about the library's requests. A member of `Platform`, so it is set with `install`,
/// before the kit's first use; consent alone may change later. Left alone, none of it has any effect.
struct HostControls {
    /// Consent when the process starts. `refused` is the same as `setConsent(Consent::refused)` right after
    /// `install`.
    Consent consent = Consent::granted;

    /// When set, every request is handed to this function and the network is not used at all. The kit sees an
    /// answer of status 200 without header fields and with an empty body: an upload counts as accepted, and
    /// the configuration update, which wants a JSON body, ends as a failure. Consent comes first: what it
    /// keeps from being sent does not reach the function either.
    DryRunSink dryRun{};

    /// The longest delay that a server's "X-Retry-After-Millis" can put before a retry: longer ones count as
    /// this one, negative values as zero. Absent: the server's word is taken as it stands.
    std::optional<std::chrono::milliseconds> longestRetryDelay{};

    /// When set, this function hears of failures, and the platform's sink (on Linux stderr, where the
    /// environment asks for it) does not.
    DiagnosticsCallback diagnostics{};

    /// Upload archives of the caches directory that a refusal deletes, also when no queue has been made for
    /// them in this process: the library's own. A kit with an `AnalyticsEventsQueue` of its own adds its
    /// archive's name.
    std::vector<std::string> archives = {"qlsdk-heartbeat.plist", "qlsdk-operational-metrics2.plist"};
};

}  // namespace qlsdk::platform
