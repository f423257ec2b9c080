#include "QLSDKCoreKit/platform/linux/files/FileReplacing.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/files/FileDescriptor.h"

namespace {

constexpr std::size_t kAll = SIZE_MAX;
std::atomic<std::size_t> mostAtOnce{kAll};
std::atomic<std::size_t> mostInAll{kAll};
std::atomic<bool> isInterrupted{false};

ssize_t written(int descriptor, const void* bytes, std::size_t count, off_t offset) {
    if (mostAtOnce == kAll) return ::syscall(SYS_pwrite64, descriptor, bytes, count, offset);
    isInterrupted = !isInterrupted;
    if (isInterrupted) {
        errno = EINTR;
        return -1;
    }
    count = std::min({count, mostAtOnce.load(), mostInAll.load()});
    mostInAll -= count;
    return ::syscall(SYS_pwrite64, descriptor, bytes, count, offset);
}

}  // namespace

// In place of the system's: each call writes little, and every other one is interrupted.
extern "C" {
ssize_t pwrite(int descriptor, const void* bytes, std::size_t count, off_t offset) {
    return written(descriptor, bytes, count, offset);
}
ssize_t pwritev(int descriptor, const iovec* pieces, int count, off_t offset) {
    if (mostAtOnce == kAll) return ::syscall(SYS_pwritev, descriptor, pieces, count, offset, 0);
    std::string whole;
    for (int i = 0; i < count; ++i)
        whole.append(static_cast<const char*>(pieces[i].iov_base), pieces[i].iov_len);
    return written(descriptor, whole.data(), whole.size(), offset);
}
}

namespace qlsdk::platform {

TEST(FileReplacing, WritesAllPiecesHoweverLittleEachCallTakes) {
    const std::array<DataView, 5> pieces = {bytesOf("ab"), DataView(), bytesOf("cdefg"), bytesOf("h"),
                                            DataView()};
    for (std::size_t most = 1; most <= 9; ++most) {
        for (const bool interrupted : {false, true}) {
            for (std::size_t fit = 0; fit <= 8; ++fit) {
                SCOPED_TRACE(std::to_string(most) + " at once, " + std::to_string(fit) + " in all");
                const FileDescriptor file(::memfd_create("pieces", MFD_CLOEXEC));
                mostAtOnce = most;
                mostInAll = fit;
                isInterrupted = !interrupted;
                const bool done = writePieces(file.get(), pieces);
                mostAtOnce = kAll;
                EXPECT_EQ(done, fit == 8) << "a disk that takes nothing more ends it";
                char read[16];
                const ssize_t size = ::pread(file.get(), read, sizeof read, 0);
                EXPECT_EQ(std::string(read, static_cast<std::size_t>(size)),
                          std::string("abcdefgh").substr(0, fit));
            }
        }
    }
}

}  // namespace qlsdk::platform
