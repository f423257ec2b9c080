#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "QLSDKCoreKit/platform/Export.h"
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

    /// Upload archives of the caches directory that a refusal deletes, also when no queue has been made for
    /// them in this process: the library's own. A kit with an `AnalyticsEventsQueue` of its own adds its
    /// archive's name.
    std::vector<std::string> archives = {"qlsdk-heartbeat.plist", "qlsdk-operational-metrics2.plist"};
};

/// What holds now. While a refusal is being carried out it holds, whatever has been said since. Any thread.
[[nodiscard]] QLSDK_EXPORT Consent consent();

/// Changes what holds. Any thread, any time after `install`; returns at once. `completion`, which may be
/// null, is called once, on a queue of the library's own, when the change has been carried out or a later one
/// has overtaken it.
///
/// `refused` holds when this returns: no request starts any more, and pushed events are dropped. What is
/// under way is cancelled, the archives are deleted, and only then `completion` is called. A request that a
/// delegate sends by itself is not the library's to cancel; like every other that fails in spite of the
/// refusal, its records are not kept. What the operating system has been given already may still be on its
/// way. Not touched: the stored configuration, the installation id, the dates of the last heartbeats.
///
/// `granted` sends what waits on disk without waiting for another event; after a refusal, collecting begins
/// anew. `undecided` lets what is under way end; a batch that fails then is kept as ever. Both wait their
/// turn while a refusal is being carried out. In a child of a fork() that hit such a moment the refusal
/// stays.
QLSDK_EXPORT void setConsent(Consent consent, Task completion = nullptr);

}  // namespace qlsdk::platform
