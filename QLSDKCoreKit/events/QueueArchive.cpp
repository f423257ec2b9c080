#include "QLSDKCoreKit/events/internal/QueueArchive.h"

#include <array>
#include <utility>

#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/platform/Files.h"

namespace qlsdk {

namespace {

using platform::ArchivedObject;

constexpr std::array kClasses = {
    platform::ArchivableClass{EventWrapper::kClassName, EventWrapper::initWithCoder},
    platform::ArchivableClass{EncodablePicoproto::kClassName, EncodablePicoproto::initWithCoder},
};

}  // namespace

std::optional<QueueArchive> readQueueArchive(const std::string& path) {
    if (path.empty()) return std::nullopt;
    const std::optional<Data> bytes = platform::readFile(path, kQueueArchiveCeilingBytes);
    if (!bytes) return std::nullopt;
    const std::optional<ArchivedObject> root = platform::unarchiveRootObject(*bytes, kClasses);
    const std::optional<ArchivedObject::Entries> entries = root ? root->entries() : std::nullopt;
    if (!entries) return std::nullopt;

    QueueArchive archive;
    for (const auto& [key, object] : *entries) {
        if (key == kQLSDKUnsentEventsKey) archive.unsentEvents = object.list().value_or(EventList());
        // Read as signed, kept as the same bits: what the queue writes above the signed maximum comes back.
        if (key == kQLSDKMaxSequenceIdKey) {
            archive.maxSequenceId = static_cast<std::uint64_t>(object.value().longValue());
        }
    }
    return archive;
}

QueueArchiveWriter::QueueArchiveWriter(std::string path)
    : bytes_(kQLSDKUnsentEventsKey, kQLSDKMaxSequenceIdKey) {
    if (!path.empty()) file_.emplace(std::move(path));
}

bool QueueArchiveWriter::write(std::uint64_t maxSequenceId) {
    if (!file_) return false;
    const auto pieces = bytes_.file(maxSequenceId);
    return !pieces.empty() && file_->rewrite(pieces);
}

void QueueArchiveWriter::removeFile() noexcept {
    if (file_) file_->remove();
}

void QueueArchiveWriter::eraseFile() noexcept {
    if (file_) file_->removeWithSpare();
}

}  // namespace qlsdk
