#include "QLSDKCoreKit/platform/Queues.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Activity.h"
#include "QLSDKCoreKit/platform/conformance/QueuesConformance.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/testing/Threads.h"
#include "QLSDKCoreKit/platform/linux/threads/WorkGate.h"
#include "QLSDKCoreKit/platform/testing/ManualQueues.h"

namespace qlsdk::platform {

namespace {

using conformance::QueuesConformance;
using conformance::QueuesUnderTest;
using testing::ManualQueues;
using testing_support::threadsNamed;
using namespace std::chrono_literals;

// A bound on a hang, far above anything a loaded machine needs.
constexpr auto kLong = 60'000ms;

constexpr uid_t kNobody = 65534;

const std::shared_ptr<Activity>& activity() {
    static const auto& leaked = *new std::shared_ptr<Activity>(std::make_shared<Activity>());
    return leaked;
}

std::shared_ptr<Queues> linuxQueues() {
    return makeLinuxQueues(activity());
}

const QueuesUnderTest kLinux{"Linux", linuxQueues,
                             [](Queues&) { ASSERT_TRUE(activity()->waitUntilIdle(kLong)); }};
const QueuesUnderTest kManual{"Manual", [] { return std::make_shared<ManualQueues>(); },
                              [](Queues& queues) { static_cast<ManualQueues&>(queues).runUntilIdle(); }};

INSTANTIATE_TEST_SUITE_P(Adapters, QueuesConformance, ::testing::Values(kLinux, kManual),
                         [](const auto& suite) { return std::string(suite.param.name); });

void runOneTask(SerialQueue& queue) {
    std::promise<void> ran;
    queue.async([&ran] { ran.set_value(); });
    ran.get_future().wait();
}

bool readable(int descriptor) {
    pollfd entry{descriptor, POLLIN, 0};
    return poll(&entry, 1, 0) == 1;
}

int exitStatus(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Runs `body` in a child; true when it returned true there.
bool inChild(const std::function<bool()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);  // A child that hangs dies of it and fails the test.
        _exit(body() ? 0 : 1);
    }
    return exitStatus(child) == 0;
}

}  // namespace

TEST(LinuxQueues, StartsAtMostTwoNamedThreadsWithTheFirstTask) {
    const auto queues = linuxQueues();
    const auto first = queues->makeSerialQueue("first");
    EXPECT_EQ(threadsNamed("qlsdk-"), 0u);

    // Two tasks that wait for each other: after that, both threads have run and bear their names.
    std::promise<void> firstRuns;
    std::promise<void> secondRuns;
    std::promise<void> met;
    first->async([&] {
        firstRuns.set_value();
        secondRuns.get_future().wait();
        met.set_value();
    });
    queues->makeSerialQueue("second")->async([&] {
        firstRuns.get_future().wait();
        secondRuns.set_value();
    });
    met.get_future().wait();
    for (int i = 0; i < 8; ++i) runOneTask(*queues->makeSerialQueue("another"));
    EXPECT_EQ(threadsNamed("qlsdk-pool-1") + threadsNamed("qlsdk-pool-2"), 2u);
    EXPECT_EQ(threadsNamed("qlsdk-"), 2u);
}

TEST(LinuxQueues, BlocksEverySignalOnItsThreadsAndLeavesTheCallersMask) {
    const auto queue = linuxQueues()->makeSerialQueue("signals");
    std::promise<std::string> blocked;
    queue->async([&blocked] { blocked.set_value(testing_support::openSignals()); });
    EXPECT_EQ(blocked.get_future().get(), "");

    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGTERM), 0);
}

TEST(LinuxQueues, RunsTwoQueuesSideBySide) {
    const auto queues = linuxQueues();
    const auto first = queues->makeSerialQueue("first");
    const auto second = queues->makeSerialQueue("second");
    std::promise<void> opened;
    std::promise<void> done;
    first->async([&] {
        opened.get_future().wait();
        done.set_value();
    });
    second->async([&] { opened.set_value(); });
    EXPECT_EQ(done.get_future().wait_for(kLong), std::future_status::ready);
}

TEST(LinuxQueues, CountsTaskUntilWhatItHeldIsGone) {
    struct LooksWhenDestroyed {
        std::promise<std::size_t>* count;
        explicit LooksWhenDestroyed(std::promise<std::size_t>* promise) : count(promise) {}
        ~LooksWhenDestroyed() { count->set_value(activity()->count()); }
    };
    const auto queue = linuxQueues()->makeSerialQueue("counted");
    std::promise<std::size_t> whileDestroyed;
    std::promise<void> mayRun;
    queue->async([&mayRun, held = std::make_shared<LooksWhenDestroyed>(&whileDestroyed)] {
        mayRun.get_future().wait();
    });
    EXPECT_EQ(activity()->count(), 1u);
    EXPECT_FALSE(activity()->waitUntilIdle(0ms));
    mayRun.set_value();
    EXPECT_EQ(whileDestroyed.get_future().get(), 1u);
    EXPECT_TRUE(activity()->waitUntilIdle(kLong));
}

TEST(LinuxQueues, NeverTouchesZeroBetweenTaskAndFollowUp) {
    const auto queue = linuxQueues()->makeSerialQueue("chain");
    int left = 5'000;
    std::function<void()> next = [&] {
        if (--left > 0) queue->async(next);
    };
    queue->async(next);
    EXPECT_TRUE(activity()->waitUntilIdle(kLong));
    EXPECT_EQ(left, 0);
}

TEST(LinuxQueues, KeepsTasksWhileTheSystemHasNoRoomForThreads) {
    // In a child, which gives up root's freedom from the limit on processes.
    EXPECT_TRUE(inChild([] {
        if (geteuid() == 0 && setresuid(kNobody, kNobody, kNobody) != 0) return false;
        rlimit before{};
        getrlimit(RLIMIT_NPROC, &before);
        const rlimit none{0, before.rlim_max};
        const auto queue = linuxQueues()->makeSerialQueue("no room");
        int ran = 0;
        setrlimit(RLIMIT_NPROC, &none);
        queue->async([&ran] { ++ran; });
        const bool kept = threadsNamed("qlsdk-") == 0 && activity()->count() == 1;
        const std::vector<Diagnostic> told = diagnostics();
        const bool isTold = told.size() == 1 && told.front().errorNumber == EAGAIN;
        setrlimit(RLIMIT_NPROC, &before);
        queue->async([&ran] { ++ran; });
        return kept && isTold && activity()->waitUntilIdle(kLong) && ran == 2;
    }));
}

TEST(LinuxQueues, StartsAfreshInChildAndLeavesParentsTasksToTheParent) {
    const auto queues = linuxQueues();
    const auto busy = queues->makeSerialQueue("busy");
    const auto queue = queues->makeSerialQueue("forked");
    std::atomic<bool> stop{false};
    std::atomic<int> mine{0};
    // The parent is in the middle of giving and running tasks at every fork, except under a sanitizer, whose
    // own allocator does not survive a fork that meets it at work.
    std::thread giver([&] {
        while (QLSDK_FORK_UNDER_LOAD && !stop) busy->async([] {});
    });
    if (!QLSDK_FORK_UNDER_LOAD) giver.join();
    for (int i = 0; i < 50; ++i) {
        queue->async([&mine] { ++mine; });
        if (!QLSDK_FORK_UNDER_LOAD) {
            EXPECT_TRUE(activity()->waitUntilIdle(kLong));
        }
        EXPECT_TRUE(inChild([&] {
            const int before = mine;
            bool ran = false;
            queue->async([&ran] { ran = true; });
            busy->async([] {});
            return activity()->waitUntilIdle(kLong) && ran && mine == before;
        }));
    }
    stop = true;
    if (giver.joinable()) giver.join();
    EXPECT_TRUE(activity()->waitUntilIdle(kLong));
    EXPECT_EQ(mine, 50);
}

// What a fork does not wait for, or not for longer: the child has queues and a way into the libraries anew.
TEST(LinuxQueues, ServeAChildOfAForkThatMetATaskWithoutEnd) {
    const auto queues = linuxQueues();
    const auto queue = queues->makeSerialQueue("stuck");
    for (const bool isInLibrary : {false, true}) {
        std::promise<void> isStuck;
        std::promise<void> isFree;
        std::atomic<int> ended{0};
        queue->async([&] {
            std::optional<WorkGate::LibraryUse> use;
            if (isInLibrary) use.emplace();
            isStuck.set_value();
            isFree.get_future().wait();
            ++ended;
        });
        isStuck.get_future().wait();
        const auto before = std::chrono::steady_clock::now();
        EXPECT_TRUE(inChild([&] {
            const bool hasWaited = std::chrono::steady_clock::now() - before >= 2s;
            bool ran = false;
            queue->async([&ran] {
                const WorkGate::LibraryUse use;
                ran = true;
            });
            return activity()->waitUntilIdle(kLong) && ran && ended == 0 && (hasWaited || !isInLibrary);
        })) << isInLibrary;
        isFree.set_value();
        EXPECT_TRUE(activity()->waitUntilIdle(kLong));
        EXPECT_EQ(ended, 1) << "the parent's goes on";
    }
}

TEST(LinuxMainQueue, IsReadableExactlyWhileTasksWait) {
    const auto main = linuxQueues()->mainQueue();
    main->async([] {});
    const int descriptor = main->fileDescriptor();
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(main->fileDescriptor(), descriptor);
    EXPECT_TRUE(readable(descriptor));  // Also for a task that waited before the descriptor existed.
    main->drain();
    EXPECT_FALSE(readable(descriptor));

    main->async([&] { main->async([] {}); });
    main->async([] {});
    EXPECT_TRUE(readable(descriptor));
    EXPECT_EQ(main->drain(), 2u);
    EXPECT_TRUE(readable(descriptor));
    EXPECT_EQ(main->drain(), 1u);
    EXPECT_FALSE(readable(descriptor));
    EXPECT_EQ(activity()->count(), 0u);  // The host's work, which nobody waits for.
}

TEST(LinuxMainQueue, RunsUntilStoppedAfterTheTaskInHand) {
    const auto main = linuxQueues()->mainQueue();
    std::vector<int> seen;
    main->stop();
    main->async([&] {
        seen.push_back(1);
        main->stop();
    });
    main->async([&seen] { seen.push_back(2); });
    main->run();
    EXPECT_TRUE(seen.empty());
    main->run();
    EXPECT_EQ(seen, (std::vector<int>{1}));
    main->async([&main] { main->stop(); });
    main->run();
    EXPECT_EQ(seen, (std::vector<int>{1, 2}));
}

TEST(LinuxMainQueue, WakesBlockedRunFromAnotherThread) {
    const auto main = linuxQueues()->mainQueue();
    std::promise<bool> current;
    std::thread pump([&main] { main->run(); });
    main->async([&] { current.set_value(main->isCurrent()); });
    EXPECT_TRUE(current.get_future().get());
    main->stop();
    pump.join();
}

TEST(LinuxMainQueue, OwnThreadPumpsAndOutlivesStop) {
    const auto main = linuxQueues()->mainQueue();
    main->startThread();
    main->startThread();
    runOneTask(*main);
    main->stop();
    runOneTask(*main);
    EXPECT_EQ(threadsNamed("qlsdk-main"), 1u);
}

TEST(LinuxMainQueue, StartsEmptyInChildUnderTheSameDescriptor) {
    const auto main = linuxQueues()->mainQueue();
    const int descriptor = main->fileDescriptor();
    main->startThread();
    runOneTask(*main);
    std::promise<void> release;
    main->async([&release] { release.get_future().wait(); });
    main->async([] {});
    EXPECT_TRUE(inChild([&] {
        if (readable(descriptor) || main->drain() != 0) return false;
        main->async([] {});
        return readable(descriptor) && main->fileDescriptor() == descriptor && main->drain() == 1;
    }));
    release.set_value();
    runOneTask(*main);
}

TEST(LinuxMainQueue, HostMayForkInsideTaskAndGoOnPumping) {
    const auto main = linuxQueues()->mainQueue();
    int parentsOwn = 0;
    pid_t child = -1;
    main->async([&child] { child = fork(); });
    main->async([&parentsOwn] { ++parentsOwn; });
    main->drain();
    if (child == 0) {
        bool ran = false;
        main->async([&ran] { ran = true; });
        _exit(main->drain() == 1 && ran && parentsOwn == 0 ? 0 : 1);
    }
    EXPECT_EQ(exitStatus(child), 0);
    EXPECT_EQ(parentsOwn, 1);
}

}  // namespace qlsdk::platform
