#include "QLSDKCoreKit/platform/linux/files/FileLock.h"

#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qlsdk::platform {

namespace {

constexpr std::chrono::milliseconds kPollInterval{1};

FileLock::Outcome outcomeFor(int errorNumber) noexcept {
    switch (errorNumber) {
        case EWOULDBLOCK:
        case EINTR:
            return FileLock::Outcome::busy;
        case ENOLCK:
        case ENOSYS:
        case EOPNOTSUPP:
        case EINVAL:
            return FileLock::Outcome::unsupported;
        default:
            return FileLock::Outcome::failed;
    }
}

// A byte of the lock file, which the next in turn holds until it has the lock: whoever gives the lock back
// and wants it again at once would otherwise always find it before those who look once in a millisecond.
bool setTurn(int descriptor, short kind) noexcept {
    struct flock turn {};
    turn.l_type = kind;
    turn.l_whence = SEEK_SET;
    turn.l_len = 1;
    return ::fcntl(descriptor, F_OFD_SETLK, &turn) == 0;
}

bool takeTurn(int descriptor) noexcept {
    // Where there are no such locks, it goes without turns.
    return setTurn(descriptor, F_WRLCK) || (errno != EAGAIN && errno != EACCES);
}

}  // namespace

FileLock::FileLock(const std::string& path, std::chrono::steady_clock::time_point deadline) noexcept {
    acquire(path, deadline);
}

FileLock::~FileLock() {
    // A child of fork() may have a copy of the descriptor, which would keep the lock until it ends.
    if (outcome_ == Outcome::held) ::flock(file_.get(), LOCK_UN);
}

// The blocking call has no time limit, and a stopped process may hold the lock for ever.
void FileLock::acquire(const std::string& path, std::chrono::steady_clock::time_point deadline) noexcept {
    bool isNext = false;
    for (;;) {
        if (!file_ || !isAt(path)) {
            if (!open(path)) return end(Outcome::failed, errno);
            isNext = false;
        }
        isNext = isNext || takeTurn(file_.get());
        const int error = !isNext ? EWOULDBLOCK : ::flock(file_.get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
        // Whoever removed the directory has removed the lock file, too; others then lock its successor.
        if (error == 0 && isAt(path)) return end(Outcome::held, 0);
        if (error != 0 && outcomeFor(error) != Outcome::busy) return end(outcomeFor(error), error);
        if (std::chrono::steady_clock::now() >= deadline) return end(Outcome::busy, EWOULDBLOCK);
        std::this_thread::sleep_for(kPollInterval);
    }
}

bool FileLock::open(const std::string& path) noexcept {
    constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;
    constexpr int kFlags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    file_ = FileDescriptor(::open(path.c_str(), kFlags, kPrivate));
    if (!file_) return false;
    // The umask may have taken bits away, and the next process must be able to open the file.
    (void)::fchmod(file_.get(), kPrivate);
    return true;
}

bool FileLock::isAt(const std::string& path) const noexcept {
    struct stat held;
    struct stat named;
    return ::fstat(file_.get(), &held) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

void FileLock::end(Outcome outcome, int errorNumber) noexcept {
    if (file_) (void)setTurn(file_.get(), F_UNLCK);
    outcome_ = outcome;
    errorNumber_ = errorNumber;
}

}  // namespace qlsdk::platform
