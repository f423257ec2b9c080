#include "QLSDKCoreKit/platform/linux/files/FileSizeSignalGuard.h"

#include <cerrno>
#include <ctime>

#include <sys/resource.h>

namespace qlsdk::platform {

namespace {

sigset_t fileSizeSignal() noexcept {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGXFSZ);
    return set;
}

bool isPending() noexcept {
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, SIGXFSZ) == 1;
}

bool isSizeLimited() noexcept {
    rlimit limit;
    return getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

}  // namespace

void FileSizeSignalGuard::block() noexcept {
    // A signal that was already waiting is the host's business.
    if (!isSizeLimited() || isPending()) return;
    const sigset_t set = fileSizeSignal();
    active_ = pthread_sigmask(SIG_BLOCK, &set, &previousMask_) == 0;
}

void FileSizeSignalGuard::restore() noexcept {
    const int error = errno;
    const sigset_t set = fileSizeSignal();
    const timespec noWait{};
    while (isPending() && sigtimedwait(&set, nullptr, &noWait) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
    errno = error;
}

}  // namespace qlsdk::platform
