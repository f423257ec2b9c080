#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/linux/internal/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/internal/FileReading.h"
#include "QLSDKCoreKit/platform/linux/internal/FileSizeSignalGuard.h"

// How files are replaced. Renaming over an existing file makes some file systems start writing back at once;
// exchanging the two does not. There is no flush to the disk on purpose: what is kept here need not survive a
// power cut at the price of a flush for every change.

namespace qlsdk::platform {

namespace {

constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;

constexpr std::size_t kMostPieces = 16;

// In one call, so that a file in pieces costs no more than a whole one; what it leaves, piece by piece.
bool writePieces(int descriptor, std::span<const DataView> pieces) noexcept {
    std::array<iovec, kMostPieces> vectors{};
    if (pieces.size() > vectors.size()) return false;
    std::transform(pieces.begin(), pieces.end(), vectors.begin(), [](DataView piece) {
        return iovec{const_cast<std::uint8_t*>(piece.data()), piece.size()};
    });
    const ssize_t count = ::writev(descriptor, vectors.data(), static_cast<int>(pieces.size()));
    if (count < 0 && errno != EINTR) return false;
    auto written = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    for (const DataView piece : pieces) {
        const std::size_t done = std::min(written, piece.size());
        written -= done;
        if (!writeAll(descriptor, piece.subspan(done))) return false;
    }
    return true;
}

bool isExchangeable(const std::string& path) noexcept {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool swapNames(const std::string& left, const std::string& right) noexcept {
    return ::renameat2(AT_FDCWD, left.c_str(), AT_FDCWD, right.c_str(), RENAME_EXCHANGE) == 0;
}

// What becomes of the old file that an exchange leaves under the temporary's name; null means that it goes.
using Keep = const std::string*;

bool replaceByTemporary(const std::string& path, std::span<const DataView> pieces, Keep spare) {
    std::string temporary = path + ".XXXXXX";
    FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) return false;
    const bool written =
        ::fchmod(file.get(), kPrivate) == 0 && writePieces(file.get(), pieces) && file.close();
    if (written && isExchangeable(path) && swapNames(temporary, path)) {
        if (spare == nullptr || ::rename(temporary.c_str(), spare->c_str()) != 0) ::unlink(temporary.c_str());
        return true;
    }
    if (written && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
    ::unlink(temporary.c_str());
    return false;
}

std::string spareOf(const std::string& path) {
    return path + ".spare";
}

/// The spare of a file, locked for this descriptor alone; none when there is no spare, another writer or a
/// reader has it, or it is not what this library leaves.
class Spare {
  public:
    explicit Spare(const std::string& path) noexcept
        : path_(path),
          file_(::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY)) {
        if (file_ && !claim()) file_ = FileDescriptor();
    }
    explicit operator bool() const noexcept { return static_cast<bool>(file_); }

    // Overwritten in place and cut afterwards: a file emptied first would be written back at once.
    [[nodiscard]] bool write(std::span<const DataView> pieces) noexcept {
        std::size_t size = 0;
        for (const DataView piece : pieces) size += piece.size();
        return writePieces(file_.get(), pieces) && (static_cast<std::size_t>(oldSize_) <= size ||
                                                    ::ftruncate(file_.get(), static_cast<off_t>(size)) == 0);
    }

    // The lock is held until the exchange is done, so that no other writer takes this file for its spare.
    [[nodiscard]] bool moveTo(const std::string& path) const noexcept {
        return swapNames(path_, path) || ::rename(path_.c_str(), path.c_str()) == 0;
    }

  private:
    // Whoever had the file open before may have exchanged it into place meanwhile, so its name counts again
    // once it is locked. A second hard link is somebody's copy.
    bool claim() noexcept {
        struct stat status;
        struct stat named;
        if (::flock(file_.get(), LOCK_EX | LOCK_NB) != 0 || ::fstat(file_.get(), &status) != 0 ||
            ::lstat(path_.c_str(), &named) != 0) {
            return false;
        }
        oldSize_ = status.st_size;
        return named.st_ino == status.st_ino && named.st_dev == status.st_dev && S_ISREG(status.st_mode) &&
               status.st_nlink == 1 && status.st_uid == ::geteuid() && (status.st_mode & 07777) == kPrivate;
    }

    const std::string& path_;
    FileDescriptor file_;
    off_t oldSize_ = 0;
};

enum class Rewrite { done, failed, hasNoSpare };

Rewrite rewriteBySpare(const std::string& path, const std::string& sparePath,
                       std::span<const DataView> pieces) noexcept {
    Spare spare(sparePath);
    if (!spare) return Rewrite::hasNoSpare;
    if (spare.write(pieces) && spare.moveTo(path)) return Rewrite::done;
    ::unlink(sparePath.c_str());
    return Rewrite::failed;
}

}  // namespace

bool replaceFile(const std::string& path, DataView bytes) noexcept try {
    const FileSizeSignalGuard guard;
    return replaceByTemporary(path, {&bytes, 1}, nullptr);
} catch (...) {
    return false;
}

bool rewriteFile(const std::string& path, std::span<const DataView> pieces) noexcept try {
    const FileSizeSignalGuard guard;
    const std::string spare = spareOf(path);
    const Rewrite rewrite = rewriteBySpare(path, spare, pieces);
    if (rewrite != Rewrite::hasNoSpare) return rewrite == Rewrite::done;
    return replaceByTemporary(path, pieces, &spare);
} catch (...) {
    return false;
}

bool removeBeforeRewriting(const std::string& path) noexcept {
    return ::unlink(path.c_str()) == 0;
}

bool removeFile(const std::string& path) noexcept try {
    ::unlink(spareOf(path).c_str());
    return ::unlink(path.c_str()) == 0;
} catch (...) {
    return false;
}

}  // namespace qlsdk::platform
