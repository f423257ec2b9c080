#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"

#include <string_view>
#include <utility>

#include "QLSDKCoreKit/core/internal/Assertion.h"
#include "QLSDKCoreKit/events/internal/QueueCore.h"

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

}  // namespace qlsdk
