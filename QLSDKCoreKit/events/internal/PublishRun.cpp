// The publish run of an upload queue, and what becomes of its result.

#include <algorithm>
#include <cassert>
#include <exception>
#include <typeinfo>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"
#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"
#include "QLSDKCoreKit/events/internal/BatchContexts.h"
#include "QLSDKCoreKit/events/internal/BatchDivision.h"
#include "QLSDKCoreKit/events/internal/QueueCore.h"
#include "QLSDKCoreKit/events/internal/QueueUpload.h"
#include "QLSDKCoreKit/events/internal/RetryPolicy.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/internal/ForkGeneration.h"

namespace qlsdk {

namespace {

platform::Delivery doneAs(std::int64_t statusCode) noexcept {
    constexpr std::int64_t kForbidden = 403;
    return statusCode == kForbidden ? platform::Delivery::refusedByServer : platform::Delivery::accepted;
}

/// Makes a call into code that is not the queue's; what that throws is told by `threw`. False when it threw.
template <typename Call, typename Threw>
bool guarded(const Call& call, const Threw& threw) {
    try {
        call();
        return true;
    } catch (const std::exception& exception) {
        threw(exception.what());
    } catch (...) {
        threw("");
    }
    return false;
}

/// A host's delegate may look at the file, which is then to say what the list does; our own two do not.
bool isAHosts(const AnalyticsEventsQueueDelegate& delegate) noexcept {
    return typeid(delegate) != typeid(QLSDKHeartbeatEventsQueue) &&
           typeid(delegate) != typeid(QLSDKOperationalMetricsQueue);
}

}  // namespace

void AnalyticsEventsQueue::Core::_executePublishOperation() {
    assert(operationQueue_->isCurrent());
    noticeRefusals();
    // Both are asked before anything is taken: without consent the records stay in the file, and a refusal
    // from here on keeps the batch from coming back to it.
    const std::uint64_t refusalsSeen = gate_.refusals();
    if (!platform::maySend(gate_.consent()) || isPutOff()) return;
    list_.loadUnread();
    list_.holdBack();
    auto delegate = delegate_.lock();
    const bool isWatched = delegate != nullptr && isAHosts(*delegate);
    if (isWatched) list_.writeOwed();
    EventList batch = list_.sendable();
    EventList staying = _filterToBePublishedInFutureFromEventsToPublish(batch);
    // Nobody sees what a delegate of ours makes of nothing.
    if (batch.empty() && !isWatched) return list_.keepOnly(staying);
    bool isDivided = false;
    std::optional<Data> body;
    std::optional<std::string> complaint;
    if (delegate != nullptr) {
        (void)guarded(
            [&] {
                isDivided = divide(batch, staying, *delegate);
                body = delegate->parseEvents(face_, batch, static_cast<std::int64_t>(list_.maxSequenceId()));
            },
            [&complaint](const char* what) { complaint = what; });
        delegate = nullptr;
    }

    const auto request =
        std::make_shared<QLSDKNetworkRequest>(analyticsEndpoint_, "POST", authHeaderProvider_);
    request->setHttpBody(std::move(body));
    request->setContentType("application/protobuf");

    const auto upload = std::make_shared<Upload>(face_.shared_from_this(), refusalsSeen);
    list_.keepOnly(staying);
    // What a request takes is in no file when it starts; without a request the write may wait for the next
    // operation.
    if (!batch.empty()) list_.writeOwed();
    upload->take(std::move(batch));
    // Before the request, so that a batch which fails at once does not join the run.
    if (isDivided) _publish();
    if (complaint) {
        upload->fail(platform::DiagnosticKind::hostCallback, "a delegate could not build a body", *complaint);
    }
    if (!upload->hasEnded()) submit(request, upload);
}

bool AnalyticsEventsQueue::Core::isPutOff() {
    const std::uint64_t generation = platform::forkGeneration();
    if (std::exchange(forkGeneration_, generation) != generation) {
        // The uploads under way are the parent's, and no end of theirs will come here.
        uploadsInSession_ = 0;
        owesRun_ = false;
    }
    const std::size_t most = std::max<std::size_t>(platform::current().urlSession->mostUploadsOfAQueue(), 1);
    if (uploadsInSession_ < most) return false;
    owesRun_ = true;
    // One may have ended before it could see that.
    return uploadsInSession_ >= most || !owesRun_.exchange(false);
}

bool AnalyticsEventsQueue::Core::divide(EventList& batch, EventList& deferred,
                                        AnalyticsEventsQueueDelegate& delegate) {
    const std::vector<Share> shares = shareOut(
        batch, [this, &delegate](const EventList& events) { return delegate.recordsThatFit(face_, events); });
    if (shares.empty()) return false;
    EventList staying = stayingOf(list_.sendable(), batch, shares, deferred);
    const auto tooLarge = std::count(shares.begin(), shares.end(), Share::tooLarge);
    if (tooLarge > 0) {
        deliveries_.add(platform::Delivery::filtered, static_cast<std::size_t>(tooLarge));
        tell(platform::DiagnosticKind::records, "a record is larger than an upload can be", {});
    }
    const bool leavesSome = staying.size() > deferred.size();
    deferred = std::move(staying);
    keepTaken(batch, shares);
    return leavesSome;
}

EventList AnalyticsEventsQueue::Core::_filterToBePublishedInFutureFromEventsToPublish(
    EventList& eventsToPublish) const {
    EventList deferred;
    std::size_t filtered = 0;
    // What stays is moved together at the end, as the walk comes from there.
    auto firstDue = eventsToPublish.end();
    for (auto element = eventsToPublish.end(); element != eventsToPublish.begin();) {
        --element;
        if (contextOf(*element) == nullptr) {
            // On purpose: the last element goes, not the invalid one, which stays and reaches the delegate.
            ++filtered;
        } else if (const auto record = eventWrapperOf(*element); record->isRetry()) {
            // On purpose: a deferral spends the retry as well, and a retry that is sent is counted once more
            // when its result is handled.
            record->setNumRetried(record->numRetried() + 1);
            if (dueOf(*record, currentTimeMillis()) == Due::later) {
                deferred.push_back(*element);
                continue;
            }
        }
        if (--firstDue != element) *firstDue = std::move(*element);
    }
    eventsToPublish.erase(eventsToPublish.begin(), firstDue);
    eventsToPublish.erase(eventsToPublish.end() - static_cast<std::ptrdiff_t>(filtered),
                          eventsToPublish.end());
    deliveries_.add(platform::Delivery::filtered, filtered);
    return deferred;
}

void AnalyticsEventsQueue::Core::submit(const std::shared_ptr<QLSDKNetworkRequest>& request,
                                        const std::shared_ptr<Upload>& upload) {
    Submission submission = Submission::left;
    const bool wasAsked = guarded(
        [&] {
            const auto delegate = delegate_.lock();
            if (delegate == nullptr) return;
            submission = delegate->submit(
                request, [upload](const auto& error, std::int64_t status, const auto* headers) {
                    upload->end(error, status, headers);
                });
        },
        [&upload](const char* what) {
            upload->fail(platform::DiagnosticKind::hostCallback, "a delegate threw instead of sending", what);
        });
    // Whoever has reported a result has sent the request, whatever else it says.
    if (!wasAsked || submission == Submission::taken || upload->hasEnded()) return;
    (void)guarded([&] { _submitRequest(*request, upload); },
                  [&upload](const char* what) {
                      upload->fail(platform::DiagnosticKind::requestFailed, "a request could not be made",
                                   what);
                  });
}

void AnalyticsEventsQueue::Core::_submitRequest(const QLSDKNetworkRequest& request,
                                                const std::shared_ptr<Upload>& upload) {
    std::optional<platform::UrlRequest> urlRequest = request.toUrlRequest();
    if (!urlRequest) {
        upload->fail(platform::DiagnosticKind::requestFailed, "base URL and path form no URL",
                     request.path());
        return;
    }
    upload->enterSession();
    // A ceiling of zero: nothing of the response's body is kept.
    platform::current().urlSession->dataTask(
        std::move(*urlRequest), platform::BodyCeiling{}, [upload](const platform::UrlResult& result) {
            const auto* response = result.response ? &*result.response : nullptr;
            upload->end(result.error, response != nullptr ? response->statusCode : 0,
                        response != nullptr ? &response->headers : nullptr);
            upload->leaveSession();
        });
}

void AnalyticsEventsQueue::Core::_handlePublishResultWithPublishedEvents(
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
    const std::size_t kept = publishedEvents.size();
    const auto outOfMemory = [this, kept](const char* what) {
        deliveries_.add(platform::Delivery::droppedAfterRetry, kept);
        tell(platform::DiagnosticKind::resources, "no memory to keep the records of a failed upload", what);
    };
    (void)guarded(
        [&] {
            enqueueStrongly([remaining = std::move(publishedEvents), refusalsSeen](Core& core) {
                core.putBack(remaining, refusalsSeen);
            });
        },
        outOfMemory);
}

}  // namespace qlsdk
