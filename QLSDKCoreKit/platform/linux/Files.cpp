#include "QLSDKCoreKit/platform/Files.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/internal/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/internal/FileReading.h"
#include "QLSDKCoreKit/platform/linux/internal/FileSizeSignalGuard.h"

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

bool writeTemporary(FileDescriptor descriptor, DataView bytes) noexcept {
    const FileSizeSignalGuard guard;
    return ::fchmod(descriptor.get(), S_IRUSR | S_IWUSR) == 0 && writeAll(descriptor.get(), bytes) &&
           descriptor.close();
}

// Puts the finished temporary file in place. Renaming over an existing file makes some file systems start
// writing back at once; exchanging the two and removing the old one does not. There is no flush to the disk
// on purpose: what is kept here need not survive a power cut at the price of a flush for every change.
bool moveIntoPlace(const std::string& temporary, const std::string& path) noexcept {
    struct stat status;
    const bool replaces = ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    if (replaces && ::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE) == 0) {
        ::unlink(temporary.c_str());
        return true;
    }
    return ::rename(temporary.c_str(), path.c_str()) == 0;
}

}  // namespace

std::optional<Data> readFileFrom(FileOrigin origin, const std::string& path,
                                 std::size_t ceilingBytes) noexcept {
    // Without O_NONBLOCK the opening of a pipe would wait for its writer.
    const int flags =
        O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (origin == FileOrigin::own ? O_NOFOLLOW : 0);
    const FileDescriptor file(::open(path.c_str(), flags));
    struct stat status;
    if (!file || ::fstat(file.get(), &status) != 0 || !isReadable(origin, status, ceilingBytes)) {
        return std::nullopt;
    }
    try {
        return readToEnd(file.get(), static_cast<std::size_t>(status.st_size), ceilingBytes);
    } catch (...) {
        return std::nullopt;
    }
}

bool writeAll(int descriptor, DataView bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

std::optional<Data> readFile(const std::string& path, std::size_t ceilingBytes) noexcept {
    return readFileFrom(FileOrigin::own, path, ceilingBytes);
}

bool replaceFile(const std::string& path, DataView bytes) noexcept {
    try {
        std::string temporary = path + ".XXXXXX";
        FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
        if (!file) return false;
        if (writeTemporary(std::move(file), bytes) && moveIntoPlace(temporary, path)) return true;
        ::unlink(temporary.c_str());
        return false;
    } catch (...) {
        return false;
    }
}

bool removeFile(const std::string& path) noexcept {
    return ::unlink(path.c_str()) == 0;
}

bool fileExists(const std::string& path) noexcept {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0;
}

}  // namespace qlsdk::platform
