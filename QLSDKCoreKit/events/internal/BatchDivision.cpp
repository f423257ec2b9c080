#include "QLSDKCoreKit/events/internal/BatchDivision.h"

#include <algorithm>

#include "QLSDKCoreKit/events/internal/BatchContexts.h"

namespace qlsdk {

namespace {

struct Aged {
    std::uint64_t sequenceId;
    std::size_t index;
};

void returnAsBefore(const platform::ArchivedObject& element) {
    const auto record = eventWrapperOf(element);
    if (record != nullptr && record->isRetry()) record->setNumRetried(record->numRetried() - 1);
}

}  // namespace

std::vector<Share> shareOut(const EventList& batch, const FitQuestion& recordsThatFit) {
    if (recordsThatFit(batch) >= batch.size()) return {};
    std::vector<Share> shares(batch.size(), Share::taken);
    std::vector<Aged> newestFirst;
    EventList alone(1);
    for (std::size_t i = 0; i < batch.size(); ++i) {
        // The filter has removed another element for each of these, so they go now.
        if (contextOf(batch[i]) == nullptr) continue;
        alone.front() = batch[i];
        shares[i] = recordsThatFit(alone) == 0 ? Share::tooLarge : Share::left;
        if (shares[i] == Share::left) newestFirst.push_back({eventWrapperOf(batch[i])->sequenceId(), i});
    }
    // A failed batch lies in the list in reverse, ahead of what was pushed meanwhile.
    std::stable_sort(newestFirst.begin(), newestFirst.end(),
                     [](const Aged& a, const Aged& b) { return a.sequenceId > b.sequenceId; });
    EventList events;
    events.reserve(newestFirst.size());
    for (const Aged& record : newestFirst) events.push_back(batch[record.index]);
    // At least one, so that every run gets on.
    const std::size_t fitting = std::min(std::max<std::size_t>(recordsThatFit(events), 1), events.size());
    std::for_each(newestFirst.end() - static_cast<std::ptrdiff_t>(fitting), newestFirst.end(),
                  [&shares](const Aged& record) { shares[record.index] = Share::taken; });
    return shares;
}

EventList stayingOf(const EventList& list, const EventList& batch, const std::vector<Share>& shares,
                    const EventList& deferred) {
    EventList staying;
    staying.reserve(list.size());
    auto nextDeferred = deferred.begin();
    std::size_t filtered = list.size() - deferred.size() - batch.size();
    std::size_t position = batch.size();
    for (auto element = list.rbegin(); element != list.rend(); ++element) {
        if (nextDeferred != deferred.end() && element->record() == nextDeferred->record()) {
            staying.push_back(*nextDeferred++);
        } else if (filtered > 0) {
            --filtered;
        } else if (shares[--position] == Share::left) {
            staying.push_back(*element);
        }
    }
    for (std::size_t i = 0; i < batch.size(); ++i) {
        if (shares[i] == Share::left) returnAsBefore(batch[i]);
    }
    return staying;
}

void keepTaken(EventList& batch, const std::vector<Share>& shares) {
    std::size_t i = 0;
    std::erase_if(batch, [&](const platform::ArchivedObject&) { return shares[i++] != Share::taken; });
}

}  // namespace qlsdk
