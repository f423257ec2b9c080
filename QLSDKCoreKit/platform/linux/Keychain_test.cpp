#include "QLSDKCoreKit/platform/Keychain.h"

#include <filesystem>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/testing/FakeBundles.h"
#include "QLSDKCoreKit/platform/testing/TemporaryDirectories.h"

namespace qlsdk::platform {
namespace {

namespace fs = std::filesystem;

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

TEST_F(LinuxKeychain, TouchesNoFileBeforeItsFirstUse) {
    const auto keychain = open();
    EXPECT_TRUE(fs::is_empty(home.path()));
}

TEST_F(LinuxKeychain, KeepsItsFilePrivateUnderAnyUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        fs::remove_all(home.path() + "/data");
        const mode_t previous = ::umask(mask);
        const OSStatus status = open()->itemAdd(item("k"));
        ::umask(previous);
        ASSERT_EQ(status, errSecSuccess);
        struct stat file;
        ASSERT_EQ(::stat(database().c_str(), &file), 0);
        EXPECT_EQ(file.st_mode & 07777, mode_t{0600});
        ASSERT_EQ(::stat(directory().c_str(), &file), 0);
        EXPECT_EQ(file.st_mode & 07777, mode_t{0700});
    }
}

TEST_F(LinuxKeychain, ALockedStoreAnswersWithinItsTimeAndNotWithNotFound) {
    ASSERT_EQ(open()->itemAdd(item("k")), errSecSuccess);
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(database().c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(open()->itemCopyMatching(query("missing"), nullptr), errSecInteractionNotAllowed);
    ASSERT_EQ(sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_EQ(open()->itemCopyMatching(query("missing"), nullptr), errSecItemNotFound);
    sqlite3_close(other);
}

// Every obstacle must come out as a status that says that nobody could look.
TEST_F(LinuxKeychain, AStoreThatCannotBeOpenedIsNotAvailable) {
    const auto expectAway = [this](const char* what) {
        SCOPED_TRACE(what);
        EXPECT_EQ(open()->itemCopyMatching(query("k"), nullptr), errSecNotAvailable);
        EXPECT_EQ(open()->itemAdd(item("k")), errSecNotAvailable);
        EXPECT_EQ(open()->itemDelete(query("k")), errSecNotAvailable);
    };
    std::ofstream(home.path() + "/data") << "no directory";
    expectAway("a file in place of the directory");
    fs::remove(home.path() + "/data");

    fs::create_directories(database());
    expectAway("a directory in place of the file");
    fs::remove(database());

    std::ofstream(home.path() + "/elsewhere").close();
    fs::create_symlink(home.path() + "/elsewhere", database());
    expectAway("a link in place of the file");
    EXPECT_EQ(fs::file_size(home.path() + "/elsewhere"), 0U);
    fs::remove(database());

    if (::geteuid() == 0) {
        std::ofstream(database()).close();
        ASSERT_EQ(::chown(database().c_str(), 4711, 4711), 0);
        expectAway("another user's file");
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

TEST_F(LinuxKeychain, ADamagedFileIsAnErrorAndNotAnEmptyStore) {
    for (int i = 0; i < 8; ++i) ASSERT_EQ(open()->itemAdd(item(std::to_string(i), 4000)), errSecSuccess);
    fs::resize_file(database(), 4096 + 100);
    EXPECT_EQ(open()->itemCopyMatching(query("3"), nullptr), errSecIO);
    EXPECT_EQ(open()->itemAdd(item("new")), errSecIO);
    std::ofstream(database()) << std::string(8192, '?');
    EXPECT_EQ(open()->itemCopyMatching(query("3"), nullptr), errSecIO);
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
        if (child == 0) ::_exit(open()->itemAdd(item(std::to_string(i))) == errSecSuccess ? 0 : 1);
    }
    for (int i = 0; i < kProcesses; ++i) {
        int status = 0;
        ASSERT_GT(::wait(&status), 0);
        EXPECT_EQ(status, 0);
    }
    for (int i = 0; i < kProcesses; ++i) {
        EXPECT_EQ(open()->itemCopyMatching(query(std::to_string(i)), nullptr), errSecSuccess);
    }
}

}  // namespace
}  // namespace qlsdk::platform
