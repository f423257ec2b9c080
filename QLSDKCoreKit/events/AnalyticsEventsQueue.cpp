#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"

#include <cassert>
#include <string_view>
#include <utility>

#include "QLSDKCoreKit/core/internal/Assertion.h"
#include "QLSDKCoreKit/events/internal/QueueCore.h"
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

std::optional<std::string> _documentPath() {
    return platform::current().directories->cachesDirectory();
}

}  // namespace

std::size_t AnalyticsEventsQueueDelegate::recordsThatFit(AnalyticsEventsQueue&, const EventList& events) {
    return events.size();
}

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
    queue->core_->start();
    return queue;
}

AnalyticsEventsQueue::AnalyticsEventsQueue(std::optional<std::string> analyticsEndpoint,
                                           std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider,
                                           const std::optional<std::string>& archiveName,
                                           std::uint64_t maxEventBuffer,
                                           std::weak_ptr<AnalyticsEventsQueueDelegate> delegate)
    : core_(std::make_unique<Core>(*this, std::move(analyticsEndpoint), std::move(authHeaderProvider),
                                   archiveName, maxEventBuffer, std::move(delegate))) {}

AnalyticsEventsQueue::~AnalyticsEventsQueue() = default;

void AnalyticsEventsQueue::pushEvent(std::shared_ptr<EncodablePicoproto> event) {
    // Weakly: a push must not keep a queue alive that its owner has given up.
    core_->enqueueWeakly(
        [event = std::move(event)](Core& core) mutable { core._pushEvent(std::move(event)); });
}

void AnalyticsEventsQueue::flushQueue() {
    core_->_publish();
}

std::shared_ptr<AnalyticsEventsQueueDelegate> AnalyticsEventsQueue::delegate() const {
    return core_->delegate_.lock();
}

void AnalyticsEventsQueue::setDelegate(std::weak_ptr<AnalyticsEventsQueueDelegate> delegate) {
    core_->delegate_ = std::move(delegate);
}

AnalyticsEventsQueue::Core::Core(AnalyticsEventsQueue& face, std::optional<std::string> analyticsEndpoint,
                                 std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider,
                                 const std::optional<std::string>& archiveName, std::uint64_t maxEventBuffer,
                                 std::weak_ptr<AnalyticsEventsQueueDelegate> delegate)
    : delegate_(std::move(delegate)),
      face_(face),
      operationQueue_(platform::current().queues->makeSerialQueue(archiveName.value_or("unnamed archive"))),
      archivePath_(joinedPath(_documentPath(), archiveName)),
      maxEventBuffer_(maxEventBuffer),
      analyticsEndpoint_(std::move(analyticsEndpoint).value_or("")),
      deleteArchiveDispatchQueue_(
          platform::current().queues->makeSerialQueue("delete_archive_dispatch_queue")),
      authHeaderProvider_(std::move(authHeaderProvider)),
      gate_(platform::consentGate()),
      deliveries_(platform::deliveryCountersFor(archiveName.value_or(""), analyticsEndpoint_)),
      list_(archivePath_, deliveries_) {}

AnalyticsEventsQueue::Core::~Core() {
    platform::current().notificationCenter->removeObserver(observer_);
    gate_.removeKeeper(keeper_);
    // The operation that the last one has left it to found nobody any more.
    if (platform::mayKeep(gate_.consent())) list_.writeOwed();
}

void AnalyticsEventsQueue::Core::start() {
    const std::uint64_t refusalsSeen = gate_.refusals();
    _removeDeprecatedArchives();
    _loadEvents();
    observeConsent(refusalsSeen);
    observeResignActive();
}

void AnalyticsEventsQueue::Core::observeResignActive() {
    observer_ = platform::current().notificationCenter->addObserver(platform::kWillResignActiveNotification,
                                                                    [weak = face_.weak_from_this()] {
                                                                        if (const auto queue = weak.lock())
                                                                            queue->flushQueue();
                                                                    });
}

void AnalyticsEventsQueue::Core::observeConsent(std::uint64_t refusalsSeen) {
    const auto refused = [weak = face_.weak_from_this()](const platform::ConsentGate::Refusal& refusal) {
        const auto queue = weak.lock();
        if (queue == nullptr) return;
        // The refusal waits for this operation, which comes after the pushes from before it.
        queue->core_->enqueueStrongly([refusal](Core& core) { core.discardAll(); });
    };
    const auto granted = [weak = face_.weak_from_this()] {
        const auto queue = weak.lock();
        if (queue != nullptr) queue->core_->enqueueStrongly([](Core& core) { core.publishWaiting(); });
    };
    const auto flush = [weak = face_.weak_from_this()] {
        if (const auto queue = weak.lock()) queue->flushQueue();
    };
    refusalsSeen_ = refusalsSeen;
    keeper_ = gate_.addKeeper({refused, granted, archivePath_, flush}, refusalsSeen);
}

void AnalyticsEventsQueue::Core::_removeDeprecatedArchives() {
    deleteArchiveDispatchQueue_->async([] {
        for (const char* name : {"qlsdk-analytics-events.plist", "qlsdk-operational-metrics.plist"}) {
            const std::string path = joinedPath(_documentPath(), name);
            if (platform::fileExists(path)) platform::removeFile(path);
        }
    });
}

void AnalyticsEventsQueue::Core::_loadEvents() {
    if (platform::mayKeep(gate_.consent()) && !gate_.owesDeletion()) {
        list_.load();
        list_.writeOwed();
    } else {
        list_.erase();
    }
}

void AnalyticsEventsQueue::Core::_pushEvent(std::shared_ptr<EncodablePicoproto> event) {
    assert(operationQueue_->isCurrent());
    noticeRefusals();
    if (!platform::mayKeep(gate_.consent())) {
        deliveries_.add(platform::Delivery::discarded, 1);
        return;
    }
    list_.loadUnread();
    list_.add(std::shared_ptr<platform::Archivable>(
        std::make_shared<EventWrapper>(list_.takeSequenceId(), std::move(event))));
    // Without consent a run would do nothing; a grant makes one of its own.
    if (list_.size() >= maxEventBuffer_ && platform::maySend(gate_.consent())) _publish();
}

void AnalyticsEventsQueue::Core::rest() noexcept {
    // A refusal deletes the file in an operation that is on its way.
    if (!platform::mayKeep(gate_.consent())) return;
    if (!operationQueue_->hasNext() || list_.isWriteDue()) list_.writeOwed();
}

void AnalyticsEventsQueue::Core::_publish() {
    enqueueWeakly([](Core& core) { core._executePublishOperation(); });
}

void AnalyticsEventsQueue::Core::noticeRefusals() {
    if (gate_.refusals() != refusalsSeen_) discardAll();
}

void AnalyticsEventsQueue::Core::publishWaiting() {
    noticeRefusals();
    if (list_.size() > 0 || list_.isUnread()) _executePublishOperation();
}

void AnalyticsEventsQueue::Core::discardAll() {
    assert(operationQueue_->isCurrent());
    // Before anything goes: what a refusal from here on concerns is looked for once more.
    refusalsSeen_ = gate_.refusals();
    list_.discard();
    owesRun_ = false;
}

void AnalyticsEventsQueue::Core::putBack(const EventList& failedEvents, std::uint64_t refusalsSeen) {
    noticeRefusals();
    // A refusal that begins after this look deletes what is put back now.
    if (gate_.refusals() != refusalsSeen) {
        deliveries_.add(platform::Delivery::discarded, failedEvents.size());
        return;
    }
    deliveries_.add(platform::Delivery::retried, failedEvents.size());
    list_.add(failedEvents);
}

void AnalyticsEventsQueue::Core::tell(platform::DiagnosticKind kind, const char* cause,
                                      std::string_view detail) const noexcept {
    platform::reportDiagnostic({.kind = kind, .cause = cause, .path = archivePath_, .detail = detail});
}

}  // namespace qlsdk
