#include "QLSDKCoreKit/platform/linux/internal/FileLock.h"

#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace qlsdk::platform {

namespace {

constexpr std::chrono::milliseconds kPollInterval{1};

// The blocking call has no time limit, and a stopped process may hold the lock for ever.
bool lockWithinTimeout(int descriptor) noexcept {
    const auto deadline = std::chrono::steady_clock::now() + kStoreTimeout;
    while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) return false;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(kPollInterval);
    }
    return true;
}

}  // namespace

FileLock::FileLock(const std::string& path) noexcept {
    constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;
    constexpr int kFlags = O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    FileDescriptor file(::open(path.c_str(), kFlags, kPrivate));
    if (!file) return;
    // The umask may have taken bits away, and the next process must be able to open the file.
    (void)::fchmod(file.get(), kPrivate);
    if (lockWithinTimeout(file.get())) file_ = std::move(file);
}

}  // namespace qlsdk::platform
