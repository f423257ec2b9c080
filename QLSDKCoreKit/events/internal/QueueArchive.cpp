#include "QLSDKCoreKit/events/internal/QueueArchive.h"

#include <array>
#include <cerrno>
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

QueueArchive archiveOf(const ArchivedObject::Entries& entries) {
    QueueArchive archive;
    for (const auto& [key, object] : entries) {
        if (key == kQLSDKUnsentEventsKey) archive.unsentEvents = object.list().value_or(EventList());
        // Read as signed, kept as the same bits: what the queue writes above the signed maximum comes back.
        if (key == kQLSDKMaxSequenceIdKey) {
            archive.maxSequenceId = static_cast<std::uint64_t>(object.value().longValue());
        }
    }
    return archive;
}

}  // namespace

ArchiveReading queueArchiveReading(const std::string& path) noexcept try {
    if (path.empty()) return {};
    const platform::FileContent content = platform::readFileContent(path, kQueueArchiveCeilingBytes);
    switch (content.outcome) {
        case platform::FileOutcome::read:
            break;
        case platform::FileOutcome::absent:
            return {};
        case platform::FileOutcome::unfit:
            return {.outcome = ArchiveOutcome::damaged, .errorNumber = content.errorNumber};
        case platform::FileOutcome::unreadable:
            return {.outcome = ArchiveOutcome::unreadable, .errorNumber = content.errorNumber};
    }
    // A file that could only be emptied, or that a power cut has emptied, holds no records.
    if (content.bytes.empty()) return {};
    const std::optional<ArchivedObject> root = platform::unarchiveRootObjectOrThrow(content.bytes, kClasses);
    const std::optional<ArchivedObject::Entries> entries = root ? root->entries() : std::nullopt;
    if (!entries) return {.outcome = ArchiveOutcome::damaged};
    return {.outcome = ArchiveOutcome::read, .archive = archiveOf(*entries)};
} catch (...) {
    return {.outcome = ArchiveOutcome::unreadable, .errorNumber = ENOMEM};
}

std::optional<QueueArchive> readQueueArchive(const std::string& path) noexcept {
    ArchiveReading reading = queueArchiveReading(path);
    if (reading.outcome != ArchiveOutcome::read) return std::nullopt;
    return std::move(reading.archive);
}

}  // namespace qlsdk
