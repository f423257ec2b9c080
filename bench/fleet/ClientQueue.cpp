#include "ClientQueue.h"

#include "QLSDKCoreKit/events/internal/RetryPolicy.h"

namespace qlsdk::fleet {

Fates& Fates::operator+=(const Fates& other) noexcept {
    made += other.made;
    delivered += other.delivered;
    refused += other.refused;
    dropped += other.dropped;
    waiting += other.waiting;
    retried += other.retried;
    return *this;
}

void ClientQueue::push(std::int64_t nowMillis) {
    waiting_.emplace_back(++fates_.made, nullptr);
    if (waiting_.size() >= maxEventBuffer_) publish(nowMillis);
}

void ClientQueue::publish(std::int64_t nowMillis) {
    std::vector<EventWrapper> batch = takeDue(nowMillis);
    if (batch.empty()) return;
    const Answer answer = service_.answer(nowMillis, batch.size());
    if (uploadOutcomeOf(answer.statusCode == 0, answer.statusCode) == UploadOutcome::failed) {
        keepFailed(batch, answer, nowMillis);
    } else {
        (answer.statusCode == 200 ? fates_.delivered : fates_.refused) += batch.size();
    }
}

std::vector<EventWrapper> ClientQueue::takeDue(std::int64_t nowMillis) {
    std::vector<EventWrapper> due;
    std::vector<EventWrapper> deferred;
    for (EventWrapper& record : waiting_) {
        const bool isDue = dueOf(record, nowMillis) == Due::now;
        // As in the library: a deferral spends the retry as well.
        if (record.isRetry()) record.setNumRetried(record.numRetried() + 1);
        (isDue ? due : deferred).push_back(std::move(record));
    }
    waiting_.swap(deferred);
    return due;
}

void ClientQueue::keepFailed(std::vector<EventWrapper>& batch, const Answer& answer, std::int64_t nowMillis) {
    const std::string* retryAfter = answer.retryAfterMillis ? &*answer.retryAfterMillis : nullptr;
    const std::int64_t retryTime = retryTimeMillis(retryAfter, nowMillis);
    for (EventWrapper& record : batch) {
        if (applyFailure(record, retryTime) == AfterFailure::dropped) {
            ++fates_.dropped;
        } else {
            ++fates_.retried;
            waiting_.push_back(std::move(record));
        }
    }
}

Fates ClientQueue::fates() const {
    Fates fates = fates_;
    fates.waiting = waiting_.size();
    return fates;
}

}  // namespace qlsdk::fleet
