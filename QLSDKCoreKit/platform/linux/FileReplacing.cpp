#include "QLSDKCoreKit/platform/linux/internal/FileReplacing.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/uio.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/linux/internal/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/internal/FileSizeSignalGuard.h"

// How files are replaced. Renaming over an existing file makes some file systems start writing back at once;
// exchanging the two does not. There is no flush to the disk on purpose: what is kept here need not survive a
// power cut at the price of a flush for every change.

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

std::string spareOf(const std::string& path) {
    return path + ".spare";
}

bool replaceByTemporary(const std::string& path, std::span<const DataView> pieces) {
    std::string temporary = path + ".XXXXXX";
    FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) return false;
    const bool written = makePrivate(file.get()) && writePieces(file.get(), pieces) && file.close();
    if (written && isExchangeable(path) && swapNames(temporary, path)) {
        ::unlink(temporary.c_str());
        return true;
    }
    if (written && ::rename(temporary.c_str(), path.c_str()) == 0) return true;
    ::unlink(temporary.c_str());
    return false;
}

bool replaceFile(const std::string& path, DataView bytes) noexcept try {
    const FileSizeSignalGuard guard;
    return replaceByTemporary(path, {&bytes, 1});
} catch (...) {
    return false;
}

bool removeFile(const std::string& path) noexcept try {
    ::unlink(spareOf(path).c_str());
    return ::unlink(path.c_str()) == 0;
} catch (...) {
    return false;
}

}  // namespace qlsdk::platform
