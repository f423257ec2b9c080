#include "QLSDKCoreKit/platform/UserDefaults.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/files/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/files/FileLock.h"
#include "QLSDKCoreKit/platform/linux/testing/Reported.h"
#include "QLSDKCoreKit/platform/linux/testing/SkippedSleep.h"
#include "QLSDKCoreKit/platform/testing/FakeFacts.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"
#include "QLSDKCoreKit/platform/testing/ManualQueues.h"

namespace {
std::atomic<int> flockError{0};
}

// In place of the system's: fails as file systems without locks do while the test says so.
extern "C" int flock(int descriptor, int operation) noexcept {
    if (flockError == 0) return static_cast<int>(::syscall(SYS_flock, descriptor, operation));
    errno = flockError;
    return -1;
}

namespace qlsdk::platform {
namespace {

namespace fs = std::filesystem;

class LinuxUserDefaults : public ::testing::Test {
  protected:
    [[nodiscard]] std::shared_ptr<UserDefaults> open() const {
        return makeLinuxUserDefaults(home.path(), std::make_shared<testing::FakeBundles>(), queues);
    }
    [[nodiscard]] std::size_t waitingWrites() const {
        std::size_t waiting = 0;
        for (const auto& queue : queues->labelled("com.quillo.quill-kit.user-defaults.queue")) {
            waiting += queue->waiting();
        }
        return waiting;
    }
    [[nodiscard]] std::string file() const {
        return home.path() + "/config/com.example.app/UserDefaults.plist";
    }
    void writeFile(const std::string& text) const {
        fs::create_directories(fs::path(file()).parent_path());
        ASSERT_TRUE(replaceFile(file(), bytesOf(text)));
    }

    testing::TemporaryDirectories home;
    std::shared_ptr<testing::ManualQueues> queues = std::make_shared<testing::ManualQueues>();
};

TEST_F(LinuxUserDefaults, TouchNoFileBeforeTheirFirstUse) {
    const auto defaults = open();
    EXPECT_TRUE(fs::is_empty(home.path()));
}

TEST_F(LinuxUserDefaults, ReadAPropertyListWrittenByHand) {
    writeFile(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict><key>k</key>"
        "<date>2019-01-01T00:00:00Z</date></dict></plist>");
    EXPECT_TRUE(open()->objectForKey("k") == Value(Date{1'546'300'800}));
}

TEST_F(LinuxUserDefaults, ProcessesThatWriteAtOnceLoseNoKey) {
    constexpr int kProcesses = 4;
    constexpr int kKeys = 25;
    int start[2];
    ASSERT_EQ(::pipe(start), 0);
    const auto key = [](int process, int number) {
        return std::to_string(process) + "/" + std::to_string(number);
    };
    for (int process = 0; process < kProcesses; ++process) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child != 0) continue;
        // All wait for the end of the pipe, so that they really write at once.
        ::close(start[1]);
        char none = 0;
        if (::read(start[0], &none, 1) != 0) ::_exit(1);
        const auto defaults = open();
        for (int number = 0; number < kKeys; ++number)
            defaults->setObjectForKey(number, key(process, number));
        queues->runUntilIdle();
        // A machine may be slower than the wait is long; the next write then takes all along.
        while (open()->objectForKey(key(process, kKeys - 1)).isNull()) {
            defaults->setObjectForKey(kKeys - 1, key(process, kKeys - 1));
            queues->runUntilIdle();
        }
        ::_exit(0);
    }
    ::close(start[1]);
    for (int process = 0; process < kProcesses; ++process) ASSERT_GT(::wait(nullptr), 0);
    ::close(start[0]);
    for (int process = 0; process < kProcesses; ++process) {
        for (int number = 0; number < kKeys; ++number) {
            EXPECT_TRUE(open()->objectForKey(key(process, number)) == Value(number)) << key(process, number);
        }
    }
}

TEST_F(LinuxUserDefaults, SetADamagedFileAside) {
    for (const char* text : {"no property list", "<plist version=\"1.0\"><array/></plist>", ""}) {
        writeFile(text);
        EXPECT_TRUE(open()->objectForKey("k").isNull());
        open()->setObjectForKey(1, "k");
        EXPECT_TRUE(open()->objectForKey("k") == Value(1));
        EXPECT_EQ(readFile(file() + ".corrupt", 100), dataOf(text));
        EXPECT_TRUE(testing::hasReported(DiagnosticKind::damagedFile, file()));
    }
}

TEST_F(LinuxUserDefaults, KeepForThisProcessWhatCannotBeWritten) {
    std::ofstream(home.path() + "/config") << "no directory";
    const auto defaults = open();
    defaults->setObjectForKey("kept", "k");
    EXPECT_TRUE(defaults->objectForKey("k") == Value("kept"));
    defaults->setObjectForKey({}, "k");
    EXPECT_TRUE(defaults->objectForKey("k").isNull());
    EXPECT_TRUE(
        testing::hasReported(DiagnosticKind::stateDirectory, fs::path(file()).parent_path(), ENOTDIR));
    defaults->setObjectForKey("early", "other");

    fs::remove(home.path() + "/config");
    defaults->setObjectForKey(Array{nullptr}, "no property list");
    defaults->setObjectForKey("written", "k");
    EXPECT_TRUE(defaults->objectForKey("no property list") == Value(Array{nullptr}));
    EXPECT_TRUE(open()->objectForKey("k") == Value("written"));
    EXPECT_TRUE(open()->objectForKey("no property list").isNull());
    EXPECT_TRUE(testing::hasReported(DiagnosticKind::failedWrite, ""));
    EXPECT_TRUE(open()->objectForKey("other") == Value("early")) << "a later success takes it along";
    open()->setObjectForKey("newer", "other");
    EXPECT_TRUE(defaults->objectForKey("other") == Value("newer")) << "memory answers no longer";
}

TEST_F(LinuxUserDefaults, LeaveAForeignFileAlone) {
    writeFile("<plist version=\"1.0\"><dict><key>k</key><integer>1</integer></dict></plist>");
    fs::rename(file(), home.path() + "/target");
    fs::create_symlink(home.path() + "/target", file());
    const auto defaults = open();
    EXPECT_TRUE(defaults->objectForKey("k").isNull());
    defaults->setObjectForKey(2, "k");
    EXPECT_TRUE(defaults->objectForKey("k") == Value(2));
    EXPECT_TRUE(fs::is_symlink(file()));
    EXPECT_FALSE(fileExists(file() + ".corrupt"));
    EXPECT_TRUE(testing::hasReported(DiagnosticKind::unreadableFile, file(), ELOOP));
}

TEST_F(LinuxUserDefaults, LeaveTheWaitingForALockToAQueue) {
    open()->setObjectForKey(1, "k");
    FileDescriptor lock(::open((file() + ".lock").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    const testing_support::SkippedSleep sleep;
    const auto defaults = open();
    for (const int number : {2, 3}) defaults->setObjectForKey(number, "k");
    defaults->setObjectForKey(4, "other");
    EXPECT_TRUE(defaults->objectForKey("k") == Value(3));
    EXPECT_TRUE(open()->objectForKey("k") == Value(1)) << "reading needs no lock";
    EXPECT_EQ(waitingWrites(), 1U) << "one task brings all";
    EXPECT_EQ(sleep.slept(), std::chrono::seconds(0)) << "no caller waits";

    // The holder is stopped for longer than anybody waits.
    queues->runUntilIdle();
    EXPECT_EQ(sleep.slept(), kStoreTimeout);
    EXPECT_TRUE(open()->objectForKey("k") == Value(1));
    EXPECT_TRUE(defaults->objectForKey("k") == Value(3));
    EXPECT_TRUE(testing::hasReported(DiagnosticKind::failedWrite, file(), EWOULDBLOCK));

    defaults->setObjectForKey(5, "k");
    ASSERT_EQ(waitingWrites(), 1U);
    lock = FileDescriptor();
    defaults->setObjectForKey(6, "k");
    EXPECT_TRUE(open()->objectForKey("k") == Value(6));
    EXPECT_TRUE(open()->objectForKey("other") == Value(4));
    open()->setObjectForKey(7, "k");
    queues->runUntilIdle();
    EXPECT_TRUE(open()->objectForKey("k") == Value(7)) << "what waited is older, and was written";
}

TEST_F(LinuxUserDefaults, AreWrittenWhereThereAreNoLocks) {
    for (const int error : {ENOLCK, ENOSYS, EOPNOTSUPP, EINVAL}) {
        flockError = error;
        open()->setObjectForKey(error, "k");
        EXPECT_TRUE(open()->objectForKey("k") == Value(error)) << error;
        EXPECT_TRUE(testing::hasReported(DiagnosticKind::failedWrite, file(), error));
        const auto keychain = makeLinuxKeychain(home.path(), std::make_shared<testing::FakeBundles>());
        EXPECT_EQ(keychain->itemAdd({{std::string(kSecClass), std::string(kSecClassGenericPassword)},
                                     {std::string(kSecAttrService), std::to_string(error)},
                                     {std::string(kSecAttrGeneric), Data()},
                                     {std::string(kSecAttrAccount), Data()},
                                     {std::string(kSecAttrSynchronizable), false}}),
                  errSecSuccess);
        EXPECT_TRUE(testing::hasReported(DiagnosticKind::failedWrite,
                                         home.path() + "/data/com.example.app/keychain.sqlite", error));
        flockError = 0;
    }
}

TEST_F(LinuxUserDefaults, AreNotWrittenWhereALockFails) {
    open()->setObjectForKey("whole", "k");
    const auto defaults = open();
    flockError = EIO;
    defaults->setObjectForKey("unlocked", "k");
    flockError = 0;
    EXPECT_TRUE(defaults->objectForKey("k") == Value("unlocked"));
    EXPECT_TRUE(open()->objectForKey("k") == Value("whole"));
    EXPECT_TRUE(testing::hasReported(DiagnosticKind::failedWrite, file(), EIO));
}

TEST_F(LinuxUserDefaults, ThreadsThatWriteAtOnceLeaveTheLastOfEachKey) {
    for (const int error : {0, ENOLCK}) {
        flockError = error;
        fs::remove_all(home.path() + "/config");
        const auto defaults = open();
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&defaults, thread] {
                for (int number = 0; number < 50; ++number) {
                    defaults->setObjectForKey(number,
                                              std::to_string(thread) + "/" + std::to_string(number % 7));
                    defaults->setObjectForKey(number, std::to_string(thread));
                }
            });
        }
        for (std::thread& thread : threads) thread.join();
        queues->runUntilIdle();
        for (int thread = 0; thread < 4; ++thread) {
            const std::string key = std::to_string(thread);
            EXPECT_TRUE(open()->objectForKey(key) == Value(49)) << key << " with error " << error;
            EXPECT_TRUE(open()->objectForKey(key + "/2") == Value(44)) << key << " with error " << error;
        }
        flockError = 0;
    }
}

// The copy of the descriptor that a child has must not keep the lock.
TEST_F(LinuxUserDefaults, AForkedChildKeepsNoLock) {
    fs::create_directories(fs::path(file()).parent_path());
    const auto now = std::chrono::steady_clock::now();
    int end[2];
    ASSERT_EQ(::pipe(end), 0);
    pid_t child = 0;
    {
        const FileLock lock(file() + ".lock", now);
        ASSERT_EQ(lock.outcome(), FileLock::Outcome::held);
        child = ::fork();
        if (child == 0) {
            char none = 0;
            ::close(end[1]);
            ::_exit(::read(end[0], &none, 1) == 0 ? 0 : 1);
        }
        EXPECT_EQ(FileLock(file() + ".lock", now).outcome(), FileLock::Outcome::busy);
    }
    EXPECT_EQ(FileLock(file() + ".lock", now).outcome(), FileLock::Outcome::held);
    ::close(end[1]);
    ::close(end[0]);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
}

}  // namespace
}  // namespace qlsdk::platform
