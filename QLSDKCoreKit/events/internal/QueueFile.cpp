#include "QLSDKCoreKit/events/internal/QueueFile.h"

#include <cerrno>
#include <utility>

#include "QLSDKCoreKit/control/Durability.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Files.h"

namespace qlsdk {

namespace {

using Kind = platform::DiagnosticKind;

void tell(Kind kind, const char* cause, int errorNumber, const std::string& path) noexcept try {
    platform::reportDiagnostic({.kind = kind, .cause = cause, .errorNumber = errorNumber, .path = path});
} catch (...) {
    // Without the memory for it, nobody hears.
}

platform::Flush wantedFlush() noexcept {
    return platform::durability() == platform::Durability::powerCut ? platform::Flush::toMedium
                                                                    : platform::Flush::no;
}

}  // namespace

QueueFile::QueueFile(std::string path) : path_(std::move(path)) {
    if (!path_.empty()) file_.emplace(path_);
}

std::optional<QueueArchive> QueueFile::load() {
    if (!file_) return std::nullopt;
    platform::removeAbandonedTemporaries(path_);
    return read();
}

std::optional<QueueArchive> QueueFile::loadAgain() {
    std::optional<QueueArchive> archive = read();
    // Without a descriptor nothing could be written either, so waiting costs nothing.
    if (!isUnread_ || readError_ == EMFILE || readError_ == ENFILE) return archive;
    isUnread_ = !platform::setFileAside(path_, platform::kUnreadableSuffix) && errno != ENOENT;
    return archive;
}

std::optional<QueueArchive> QueueFile::read() {
    ArchiveReading reading = queueArchiveReading(path_);
    isUnread_ = reading.outcome == ArchiveOutcome::unreadable;
    readError_ = reading.errorNumber;
    switch (reading.outcome) {
        case ArchiveOutcome::read:
            return std::move(reading.archive);
        case ArchiveOutcome::absent:
            break;
        case ArchiveOutcome::damaged:
            tell(Kind::damagedFile, "the records of an earlier process cannot be decoded",
                 reading.errorNumber, path_);
            (void)platform::setFileAside(path_, platform::kDamagedSuffix);
            break;
        case ArchiveOutcome::unreadable:
            tell(Kind::unreadableFile, "the records of an earlier process cannot be read",
                 reading.errorNumber, path_);
            break;
    }
    return std::nullopt;
}

bool QueueFile::write(std::span<const DataView> pieces) noexcept {
    if (!file_ || isUnread_) return false;
    std::size_t size = 0;
    for (const DataView piece : pieces) size += piece.size();
    // What no process could read again stays in memory alone.
    errno = EFBIG;
    if (size != 0 && size <= kQueueArchiveCeilingBytes && file_->rewrite(pieces, wantedFlush())) return true;
    tellFailedWrite(errno);
    return false;
}

void QueueFile::tellFailedWrite(int errorNumber) const noexcept {
    tell(Kind::failedWrite, "the records that wait could not be written", errorNumber, path_);
}

bool QueueFile::remove() noexcept {
    if (!file_ || isUnread_ || file_->remove(wantedFlush())) return true;
    tell(Kind::failedWrite, "the file of the records that wait could be neither removed nor emptied", errno,
         path_);
    return false;
}

void QueueFile::erase() noexcept {
    isUnread_ = false;
    // What stays is told by the one who has refused.
    if (file_) (void)file_->erase();
}

}  // namespace qlsdk
