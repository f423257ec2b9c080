#include "tools/host/HeartbeatOutcome.h"

#include <gtest/gtest.h>

namespace quillkit {
namespace {

ObservedTask answered(std::int64_t status) {
    return {.url = "", .ended = true, .error = {}, .response = qlsdk::platform::UrlResponse{status, {}}};
}

ObservedTask failed() {
    return {.url = "", .ended = true, .error = qlsdk::platform::UrlError{7, "refused"}, .response = {}};
}

TEST(HeartbeatOutcome, FollowsFromTheAnswerAndTheFile) {
    // Two records waited before; the new one is number 10.
    const WaitingRecords before{{7, 8}, 9};
    const WaitingRecords empty{{}, 10};
    const WaitingRecords keptAll{{7, 8, 10}, 10};
    const WaitingRecords keptOurs{{10}, 10};
    const WaitingRecords keptOthers{{8}, 10};
    const ObservedTask unfinished;
    struct Case {
        ObservedTask task;
        WaitingRecords after;
        DeliveryOutcome outcome;
        std::size_t droppedCount;
        std::string answer;
    };
    const std::vector<Case> cases{
        {answered(200), empty, DeliveryOutcome::delivered, 0, "answered 200"},
        {answered(403), empty, DeliveryOutcome::delivered, 0, "answered 403"},
        {answered(201), keptOurs, DeliveryOutcome::kept, 2, "answered 201"},
        {answered(500), keptAll, DeliveryOutcome::kept, 0, "answered 500"},
        {failed(), keptOurs, DeliveryOutcome::kept, 2, "no answer: refused"},
        {failed(), keptOthers, DeliveryOutcome::lost, 1, "no answer: refused"},
        {unfinished, keptAll, DeliveryOutcome::underWay, 0, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.answer);
        const HeartbeatOutcome outcome = heartbeatOutcome(&c.task, before, c.after);
        EXPECT_EQ(outcome.outcome, c.outcome);
        EXPECT_EQ(outcome.droppedCount, c.droppedCount);
        EXPECT_EQ(outcome.answer, c.answer);
    }
    EXPECT_EQ(heartbeatOutcome(nullptr, before, keptAll).outcome, DeliveryOutcome::underWay);
}

}  // namespace
}  // namespace quillkit
