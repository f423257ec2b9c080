#include "QLSDKCoreKit/platform/Files.h"

#include <algorithm>
#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/internal/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/internal/FileReading.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kReadPiece = 4096;

// Absent at a read error or past the ceiling. Files below /proc tell no size, so the end is what counts.
std::optional<Data> readToEnd(int descriptor, std::size_t expected, std::size_t ceiling) {
    Data bytes;
    std::size_t used = 0;
    while (used <= ceiling) {
        // One byte of room past the expected end, so that the end is seen without another round.
        bytes.resize(std::min(std::max(expected, used + kReadPiece), ceiling) + 1);
        const ssize_t count = ::read(descriptor, bytes.data() + used, bytes.size() - used);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return std::nullopt;
        used += static_cast<std::size_t>(count);
        if (count > 0) continue;
        bytes.resize(used);
        return bytes;
    }
    return std::nullopt;
}

bool isReadable(FileOrigin origin, const struct stat& status, std::size_t ceiling) noexcept {
    return S_ISREG(status.st_mode) && static_cast<std::size_t>(status.st_size) <= ceiling &&
           (origin == FileOrigin::system || status.st_uid == ::geteuid());
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

std::optional<Data> readFileFrom(FileOrigin origin, const std::string& path,
                                 std::size_t ceilingBytes) noexcept {
    // Without O_NONBLOCK the opening of a pipe would wait for its writer.
    const int flags =
        O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (origin == FileOrigin::own ? O_NOFOLLOW : 0);
    for (int attempt = 1;; ++attempt) {
        const FileDescriptor file(::open(path.c_str(), flags));
        struct stat status;
        if (!file || ::fstat(file.get(), &status) != 0 || !isReadable(origin, status, ceilingBytes)) {
            return std::nullopt;
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
            return std::nullopt;
        }
    }
}

std::optional<Data> readFile(const std::string& path, std::size_t ceilingBytes) noexcept {
    return readFileFrom(FileOrigin::own, path, ceilingBytes);
}

bool fileExists(const std::string& path) noexcept {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0;
}

}  // namespace qlsdk::platform
