#include "QLSDKCoreKit/events/internal/QueueCore.h"

#include <cassert>
#include <utility>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

namespace {

std::string joinedPath(const std::optional<std::string>& directory, const std::optional<std::string>& name) {
    return directory && name ? *directory + "/" + *name : std::string();
}

std::optional<std::string> _documentPath() {
    return platform::current().directories->cachesDirectory();
}

}  // namespace

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
      deliveries_(platform::deliveryCountersFor(archiveName.value_or(""), analyticsEndpoint_)),
      list_(archivePath_, deliveries_) {}

AnalyticsEventsQueue::Core::~Core() {
    platform::current().notificationCenter->removeObserver(observer_);
    platform::consentGate().removeKeeper(keeper_);
    // The operation that the last one has left it to found nobody any more.
    if (platform::mayKeep(platform::consentGate().consent())) list_.writeOwed();
}

void AnalyticsEventsQueue::Core::start() {
    const std::uint64_t refusalsSeen = platform::consentGate().refusals();
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
    keeper_ = platform::consentGate().addKeeper({refused, granted, archivePath_, flush}, refusalsSeen);
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
    const platform::ConsentGate& gate = platform::consentGate();
    if (platform::mayKeep(gate.consent()) && !gate.owesDeletion()) {
        list_.load();
        list_.writeOwed();
    } else {
        list_.erase();
    }
}

void AnalyticsEventsQueue::Core::_pushEvent(std::shared_ptr<EncodablePicoproto> event) {
    assert(operationQueue_->isCurrent());
    noticeRefusals();
    if (!platform::mayKeep(platform::consentGate().consent())) {
        deliveries_.add(platform::Delivery::discarded, 1);
        return;
    }
    list_.loadUnread();
    list_.add(std::shared_ptr<platform::Archivable>(
        std::make_shared<EventWrapper>(list_.takeSequenceId(), std::move(event))));
    // Without consent a run would do nothing; a grant makes one of its own.
    if (list_.size() >= maxEventBuffer_ && platform::maySend(platform::consentGate().consent())) _publish();
}

void AnalyticsEventsQueue::Core::rest() noexcept {
    // A refusal deletes the file in an operation that is on its way.
    if (!platform::mayKeep(platform::consentGate().consent())) return;
    if (!operationQueue_->hasNext() || list_.isWriteDue()) list_.writeOwed();
}

void AnalyticsEventsQueue::Core::_publish() {
    enqueueWeakly([](Core& core) { core._executePublishOperation(); });
}

void AnalyticsEventsQueue::Core::noticeRefusals() {
    if (platform::consentGate().refusals() != refusalsSeen_) discardAll();
}

void AnalyticsEventsQueue::Core::publishWaiting() {
    noticeRefusals();
    if (list_.size() > 0 || list_.isUnread()) _executePublishOperation();
}

void AnalyticsEventsQueue::Core::discardAll() {
    assert(operationQueue_->isCurrent());
    // Before anything goes: what a refusal from here on concerns is looked for once more.
    refusalsSeen_ = platform::consentGate().refusals();
    list_.discard();
    owesRun_ = false;
}

void AnalyticsEventsQueue::Core::putBack(const EventList& failedEvents, std::uint64_t refusalsSeen) {
    noticeRefusals();
    // A refusal that begins after this look deletes what is put back now.
    if (platform::consentGate().refusals() != refusalsSeen) {
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
