// What an upload queue's file holds after its process was killed, and when two processes share it. Each child
// is a process with the real queues and files.

#include <filesystem>
#include <functional>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/events/internal/QueueArchive.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/testing/FakeUrlSession.h"
#include "QLSDKCoreKit/platform/testing/TemporaryDirectories.h"

namespace qlsdk {
namespace {

constexpr const char* kArchiveName = "durable.plist";
constexpr std::uint64_t kNever = 1'000'000;
// A bound on a hang, far above anything a loaded machine needs.
constexpr std::chrono::minutes kLong{2};

class EmptyBody final : public AnalyticsEventsQueueDelegate {
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList&, std::int64_t) override {
        return Data();
    }
};

/// One process with the kit, below a directory that the next one gets, too. Its server never answers.
struct Process {
    explicit Process(const std::string& home, std::uint64_t maxEventBuffer = kNever) {
        platform::LinuxPlatformOptions options;
        options.home = home;
        options.infoDictionary = Dictionary{{"CFBundleIdentifier", "com.example.durable"}};
        platform::Platform wanted = platform::makeLinuxPlatform(options);
        wanted.urlSession = server;
        if (platform::install(std::move(wanted)) != platform::InstallResult::installed) ::_exit(99);
        queue = AnalyticsEventsQueue::create("/v1/durable", nullptr, kArchiveName, maxEventBuffer, delegate);
    }
    void push(int count = 1) const {
        for (int i = 0; i < count; ++i) {
            queue->pushEvent(std::make_shared<EncodablePicoproto>(picoproto_new("Event")));
        }
    }
    static void settle() {
        if (!platform::waitUntilIdle(kLong)) ::_exit(98);
    }

    std::shared_ptr<platform::testing::FakeUrlSession> server =
        std::make_shared<platform::testing::FakeUrlSession>();
    std::shared_ptr<EmptyBody> delegate = std::make_shared<EmptyBody>();
    std::shared_ptr<AnalyticsEventsQueue> queue;
};

[[noreturn]] void dieAtOnce() {
    ::kill(::getpid(), SIGKILL);
    for (;;) ::pause();
}

class Durability : public ::testing::Test {
  protected:
    static pid_t start(const std::function<void()>& life) {
        const pid_t child = ::fork();
        if (child != 0) return child;
        life();
        ::_exit(0);
    }
    /// The signal that ended the child, or its exit status below zero.
    static int endOf(pid_t child) {
        int status = 0;
        ::waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? WTERMSIG(status) : -WEXITSTATUS(status);
    }

    [[nodiscard]] std::string path() const {
        return home.path() + "/cache/com.example.durable/" + kArchiveName;
    }
    /// Newest first; empty for an unreadable file.
    [[nodiscard]] std::vector<std::uint64_t> idsOnDisk() const {
        std::vector<std::uint64_t> ids;
        if (const auto archive = readQueueArchive(path())) {
            for (const auto& element : archive->unsentEvents) {
                ids.push_back(eventWrapperOf(element)->sequenceId());
            }
        }
        return ids;
    }

    platform::testing::TemporaryDirectories home;
};

using Ids = std::vector<std::uint64_t>;

TEST_F(Durability, RecordsThatWaitOutliveAKilledProcess) {
    const pid_t child = start([this] {
        const Process process(home.path());
        process.push(3);
        Process::settle();
        dieAtOnce();
    });
    ASSERT_EQ(endOf(child), SIGKILL);
    EXPECT_EQ(idsOnDisk(), (Ids{3, 2, 1}));

    const Process next(home.path());
    next.push();
    Process::settle();
    EXPECT_EQ(idsOnDisk(), (Ids{4, 3, 2, 1}));
}

TEST_F(Durability, ABatchInFlightDiesWithItsProcess) {
    const pid_t child = start([this] {
        const Process process(home.path(), 3);
        process.push(3);
        while (process.server->waiting() == 0) Process::settle();
        process.push();
        Process::settle();
        dieAtOnce();
    });
    ASSERT_EQ(endOf(child), SIGKILL);
    EXPECT_EQ(idsOnDisk(), (Ids{4}));
}

TEST_F(Durability, AKillInTheMiddleOfAWriteLeavesAWholeFile) {
    constexpr int kRounds = 20;
    std::size_t least = 0;
    for (int round = 0; round < kRounds; ++round) {
        int progress[2];
        ASSERT_EQ(::pipe2(progress, O_CLOEXEC), 0);
        const pid_t child = start([this, &progress] {
            const Process process(home.path());
            for (;;) {
                process.push();
                Process::settle();
                process.push(2);
                if (::write(progress[1], "x", 1) != 1) ::_exit(97);
            }
        });
        // Killed while it works on the pushes behind the last mark.
        char mark = 0;
        for (int seen = 0; seen <= round % 5; ++seen) ASSERT_EQ(::read(progress[0], &mark, 1), 1);
        ::kill(child, SIGKILL);
        ASSERT_EQ(endOf(child), SIGKILL);
        ::close(progress[0]);
        ::close(progress[1]);

        const Ids ids = idsOnDisk();
        EXPECT_GT(ids.size(), least) << "a settled record of this round is there, round " << round;
        least = ids.size();
        for (std::size_t i = 0; i < ids.size(); ++i) ASSERT_EQ(ids[i], ids.size() - i) << "round " << round;
    }
}

TEST_F(Durability, TwoProcessesOnOneFileLeaveTheWholeListOfOne) {
    constexpr std::uint64_t kPushes = 200;
    const auto life = [this] {
        const Process process(home.path());
        process.push(kPushes);
        Process::settle();
    };
    const pid_t first = start(life);
    const pid_t second = start(life);
    EXPECT_EQ(endOf(first), 0);
    EXPECT_EQ(endOf(second), 0);
    const Ids ids = idsOnDisk();
    ASSERT_GE(ids.size(), kPushes) << "the last one to write has written all of its own";
    EXPECT_LE(ids.size(), 2 * kPushes);
    for (std::size_t i = 0; i < ids.size(); ++i) ASSERT_EQ(ids[i], ids.size() - i) << "and nothing is mixed";
}

TEST_F(Durability, TheFileIsReadOnceMoreBeforeItGoes) {
    const Process process(home.path());
    process.push();
    Process::settle();
    const int watch = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    ASSERT_GE(watch, 0);
    ASSERT_GE(::inotify_add_watch(watch, path().c_str(), IN_ACCESS), 0);
    process.queue->flushQueue();
    Process::settle();
    char events[4096];
    EXPECT_GT(::read(watch, events, sizeof events), 0) << "on purpose, although the list is in memory";
    ::close(watch);
}

}  // namespace
}  // namespace qlsdk
