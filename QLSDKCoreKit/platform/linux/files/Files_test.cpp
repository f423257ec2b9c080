#include "QLSDKCoreKit/platform/Files.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/RewrittenFile.h"
#include "QLSDKCoreKit/platform/linux/testing/PlainUser.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace qlsdk::platform {
namespace {

class Files : public ::testing::Test {
  protected:
    [[nodiscard]] std::string at(const std::string& name) const { return directories_.path() + "/" + name; }
    /// The exit status of a child, which is no superuser where the tests run as one.
    [[nodiscard]] static int inPlainUsersChild(const std::function<int()>& life) {
        const pid_t child = ::fork();
        if (child == 0) ::_exit(testing_support::becomePlainUser() ? life() : 99);
        int status = 0;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 98;
    }
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

TEST_F(Files, TellAbsentUnfitAndUnreadableApart) {
    ASSERT_TRUE(replaceFile(at("f"), bytesOf("x")));
    std::filesystem::create_symlink(at("f"), at("link"));
    std::filesystem::create_directory(at("directory"));
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
    ASSERT_TRUE(replaceFile(at("large"), Data(101)));
    std::string foreign = "/etc/passwd";
    if (::geteuid() == 0) {
        foreign = at("foreign");
        ASSERT_TRUE(replaceFile(foreign, bytesOf("x")));
        ASSERT_EQ(::chown(foreign.c_str(), 4711, 4711), 0);
    }
    for (const std::string& path :
         {at("link"), at("directory"), at("pipe"), at("large"), foreign, std::string("/dev/null")}) {
        EXPECT_EQ(readFileContent(path, 100).outcome, FileOutcome::unfit) << path;
        EXPECT_EQ(readFile(path, 100), std::nullopt) << path;
        EXPECT_TRUE(fileExists(path)) << path;
    }
    for (const std::string& path : {at("missing"), at("missing/f"), at("f/f")}) {
        EXPECT_EQ(readFileContent(path, 100).outcome, FileOutcome::absent) << path;
    }
    const auto refused = [this](int error, auto prepare) {
        return inPlainUsersChild([&] {
            prepare();
            const FileContent content = readFileContent(at("f"), 100);
            return content.outcome == FileOutcome::unreadable ? (content.errorNumber == error ? 0 : 1) : 2;
        });
    };
    EXPECT_EQ(refused(EMFILE,
                      [] {
                          const rlimit none{};
                          ::setrlimit(RLIMIT_NOFILE, &none);
                      }),
              0);
    EXPECT_EQ(refused(EACCES, [this] { ::chmod(at("f").c_str(), 0); }), 0);
    EXPECT_EQ(refused(EACCES, [this] { ::chmod(at("").c_str(), 0); }), 0);
}

// In a directory that refuses: what each file holds after it was to go, and whether it is said to be gone.
TEST_F(Files, AreEmptiedWhereTheyCannotBeRemoved) {
    for (const char* name : {"plain", "read only", "linked"})
        ASSERT_TRUE(replaceFile(at(name), bytesOf("x")));
    ASSERT_EQ(::chmod(at("read only").c_str(), 0400), 0);
    ASSERT_EQ(::link(at("linked").c_str(), at("copy").c_str()), 0);
    const int status = inPlainUsersChild([this] {
        if (::chmod(at("").c_str(), 0500) != 0) return 1;
        if (removeFile(at("plain")) || readFile(at("plain"), 1) != Data()) return 2;
        if (!RewrittenFile(at("read only")).remove() || readFile(at("read only"), 1) != Data()) return 3;
        if (RewrittenFile(at("linked")).remove() || readFile(at("copy"), 1) != dataOf("x")) return 4;
        return RewrittenFile(at("missing")).remove() ? 0 : 5;
    });
    EXPECT_EQ(status, 0);
}

TEST_F(Files, OfKilledWritersAreRemoved) {
    // What a person or another program puts beside the file, and names at the edges of ours.
    const std::vector<std::string> kept = {"f",
                                           "f.backup",
                                           "f.aB3dE9",
                                           "f.spare",
                                           "f.qlsdk~aB3dE",
                                           "f.qlsdk~aB3dE9x",
                                           "f.qlsdk~aB3d-9",
                                           "f.qlsdk-aB3dE9",
                                           "f.QLSDK~aB3dE9",
                                           "fqlsdk~aB3dE9",
                                           "g.qlsdk~aB3dE9",
                                           "f.qlsdk~locked"};
    for (const std::string& name : kept) ASSERT_TRUE(replaceFile(at(name), {}));
    std::filesystem::create_symlink(at("f"), at("f.qlsdk~linked"));
    std::filesystem::create_directory(at("f.qlsdk~direct"));
    for (const char* name : {"f.qlsdk~aB3dE9", "f.qlsdk~000000", "f.qlsdk~ZZZZZZ"}) {
        ASSERT_TRUE(replaceFile(at(name), {}));
    }
    const int writer = ::open(at("f.qlsdk~locked").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(writer, LOCK_EX), 0);
    removeAbandonedTemporaries(at("f"));
    for (const std::string& name : kept) EXPECT_TRUE(fileExists(at(name))) << name;
    EXPECT_EQ(entryCount(), kept.size() + 2);
    ::close(writer);

    ASSERT_TRUE(setFileAside(at("f"), kDamagedSuffix) && replaceFile(at("f"), {}));
    ASSERT_TRUE(setFileAside(at("f"), kUnreadableSuffix) && replaceFile(at("f"), {}));
    EXPECT_FALSE(setFileAside(at("f.qlsdk~direct"), kDamagedSuffix));
    eraseFile(at("f"));
    EXPECT_EQ(entryCount(), kept.size() + 2 - 3) << "the file, its spare and what the lock was on";
}

TEST_F(Files, UnderTheirWritersAreNotTakenForAbandoned) {
    std::atomic<bool> done = false;
    std::thread cleaner([&] {
        while (!done) removeAbandonedTemporaries(at("f"));
    });
    for (int i = 0; i < 2000; ++i) EXPECT_TRUE(replaceFile(at("f"), bytesOf("x")));
    done = true;
    cleaner.join();
    EXPECT_EQ(entryCount(), 1U);
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

class RewrittenFiles : public Files {
  protected:
    static bool rewrite(RewrittenFile& file, std::string_view text) {
        const DataView pieces[] = {bytesOf(text.substr(0, 1)), {}, bytesOf(text.substr(1))};
        return file.rewrite(pieces);
    }
    bool rewrite(std::string_view text) { return rewrite(file_, text); }
    [[nodiscard]] ino_t inodeOf(const std::string& name) const {
        struct stat status;
        return ::lstat(at(name).c_str(), &status) == 0 ? status.st_ino : 0;
    }

    RewrittenFile file_{at("f")};
};

TEST_F(RewrittenFiles, TakeTurnsWithOneSpare) {
    ASSERT_TRUE(rewrite("first, the longest"));
    EXPECT_EQ(entryCount(), 1U);
    ASSERT_TRUE(rewrite("second"));
    const ino_t file = inodeOf("f");
    const ino_t spare = inodeOf("f.spare");
    ASSERT_TRUE(rewrite("3"));
    EXPECT_EQ(readFile(at("f"), 100), dataOf("3"));
    EXPECT_EQ(inodeOf("f"), spare);
    EXPECT_EQ(inodeOf("f.spare"), file);

    ASSERT_TRUE(file_.remove());
    ASSERT_TRUE(rewrite("fourth"));
    EXPECT_EQ(readFile(at("f"), 100), dataOf("fourth"));
    EXPECT_EQ(inodeOf("f"), file);
    EXPECT_EQ(entryCount(), 1U);
    ASSERT_TRUE(rewrite("fifth"));
    file_.erase();
    EXPECT_EQ(entryCount(), 0U);
    EXPECT_TRUE(rewrite("sixth"));
    EXPECT_TRUE(rewrite("seventh"));
    EXPECT_TRUE(removeFile(at("f")));
    EXPECT_EQ(entryCount(), 0U);
}

// Two writers that keep their files open, and a host that closes descriptors which are not its own.
TEST_F(RewrittenFiles, LookAgainWhatTheirDescriptorsMean) {
    RewrittenFile other(at("f"));
    for (const char* text : {"1", "2", "3"}) ASSERT_TRUE(rewrite(text));
    for (const char* text : {"4", "5", "6"}) {
        ASSERT_TRUE(rewrite(other, text));
        EXPECT_EQ(readFile(at("f"), 100), dataOf(text));
        ASSERT_TRUE(rewrite(text + std::string("!")));
        EXPECT_EQ(readFile(at("f"), 100), dataOf(text + std::string("!")));
    }
    EXPECT_EQ(entryCount(), 2U);

    ASSERT_TRUE(replaceFile(at("hosts own"), bytesOf("kept")));
    std::vector<int> replaced;
    for (int number = 3; number < 100; ++number) {
        struct stat status;
        if (::fstat(number, &status) != 0) continue;
        if (status.st_ino != inodeOf("f") && status.st_ino != inodeOf("f.spare")) continue;
        ::close(number);
        EXPECT_EQ(::open(at("hosts own").c_str(), O_WRONLY | O_CLOEXEC), number);
        EXPECT_TRUE(!replaced.empty() || ::flock(number, LOCK_EX | LOCK_NB) == 0);
        replaced.push_back(number);
    }
    ASSERT_EQ(replaced.size(), 4U);
    for (const char* text : {"7", "8", "9"}) {
        ASSERT_TRUE(rewrite(text) && rewrite(other, text + std::string("!")));
        EXPECT_EQ(readFile(at("f"), 100), dataOf(text + std::string("!")));
    }
    // The host's file is as it was: its bytes, its descriptors, and the lock that it holds.
    EXPECT_EQ(::flock(replaced.back(), LOCK_EX | LOCK_NB), -1);
    for (const int number : replaced) {
        struct stat status;
        EXPECT_TRUE(::fstat(number, &status) == 0 && status.st_ino == inodeOf("hosts own")) << number;
        ::close(number);
    }
    EXPECT_EQ(readFile(at("hosts own"), 100), dataOf("kept"));
}

TEST_F(RewrittenFiles, ArePrivateUnderAnyUmaskAndMoveNothingElse) {
    const mode_t previous = ::umask(0777);
    const bool written = rewrite("1") && rewrite("2");
    ::umask(previous);
    ASSERT_TRUE(written);
    for (const char* name : {"f", "f.spare"}) {
        struct stat status;
        ASSERT_EQ(::lstat(at(name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0600u) << name;
    }
    file_.erase();
    ASSERT_EQ(::mkdir(at("f").c_str(), 0700), 0);
    EXPECT_FALSE(rewrite("3"));
    EXPECT_EQ(entryCount(), 1U);
}

TEST_F(RewrittenFiles, AreOpenTwiceInTheirOwnProcessAlone) {
    const auto descriptors = [this] {
        int count = 0;
        for (int number = 0; number < 100; ++number) {
            struct stat status;
            if (::fstat(number, &status) != 0) continue;
            if (status.st_ino == inodeOf("f") || status.st_ino == inodeOf("f.spare")) ++count;
        }
        return count;
    };
    for (const char* text : {"1", "2", "3", "4"}) ASSERT_TRUE(rewrite(text));
    EXPECT_EQ(descriptors(), 2);
    // An open file's lock is shared across a fork and would keep neither process from the other's spare.
    EXPECT_EXIT(::_exit(descriptors()), ::testing::ExitedWithCode(0), "");
    file_.erase();
    EXPECT_EQ(descriptors(), 0);
}

TEST_F(RewrittenFiles, KeepOffTheStandardStreams) {
    ASSERT_TRUE(rewrite("1") && rewrite("2"));
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const auto without = [this, stream] {
            ::close(stream);
            if (!rewrite("3") || !rewrite("4") || !rewrite("5")) return 1;
            return ::fcntl(stream, F_GETFD) == -1 ? 0 : 2;
        };
        EXPECT_EXIT(::_exit(without()), ::testing::ExitedWithCode(0), "") << stream;
    }
    EXPECT_EQ(readFile(at("f"), 100), dataOf("5"));
}

// Whatever lies where the spare should be, or would become it, keeps its content, and the file is rewritten
// all the same. What is unfit to be a spare does not stay as one.
TEST_F(RewrittenFiles, OverwriteNothingThatIsNotTheirSpare) {
    ASSERT_TRUE(replaceFile(at("target"), bytesOf("kept")));
    struct Case {
        const char* what;
        const char* name;
        bool staysAsSpare;
        std::function<int(const std::string&)> prepare;
    };
    const auto copy = [this](const std::string& path) { return ::link(path.c_str(), at("copy").c_str()); };
    const auto mode = [](const std::string& path) { return ::chmod(path.c_str(), 0644); };
    const auto owner = [](const std::string& path) {
        return ::geteuid() == 0 ? ::chown(path.c_str(), 4711, 4711) : ::chmod(path.c_str(), 0400);
    };
    int locked = -1;
    const auto lock = [&locked](const std::string& path) {
        locked = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        return ::flock(locked, LOCK_SH);
    };
    const auto link = [this](const std::string& path) {
        return ::unlink(path.c_str()) + ::symlink(at("target").c_str(), path.c_str());
    };
    const Case cases[] = {
        {"copy of the spare", "f.spare", false, copy},   {"mode of the spare", "f.spare", false, mode},
        {"owner of the spare", "f.spare", false, owner}, {"lock on the spare", "f.spare", true, lock},
        {"link as the spare", "f.spare", true, link},    {"copy of the file", "f", false, copy},
        {"mode of the file", "f", false, mode},          {"owner of the file", "f", false, owner},
    };
    for (const Case& c : cases) {
        for (const bool fresh : {false, true}) {
            SCOPED_TRACE(c.what + std::string(fresh ? ", found by another process" : ""));
            file_.erase();
            ::unlink(at("copy").c_str());
            ASSERT_TRUE(rewrite(c.name == std::string("f") ? "old" : "kept"));
            ASSERT_TRUE(rewrite(c.name == std::string("f") ? "kept" : "old"));
            const int held = ::open(at(c.name).c_str(), O_RDONLY | O_CLOEXEC);
            struct stat before;
            ASSERT_EQ(::fstat(held, &before), 0);
            ASSERT_EQ(c.prepare(at(c.name)), 0);
            RewrittenFile other(at("f"));
            for (const char* text : {"new", "newer", "newest"}) {
                ASSERT_TRUE(rewrite(fresh ? other : file_, text));
                EXPECT_EQ(readFile(at("f"), 100), dataOf(text));
            }
            char bytes[8];
            EXPECT_EQ(::pread(held, bytes, sizeof bytes, 0), 4);
            EXPECT_EQ(std::string_view(bytes, 4), "kept");
            EXPECT_EQ(readFile(at("target"), 100), dataOf("kept"));
            ::close(held);
            if (c.staysAsSpare) continue;
            EXPECT_NE(inodeOf("f.spare"), before.st_ino);
            EXPECT_NE(inodeOf("f"), before.st_ino);
        }
    }
    ::close(locked);
}

TEST_F(RewrittenFiles, MakeTheirDirectoryAgain) {
    const std::string directory = at("a/b");
    RewrittenFile file(directory + "/f");
    for (const char* text : {"1", "2", "3", "4"}) {
        ASSERT_TRUE(rewrite(file, text));
        EXPECT_EQ(readFile(directory + "/f", 100), dataOf(text));
        struct stat status;
        ASSERT_EQ(::lstat(directory.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0700u);
        if (text[0] % 2 == 0) std::filesystem::remove_all(at("a"));
    }
    ASSERT_TRUE(replaceFile(at("a"), {}));
    EXPECT_FALSE(rewrite(file, "5"));
    EXPECT_EQ(errno, ENOTDIR);
}

// Two processes write versions of one letter and many lengths; a reader never sees two letters, or two
// lengths, mixed.
TEST_F(RewrittenFiles, NeverShowAMixtureToReaders) {
    constexpr int kWriters = 2;
    constexpr int kVersions = 3000;
    const auto version = [](int writer, int number) {
        const std::size_t length = 1 + static_cast<std::size_t>(number * 7919 % 20'000);
        return std::to_string(length) + ":" + std::string(length, static_cast<char>('a' + writer));
    };
    for (int number = 0; number < 3; ++number) ASSERT_TRUE(rewrite(version(0, number)));
    std::vector<pid_t> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
        const pid_t child = ::fork();
        if (child == 0) {
            for (int number = 0; number < kVersions; ++number) {
                if (!rewrite(version(writer, number))) ::_exit(1);
            }
            ::_exit(0);
        }
        writers.push_back(child);
    }
    int left = kWriters;
    while (left > 0) {
        const auto bytes = readFile(at("f"), 100'000);
        ASSERT_TRUE(bytes.has_value());
        const std::string text = textOf(*bytes);
        const std::size_t colon = text.find(':');
        ASSERT_NE(colon, std::string::npos);
        ASSERT_EQ(std::stoul(text), text.size() - colon - 1);
        ASSERT_EQ(text.find_first_not_of(text.back(), colon + 1), std::string::npos);
        int status = 0;
        if (::waitpid(-1, &status, WNOHANG) <= 0) continue;
        EXPECT_EQ(status, 0);
        --left;
    }
}

}  // namespace
}  // namespace qlsdk::platform
