#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "QLSDKCoreKit/control/ConsentGate.h"
#include "QLSDKCoreKit/control/DeliveryCounters.h"
#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/events/internal/StoredList.h"
#include "QLSDKCoreKit/network/QLAuthHeaderProvider.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/NotificationCenter.h"
#include "QLSDKCoreKit/platform/Queues.h"
#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk {

/// What is behind an upload queue: it decides when the list changes and what is sent; `StoredList` keeps the
/// list. Lives exactly as long as the queue. Everything but `start`, `_publish`, the two `enqueue` and the
/// end of an upload belongs to the operation queue.
class AnalyticsEventsQueue::Core {
  public:
    class Upload;

    /// `face` owns this object.
    Core(AnalyticsEventsQueue& face, std::optional<std::string> analyticsEndpoint,
         std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider,
         const std::optional<std::string>& archiveName, std::uint64_t maxEventBuffer,
         std::weak_ptr<AnalyticsEventsQueueDelegate> delegate);
    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    /// Loads the list on the calling thread and begins to listen; once the queue is shared.
    void start();

    /// Queues an operation, a callable that takes this object; nothing becomes of it when the queue is gone
    /// by then. Any thread.
    template <typename Operation>
    void enqueueWeakly(Operation operation);
    /// The same, and keeps the queue until then.
    template <typename Operation>
    void enqueueStrongly(Operation operation);

    void _pushEvent(std::shared_ptr<EncodablePicoproto> event);
    /// Queues a publish run. Any thread.
    void _publish();
    void _executePublishOperation();

    /// Not synchronised with a run.
    std::weak_ptr<AnalyticsEventsQueueDelegate> delegate_;

  private:
    void observeResignActive();
    void observeConsent(std::uint64_t refusalsSeen);
    void _removeDeprecatedArchives();
    void _loadEvents();
    void publishWaiting();
    /// Discards what is kept if a refusal has begun that the list has not been emptied for: the task for it
    /// may still come, or was lost.
    void noticeRefusals();
    void discardAll();
    void putBack(const EventList& failedEvents, std::uint64_t refusalsSeen);
    void tell(platform::DiagnosticKind kind, const char* cause, std::string_view detail) const noexcept;
    /// Runs one operation and then rests.
    void perform(auto& operation) {
        struct Ending {
            Core& core;
            ~Ending() { core.rest(); }
        } const ending{*this};
        operation(*this);
    }
    /// Writes what is owed to the file, or leaves that to the operation that follows at once.
    void rest() noexcept;

    // The publish run, in PublishRun.cpp.
    /// True when the URL session has as many uploads of the queue as it may; the run is then owed.
    [[nodiscard]] bool isPutOff();
    [[nodiscard]] EventList _filterToBePublishedInFutureFromEventsToPublish(EventList& eventsToPublish) const;
    /// What does not fit into one request leaves the batch and joins the deferred records, oldest first.
    /// False, and nothing changed, when everything fits.
    [[nodiscard]] bool divide(EventList& batch, EventList& deferred, AnalyticsEventsQueueDelegate& delegate);
    void submit(const std::shared_ptr<QLSDKNetworkRequest>& request, const std::shared_ptr<Upload>& upload);
    void _submitRequest(const QLSDKNetworkRequest& request, const std::shared_ptr<Upload>& upload);
    /// On the thread that reports the result.
    void _handlePublishResultWithPublishedEvents(EventList& publishedEvents,
                                                 const std::optional<platform::UrlError>& error,
                                                 std::int64_t statusCode,
                                                 const platform::HeaderFields* headers,
                                                 std::uint64_t refusalsSeen);

    // Set once in the constructor.
    AnalyticsEventsQueue& face_;
    const std::shared_ptr<platform::SerialQueue> operationQueue_;
    const std::string archivePath_;
    const std::uint64_t maxEventBuffer_;
    const std::string analyticsEndpoint_;
    const std::shared_ptr<platform::SerialQueue> deleteArchiveDispatchQueue_;
    const std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider_;
    platform::ConsentGate& gate_;
    platform::DeliveryCounters& deliveries_;

    // The operation queue's; `start` alone touches the list elsewhere, before the first operation exists.
    StoredList list_;
    std::uint64_t forkGeneration_ = 0;
    /// Refusals that the list has been emptied for.
    std::uint64_t refusalsSeen_ = 0;

    /// Counted up on the operation queue, down by whoever ends an upload.
    std::atomic<std::size_t> uploadsInSession_{0};
    /// A run was put off and is to be made when an upload ends.
    std::atomic<bool> owesRun_{false};

    // Set once in `start`.
    platform::NotificationCenter::Observer observer_ = 0;
    platform::ConsentGate::KeeperId keeper_ = 0;
};

template <typename Operation>
void AnalyticsEventsQueue::Core::enqueueWeakly(Operation operation) {
    operationQueue_->async([weak = face_.weak_from_this(), operation = std::move(operation)]() mutable {
        if (const auto queue = weak.lock()) queue->core_->perform(operation);
    });
}

template <typename Operation>
void AnalyticsEventsQueue::Core::enqueueStrongly(Operation operation) {
    operationQueue_->async([queue = face_.shared_from_this(), operation = std::move(operation)]() mutable {
        queue->core_->perform(operation);
    });
}

}  // namespace qlsdk
