#include "QLSDKCoreKit/platform/linux/files/FileReplacing.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/uio.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/linux/files/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/files/FileSizeSignalGuard.h"
#include "QLSDKCoreKit/platform/linux/files/FileUnlocking.h"
#include "QLSDKCoreKit/platform/linux/files/StateDirectory.h"

// How files are replaced. Renaming over an existing file makes some file systems start writing back at once;
// exchanging the two does not. There is no flush to the disk on purpose, but for the keychain and where a
// host asks for it: what is kept here need not survive a power cut at the price of a flush for every change.

namespace qlsdk::platform {

namespace {

constexpr std::size_t kMostPieces = 16;

bool writeAllAt(int descriptor, DataView bytes, off_t offset) noexcept {
    while (!bytes.empty()) {
        const ssize_t count = ::pwrite(descriptor, bytes.data(), bytes.size(), offset);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
        offset += count;
    }
    return true;
}

bool isExchangeable(const std::string& path) noexcept {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

bool makePrivate(int descriptor) noexcept {
    struct stat status;
    return ::fstat(descriptor, &status) == 0 &&
           ((status.st_mode & 07777) == kPrivateFile || ::fchmod(descriptor, kPrivateFile) == 0);
}

// In one call, so that a file in pieces costs no more than a whole one; what it leaves, piece by piece.
bool writePieces(int descriptor, std::span<const DataView> pieces) noexcept {
    std::array<iovec, kMostPieces> vectors{};
    if (pieces.size() > vectors.size()) return false;
    std::transform(pieces.begin(), pieces.end(), vectors.begin(), [](DataView piece) {
        return iovec{const_cast<std::uint8_t*>(piece.data()), piece.size()};
    });
    const ssize_t count = ::pwritev(descriptor, vectors.data(), static_cast<int>(pieces.size()), 0);
    if (count < 0 && errno != EINTR) return false;
    const off_t written = std::max<ssize_t>(count, 0);
    off_t end = 0;
    for (const DataView piece : pieces) {
        const auto size = static_cast<off_t>(piece.size());
        const off_t done = std::clamp<off_t>(written - end, 0, size);
        if (!writeAllAt(descriptor, piece.subspan(static_cast<std::size_t>(done)), end + done)) return false;
        end += size;
    }
    return true;
}

bool swapNames(const std::string& left, const std::string& right) noexcept {
    return ::renameat2(AT_FDCWD, left.c_str(), AT_FDCWD, right.c_str(), RENAME_EXCHANGE) == 0;
}

bool flushNamesBeside(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const FileDescriptor names(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Some file systems know no flush of a directory: there is nothing to wait for.
    return names && (::fsync(names.get()) == 0 || errno == EINVAL);
}

std::string spareOf(const std::string& path) {
    return path + ".spare";
}

namespace {

/// A new file beside the one at `path`. Its lock tells others that its writer still runs.
class Temporary {
  public:
    explicit Temporary(const std::string& path) {
        // Another process may find the file, and remove it, before its lock is taken.
        constexpr int kAttempts = 8;
        for (int attempt = 0; attempt < kAttempts; ++attempt) {
            name_ = path + kTemporaryMark + "XXXXXX";
            file_ = FileDescriptor(::mkostemp(name_.data(), O_CLOEXEC));
            if (!file_ || isOurs()) break;
        }
        // What is closed before it is renamed says what went wrong with the writing; this holds the lock.
        if (file_) lock_ = FileDescriptor(::fcntl(file_.get(), F_DUPFD_CLOEXEC, 0));
    }
    ~Temporary() { const FileUnlocking unlocking(lock_.get()); }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] FileDescriptor& file() noexcept { return file_; }

  private:
    [[nodiscard]] bool isOurs() const noexcept {
        struct stat status;
        if (::flock(file_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) return false;
        return ::fstat(file_.get(), &status) != 0 || status.st_nlink != 0;
    }

    std::string name_;
    FileDescriptor file_;
    FileDescriptor lock_;
};

bool putInPlace(const std::string& temporary, const std::string& path) noexcept {
    if (!isExchangeable(path) || !swapNames(temporary, path)) {
        return ::rename(temporary.c_str(), path.c_str()) == 0;
    }
    ::unlink(temporary.c_str());
    return true;
}

}  // namespace

bool replaceByTemporary(const std::string& path, std::span<const DataView> pieces, Flush flush) {
    Temporary temporary(path);
    if (!temporary.file()) return false;
    const int file = temporary.file().get();
    const bool written = makePrivate(file) && writePieces(file, pieces) &&
                         (flush == Flush::no || ::fdatasync(file) == 0) && temporary.file().close();
    if (written && putInPlace(temporary.name(), path)) return true;
    const int error = errno;
    ::unlink(temporary.name().c_str());
    errno = error;
    return false;
}

bool replaceFile(const std::string& path, DataView bytes) noexcept try {
    const FileSizeSignalGuard guard;
    return replaceByTemporary(path, {&bytes, 1});
} catch (...) {
    errno = ENOMEM;
    return false;
}

bool makeDirectoryOf(const std::string& path) noexcept try {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) return false;
    const std::string directory = path.substr(0, slash);
    struct stat status;
    if (::stat(directory.c_str(), &status) == 0 || errno != ENOENT) return false;
    makeDirectories(directory);
    return ::stat(directory.c_str(), &status) == 0;
} catch (...) {
    return false;
}

}  // namespace qlsdk::platform
