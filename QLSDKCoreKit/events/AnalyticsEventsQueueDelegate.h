#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/events/EventWrapper.h"
#include "QLSDKCoreKit/network/QLSDKNetworkRequest.h"
#include "QLSDKCoreKit/platform/UrlSession.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk {

class AnalyticsEventsQueue;

/// Reports the end of one upload: the transport's error or none, the HTTP status (0 without a response) and
/// the response's header fields (null without a response). Any thread; only the first call counts. Copies are
/// one completion: when the last of them goes without having been called, the upload has failed.
using SubmitCompletion = std::function<void(const std::optional<platform::UrlError>& error,
                                            std::int64_t statusCode, const platform::HeaderFields* headers)>;

/// Whether a delegate has taken a request over or leaves the sending to the queue.
enum class Submission { left, taken };

/// What an upload queue asks of the one who fills it. The queue holds its delegate weakly.
class QLSDK_EXPORT AnalyticsEventsQueueDelegate {
  public:
    virtual ~AnalyticsEventsQueueDelegate() = default;

    /// Builds the body of one upload from the records in `events`, in the queue's order (newest first).
    /// Called once for each publish run on the queue's operation queue, also for an empty list, whose result
    /// is thrown away. The list is borrowed for the call. Elements that are no `EventWrapper` (see
    /// `eventWrapperOf`) may occur after a damaged archive. Absent sends a request without a body; a body
    /// that cannot be made whole is better thrown for, which fails the upload.
    [[nodiscard]] virtual std::optional<Data> parseEvents(AnalyticsEventsQueue& queue,
                                                          const EventList& events,
                                                          std::int64_t maxSequenceId) = 0;

    /// How many of `events`, newest first, fit into the body of one upload, counted from the last element on.
    /// Asked before `parseEvents`, on the same queue, and more than once where not all fit: the oldest
    /// records that do are then sent, and the others stay in the list and make another run at once. A record
    /// that does not fit alone is dropped. The default never divides a batch: all of them.
    [[nodiscard]] virtual std::size_t recordsThatFit(AnalyticsEventsQueue& queue, const EventList& events);

    /// May send the request itself: returns `taken` and calls `completion` exactly once, from any thread. The
    /// default leaves the sending to the queue; a delegate that throws has failed the upload.
    [[nodiscard]] virtual Submission submit(const std::shared_ptr<QLSDKNetworkRequest>& request,
                                            const SubmitCompletion& completion);
};

}  // namespace qlsdk
