#include "tools/host/HeartbeatOutcome.h"

#include <algorithm>

#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/events/internal/QueueArchive.h"
#include "QLSDKCoreKit/events/internal/RetryPolicy.h"

namespace quillkit {

namespace {

std::string answerOf(const ObservedTask& task) {
    if (task.error.has_value()) return "no answer: " + task.error->message;
    std::string text = "answered " + std::to_string(task.response->statusCode);
    const std::string* retryAfter = task.response->headers.find(qlsdk::kQLSDKRetryAfterHeader);
    if (retryAfter != nullptr) text += ", retry not before " + *retryAfter + " ms";
    return text;
}

}  // namespace

bool isDone(const ObservedTask& task) {
    const std::int64_t status = task.response.has_value() ? task.response->statusCode : 0;
    return qlsdk::uploadOutcomeOf(task.error.has_value(), status) == qlsdk::UploadOutcome::done;
}

WaitingRecords readWaitingRecords(const std::string& path) {
    WaitingRecords records;
    const auto archive = qlsdk::readQueueArchive(path);
    if (!archive.has_value()) return records;
    records.maxSequenceId = archive->maxSequenceId;
    for (const auto& element : archive->unsentEvents) {
        const auto record = qlsdk::eventWrapperOf(element);
        if (record != nullptr) records.sequenceIds.insert(record->sequenceId());
    }
    return records;
}

HeartbeatOutcome heartbeatOutcome(const ObservedTask* task, const WaitingRecords& before,
                                  const WaitingRecords& after) {
    if (task == nullptr || !task->ended) return {};
    HeartbeatOutcome result{
        .outcome = DeliveryOutcome::delivered, .answer = answerOf(*task), .droppedCount = 0};
    if (isDone(*task)) return result;
    const std::uint64_t ours = before.maxSequenceId + 1;
    result.outcome = after.sequenceIds.contains(ours) ? DeliveryOutcome::kept : DeliveryOutcome::lost;
    result.droppedCount = static_cast<std::size_t>(
        std::count_if(before.sequenceIds.begin(), before.sequenceIds.end(),
                      [&](std::uint64_t id) { return !after.sequenceIds.contains(id); }));
    return result;
}

}  // namespace quillkit
