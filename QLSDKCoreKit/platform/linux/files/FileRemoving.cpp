#include <algorithm>
#include <cerrno>
#include <ctime>
#include <memory>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/linux/files/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/files/FileReplacing.h"
#include "QLSDKCoreKit/platform/linux/files/FileUnlocking.h"

// How files go, and what was left beside them.

namespace qlsdk::platform {

namespace {

constexpr int kCarefully = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

bool isOwn(const struct stat& status) noexcept {
    return S_ISREG(status.st_mode) && status.st_uid == ::geteuid();
}

FileDescriptor openForWriting(const std::string& path) noexcept {
    FileDescriptor file(::open(path.c_str(), O_WRONLY | kCarefully));
    if (file || errno != EACCES) return file;
    // A file that was restored without the permission to write: its owner may give it back.
    const FileDescriptor readable(::open(path.c_str(), O_RDONLY | kCarefully));
    if (!readable || ::fchmod(readable.get(), kPrivateFile) != 0) return file;
    return FileDescriptor(::open(path.c_str(), O_WRONLY | kCarefully));
}

// A second hard link is somebody's copy and keeps its content.
bool emptyInPlace(const std::string& path) noexcept {
    const FileDescriptor file = openForWriting(path);
    struct stat status;
    return file && ::fstat(file.get(), &status) == 0 && isOwn(status) && status.st_nlink == 1 &&
           ::ftruncate(file.get(), 0) == 0;
}

enum class Removal { removed, absent, emptied, failed };

Removal removeOrEmptyFile(const std::string& path) noexcept {
    if (::unlink(path.c_str()) == 0) return Removal::removed;
    const int error = errno;
    // A directory is nothing that we have put there.
    if (error == ENOENT || error == ENOTDIR || error == EISDIR) return Removal::absent;
    const bool emptied = emptyInPlace(path);
    errno = error;
    return emptied ? Removal::emptied : Removal::failed;
}

constexpr std::size_t kRandomCharacters = 6;

// The characters that the system puts in the place of the X's.
bool isTemporaryName(std::string_view name, std::string_view prefix) noexcept {
    const auto isAlphanumeric = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    };
    return name.size() == prefix.size() + kRandomCharacters && name.starts_with(prefix) &&
           std::all_of(name.end() - kRandomCharacters, name.end(), isAlphanumeric);
}

// A file system without locks cannot tell whether its writer still runs; none takes so long.
bool isOld(const struct stat& status) noexcept {
    constexpr std::time_t kSeconds = 3600;
    return status.st_mtime < std::time(nullptr) - kSeconds;
}

// Its writer holds its lock until it has another name or is gone.
void removeIfAbandoned(int directory, const char* name) noexcept {
    const FileDescriptor file(::openat(directory, name, O_RDONLY | kCarefully));
    struct stat opened;
    struct stat named;
    if (!file || ::fstat(file.get(), &opened) != 0 || !isOwn(opened)) return;
    const FileUnlocking unlocking(file.get());
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && (errno == EWOULDBLOCK || !isOld(opened))) return;
    if (::fstatat(directory, name, &named, AT_SYMLINK_NOFOLLOW) != 0) return;
    if (named.st_ino == opened.st_ino && named.st_dev == opened.st_dev) ::unlinkat(directory, name, 0);
}

}  // namespace

bool removeOrEmpty(const std::string& path) noexcept {
    return removeOrEmptyFile(path) != Removal::failed;
}

bool removeFile(const std::string& path) noexcept try {
    (void)removeOrEmptyFile(spareOf(path));
    return removeOrEmptyFile(path) == Removal::removed;
} catch (...) {
    return false;
}

bool setFileAside(const std::string& path, const char* suffix) noexcept try {
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0) return false;
    errno = EINVAL;
    return S_ISREG(status.st_mode) && ::rename(path.c_str(), (path + suffix).c_str()) == 0;
} catch (...) {
    errno = ENOMEM;
    return false;
}

namespace {

// False when the directory could not be looked through for now, and `errno` says why.
bool removeTemporariesOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string prefix = path.substr(slash == std::string::npos ? 0 : slash + 1) + kTemporaryMark;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(directory.c_str()), ::closedir);
    if (entries == nullptr) return errno != ENOMEM && errno != EMFILE && errno != ENFILE;
    while (const dirent* entry = ::readdir(entries.get())) {
        if (isTemporaryName(entry->d_name, prefix)) removeIfAbandoned(::dirfd(entries.get()), entry->d_name);
    }
    return true;
}

}  // namespace

void removeAbandonedTemporaries(const std::string& path) noexcept try {
    (void)removeTemporariesOf(path);
} catch (...) {
    // Without memory they stay until the next time.
}

bool eraseFile(const std::string& path) noexcept try {
    int error = 0;
    for (const std::string& name : {path, spareOf(path), path + kUnreadableSuffix, path + kDamagedSuffix}) {
        if (!removeOrEmpty(name)) error = errno;
    }
    if (!removeTemporariesOf(path)) error = errno;
    errno = error;
    return error == 0;
} catch (...) {
    errno = ENOMEM;
    return false;
}

}  // namespace qlsdk::platform
