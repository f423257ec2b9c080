#include "QLSDKCoreKit/events/internal/QueueUpload.h"

#include <utility>

#include "QLSDKCoreKit/platform/internal/ForkGeneration.h"

namespace qlsdk {

AnalyticsEventsQueue::Core::Upload::Upload(std::shared_ptr<AnalyticsEventsQueue> queue,
                                           std::uint64_t refusalsSeen) noexcept
    : queue_(std::move(queue)), refusalsSeen_(refusalsSeen), forkGeneration_(platform::forkGeneration()) {}

AnalyticsEventsQueue::Core::Upload::~Upload() {
    if (!hasEnded_ && forkGeneration_ == platform::forkGeneration()) {
        fail(platform::DiagnosticKind::hostCallback, "the completion of an upload was dropped", {});
    }
    leaveSession();
}

void AnalyticsEventsQueue::Core::Upload::take(EventList batch) noexcept {
    batch_ = std::move(batch);
    hasEnded_ = batch_.empty();
}

void AnalyticsEventsQueue::Core::Upload::end(const std::optional<platform::UrlError>& error,
                                             std::int64_t statusCode,
                                             const platform::HeaderFields* headers) noexcept {
    if (hasEnded_.exchange(true) || forkGeneration_ != platform::forkGeneration()) return;
    try {
        queue_->core_->_handlePublishResultWithPublishedEvents(batch_, error, statusCode, headers,
                                                               refusalsSeen_);
    } catch (...) {
        // A clock that throws, against its port's rules: the one who reports the result is not to blame.
    }
    batch_.clear();
}

void AnalyticsEventsQueue::Core::Upload::fail(platform::DiagnosticKind kind, const char* cause,
                                              std::string_view detail) noexcept {
    if (hasEnded_) return;
    queue_->core_->tell(kind, cause, detail);
    end(platform::UrlError{0, "not sent"}, 0, nullptr);
}

void AnalyticsEventsQueue::Core::Upload::enterSession() noexcept {
    isInSession_ = true;
    ++queue_->core_->uploadsInSession_;
}

void AnalyticsEventsQueue::Core::Upload::leaveSession() noexcept {
    // Of the parent's uploads a child has none.
    if (!isInSession_.exchange(false) || forkGeneration_ != platform::forkGeneration()) return;
    --queue_->core_->uploadsInSession_;
    // Both are changed and asked in one order here and where a run is put off, so that one of the two sees
    // the other.
    if (!queue_->core_->owesRun_.exchange(false)) return;
    try {
        queue_->core_->_publish();
    } catch (...) {
        queue_->core_->owesRun_ = true;
    }
}

}  // namespace qlsdk
