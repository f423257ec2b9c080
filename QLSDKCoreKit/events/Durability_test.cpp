// What an upload queue's file holds after its process was killed, and when two processes share it. Each child
// is a process with the real queues and files.

#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <functional>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/control/DeliveryCounters.h"
#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/events/internal/StoredList.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/linux/testing/PlainUser.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"
#include "QLSDKCoreKit/platform/testing/FakeUrlSession.h"
#include "QLSDKCoreKit/values/internal/KeyedListArchive.h"

namespace {

std::string failingPath;
int failingError = 0;

void failOpening(const std::string& path, int error) {
    failingPath = path;
    failingError = error;
}

}  // namespace

// The library's own calls come here, too. A real want of descriptors would also keep a sanitizer from looking
// at memory, which it does through a pipe.
extern "C" int open(const char* path, int flags, ...) {
    if (failingError != 0 && failingPath == path) {
        errno = failingError;
        return -1;
    }
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0);
    va_end(arguments);
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

namespace qlsdk {
namespace {

using platform::ArchivedObject;
using platform::Delivery;

constexpr const char* kArchiveName = "durable.plist";
constexpr std::uint64_t kNever = 1'000'000;
// A bound on a hang, far above anything a loaded machine needs.
constexpr std::chrono::minutes kLong{2};

/// Writes each record's sequence id as a digit.
class Digits final : public AnalyticsEventsQueueDelegate {
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) override {
        Data body;
        for (const auto& element : events) {
            body.push_back(static_cast<std::uint8_t>('0' + eventWrapperOf(element)->sequenceId()));
        }
        return body;
    }
};

/// One process with the kit, below a directory that the next one gets, too. Its server never answers.
struct Process {
    explicit Process(
        const std::string& home, std::uint64_t maxEventBuffer = kNever,
        const std::function<void()>& beforeLoad = [] {}) {
        platform::LinuxPlatformOptions options;
        options.home = home;
        options.infoDictionary = Dictionary{{"CFBundleIdentifier", "com.example.durable"}};
        platform::Platform wanted = platform::makeLinuxPlatform(options);
        wanted.urlSession = server;
        if (platform::install(std::move(wanted)) != platform::InstallResult::installed) ::_exit(99);
        beforeLoad();
        queue = AnalyticsEventsQueue::create("/v1/durable", nullptr, kArchiveName, maxEventBuffer, delegate);
    }
    void push(int count = 1) const {
        for (int i = 0; i < count; ++i) {
            queue->pushEvent(std::make_shared<EncodablePicoproto>(picoproto_new("Event")));
        }
    }
    /// Publishes, and tells what every upload so far held, a blank between them.
    std::string flushed() const {
        queue->flushQueue();
        settle();
        std::string sent;
        for (const auto& request : server->requests()) {
            sent += (sent.empty() ? "" : " ") + textOf(request.body.value_or(Data()));
        }
        return sent;
    }
    static std::uint64_t count(platform::Delivery what) {
        return platform::deliveryCounts(kArchiveName).value()[what];
    }
    static void settle() {
        if (!platform::waitUntilIdle(kLong)) ::_exit(98);
    }

    std::shared_ptr<platform::testing::FakeUrlSession> server =
        std::make_shared<platform::testing::FakeUrlSession>();
    std::shared_ptr<Digits> delegate = std::make_shared<Digits>();
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
    /// The same as a user whom the system refuses things.
    [[nodiscard]] static int statusOfPlainUser(const std::function<int()>& life) {
        return endOf(start([&life] { ::_exit(platform::testing_support::becomePlainUser() ? life() : 97); }));
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
    [[nodiscard]] std::string directory() const { return path().substr(0, path().rfind('/')); }
    /// Newest first; empty for an unreadable file.
    [[nodiscard]] std::vector<std::uint64_t> idsOnDisk(const std::string& suffix = {}) const {
        std::vector<std::uint64_t> ids;
        if (const auto archive = readQueueArchive(path() + suffix)) {
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

TEST_F(Durability, AgainstABlackHoleWhatIsBeyondTheUploadsUnderWayIsOnDisk) {
    const pid_t child = start([this] {
        const Process process(home.path(), 1);
        process.server->setMostUploadsOfAQueue(2);
        for (int i = 0; i < 5; ++i) {
            process.push();
            Process::settle();
        }
        dieAtOnce();
    });
    ASSERT_EQ(endOf(child), SIGKILL);
    EXPECT_EQ(idsOnDisk(), (Ids{5, 4, 3}));
}

TEST_F(Durability, AChildIsNotHeldBackByItsParentsUploadsNorGetsTheirRecords) {
    enum Finding { asExpected, heldBack, tookParentsRecord, tookParentsPlace, ownEndUnheard };
    const auto inChild = [this](const Process& process) {
        process.push();
        Process::settle();
        if (process.server->requests().size() != 2) return heldBack;
        process.server->fail("the parent's");
        Process::settle();
        if (!idsOnDisk().empty()) return tookParentsRecord;
        process.push();
        Process::settle();
        if (process.server->requests().size() != 2) return tookParentsPlace;
        process.server->answer(200);
        Process::settle();
        return process.server->requests().size() == 3 ? asExpected : ownEndUnheard;
    };
    const pid_t parent = start([&] {
        const Process process(home.path(), 1);
        process.server->setMostUploadsOfAQueue(1);
        process.push();
        while (process.server->waiting() == 0) Process::settle();
        process.push();
        Process::settle();
        ::_exit(-endOf(start([&] { ::_exit(inChild(process)); })));
    });
    EXPECT_EQ(endOf(parent), asExpected);
}

// Bursts, in every third process with publish runs between them, and a kill at any moment.
TEST_F(Durability, AKillLeavesTheListOfSomeMomentBetweenTwoOperations) {
    constexpr int kRounds = 30;
    std::size_t least = 0;
    for (int round = 0; round < kRounds; ++round) {
        const bool publishes = round % 3 == 2;
        if (publishes) least = 0;
        int progress[2];
        ASSERT_EQ(::pipe2(progress, O_CLOEXEC), 0);
        const pid_t child = start([this, round, publishes, &progress] {
            const Process process(home.path(), publishes ? 50 : kNever);
            for (;;) {
                process.push();
                if (!publishes) Process::settle();
                process.push(1 + 40 * (round % 7));
                if (::write(progress[1], "x", 1) != 1) ::_exit(97);
            }
        });
        ::close(progress[1]);  // so that the end of a child that failed is seen
        // Killed while it works on the pushes behind the last mark.
        char mark = 0;
        for (int seen = 0; seen <= round % 5; ++seen) ASSERT_EQ(::read(progress[0], &mark, 1), 1);
        ::kill(child, SIGKILL);
        ASSERT_EQ(endOf(child), SIGKILL);
        ::close(progress[0]);

        // Every operation leaves the newest records, up to the last one that was numbered.
        const auto archive = readQueueArchive(path());
        const Ids ids = idsOnDisk();
        ASSERT_TRUE(archive) << "round " << round;
        for (std::size_t i = 0; i < ids.size(); ++i) {
            ASSERT_EQ(ids[i], archive->maxSequenceId - i) << "round " << round;
        }
        if (publishes) continue;
        EXPECT_GT(ids.size(), least) << "a settled record of this round is there, round " << round;
        least = ids.size();
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

// What a process leaves: the records 1 and 2.
void leaveTwo(const std::string& home) {
    const Process process(home);
    process.push(2);
    Process::settle();
}

// Five processes after each other, in a directory that refuses every change. The file of the second round
// cannot even be emptied, as it has a copy.
TEST_F(Durability, AFileThatCannotBeRemovedIsNotSentByEveryProcess) {
    for (const bool hasCopy : {false, true}) {
        SCOPED_TRACE(hasCopy ? "held back" : "emptied");
        ASSERT_EQ(statusOfPlainUser([this] { return leaveTwo(home.path()), 0; }), 0);
        ASSERT_TRUE(!hasCopy || ::link(path().c_str(), (path() + " copy").c_str()) == 0);
        ASSERT_EQ(::chmod(directory().c_str(), 0500), 0);
        for (int round = 0; round < 5; ++round) {
            const int status = statusOfPlainUser([this, hasCopy, round] {
                const Process process(home.path());
                process.push();
                const std::string sent = process.flushed();
                if (Process::count(Delivery::heldBack) != (hasCopy ? 2 : 0)) return 1;
                if (!hasCopy) return sent == (round == 0 ? "321" : "1") ? 0 : 2;
                if (sent != "3") return 3;
                process.push();
                if (process.flushed() != "3 4" || Process::count(Delivery::heldBack) != 2) return 4;
                if (round < 4) return 0;
                // As soon as the file can be changed they go, and only this once.
                ::chmod(directory().c_str(), 0700);
                return process.flushed() == "3 4 21" && idsOnDisk().empty() ? 0 : 5;
            });
            EXPECT_EQ(status, 0) << "round " << round;
        }
        ASSERT_EQ(::chmod(directory().c_str(), 0700), 0);
        std::filesystem::remove_all(directory());
    }
}

// What cannot be read for a while, or for good, when a process begins.
TEST_F(Durability, AFileThatCannotBeReadIsNotOverwritten) {
    struct Fault {
        const char* name;
        std::function<void()> begin;
        std::function<void()> end;
        bool staysUntilEnd;
    };
    const Fault faults[] = {
        {"no descriptor", [this] { failOpening(path(), EMFILE); }, [] { failOpening({}, 0); }, true},
        {"a disk error", [this] { failOpening(path(), EIO); }, [] { failOpening({}, 0); }, false},
        {"no way to the file", [this] { ::chmod(directory().c_str(), 0); },
         [this] { ::chmod(directory().c_str(), 0700); }, true},
        {"no permission", [this] { ::chmod(path().c_str(), 0); }, [this] { ::chmod(path().c_str(), 0600); },
         false},
    };
    for (const Fault& fault : faults) {
        for (const int pushesBeforeItEnds : {0, 2}) {
            SCOPED_TRACE(fault.name + std::to_string(pushesBeforeItEnds));
            ASSERT_EQ(statusOfPlainUser([this] { return leaveTwo(home.path()), 0; }), 0);
            const int status = statusOfPlainUser([&] {
                const Process process(home.path(), kNever, fault.begin);
                process.push(pushesBeforeItEnds);
                Process::settle();
                if (Process::count(Delivery::lostToFailedWrite) !=
                    (fault.staysUntilEnd ? static_cast<std::uint64_t>(pushesBeforeItEnds) : 0)) {
                    return 1;
                }
                fault.end();
                process.push();
                Process::settle();
                return 0;
            });
            EXPECT_EQ(status, 0);
            if (fault.staysUntilEnd || pushesBeforeItEnds == 0) {
                EXPECT_EQ(idsOnDisk(), pushesBeforeItEnds == 0 ? (Ids{3, 2, 1}) : (Ids{5, 4, 3, 2, 1}));
            } else {
                EXPECT_EQ(idsOnDisk(), (Ids{3, 2, 1})) << "of this process alone";
                ::chmod((path() + ".unreadable").c_str(), 0600);
                EXPECT_EQ(idsOnDisk(".unreadable"), (Ids{2, 1}));
            }
            std::filesystem::remove_all(directory());
        }
    }
}

// Messages of the greatest size around the ceiling of a file, and many records that share a long name: the
// file always holds what was last said to be written.
TEST(QueueArchive, WritesNothingThatItCannotRead) {
    const platform::testing::TemporaryDirectories directory;
    const std::string path = directory.path() + "/f";
    const auto eventOf = [](std::size_t bytes, const std::string& name) {
        const Data data(bytes, 'x');
        return ArchivedObject(std::shared_ptr<platform::Archivable>(
            std::make_shared<EventWrapper>(1, std::make_shared<EncodablePicoproto>(picoproto_new_from_bytes(
                                                  name.c_str(), data.data(), data.size())))));
    };
    QueueFile file(path);
    platform::KeyedListArchive list(kQLSDKUnsentEventsKey, kQLSDKMaxSequenceIdKey);
    const auto push = [&](std::size_t count, std::size_t bytes, const std::string& name) {
        for (std::size_t i = 0; i < count; ++i) list.pushFront(eventOf(bytes, name));
    };
    constexpr std::size_t kLargest = 131'072;
    constexpr std::size_t kFitting = kQueueArchiveCeilingBytes / kLargest - 1;
    push(kFitting - 1, kLargest, "Event");
    std::size_t written = 0;
    for (std::size_t length = kFitting; length < kFitting + 4; ++length) {
        push(1, kLargest, "Event");
        if (file.write(list.file(length))) written = length;
        const auto archive = readQueueArchive(path);
        ASSERT_TRUE(archive) << length;
        EXPECT_EQ(archive->unsentEvents.size(), written);
    }
    EXPECT_EQ(written, kFitting) << "one more is above the ceiling";

    list.clear();
    push(100, 10, std::string(64 << 10, 'n'));
    push(20'000, 0, "Event");
    EXPECT_TRUE(file.write(list.file(1)));
    EXPECT_EQ(readQueueArchive(path).value_or(QueueArchive()).unsentEvents.size(), 20'100U);
}

}  // namespace
}  // namespace qlsdk
