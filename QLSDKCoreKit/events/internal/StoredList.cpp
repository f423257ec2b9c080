#include "QLSDKCoreKit/events/internal/StoredList.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/control/Durability.h"
#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/internal/ForkGeneration.h"

namespace qlsdk {

namespace {

/// A write of so many records costs as much as the work for so many. Shorter lists cost as much as this one:
/// the exchange of names is most of it.
constexpr std::size_t kLeastWorkOfAWrite = 1000;

bool isFromArchive(const platform::ArchivedObject& element) {
    const auto record = eventWrapperOf(element);
    return record == nullptr || record->isFromArchive();
}

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

StoredList::StoredList(std::string path, platform::DeliveryCounters& deliveries)
    : deliveries_(deliveries),
      path_(std::move(path)),
      file_(path_),
      encoded_(kQLSDKUnsentEventsKey, kQLSDKMaxSequenceIdKey) {}

void StoredList::load() {
    if (const std::optional<QueueArchive> archive = file_.load()) takeOver(*archive);
}

void StoredList::loadUnread() {
    if (!file_.isUnread()) return;
    if (const std::optional<QueueArchive> archive = file_.loadAgain()) takeOver(*archive);
}

void StoredList::takeOver(const QueueArchive& archive) {
    const auto added = encoded_.elements();
    try {
        std::vector<platform::ArchivedObject> whole(archive.unsentEvents.rbegin(),
                                                    archive.unsentEvents.rend());
        whole.insert(whole.end(), added.begin(), added.end());
        renumber(archive.maxSequenceId);
        encoded_.assign(std::move(whole));
    } catch (...) {
        // Without the memory for it the file waits to be read once more, and nothing is written until then.
        file_.keepUnread();
        return;
    }
    maxSequenceId_ += archive.maxSequenceId;
    mayHoldLoaded_ = !archive.unsentEvents.empty();
    owe(0);
}

void StoredList::renumber(std::uint64_t difference) noexcept {
    for (const platform::ArchivedObject& event : encoded_.elements()) {
        const auto record = eventWrapperOf(event);
        if (record != nullptr) record->setSequenceId(record->sequenceId() + difference);
    }
}

void StoredList::add(const platform::ArchivedObject& record) {
    encoded_.pushFront(record);
    owe(1);
}

void StoredList::add(const EventList& records) {
    for (const platform::ArchivedObject& record : records) add(record);
    // Also when there are none.
    owe(0);
}

EventList StoredList::sendable() const {
    const auto elements = encoded_.elements();
    EventList records;
    records.reserve(elements.size());
    std::copy_if(elements.rbegin(), elements.rend(), std::back_inserter(records),
                 [this](const auto& element) { return heldBack_.empty() || !isFromArchive(element); });
    return records;
}

void StoredList::holdBack() {
    if (!mayHoldLoaded_) return;
    const std::size_t counted = heldBack_.size();
    heldBack_.clear();
    // A file that can be written, removed or emptied now is not read by the next process with what is sent
    // here.
    mayHoldLoaded_ = !write() && !file_.remove();
    if (!mayHoldLoaded_) return;
    const auto elements = encoded_.elements();
    std::copy_if(elements.rbegin(), elements.rend(), std::back_inserter(heldBack_), isFromArchive);
    if (heldBack_.size() <= counted) return;
    deliveries_.add(platform::Delivery::heldBack, heldBack_.size() - counted);
    platform::reportDiagnostic(
        {.kind = platform::DiagnosticKind::records,
         .cause = "records are held back, because each process to come would send them again",
         .path = path_});
}

void StoredList::keepOnly(const EventList& staying) {
    std::vector<platform::ArchivedObject> whole(heldBack_.rbegin(), heldBack_.rend());
    whole.insert(whole.end(), staying.begin(), staying.end());
    encoded_.assign(std::move(whole));
    owe(staying.size());
    unwritten_ = staying.size();
    haveLeft_ = true;
}

void StoredList::discard() noexcept {
    deliveries_.add(platform::Delivery::discarded, size());
    encoded_.clear();
    heldBack_.clear();
    mayHoldLoaded_ = false;
    isOwed_ = false;
    unwritten_ = 0;
    work_ = 0;
    haveLeft_ = false;
    maxSequenceId_ = 0;
    file_.erase();
}

void StoredList::owe(std::size_t records) noexcept {
    const std::uint64_t generation = platform::forkGeneration();
    if (std::exchange(forkGeneration_, generation) != generation) {
        unwritten_ = 0;
        work_ = 0;
        haveLeft_ = false;
    }
    isOwed_ = true;
    unwritten_ += records;
    work_ += records + 1;
}

void StoredList::writeOwed() noexcept {
    if (isOwed_ && forkGeneration_ == platform::forkGeneration()) (void)write();
}

bool StoredList::isWriteDue() const noexcept {
    return isOwed_ && work_ >= std::max(kLeastWorkOfAWrite, size());
}

bool StoredList::write() noexcept {
    bool isWritten = false;
    try {
        isWritten = file_.write(encoded_.file(maxSequenceId_));
    } catch (...) {
        file_.tellFailedWrite(ENOMEM);
    }
    // An old file would have the next process send once more what has left the list.
    if (!isWritten && haveLeft_) (void)file_.remove();
    if (!isWritten) deliveries_.add(platform::Delivery::lostToFailedWrite, unwritten_);
    isOwed_ = false;
    unwritten_ = 0;
    work_ = 0;
    haveLeft_ = false;
    return isWritten;
}

}  // namespace qlsdk
