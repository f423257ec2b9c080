#include <chrono>
#include <filesystem>
#include <functional>
#include <vector>

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/RewrittenFile.h"
#include "QLSDKCoreKit/platform/linux/files/FileLock.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace {

// While it forks, each lock that is taken is met by a fork; the children wait until they are killed.
bool forks = false;
std::vector<pid_t> children;

}  // namespace

extern "C" __attribute__((visibility("default"))) int flock(int descriptor, int operation) {
    const auto result = static_cast<int>(syscall(SYS_flock, descriptor, operation));
    if (forks && result == 0 && (operation & LOCK_UN) == 0) {
        const pid_t child = fork();
        if (child == 0) {
            for (;;) pause();
        }
        children.push_back(child);
    }
    return result;
}

namespace qlsdk::platform {

TEST(FileLocks, AreNotKeptByAChildThatWasForkedUnderThem) {
    testing::TemporaryDirectories directories;
    const std::string path = directories.path() + "/f";
    const auto now = std::chrono::steady_clock::now();
    RewrittenFile rewritten(path);
    const Data bytes = dataOf("bytes");
    const DataView pieces[] = {bytes};
    const std::function<bool()> uses[] = {
        [&] { return replaceFile(path, bytes); },
        [&] { return readFile(path, 100) == bytes; },
        [&] { return rewritten.rewrite(pieces) && rewritten.rewrite(pieces) && rewritten.rewrite(pieces); },
        [&] {
            std::filesystem::create_hard_link(path, path + ".qlsdk~aB3dE9");
            removeAbandonedTemporaries(path);
            return !fileExists(path + ".qlsdk~aB3dE9");
        },
        [&] { return FileLock(path, now).outcome() == FileLock::Outcome::held; },
    };
    for (const auto& use : uses) {
        const auto index = &use - uses;
        const std::size_t before = children.size();
        forks = true;
        EXPECT_TRUE(use()) << index;
        forks = false;
        EXPECT_GT(children.size(), before) << index;
        for (const auto& entry : std::filesystem::directory_iterator(directories.path())) {
            EXPECT_EQ(FileLock(entry.path(), now).outcome(), FileLock::Outcome::held)
                << index << " " << entry.path().filename();
        }
    }
    for (const pid_t child : children) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

}  // namespace qlsdk::platform
