#include "QLSDKCoreKit/platform/linux/stores/KeychainFile.h"

#include <array>
#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/linux/files/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/files/FileLock.h"
#include "QLSDKCoreKit/platform/linux/files/FileReplacing.h"
#include "QLSDKCoreKit/platform/linux/files/FileSizeSignalGuard.h"

namespace qlsdk::platform {

namespace {

using Clock = std::chrono::steady_clock;

// Small values of few kits; what is larger is not ours. Also the ceiling of what is written.
constexpr std::size_t kFileBytes = std::size_t{64} << 20;
constexpr std::chrono::milliseconds kPollInterval{1};
/// The files that SQLite keeps beside a database.
constexpr std::array kCompanions = {"-journal", "-wal", "-shm"};

// By the database header's "read version".
bool isWriteAhead(DataView image) noexcept {
    constexpr std::size_t kReadVersion = 19;
    return image.size() > kReadVersion && image[kReadVersion] == 2;
}

bool isOwnRegularFile(const struct stat& status) noexcept {
    return S_ISREG(status.st_mode) && status.st_uid == ::geteuid();
}

// SQLite would create the file with the mode that the umask leaves. True when a file of our own is there.
bool prepareFile(const std::string& path) noexcept {
    struct stat status;
    if (::lstat(path.c_str(), &status) == 0) return isOwnRegularFile(status);
    const FileDescriptor file(
        ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kPrivateFile));
    return file && ::fchmod(file.get(), kPrivateFile) == 0;
}

// Tries until nobody is in the way. SQLite would wait inside, where it holds up forks.
template <typename Attempt>
OSStatus patiently(Clock::time_point deadline, const Attempt& attempt) {
    for (;;) {
        const OSStatus status = attempt();
        if (status != errSecInteractionNotAllowed || Clock::now() >= deadline) return status;
        std::this_thread::sleep_for(kPollInterval);
    }
}

}  // namespace

OSStatus keychainStatusFor(int sqlite) noexcept {
    switch (sqlite & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return errSecSuccess;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return errSecInteractionNotAllowed;
        case SQLITE_CANTOPEN:
            return errSecNotAvailable;
        case SQLITE_CONSTRAINT:
            return errSecDuplicateItem;
        case SQLITE_MISMATCH:
            return errSecParam;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return kKeychainDamaged;
        default:
            return errSecIO;
    }
}

OSStatus KeychainFile::read(const Work& work) const {
    const FileContent content = readFileContent(path_, kFileBytes);
    if (content.outcome == FileOutcome::absent) return errSecItemNotFound;
    if (content.outcome != FileOutcome::read) {
        return refused(errSecNotAvailable, "the keychain cannot be read", content.errorNumber);
    }
    const DataView image = content.bytes;
    OSStatus status = kKeychainDamaged;
    if (!isWriteAhead(image) && !hasCompanion()) {
        const SqliteSection section;
        SqliteConnection connection(image);
        status = connection.status() == SQLITE_OK ? work(connection) : keychainStatusFor(connection.status());
    }
    // Also what another program was just changing looks damaged.
    if (status == kKeychainDamaged) status = readThroughSqlite(work);
    if (status == kKeychainDamaged) return refused(errSecIO, "the keychain is damaged");
    return status;
}

OSStatus KeychainFile::readThroughSqlite(const Work& work) const {
    const OSStatus status = patiently(Clock::now() + kStoreTimeout, [&] {
        const FileSizeSignalGuard guard;
        const SqliteSection section;
        SqliteConnection connection(path_);
        return connection.status() == SQLITE_OK ? work(connection) : keychainStatusFor(connection.status());
    });
    if (status == errSecInteractionNotAllowed) return refused(status, "another program changes the keychain");
    return status;
}

OSStatus KeychainFile::write(const Work& prepare, const Work& work) const {
    const Clock::time_point deadline = Clock::now() + kStoreTimeout;
    const FileLock lock(path_ + ".lock", deadline);
    if (lock.outcome() == FileLock::Outcome::busy) {
        return refused(errSecInteractionNotAllowed, "another process holds the keychain's lock");
    }
    if (lock.outcome() == FileLock::Outcome::failed) {
        return refused(errSecNotAvailable, "the keychain cannot be locked", lock.errorNumber());
    }
    if (lock.outcome() == FileLock::Outcome::unsupported) {
        reportDiagnostic({DiagnosticKind::failedWrite, "the keychain is written without a lock",
                          lock.errorNumber(), path_});
    }
    const FileSizeSignalGuard guard;
    // They hold secrets.
    removeAbandonedTemporaries(path_);
    const auto attempt = [&] { return changed(prepare, work); };
    if (!prepareFile(path_))
        return refused(errSecNotAvailable, "the keychain is no file of this user", errno);
    OSStatus status = patiently(deadline, attempt);
    if (status == kKeychainDamaged) {
        // Under the lock: whoever waited for it finds the new file.
        if (!setAside() || !prepareFile(path_)) return refused(errSecIO, "the damaged keychain stays", errno);
        status = patiently(deadline, attempt);
    }
    if (status == kKeychainDamaged) return errSecIO;
    if (status == errSecInteractionNotAllowed) return refused(status, "another program changes the keychain");
    return status;
}

OSStatus KeychainFile::changed(const Work& prepare, const Work& work) const {
    // Programs that open the database itself wait for the end of this transaction, or find that the file was
    // replaced. Nothing is ever written through it.
    std::optional<SqliteConnection> others;
    std::optional<Data> image;
    const auto change = [&] {
        const SqliteSection section;
        others.emplace(path_);
        int result = others->status();
        // A no-op but for write-ahead mode, which this ends.
        if (result == SQLITE_OK) result = others->execute("PRAGMA journal_mode = DELETE");
        if (result == SQLITE_OK) result = others->execute("BEGIN IMMEDIATE");
        if (result != SQLITE_OK) return keychainStatusFor(result);
        image = others->image();
        if (!image) return OSStatus{errSecIO};
        if (isWriteAhead(*image)) return OSStatus{errSecInteractionNotAllowed};
        SqliteConnection copy{DataView(*image)};
        OSStatus status = keychainStatusFor(copy.status());
        if (status == errSecSuccess) status = prepare(copy);
        if (status == errSecSuccess) status = work(copy);
        if (status == errSecSuccess) image = copy.image();
        return status;
    };
    OSStatus status = change();
    if (status == errSecSuccess) status = image ? replace(*image) : errSecIO;
    const SqliteSection section;
    others.reset();
    return status;
}

// Flushed: an installation that loses its identity in a power cut is another one.
OSStatus KeychainFile::replace(DataView image) const {
    if (image.size() > kFileBytes) return refused(errSecIO, "the keychain would grow too large");
    if (replaceByTemporary(path_, {&image, 1}, Flush::toMedium)) return errSecSuccess;
    return refused(errSecIO, "the keychain cannot be written", errno);
}

bool KeychainFile::setAside() const {
    const std::string aside = path_ + kDamagedSuffix;
    for (const char* companion : kCompanions) {
        ::rename((path_ + companion).c_str(), (aside + companion).c_str());
    }
    if (!setFileAside(path_, kDamagedSuffix)) return false;
    reportDiagnostic({DiagnosticKind::damagedFile, "the keychain is damaged and was set aside", 0, path_});
    return true;
}

bool KeychainFile::hasCompanion() const {
    for (const char* companion : kCompanions) {
        if (fileExists(path_ + companion)) return true;
    }
    return false;
}

OSStatus KeychainFile::refused(OSStatus status, const char* cause, int errorNumber) const {
    reportDiagnostic({DiagnosticKind::keychain, cause, errorNumber, path_});
    return status;
}

}  // namespace qlsdk::platform
