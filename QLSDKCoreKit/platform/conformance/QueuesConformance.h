#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/Queues.h"

namespace qlsdk::platform::conformance {

/// One adapter under test. `settle` returns when every serial queue has run what it had.
struct QueuesUnderTest {
    const char* name;
    std::function<std::shared_ptr<Queues>()> make;
    std::function<void(Queues&)> settle;
};

/// Names the case in the lists of the test runner.
inline void PrintTo(const QueuesUnderTest& suite, std::ostream* out) {
    *out << suite.name;
}

/// What every adapter of the queues port promises. Instantiate with one `QueuesUnderTest` per adapter.
class QueuesConformance : public ::testing::TestWithParam<QueuesUnderTest> {
  protected:
    void settle() { GetParam().settle(*queues_); }
    const std::shared_ptr<Queues> queues_ = GetParam().make();
};

TEST_P(QueuesConformance, RunsTasksOfOneQueueInOrderAndNeverTwoAtOnce) {
    constexpr int kTasks = 2'000;
    const auto queue = queues_->makeSerialQueue("order");
    // On purpose without a lock: a queue that ran two at once would lose counts, and tsan would say so.
    std::vector<int> seen;
    for (int i = 0; i < kTasks; ++i) queue->async([&seen, i] { seen.push_back(i); });
    settle();
    ASSERT_EQ(seen.size(), static_cast<std::size_t>(kTasks));
    for (int i = 0; i < kTasks; ++i) EXPECT_EQ(seen[static_cast<std::size_t>(i)], i);
}

TEST_P(QueuesConformance, KeepsEachGiversOrderWhenThreadsGiveAtOnce) {
    const auto queue = queues_->makeSerialQueue("many givers");
    std::vector<std::pair<int, int>> seen;
    std::vector<std::thread> givers;
    for (int giver = 0; giver < 4; ++giver) {
        givers.emplace_back([&, giver] {
            for (int i = 0; i < 500; ++i) queue->async([&seen, giver, i] { seen.emplace_back(giver, i); });
        });
    }
    for (std::thread& giver : givers) giver.join();
    settle();
    ASSERT_EQ(seen.size(), 2'000u);
    std::vector<int> next(4, 0);
    for (const auto& [giver, i] : seen) EXPECT_EQ(i, next[static_cast<std::size_t>(giver)]++);
}

TEST_P(QueuesConformance, NeverRunsTaskInsideTheCallThatGivesIt) {
    const auto queue = queues_->makeSerialQueue("later");
    bool insideOuter = false;
    bool ranInside = true;
    queue->async([&] {
        insideOuter = true;
        queue->async([&] { ranInside = insideOuter; });
        insideOuter = false;
    });
    settle();
    EXPECT_FALSE(ranInside);
}

TEST_P(QueuesConformance, KnowsWhichQueueIsCurrent) {
    const auto queue = queues_->makeSerialQueue("one");
    const auto other = queues_->makeSerialQueue("two");
    const auto main = queues_->mainQueue();
    std::vector<bool> answers;
    queue->async([&] { answers = {queue->isCurrent(), other->isCurrent(), main->isCurrent()}; });
    settle();
    EXPECT_EQ(answers, (std::vector<bool>{true, false, false}));
    EXPECT_FALSE(queue->isCurrent());
}

TEST_P(QueuesConformance, KnowsWhetherATaskFollowsTheOneThatAsks) {
    const auto queue = queues_->makeSerialQueue("followed");
    std::vector<bool> answers;
    queue->async([&] {
        answers.push_back(queue->hasNext());
        queue->async([&] { answers.push_back(queue->hasNext()); });
        answers.push_back(queue->hasNext());
    });
    settle();
    EXPECT_EQ(answers, (std::vector<bool>{false, true, false}));
}

TEST_P(QueuesConformance, GoesOnAfterTaskThatThrowsAndIgnoresNullTask) {
    const auto queue = queues_->makeSerialQueue("throws");
    bool ran = false;
    queue->async([] { throw std::runtime_error("swallowed"); });
    queue->async([] { throw 7; });
    queue->async(nullptr);
    queue->async([&ran] { ran = true; });
    settle();
    EXPECT_TRUE(ran);
}

TEST_P(QueuesConformance, RunsWhatItHasAfterLosingItsLastOwner) {
    int ran = 0;
    auto queue = queues_->makeSerialQueue("orphan");
    for (int i = 0; i < 100; ++i) queue->async([&ran] { ++ran; });
    queue.reset();
    settle();
    EXPECT_EQ(ran, 100);
}

TEST_P(QueuesConformance, HasOneMainQueueThatRunsOnlyWhenPumped) {
    const auto main = queues_->mainQueue();
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(main, queues_->mainQueue());
    std::vector<int> seen;
    std::size_t ranInside = 1;
    bool currentInside = false;
    main->async([&] {
        seen.push_back(1);
        currentInside = main->isCurrent();
        main->async([&seen] { seen.push_back(3); });
        ranInside = main->drain();
    });
    main->async([] { throw std::runtime_error("swallowed"); });
    main->async([&seen] { seen.push_back(2); });
    EXPECT_TRUE(seen.empty());

    EXPECT_EQ(main->drain(), 3u);
    EXPECT_EQ(ranInside, 0u);
    EXPECT_TRUE(currentInside);
    EXPECT_FALSE(main->isCurrent());
    EXPECT_EQ(seen, (std::vector<int>{1, 2}));
    EXPECT_EQ(main->drain(), 1u);
    EXPECT_EQ(main->drain(), 0u);
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));
}

}  // namespace qlsdk::platform::conformance
