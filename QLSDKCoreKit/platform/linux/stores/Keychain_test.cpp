#include "QLSDKCoreKit/platform/Keychain.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/files/FileLock.h"
#include "QLSDKCoreKit/platform/linux/testing/Reported.h"
#include "QLSDKCoreKit/platform/linux/testing/SkippedSleep.h"
#include "QLSDKCoreKit/platform/testing/FakeFacts.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace {
std::atomic<int> flushes{0};
}

// In place of the system's: how long a busy disk takes is no matter of these tests, that it is asked is one.
extern "C" int fdatasync(int) {
    ++flushes;
    return 0;
}

namespace qlsdk::platform {
namespace {

namespace fs = std::filesystem;
using testing_support::SkippedSleep;
using namespace std::chrono_literals;

Dictionary query(const std::string& key) {
    return {{std::string(kSecClass), std::string(kSecClassGenericPassword)},
            {std::string(kSecAttrService), "s"},
            {std::string(kSecAttrGeneric), dataOf(key)},
            {std::string(kSecAttrAccount), dataOf(key)},
            {std::string(kSecAttrSynchronizable), false}};
}

Dictionary item(const std::string& key, std::size_t size = 1) {
    Dictionary attributes = query(key);
    attributes.set(kSecValueData, Data(size, 'x'));
    return attributes;
}

class LinuxKeychain : public ::testing::Test {
  protected:
    [[nodiscard]] std::shared_ptr<Keychain> open() const { return open(home.path()); }
    static std::shared_ptr<Keychain> open(const std::string& path) {
        return makeLinuxKeychain(path, std::make_shared<testing::FakeBundles>());
    }
    [[nodiscard]] std::string directory() const { return home.path() + "/data/com.example.app"; }
    [[nodiscard]] std::string database() const { return directory() + "/keychain.sqlite"; }

    testing::TemporaryDirectories home;
};

TEST_F(LinuxKeychain, TouchesNoFileBeforeItsFirstUseAndFlushesAChange) {
    const auto keychain = open();
    EXPECT_TRUE(fs::is_empty(home.path()));
    flushes = 0;
    EXPECT_EQ(keychain->itemAdd(item("k")), errSecSuccess);
    EXPECT_EQ(flushes, 1) << "an identity outlives a power cut";
}

TEST_F(LinuxKeychain, KeepsItsFilePrivateUnderAnyUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        fs::remove_all(home.path() + "/data");
        const mode_t previous = ::umask(mask);
        const OSStatus status = open()->itemAdd(item("k"));
        ::umask(previous);
        ASSERT_EQ(status, errSecSuccess);
        for (const auto& entry : fs::directory_iterator(directory())) {
            struct stat file;
            ASSERT_EQ(::stat(entry.path().c_str(), &file), 0);
            EXPECT_EQ(file.st_mode & 07777, mode_t{0600}) << entry.path();
        }
        struct stat folder;
        ASSERT_EQ(::stat(directory().c_str(), &folder), 0);
        EXPECT_EQ(folder.st_mode & 07777, mode_t{0700});
    }
}

/// A program that opens the database itself.
class Foreigner {
  public:
    explicit Foreigner(const std::string& path) {
        EXPECT_EQ(sqlite3_open(path.c_str(), &database_), SQLITE_OK);
    }
    ~Foreigner() { sqlite3_close(database_); }
    Foreigner(const Foreigner&) = delete;
    Foreigner& operator=(const Foreigner&) = delete;

    int run(const std::string& sql) {
        return sqlite3_exec(database_, sql.c_str(), nullptr, nullptr, nullptr);
    }

  private:
    sqlite3* database_ = nullptr;
};

// However long the holder is stopped.
TEST_F(LinuxKeychain, ReadersWaitForNoWriterAndWritersSayThatTheyCouldNotLook) {
    ASSERT_EQ(open()->itemAdd(item("k")), errSecSuccess);
    const auto expectReadable = [this](const std::string& what) {
        const SkippedSleep sleep;
        EXPECT_EQ(open()->itemCopyMatching(query("k"), nullptr), errSecSuccess) << what;
        EXPECT_EQ(open()->itemCopyMatching(query("missing"), nullptr), errSecItemNotFound) << what;
        EXPECT_EQ(sleep.slept(), 0s) << what;
    };
    // One time-out in all, also where one writer's lock is free late and another's not at all.
    std::optional<FileLock> lock;
    const auto expectRefused = [this, &lock] {
        const SkippedSleep sleep([&lock](std::chrono::nanoseconds slept) {
            if (slept > 1500ms) lock.reset();
        });
        EXPECT_EQ(open()->itemDelete(query("k")), errSecInteractionNotAllowed);
        EXPECT_GT(sleep.slept(), 1500ms);
        EXPECT_LE(sleep.slept(), kStoreTimeout + 2ms);
    };
    const auto hold = [this, &lock] {
        lock.emplace(database() + ".lock", std::chrono::steady_clock::now());
        ASSERT_EQ(lock->outcome(), FileLock::Outcome::held);
    };
    {
        const FileLock stays(database() + ".lock", std::chrono::steady_clock::now());
        ASSERT_EQ(stays.outcome(), FileLock::Outcome::held);
        expectReadable("a writer of ours");
        expectRefused();
        EXPECT_TRUE(testing::hasReported(DiagnosticKind::keychain, database()));
    }
    const std::string exclusive = "BEGIN EXCLUSIVE";
    for (const std::string& transaction :
         {std::string("BEGIN IMMEDIATE; UPDATE items SET data = 'y'"), exclusive}) {
        Foreigner other(database());
        ASSERT_EQ(other.run(transaction), SQLITE_OK);
        expectReadable(transaction);
        if (transaction == exclusive) {
            hold();
            expectRefused();
        }
    }
    EXPECT_EQ(open()->itemDelete(query("k")), errSecSuccess);
}

// A program that was killed in the middle of a change, and one that has chosen write-ahead logging: nothing
// that was finished is lost, nothing unfinished is seen, and our next change makes it a file of one piece.
TEST_F(LinuxKeychain, TakesOverWhatOtherProgramsLeave) {
    const std::string row =
        "INSERT INTO items SELECT NULL, class, service, x'32', x'32', 0, NULL, data FROM items";
    const std::string halfway =
        "PRAGMA cache_size = 1; BEGIN; UPDATE items SET data = zeroblob(200000); DELETE FROM items;"
        "CREATE TABLE large AS SELECT zeroblob(400000)";
    for (const std::string& left : {halfway, "PRAGMA journal_mode = WAL; " + row}) {
        SCOPED_TRACE(left);
        fs::remove_all(home.path() + "/data");
        ASSERT_EQ(open()->itemAdd(item("1", 50'000)), errSecSuccess);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            sqlite3* database = nullptr;
            sqlite3_open(this->database().c_str(), &database);
            ::_exit(sqlite3_exec(database, left.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
        ASSERT_TRUE(fs::exists(database() + "-journal") || fs::exists(database() + "-wal"));
        const OSStatus second = left == halfway ? errSecItemNotFound : errSecSuccess;
        for (const bool beforeChange : {true, false}) {
            Dictionary one = query("1");
            one.set(kSecReturnData, true);
            Value data;
            EXPECT_EQ(open()->itemCopyMatching(one, &data), errSecSuccess);
            EXPECT_EQ(data, Value(Data(50'000, 'x')));
            EXPECT_EQ(open()->itemCopyMatching(query("2"), nullptr), second);
            if (!beforeChange) break;
            EXPECT_EQ(open()->itemAdd(item("3")), errSecSuccess);
        }
        for (const char* companion : {"-journal", "-wal", "-shm"}) {
            EXPECT_FALSE(fs::exists(database() + companion)) << companion;
        }
        EXPECT_EQ(open()->itemCopyMatching(query("3"), nullptr), errSecSuccess);
        EXPECT_EQ(Foreigner(database()).run("PRAGMA integrity_check"), SQLITE_OK);
    }
}

// Every obstacle must come out as a status that says that nobody could look.
TEST_F(LinuxKeychain, AStoreThatCannotBeOpenedIsNotAvailable) {
    const auto expectAway = [this](const char* what, const std::string& path, int error) {
        SCOPED_TRACE(what);
        EXPECT_EQ(open()->itemCopyMatching(query("k"), nullptr), errSecNotAvailable);
        EXPECT_EQ(open()->itemAdd(item("k")), errSecNotAvailable);
        EXPECT_EQ(open()->itemDelete(query("k")), errSecNotAvailable);
        const auto kind = path == directory() ? DiagnosticKind::stateDirectory : DiagnosticKind::keychain;
        EXPECT_TRUE(testing::hasReported(kind, path, error));
    };
    std::ofstream(home.path() + "/data") << "no directory";
    expectAway("a file in place of the directory", directory(), ENOTDIR);
    fs::remove(home.path() + "/data");

    fs::create_directories(database());
    expectAway("a directory in place of the file", database(), EISDIR);
    fs::remove(database());

    std::ofstream(home.path() + "/elsewhere").close();
    fs::create_symlink(home.path() + "/elsewhere", database());
    expectAway("a link in place of the file", database(), ELOOP);
    EXPECT_EQ(fs::file_size(home.path() + "/elsewhere"), 0U);
    fs::remove(database());

    if (::geteuid() == 0) {
        std::ofstream(database()).close();
        ASSERT_EQ(::chown(database().c_str(), 4711, 4711), 0);
        expectAway("another user's file", database(), EPERM);
    }
    EXPECT_EQ(open("/proc/self/no")->itemAdd(item("k")), errSecNotAvailable) << "a directory nobody can make";
}

TEST_F(LinuxKeychain, WorksBelowALinkedHome) {
    fs::create_directory(home.path() + "/real");
    fs::create_directory_symlink(home.path() + "/real", home.path() + "/link");
    EXPECT_EQ(open(home.path() + "/link")->itemAdd(item("k")), errSecSuccess);
    EXPECT_EQ(open(home.path() + "/real")->itemCopyMatching(query("k"), nullptr), errSecSuccess);
}

TEST_F(LinuxKeychain, AVanishedDirectoryIsMadeAgain) {
    const auto keychain = open();
    ASSERT_EQ(keychain->itemAdd(item("k")), errSecSuccess);
    fs::remove_all(home.path() + "/data");
    EXPECT_EQ(keychain->itemCopyMatching(query("k"), nullptr), errSecItemNotFound);
    EXPECT_EQ(keychain->itemAdd(item("k")), errSecSuccess);
}

// Reading says that nobody could look; what is stored next is kept, beside the old file for a person to see.
TEST_F(LinuxKeychain, ADamagedFileIsSetAsideByTheNextChange) {
    const auto overwrite = [this](std::size_t place, const std::string& bytes) {
        std::fstream file(database(), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(place));
        file << bytes;
    };
    const std::pair<const char*, std::function<void()>> damages[] = {
        {"cut off", [this] { fs::resize_file(database(), 4096 + 100); }},
        {"no database", [this] { std::ofstream(database()) << std::string(8192, '?'); }},
        {"half of a header", [this] { std::ofstream(database()) << "SQLite form"; }},
        {"broken pages", [&] { overwrite(4096, std::string(20'000, '?')); }},
        {"a broken index", [&] { overwrite(2 * 4096, std::string(4096, '?')); }},
        {"another table",
         [this] {
             fs::remove(database());
             Foreigner(database()).run("CREATE TABLE items (id, note)");
         }},
    };
    for (const auto& [what, damage] : damages) {
        SCOPED_TRACE(what);
        fs::remove_all(home.path() + "/data");
        for (int i = 0; i < 8; ++i) {
            ASSERT_EQ(open()->itemAdd(item(std::to_string(i), 4000)), errSecSuccess);
        }
        damage();
        std::ofstream(database() + "-journal") << "dangling";
        const auto size = fs::file_size(database());
        EXPECT_EQ(open()->itemCopyMatching(query("3"), nullptr), errSecIO);
        EXPECT_EQ(open()->itemAdd(item("new")), errSecSuccess);
        EXPECT_EQ(open()->itemAdd(item("newer")), errSecSuccess) << "only once";
        EXPECT_EQ(open()->itemCopyMatching(query("new"), nullptr), errSecSuccess);
        EXPECT_EQ(open()->itemCopyMatching(query("3"), nullptr), errSecItemNotFound);
        EXPECT_EQ(fs::file_size(database() + ".corrupt"), size);
        EXPECT_TRUE(testing::hasReported(DiagnosticKind::damagedFile, database()));
    }
}

TEST_F(LinuxKeychain, AValueOfNoStorableKindIsRefused) {
    Dictionary odd = item("k");
    odd.set(kSecValueData, Array{1});
    EXPECT_EQ(open()->itemAdd(odd), errSecParam);
    Dictionary oddQuery = query("k");
    oddQuery.set(kSecAttrService, 1.5);
    EXPECT_EQ(open()->itemCopyMatching(oddQuery, nullptr), errSecParam);
}

TEST_F(LinuxKeychain, SurvivesTheFileSizeLimit) {
    ASSERT_EQ(open()->itemAdd(item("before")), errSecSuccess);
    const auto underLimit = [this] {
        const rlimit limit{.rlim_cur = 65536, .rlim_max = 65536};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
        if (open()->itemAdd(item("large", 1 << 20)) == errSecSuccess) return 2;
        return open()->itemCopyMatching(query("large"), nullptr) == errSecItemNotFound ? 0 : 3;
    };
    EXPECT_EXIT(::_exit(underLimit()), ::testing::ExitedWithCode(0), "");
    EXPECT_EQ(open()->itemCopyMatching(query("before"), nullptr), errSecSuccess);
}

TEST_F(LinuxKeychain, ProcessesShareOneStore) {
    constexpr int kProcesses = 3;
    for (int i = 0; i < kProcesses; ++i) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child != 0) continue;
        // Each wants the lock again as soon as it has given it back.
        int failed = 0;
        for (int n = 0; n < 20; ++n) {
            failed += open()->itemAdd(item(std::to_string(i) + "/" + std::to_string(n))) != errSecSuccess;
        }
        ::_exit(failed);
    }
    for (int i = 0; i < kProcesses; ++i) {
        int status = 0;
        ASSERT_GT(::wait(&status), 0);
        EXPECT_EQ(status, 0);
    }
    for (int i = 0; i < kProcesses; ++i) {
        for (int n = 0; n < 20; ++n) {
            const std::string key = std::to_string(i) + "/" + std::to_string(n);
            EXPECT_EQ(open()->itemCopyMatching(query(key), nullptr), errSecSuccess) << key;
        }
    }
}

}  // namespace
}  // namespace qlsdk::platform
