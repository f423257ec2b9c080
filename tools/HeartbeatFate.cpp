#include "HeartbeatFate.h"

#include <algorithm>

#include "ArchiveClasses.h"

#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/platform/Files.h"

namespace quillkit {

namespace {

constexpr std::size_t kFileCeiling = std::size_t{64} << 20;

void addSequenceIds(WaitingRecords& records, const qlsdk::platform::ArchivedObject& list) {
    for (const auto& element : list.list().value_or(qlsdk::platform::ArchivedObject::List{})) {
        const auto record = qlsdk::eventWrapperOf(element);
        if (record != nullptr) records.sequenceIds.insert(record->sequenceId());
    }
}

std::string answerOf(const ObservedTask& task) {
    if (task.error.has_value()) return "no answer: " + task.error->message;
    std::string text = "answered " + std::to_string(task.response->statusCode);
    const std::string* retryAfter = task.response->headers.find(qlsdk::kQLSDKRetryAfterHeader);
    if (retryAfter != nullptr) text += ", retry not before " + *retryAfter + " ms";
    return text;
}

}  // namespace

bool isFinal(const ObservedTask& task) {
    return !task.error.has_value() && (task.response->statusCode == 200 || task.response->statusCode == 403);
}

WaitingRecords readWaitingRecords(const std::string& path) {
    WaitingRecords records;
    const auto bytes = qlsdk::platform::readFile(path, kFileCeiling);
    const auto root = bytes.has_value() ? readArchive(*bytes) : std::nullopt;
    const auto entries = root.has_value() ? root->entries() : std::nullopt;
    if (!entries.has_value()) return records;
    for (const auto& [key, object] : *entries) {
        if (key == qlsdk::kQLSDKMaxSequenceIdKey) {
            records.maxSequenceId = static_cast<std::uint64_t>(object.value().longValue());
        } else if (key == qlsdk::kQLSDKUnsentEventsKey) {
            addSequenceIds(records, object);
        }
    }
    return records;
}

HeartbeatFate heartbeatFate(const ObservedTask* task, const WaitingRecords& before,
                            const WaitingRecords& after) {
    if (task == nullptr || !task->ended) return {};
    HeartbeatFate result{.fate = Fate::delivered, .answer = answerOf(*task), .droppedCount = 0};
    if (isFinal(*task)) return result;
    const std::uint64_t ours = before.maxSequenceId + 1;
    result.fate = after.sequenceIds.contains(ours) ? Fate::kept : Fate::lost;
    result.droppedCount = static_cast<std::size_t>(
        std::count_if(before.sequenceIds.begin(), before.sequenceIds.end(),
                      [&](std::uint64_t id) { return !after.sequenceIds.contains(id); }));
    return result;
}

}  // namespace quillkit
