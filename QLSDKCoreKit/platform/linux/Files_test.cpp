#include "QLSDKCoreKit/platform/Files.h"

#include <filesystem>

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/testing/TemporaryDirectories.h"

namespace qlsdk::platform {
namespace {

class Files : public ::testing::Test {
  protected:
    [[nodiscard]] std::string at(const std::string& name) const { return directories_.path() + "/" + name; }
    [[nodiscard]] std::size_t entryCount() const {
        const std::filesystem::directory_iterator entries(directories_.path());
        return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
    }

  private:
    testing::TemporaryDirectories directories_;
};

TEST_F(Files, ReplacesAsAWholeAndLeavesNothingElse) {
    EXPECT_EQ(readFile(at("f"), 100), std::nullopt);
    ASSERT_TRUE(replaceFile(at("f"), bytesOf("first, longer")));
    ASSERT_TRUE(replaceFile(at("f"), bytesOf("second")));
    EXPECT_EQ(readFile(at("f"), 100), dataOf("second"));
    ASSERT_TRUE(replaceFile(at("f"), {}));
    EXPECT_EQ(readFile(at("f"), 0), Data());
    EXPECT_EQ(entryCount(), 1U);
    EXPECT_TRUE(removeFile(at("f")));
    EXPECT_FALSE(removeFile(at("f")));
    EXPECT_FALSE(fileExists(at("f")));
}

TEST_F(Files, ReadsUpToTheCeilingAndNotPastIt) {
    const Data bytes(10'000, 7);
    ASSERT_TRUE(replaceFile(at("f"), bytes));
    EXPECT_EQ(readFile(at("f"), 10'000), bytes);
    EXPECT_EQ(readFile(at("f"), 9'999), std::nullopt);
    EXPECT_EQ(readFile(at("f"), SIZE_MAX), bytes);
}

TEST_F(Files, HaveMode0600UnderAnyUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        const mode_t previous = ::umask(mask);
        const bool written = replaceFile(at("f"), bytesOf("x"));
        ::umask(previous);
        ASSERT_TRUE(written);
        struct stat status;
        ASSERT_EQ(::lstat(at("f").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, mode_t{0600});
    }
}

TEST_F(Files, ReadNothingButOwnRegularFiles) {
    ASSERT_TRUE(replaceFile(at("f"), bytesOf("x")));
    std::filesystem::create_symlink(at("f"), at("link"));
    std::filesystem::create_directory(at("directory"));
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
    for (const std::string& path : {at("link"), at("directory"), at("pipe"), std::string("/dev/null")}) {
        EXPECT_EQ(readFile(path, 100), std::nullopt) << path;
        EXPECT_TRUE(fileExists(path)) << path;
    }
    std::string foreign = "/etc/passwd";
    if (::geteuid() == 0) {
        foreign = at("foreign");
        ASSERT_TRUE(replaceFile(foreign, bytesOf("x")));
        ASSERT_EQ(::chown(foreign.c_str(), 4711, 4711), 0);
    }
    EXPECT_EQ(readFile(foreign, 1 << 20), std::nullopt);
}

TEST_F(Files, AFailedReplacementLeavesEverythingAsItWas) {
    std::filesystem::create_directory(at("directory"));
    EXPECT_FALSE(replaceFile(at("directory"), bytesOf("x")));
    EXPECT_TRUE(std::filesystem::is_directory(at("directory")));
    EXPECT_FALSE(removeFile(at("directory")));
    EXPECT_FALSE(replaceFile(at("missing/f"), bytesOf("x")));
    EXPECT_FALSE(replaceFile("/proc/self/f", bytesOf("x")));
    EXPECT_EQ(entryCount(), 1U);
}

TEST_F(Files, ALinkIsReplacedAndItsTargetLeftAlone) {
    ASSERT_TRUE(replaceFile(at("target"), bytesOf("old")));
    std::filesystem::create_symlink(at("target"), at("link"));
    ASSERT_TRUE(replaceFile(at("link"), bytesOf("new")));
    EXPECT_EQ(readFile(at("link"), 100), dataOf("new"));
    EXPECT_EQ(readFile(at("target"), 100), dataOf("old"));
}

// Runs in a process of its own, which the signal would end.
TEST_F(Files, SurviveTheFileSizeLimit) {
    ASSERT_TRUE(replaceFile(at("f"), bytesOf("old")));
    const auto underLimit = [this] {
        const rlimit limit{.rlim_cur = 1024, .rlim_max = 1024};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
        if (replaceFile(at("f"), Data(4096))) return 2;
        sigset_t pending;
        sigset_t blocked;
        if (::sigpending(&pending) != 0 || ::sigismember(&pending, SIGXFSZ) != 0) return 3;
        if (::pthread_sigmask(SIG_BLOCK, nullptr, &blocked) != 0 || ::sigismember(&blocked, SIGXFSZ) != 0)
            return 4;
        return replaceFile(at("small"), bytesOf("x")) ? 0 : 5;
    };
    EXPECT_EXIT(::_exit(underLimit()), ::testing::ExitedWithCode(0), "");
    EXPECT_EQ(readFile(at("f"), 100), dataOf("old"));
    EXPECT_EQ(entryCount(), 2U);
}

}  // namespace
}  // namespace qlsdk::platform
