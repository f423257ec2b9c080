#include "QLSDKCoreKit/platform/Files.h"

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/files/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/files/FileReading.h"
#include "QLSDKCoreKit/platform/linux/files/FileUnlocking.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kReadPiece = 4096;

FileContent unread(FileOutcome outcome, int errorNumber) noexcept {
    return {.outcome = outcome, .errorNumber = errorNumber};
}

// Files below /proc tell no size, so the end is what counts.
FileContent readToEnd(int descriptor, std::size_t expected, std::size_t ceiling) {
    Data bytes;
    std::size_t used = 0;
    while (used <= ceiling) {
        // One byte of room past the expected end, so that the end is seen without another round.
        bytes.resize(std::min(std::max(expected, used + kReadPiece), ceiling) + 1);
        const ssize_t count = ::read(descriptor, bytes.data() + used, bytes.size() - used);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return unread(FileOutcome::unreadable, errno);
        used += static_cast<std::size_t>(count);
        if (count > 0) continue;
        bytes.resize(used);
        return {.outcome = FileOutcome::read, .bytes = std::move(bytes)};
    }
    return unread(FileOutcome::unfit, EFBIG);
}

// 0 for a file that may be read.
int unfitnessOf(FileOrigin origin, const struct stat& status, std::size_t ceiling) noexcept {
    if (!S_ISREG(status.st_mode)) return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    if (origin == FileOrigin::own && status.st_uid != ::geteuid()) return EPERM;
    return static_cast<std::size_t>(status.st_size) <= ceiling ? 0 : EFBIG;
}

FileContent unopened(int errorNumber) noexcept {
    switch (errorNumber) {
        case ENOENT:
        case ENOTDIR:
            return unread(FileOutcome::absent, errorNumber);
        // A link; a socket, which cannot be opened.
        case ELOOP:
        case ENXIO:
            return unread(FileOutcome::unfit, errorNumber);
        default:
            return unread(FileOutcome::unreadable, errorNumber);
    }
}

int openThroughInterruptions(const char* path, int flags) noexcept {
    int descriptor = -1;
    do descriptor = ::open(path, flags);
    while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

// Whether the path still names this very file.
bool isAt(const std::string& path, const struct stat& status) noexcept {
    struct stat now;
    return ::lstat(path.c_str(), &now) == 0 && now.st_ino == status.st_ino && now.st_dev == status.st_dev;
}

enum class Lock { held, missed, unsupported };

// A rewritten file may be on its way to become the spare that is overwritten. Who holds the lock of the file
// at the path keeps it as it is.
Lock lockAgainstRewriting(int descriptor, const std::string& path, const struct stat& status) noexcept {
    if (::flock(descriptor, LOCK_SH | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? Lock::missed : Lock::unsupported;
    }
    return isAt(path, status) ? Lock::held : Lock::missed;
}

constexpr int kReadAttempts = 64;

}  // namespace

FileContent readContentFrom(FileOrigin origin, const std::string& path, std::size_t ceilingBytes) noexcept {
    // Without O_NONBLOCK the opening of a pipe would wait for its writer.
    const int flags =
        O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (origin == FileOrigin::own ? O_NOFOLLOW : 0);
    for (int attempt = 1;; ++attempt) {
        const FileDescriptor file(openThroughInterruptions(path.c_str(), flags));
        if (!file) return unopened(errno);
        const FileUnlocking unlocking(file.get());
        struct stat status;
        if (::fstat(file.get(), &status) != 0) return unread(FileOutcome::unreadable, errno);
        if (const int unfitness = unfitnessOf(origin, status, ceilingBytes)) {
            return unread(FileOutcome::unfit, unfitness);
        }
        // A writer that was stopped in the middle holds its lock for long; its file at the path is complete.
        if (origin == FileOrigin::own && attempt < kReadAttempts &&
            lockAgainstRewriting(file.get(), path, status) == Lock::missed) {
            std::this_thread::yield();
            continue;
        }
        try {
            return readToEnd(file.get(), static_cast<std::size_t>(status.st_size), ceilingBytes);
        } catch (...) {
            return unread(FileOutcome::unreadable, ENOMEM);
        }
    }
}

std::optional<Data> readFileFrom(FileOrigin origin, const std::string& path,
                                 std::size_t ceilingBytes) noexcept {
    FileContent content = readContentFrom(origin, path, ceilingBytes);
    if (content.outcome != FileOutcome::read) return std::nullopt;
    return std::move(content.bytes);
}

FileContent readFileContent(const std::string& path, std::size_t ceilingBytes) noexcept {
    return readContentFrom(FileOrigin::own, path, ceilingBytes);
}

std::optional<Data> readFile(const std::string& path, std::size_t ceilingBytes) noexcept {
    return readFileFrom(FileOrigin::own, path, ceilingBytes);
}

bool fileExists(const std::string& path) noexcept {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0;
}

}  // namespace qlsdk::platform
