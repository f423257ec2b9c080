#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "QLSDKCoreKit/events/AnalyticsEventsQueueDelegate.h"
#include "QLSDKCoreKit/events/EventWrapper.h"
#include "QLSDKCoreKit/network/QLAuthHeaderProvider.h"
#include "QLSDKCoreKit/picoproto/EncodablePicoproto.h"
#include "QLSDKCoreKit/platform/ConsentGate.h"
#include "QLSDKCoreKit/platform/DeliveryCounters.h"
#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/NotificationCenter.h"
#include "QLSDKCoreKit/platform/Queues.h"
#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk {

class QueueArchiveWriter;

/// Keys of the archive's root dictionary and the response header that delays a retry.
QLSDK_EXTERN_C const char* const kQLSDKUnsentEventsKey;
QLSDK_EXTERN_C const char* const kQLSDKMaxSequenceIdKey;
QLSDK_EXTERN_C const char* const kQLSDKRetryAfterHeader;

/// Numbers encoded events, keeps them in a list that is mirrored to a file after every change, and uploads
/// them in batches; a failed batch is tried once more, not before the delay that the server asked for.
///
/// The list and the sequence counter belong to the queue's own serial `operationQueue`. The list is newest
/// first and has no upper bound. Publishing starts when a push makes the list `maxEventBuffer` long, on
/// `flushQueue`, and when the host posts `kWillResignActiveNotification`; there is no timer.
///
/// What is promised: a record is sent at most twice. Records that wait survive the end of the process; those
/// in an upload at that moment do not. Failures are never reported to the one who pushed; they are counted
/// (platform/DeliveryCounters.h).
///
/// The host's consent (platform/HostControls.h) comes first. While it is undecided every record stays in the
/// file and no run does anything; once granted, one run sends what waits. A refusal empties the list, deletes
/// the file and starts the numbering again.
class QLSDK_EXPORT AnalyticsEventsQueue final : public std::enable_shared_from_this<AnalyticsEventsQueue> {
  public:
    /// Loads the archive on the calling thread and starts listening for the host's notification. `endpoint`
    /// is a path below the API base URL, `archiveName` a file name in the caches directory. Held: the
    /// provider strongly (it may be null), the delegate weakly. An absent endpoint, archive name or delegate
    /// is reported as a handled assertion and the queue works without it: no path, no file, no body.
    [[nodiscard]] static std::shared_ptr<AnalyticsEventsQueue> create(
        std::optional<std::string> analyticsEndpoint,
        std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider, std::optional<std::string> archiveName,
        std::uint64_t maxEventBuffer, std::weak_ptr<AnalyticsEventsQueueDelegate> delegate);
    ~AnalyticsEventsQueue();
    AnalyticsEventsQueue(const AnalyticsEventsQueue&) = delete;
    AnalyticsEventsQueue& operator=(const AnalyticsEventsQueue&) = delete;

    /// Queues one encoded event and returns at once. Any thread. Shares `event` until it has been sent or its
    /// one retry is spent. Never fails: when the archive cannot be written, only the record's survival of a
    /// restart is lost. A queue that is gone when the push's turn comes drops the event.
    void pushEvent(std::shared_ptr<EncodablePicoproto> event);

    /// Asks for a publish run and returns at once. Any thread.
    void flushQueue();

    /// Set before the first push, or on the thread that pushes: not synchronised with a publish run under
    /// way.
    [[nodiscard]] std::shared_ptr<AnalyticsEventsQueueDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(std::weak_ptr<AnalyticsEventsQueueDelegate> delegate) {
        delegate_ = std::move(delegate);
    }

  private:
    AnalyticsEventsQueue(std::optional<std::string> analyticsEndpoint,
                         std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider,
                         const std::optional<std::string>& archiveName, std::uint64_t maxEventBuffer,
                         std::weak_ptr<AnalyticsEventsQueueDelegate> delegate);

    void observeResignActive();
    void observeConsent(std::uint64_t refusalsSeen);
    void _removeDeprecatedArchives();
    void _loadEvents();

    void _pushEvent(std::shared_ptr<EncodablePicoproto> event);
    void _publish();
    void _executePublishOperation();
    [[nodiscard]] EventList _filterToBePublishedInFutureFromEventsToPublish(EventList& eventsToPublish) const;
    void publishWaiting();
    void discardAll();
    [[nodiscard]] std::optional<Data> parsedBody(const EventList& batch);
    void submit(const std::shared_ptr<QLSDKNetworkRequest>& request, std::shared_ptr<EventList> batch,
                std::uint64_t refusalsSeen);
    void _submitRequest(const QLSDKNetworkRequest& request, SubmitCompletion completion);
    void _handlePublishResultWithPublishedEvents(EventList& publishedEvents,
                                                 const std::optional<platform::UrlError>& error,
                                                 std::int64_t statusCode,
                                                 const platform::HeaderFields* headers,
                                                 std::uint64_t refusalsSeen);
    void putBack(const EventList& failedEvents, std::uint64_t refusalsSeen);

    void _addEvent(platform::ArchivedObject event);
    void _addEvents(const EventList& events);
    void _clearEvents();
    void pushFront(const platform::ArchivedObject& event);
    /// `added`: how many records of the list are new to the file.
    void writeArchive(std::size_t added);
    [[nodiscard]] std::uint64_t _getMaxSequenceId() const noexcept { return maxSequenceId_; }
    [[nodiscard]] static std::optional<std::string> _documentPath();

    /// Serial. Owns `eventQueue_`, what `archive_` holds of it and `maxSequenceId_`; the constructor alone
    /// touches them elsewhere, before the first operation exists.
    const std::shared_ptr<platform::SerialQueue> operationQueue_;
    std::deque<platform::ArchivedObject> eventQueue_;
    std::uint64_t maxSequenceId_ = 0;

    // Set once in the constructor.
    const std::string archivePath_;
    const std::unique_ptr<QueueArchiveWriter> archive_;
    const std::uint64_t maxEventBuffer_;
    const std::string analyticsEndpoint_;
    const std::shared_ptr<platform::SerialQueue> deleteArchiveDispatchQueue_;
    const std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider_;
    platform::DeliveryCounters& deliveries_;
    platform::NotificationCenter::Observer observer_ = 0;
    platform::ConsentGate::KeeperId keeper_ = 0;

    std::weak_ptr<AnalyticsEventsQueueDelegate> delegate_;
};

}  // namespace qlsdk
