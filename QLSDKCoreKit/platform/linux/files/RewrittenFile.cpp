#include "QLSDKCoreKit/platform/RewrittenFile.h"

#include <cerrno>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/linux/files/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/files/FileReplacing.h"
#include "QLSDKCoreKit/platform/linux/files/FileSizeSignalGuard.h"
#include "QLSDKCoreKit/platform/linux/threads/ForkAware.h"

// A change costs no more than writing the bytes and exchanging two names, because both files stay open. Their
// names are looked at again for every change all the same: another process may have exchanged the files or
// removed them.

namespace qlsdk::platform {

namespace {

constexpr int kFirstAfterStandardStreams = 3;

// An exchange would move anything, a directory too.
bool isFileOrAbsent(const std::string& path) noexcept {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0 ? S_ISREG(status.st_mode) : errno == ENOENT;
}

/// A file that stays open for long. A host that closes descriptors which are not its own may have another
/// file under the number by now; that one is neither written nor locked nor closed.
class KeptFile {
  public:
    KeptFile() noexcept = default;
    explicit KeptFile(FileDescriptor file) noexcept : file_(std::move(file)) {
        if (file_ && ::fstat(file_.get(), &opened_) != 0) file_ = FileDescriptor();
    }
    KeptFile(KeptFile&&) noexcept = default;
    KeptFile& operator=(KeptFile&& other) noexcept {
        std::swap(file_, other.file_);
        std::swap(opened_, other.opened_);
        std::swap(isWritten_, other.isWritten_);
        return *this;
    }
    ~KeptFile() {
        if (file_ && !isOpen()) (void)file_.release();
    }

    [[nodiscard]] int get() const noexcept { return file_.get(); }
    explicit operator bool() const noexcept { return static_cast<bool>(file_); }
    [[nodiscard]] uid_t owner() const noexcept { return opened_.st_uid; }
    [[nodiscard]] bool is(const struct stat& other) const noexcept {
        return other.st_ino == opened_.st_ino && other.st_dev == opened_.st_dev;
    }
    /// Whether all that it holds was written through this object.
    [[nodiscard]] bool isWritten() const noexcept { return isWritten_; }
    void setWritten() noexcept { isWritten_ = true; }
    [[nodiscard]] bool isOpen() const noexcept {
        struct stat now;
        return ::fstat(file_.get(), &now) == 0 && is(now);
    }

  private:
    FileDescriptor file_;
    struct stat opened_ {};
    bool isWritten_ = false;
};

// The spare, made where there is none.
KeptFile openSpare(const std::string& sparePath, const std::string& path) noexcept {
    constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    FileDescriptor file(::open(sparePath.c_str(), kFlags));
    if (!file && errno == ENOENT && isFileOrAbsent(path)) {
        file = FileDescriptor(::open(sparePath.c_str(), kFlags | O_CREAT | O_EXCL, kPrivateFile));
        if (file && !makePrivate(file.get())) return KeptFile();
    }
    if (file && file.get() < kFirstAfterStandardStreams) {
        // What a host prints after it has closed a standard stream would end up in it.
        file = FileDescriptor(::fcntl(file.get(), F_DUPFD_CLOEXEC, kFirstAfterStandardStreams));
    }
    KeptFile kept(std::move(file));
    return kept && kept.owner() == ::geteuid() ? std::move(kept) : KeptFile();
}

/// The lock of an open file, until the end of the block.
class Lock {
  public:
    explicit Lock(int descriptor) noexcept
        : descriptor_(::flock(descriptor, LOCK_EX | LOCK_NB) == 0 ? descriptor : -1) {}
    ~Lock() {
        if (descriptor_ >= 0) ::flock(descriptor_, LOCK_UN);
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    explicit operator bool() const noexcept { return descriptor_ >= 0; }

  private:
    const int descriptor_;
};

// Whether an exchange may make a spare of it. A second hard link is somebody's copy, another mode was
// somebody else's doing.
bool isFitForSpare(const struct stat& status) noexcept {
    return S_ISREG(status.st_mode) && status.st_nlink == 1 && (status.st_mode & 07777) == kPrivateFile &&
           status.st_uid == ::geteuid();
}

bool isFitForSpare(const std::string& path) noexcept {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0 && isFitForSpare(status);
}

// Another user's process has left it and would keep its content for good.
void removeForeignSpare(const std::string& path) noexcept {
    struct stat status;
    if (::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid != ::geteuid()) {
        ::unlink(path.c_str());
    }
}

// Overwritten in place and cut afterwards: a file emptied first would be written back at once.
bool overwrite(int descriptor, off_t oldSize, std::span<const DataView> pieces) noexcept {
    off_t size = 0;
    for (const DataView piece : pieces) size += static_cast<off_t>(piece.size());
    return writePieces(descriptor, pieces) && (oldSize <= size || ::ftruncate(descriptor, size) == 0);
}

enum class Outcome { done, failed, hasNoSpare };

}  // namespace

class RewrittenFile::Files final : public ForkAware {
  public:
    explicit Files(std::string path) : path_(std::move(path)), sparePath_(spareOf(path_)) {}

    bool rewrite(std::span<const DataView> pieces, Flush flush) {
        const bool wasOpen = static_cast<bool>(spare_);
        if (!wasOpen) spare_ = openSpare(sparePath_, path_);
        const Outcome outcome = spare_ ? rewriteBySpare(pieces, flush) : Outcome::hasNoSpare;
        if (outcome == Outcome::done) return flush == Flush::no || flushNamesBeside(path_);
        forget();
        if (outcome == Outcome::failed) return false;
        // What was kept open may have lost its name to another spare. Else the name is left as it is: only
        // who has the spare's lock may change what it names, or a writer would exchange another's half file.
        if (wasOpen) return rewrite(pieces, flush);
        removeForeignSpare(sparePath_);
        const bool isDone = replaceByTemporary(path_, pieces, flush) ||
                            (makeDirectoryOf(path_) && replaceByTemporary(path_, pieces, flush));
        return isDone && (flush == Flush::no || flushNamesBeside(path_));
    }

    bool remove(Flush flush) {
        current_ = KeptFile();
        return removeOrEmpty(path_) && (flush == Flush::no || flushNamesBeside(path_));
    }

    bool erase() noexcept {
        forget();
        return eraseFile(path_);
    }

    // A lock belongs to the open file, which the child shares with its parent; it opens its own.
    void restartInChild() noexcept override { forget(); }

  private:
    Outcome rewriteBySpare(std::span<const DataView> pieces, Flush flush) noexcept {
        if (!spare_.isOpen()) return Outcome::hasNoSpare;
        // Held until the exchange is done, so that no other writer takes this file for its spare. Whoever had
        // it open before may have exchanged it into place meanwhile, so its name counts again once it is
        // locked.
        const Lock lock(spare_.get());
        struct stat named;
        if (!lock || ::lstat(sparePath_.c_str(), &named) != 0 || !spare_.is(named)) {
            return Outcome::hasNoSpare;
        }
        if (!isFitForSpare(named)) {
            ::unlink(sparePath_.c_str());
            return Outcome::hasNoSpare;
        }
        const Outcome outcome = overwriteSpare(named.st_size, pieces, flush) ? putInPlace() : Outcome::failed;
        if (outcome == Outcome::failed) {
            const int error = errno;
            ::unlink(sparePath_.c_str());
            errno = error;
        }
        return outcome;
    }

    // What an earlier process has left may have no checksum that would betray a mixture with it after a power
    // cut. Emptied, it takes no part in one: the file gets other blocks.
    bool overwriteSpare(off_t oldSize, std::span<const DataView> pieces, Flush flush) noexcept {
        if (!spare_.isWritten() && oldSize != 0) {
            if (::ftruncate(spare_.get(), 0) != 0) return false;
            oldSize = 0;
        }
        spare_.setWritten();
        return overwrite(spare_.get(), oldSize, pieces) &&
               (flush == Flush::no || ::fdatasync(spare_.get()) == 0);
    }

    Outcome putInPlace() noexcept {
        // A file that was not put there by an exchange may be unfit to become the spare; it gives way.
        const bool mayExchange = current_ || isFitForSpare(path_);
        if (!mayExchange || !swapNames(sparePath_, path_)) {
            if (::rename(sparePath_.c_str(), path_.c_str()) != 0) {
                return errno == ENOENT ? Outcome::hasNoSpare : Outcome::failed;
            }
            current_ = KeptFile();
        }
        std::swap(spare_, current_);
        return Outcome::done;
    }

    void forget() noexcept {
        spare_ = KeptFile();
        current_ = KeptFile();
    }

    const std::string path_;
    const std::string sparePath_;
    KeptFile spare_;
    KeptFile current_;
};

RewrittenFile::RewrittenFile(std::string path) : files_(std::make_shared<Files>(std::move(path))) {
    watchForks(files_);
}

RewrittenFile::~RewrittenFile() = default;

bool RewrittenFile::rewrite(std::span<const DataView> pieces, Flush flush) noexcept try {
    const FileSizeSignalGuard guard;
    return files_->rewrite(pieces, flush);
} catch (...) {
    errno = ENOMEM;
    return false;
}

bool RewrittenFile::remove(Flush flush) noexcept try { return files_->remove(flush); } catch (...) {
    errno = ENOMEM;
    return false;
}

bool RewrittenFile::erase() noexcept {
    return files_->erase();
}

}  // namespace qlsdk::platform
