#include "QLSDKCoreKit/platform/UserDefaults.h"

#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/linux/internal/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/testing/FakeBundles.h"
#include "QLSDKCoreKit/platform/testing/TemporaryDirectories.h"

namespace qlsdk::platform {
namespace {

namespace fs = std::filesystem;

class LinuxUserDefaults : public ::testing::Test {
  protected:
    [[nodiscard]] std::shared_ptr<UserDefaults> open() const {
        return makeLinuxUserDefaults(home.path(), std::make_shared<testing::FakeBundles>());
    }
    [[nodiscard]] std::string file() const {
        return home.path() + "/config/com.example.app/UserDefaults.plist";
    }
    void writeFile(const std::string& text) const {
        fs::create_directories(fs::path(file()).parent_path());
        ASSERT_TRUE(replaceFile(file(), bytesOf(text)));
    }

    testing::TemporaryDirectories home;
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
    }
}

TEST_F(LinuxUserDefaults, KeepForThisProcessWhatCannotBeWritten) {
    std::ofstream(home.path() + "/config") << "no directory";
    const auto defaults = open();
    defaults->setObjectForKey("kept", "k");
    EXPECT_TRUE(defaults->objectForKey("k") == Value("kept"));
    defaults->setObjectForKey({}, "k");
    EXPECT_TRUE(defaults->objectForKey("k").isNull());

    fs::remove(home.path() + "/config");
    defaults->setObjectForKey(Array{nullptr}, "no property list");
    defaults->setObjectForKey("written", "k");
    EXPECT_TRUE(defaults->objectForKey("no property list") == Value(Array{nullptr}));
    EXPECT_TRUE(open()->objectForKey("k") == Value("written"));
    EXPECT_TRUE(open()->objectForKey("no property list").isNull());
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
}

TEST_F(LinuxUserDefaults, DoNotWaitForEverForALockThatIsHeld) {
    open()->setObjectForKey(1, "k");
    const FileDescriptor lock(::open((file() + ".lock").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    const auto defaults = open();
    defaults->setObjectForKey(2, "k");
    EXPECT_TRUE(defaults->objectForKey("k") == Value(2));
    EXPECT_TRUE(open()->objectForKey("k") == Value(1)) << "reading needs no lock";
}

}  // namespace
}  // namespace qlsdk::platform
