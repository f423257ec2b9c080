#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <string_view>
#include <utility>

#include "QLSDKCoreKit/core/DateHelpers.h"
#include "QLSDKCoreKit/core/internal/Assertion.h"
#include "QLSDKCoreKit/events/internal/QueueArchive.h"
#include "QLSDKCoreKit/events/internal/RetryPolicy.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

const char* const kQLSDKUnsentEventsKey = "unsent_events";
const char* const kQLSDKMaxSequenceIdKey = "max_sequence_id";
const char* const kQLSDKRetryAfterHeader = "X-Retry-After-Millis";

namespace {

void requireParameter(bool present, std::string_view name) {
    if (present) return;
    reportInvalidParameter(
        "-[AnalyticsEventsQueue "
        "initWithAnalyticsEndpoint:authHeaderProvider:archiveName:maxEventBuffer:delegate:]",
        name);
}

std::string joinedPath(const std::optional<std::string>& directory, const std::optional<std::string>& name) {
    return directory && name ? *directory + "/" + *name : std::string();
}

/// Lets only the first call through, so that a delegate which completes twice cannot send a record again.
SubmitCompletion onlyOnce(SubmitCompletion completion) {
    return [called = std::make_shared<std::atomic_flag>(), completion = std::move(completion)](
               const auto& error, std::int64_t statusCode, const auto* headers) {
        if (!called->test_and_set()) completion(error, statusCode, headers);
    };
}

platform::Delivery doneAs(std::int64_t statusCode) noexcept {
    constexpr std::int64_t kForbidden = 403;
    return statusCode == kForbidden ? platform::Delivery::refusedByServer : platform::Delivery::accepted;
}

const platform::UrlError kNotSent{0, "the request could not be sent"};

}  // namespace

Submission AnalyticsEventsQueueDelegate::submit(const std::shared_ptr<QLSDKNetworkRequest>&,
                                                const SubmitCompletion&) {
    return Submission::left;
}

std::shared_ptr<AnalyticsEventsQueue> AnalyticsEventsQueue::create(
    std::optional<std::string> analyticsEndpoint, std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider,
    std::optional<std::string> archiveName, std::uint64_t maxEventBuffer,
    std::weak_ptr<AnalyticsEventsQueueDelegate> delegate) {
    requireParameter(analyticsEndpoint.has_value(), "analyticsEndpoint");
    requireParameter(archiveName.has_value(), "archiveName");
    requireParameter(!delegate.expired(), "delegate");
    const std::shared_ptr<AnalyticsEventsQueue> queue(
        new AnalyticsEventsQueue(std::move(analyticsEndpoint), std::move(authHeaderProvider), archiveName,
                                 maxEventBuffer, std::move(delegate)));
    const std::uint64_t refusalsSeen = platform::consentGate().refusals();
    queue->_removeDeprecatedArchives();
    queue->_loadEvents();
    queue->observeConsent(refusalsSeen);
    queue->observeResignActive();
    return queue;
}

AnalyticsEventsQueue::AnalyticsEventsQueue(std::optional<std::string> analyticsEndpoint,
                                           std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider,
                                           const std::optional<std::string>& archiveName,
                                           std::uint64_t maxEventBuffer,
                                           std::weak_ptr<AnalyticsEventsQueueDelegate> delegate)
    : operationQueue_(platform::current().queues->makeSerialQueue(archiveName.value_or("unnamed archive"))),
      archivePath_(joinedPath(_documentPath(), archiveName)),
      archive_(std::make_unique<QueueArchiveWriter>(archivePath_)),
      maxEventBuffer_(maxEventBuffer),
      analyticsEndpoint_(std::move(analyticsEndpoint).value_or("")),
      deleteArchiveDispatchQueue_(
          platform::current().queues->makeSerialQueue("delete_archive_dispatch_queue")),
      authHeaderProvider_(std::move(authHeaderProvider)),
      deliveries_(platform::deliveryCountersFor(archiveName.value_or(""), analyticsEndpoint_)),
      delegate_(std::move(delegate)) {}

AnalyticsEventsQueue::~AnalyticsEventsQueue() {
    platform::current().notificationCenter->removeObserver(observer_);
    platform::consentGate().removeKeeper(keeper_);
}

void AnalyticsEventsQueue::observeResignActive() {
    observer_ = platform::current().notificationCenter->addObserver(platform::kWillResignActiveNotification,
                                                                    [weak = weak_from_this()] {
                                                                        if (const auto queue = weak.lock())
                                                                            queue->flushQueue();
                                                                    });
}

void AnalyticsEventsQueue::observeConsent(std::uint64_t refusalsSeen) {
    const auto refused = [weak = weak_from_this()](const platform::ConsentGate::Refusal& refusal) {
        const auto queue = weak.lock();
        if (queue == nullptr) return;
        // The refusal waits for this task, which comes after the pushes from before it.
        queue->operationQueue_->async([queue, refusal] { queue->discardAll(); });
    };
    const auto granted = [weak = weak_from_this()] {
        const auto queue = weak.lock();
        if (queue != nullptr) queue->operationQueue_->async([queue] { queue->publishWaiting(); });
    };
    keeper_ = platform::consentGate().addKeeper({refused, granted, archivePath_}, refusalsSeen);
}

void AnalyticsEventsQueue::_removeDeprecatedArchives() {
    deleteArchiveDispatchQueue_->async([] {
        for (const char* name : {"qlsdk-analytics-events.plist", "qlsdk-operational-metrics.plist"}) {
            const std::string path = joinedPath(_documentPath(), name);
            if (platform::fileExists(path)) platform::removeFile(path);
        }
    });
}

void AnalyticsEventsQueue::pushEvent(std::shared_ptr<EncodablePicoproto> event) {
    // Weakly: a push must not keep a queue alive that its owner has given up.
    operationQueue_->async([weak = weak_from_this(), event = std::move(event)]() mutable {
        if (const auto queue = weak.lock()) queue->_pushEvent(std::move(event));
    });
}

void AnalyticsEventsQueue::_pushEvent(std::shared_ptr<EncodablePicoproto> event) {
    assert(operationQueue_->isCurrent());
    if (!platform::mayKeep(platform::consentGate().consent())) {
        deliveries_.add(platform::Delivery::discarded, 1);
        return;
    }
    ++maxSequenceId_;
    _addEvent(std::shared_ptr<platform::Archivable>(
        std::make_shared<EventWrapper>(maxSequenceId_, std::move(event))));
    if (eventQueue_.size() >= maxEventBuffer_) _publish();
}

void AnalyticsEventsQueue::flushQueue() {
    _publish();
}

void AnalyticsEventsQueue::_publish() {
    operationQueue_->async([weak = weak_from_this()] {
        if (const auto queue = weak.lock()) queue->_executePublishOperation();
    });
}

void AnalyticsEventsQueue::_executePublishOperation() {
    assert(operationQueue_->isCurrent());
    // Both are asked before anything is taken: without consent the records stay in the file, and a refusal
    // from here on keeps the batch from coming back to it.
    const std::uint64_t refusalsSeen = platform::consentGate().refusals();
    if (!platform::maySend(platform::consentGate().consent())) return;
    auto batch = std::make_shared<EventList>(eventQueue_.begin(), eventQueue_.end());
    const EventList deferred = _filterToBePublishedInFutureFromEventsToPublish(*batch);
    std::optional<Data> body = parsedBody(*batch);

    const auto request =
        std::make_shared<QLSDKNetworkRequest>(analyticsEndpoint_, "POST", authHeaderProvider_);
    request->setHttpBody(std::move(body));
    request->setContentType("application/protobuf");

    _clearEvents();
    _addEvents(deferred);
    if (!batch->empty()) submit(request, std::move(batch), refusalsSeen);
}

void AnalyticsEventsQueue::publishWaiting() {
    if (!eventQueue_.empty()) _executePublishOperation();
}

void AnalyticsEventsQueue::discardAll() {
    assert(operationQueue_->isCurrent());
    deliveries_.add(platform::Delivery::discarded, eventQueue_.size());
    eventQueue_.clear();
    archive_->clear();
    // A number that went on would still tell of what was there before.
    maxSequenceId_ = 0;
    archive_->eraseFile();
}

EventList AnalyticsEventsQueue::_filterToBePublishedInFutureFromEventsToPublish(
    EventList& eventsToPublish) const {
    EventList deferred;
    for (std::size_t i = eventsToPublish.size(); i-- > 0;) {
        const std::shared_ptr<EventWrapper> record = eventWrapperOf(eventsToPublish[i]);
        const std::shared_ptr<EncodablePicoproto> event = record != nullptr ? record->event() : nullptr;
        if (event == nullptr || event->ctx() == nullptr) {
            // On purpose: the last element goes, not the invalid one, which stays and reaches the delegate.
            eventsToPublish.pop_back();
            deliveries_.add(platform::Delivery::filtered, 1);
            continue;
        }
        if (!record->isRetry()) continue;
        if (dueOf(*record, currentTimeMillis()) == Due::later) {
            deferred.push_back(eventsToPublish[i]);
            eventsToPublish.erase(eventsToPublish.begin() + static_cast<std::ptrdiff_t>(i));
        }
        // On purpose: a deferral spends the retry as well, and a retry that is sent is counted once more when
        // its result is handled.
        record->setNumRetried(record->numRetried() + 1);
    }
    return deferred;
}

std::optional<Data> AnalyticsEventsQueue::parsedBody(const EventList& batch) {
    const auto delegate = delegate_.lock();
    if (delegate == nullptr) return std::nullopt;
    try {
        return delegate->parseEvents(*this, batch, static_cast<std::int64_t>(maxSequenceId_));
    } catch (...) {
        return std::nullopt;
    }
}

void AnalyticsEventsQueue::submit(const std::shared_ptr<QLSDKNetworkRequest>& request,
                                  std::shared_ptr<EventList> batch, std::uint64_t refusalsSeen) {
    // Strongly: the queue stays until the upload ends, so that a failed batch finds its way back.
    const SubmitCompletion completion =
        onlyOnce([self = shared_from_this(), batch = std::move(batch), refusalsSeen](
                     const auto& error, std::int64_t statusCode, const auto* headers) {
            self->_handlePublishResultWithPublishedEvents(*batch, error, statusCode, headers, refusalsSeen);
        });
    try {
        const auto delegate = delegate_.lock();
        if (delegate != nullptr && delegate->submit(request, completion) == Submission::taken) return;
        _submitRequest(*request, completion);
    } catch (...) {
        completion(kNotSent, 0, nullptr);
    }
}

void AnalyticsEventsQueue::_submitRequest(const QLSDKNetworkRequest& request, SubmitCompletion completion) {
    std::optional<platform::UrlRequest> urlRequest = request.toUrlRequest();
    if (!urlRequest) {
        completion(kNotSent, 0, nullptr);
        return;
    }
    // A ceiling of zero: nothing of the response's body is kept.
    platform::current().urlSession->dataTask(
        std::move(*urlRequest), platform::BodyCeiling{},
        [completion = std::move(completion)](const platform::UrlResult& result) {
            const auto* response = result.response ? &*result.response : nullptr;
            completion(result.error, response != nullptr ? response->statusCode : 0,
                       response != nullptr ? &response->headers : nullptr);
        });
}

void AnalyticsEventsQueue::_handlePublishResultWithPublishedEvents(
    EventList& publishedEvents, const std::optional<platform::UrlError>& error, std::int64_t statusCode,
    const platform::HeaderFields* headers, std::uint64_t refusalsSeen) {
    // The published records have left the list, so this thread is the only one that touches them.
    for (const platform::ArchivedObject& element : publishedEvents) {
        const auto record = eventWrapperOf(element);
        if (record != nullptr && record->isRetry()) record->setNumRetried(record->numRetried() + 1);
    }
    if (uploadOutcomeOf(error.has_value(), statusCode) == UploadOutcome::done) {
        deliveries_.add(doneAs(statusCode), publishedEvents.size());
        return;
    }

    const std::string* retryAfter = headers != nullptr ? headers->find(kQLSDKRetryAfterHeader) : nullptr;
    const std::int64_t retryTime =
        retryTimeMillis(retryAfter, currentTimeMillis(), platform::current().controls.longestRetryDelay);
    // An element that is no record cannot carry a retry state; its failed upload was its last.
    const std::size_t dropped =
        std::erase_if(publishedEvents, [retryTime](const platform::ArchivedObject& element) {
            const auto record = eventWrapperOf(element);
            return record == nullptr || applyFailure(*record, retryTime) == AfterFailure::dropped;
        });
    deliveries_.add(platform::Delivery::droppedAfterRetry, dropped);
    operationQueue_->async([self = shared_from_this(), remaining = std::move(publishedEvents), refusalsSeen] {
        self->putBack(remaining, refusalsSeen);
    });
}

void AnalyticsEventsQueue::putBack(const EventList& failedEvents, std::uint64_t refusalsSeen) {
    // A refusal that begins after this look deletes what is put back now.
    if (platform::consentGate().refusals() != refusalsSeen) {
        deliveries_.add(platform::Delivery::discarded, failedEvents.size());
        return;
    }
    deliveries_.add(platform::Delivery::retried, failedEvents.size());
    _addEvents(failedEvents);
}

void AnalyticsEventsQueue::_addEvent(platform::ArchivedObject event) {
    assert(operationQueue_->isCurrent());
    pushFront(event);
    writeArchive(1);
}

void AnalyticsEventsQueue::_addEvents(const EventList& events) {
    assert(operationQueue_->isCurrent());
    // One by one at the front: a batch comes back in reverse order, ahead of what was pushed meanwhile.
    for (const platform::ArchivedObject& event : events) pushFront(event);
    writeArchive(events.size());
}

void AnalyticsEventsQueue::pushFront(const platform::ArchivedObject& event) {
    eventQueue_.push_front(event);
    archive_->pushFront(event);
}

void AnalyticsEventsQueue::_clearEvents() {
    assert(operationQueue_->isCurrent());
    eventQueue_.clear();
    archive_->clear();
    // On purpose: the file is read and decoded once more before it goes, and whatever comes of that is
    // dropped.
    (void)readQueueArchive(archivePath_);
    archive_->removeFile();
}

void AnalyticsEventsQueue::_loadEvents() {
    if (!platform::mayKeep(platform::consentGate().consent())) {
        archive_->eraseFile();
        return;
    }
    std::optional<QueueArchive> archive = readQueueArchive(archivePath_);
    if (!archive) return;
    maxSequenceId_ = archive->maxSequenceId;
    std::for_each(archive->unsentEvents.rbegin(), archive->unsentEvents.rend(),
                  [this](const platform::ArchivedObject& event) { pushFront(event); });
    writeArchive(0);
}

void AnalyticsEventsQueue::writeArchive(std::size_t added) {
    // A failed write costs only the survival of a restart; the list in memory stays what counts.
    if (!archive_->write(maxSequenceId_)) deliveries_.add(platform::Delivery::lostToFailedWrite, added);
}

std::optional<std::string> AnalyticsEventsQueue::_documentPath() {
    return platform::current().directories->cachesDirectory();
}

}  // namespace qlsdk
