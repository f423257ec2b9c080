#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "QLSDKCoreKit/events/EventWrapper.h"
#include "QLSDKCoreKit/network/QLSDKNetworkRequest.h"
#include "QLSDKCoreKit/platform/Data.h"
#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk {

class AnalyticsEventsQueue;

/// Reports the end of one upload: the transport's error or none, the HTTP status (0 without a response) and
/// the response's header fields (null without a response). Any thread; only the first call counts.
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
    /// `eventWrapperOf`) may occur after a damaged archive. Absent sends a request without a body, and so
    /// does an exception.
    [[nodiscard]] virtual std::optional<Data> parseEvents(AnalyticsEventsQueue& queue,
                                                          const EventList& events,
                                                          std::int64_t maxSequenceId) = 0;

    /// May send the request itself: returns `taken` and calls `completion` exactly once, from any thread. The
    /// default leaves the sending to the queue; a delegate that throws has failed the upload.
    [[nodiscard]] virtual Submission submit(const std::shared_ptr<QLSDKNetworkRequest>& request,
                                            const SubmitCompletion& completion);
};

}  // namespace qlsdk
