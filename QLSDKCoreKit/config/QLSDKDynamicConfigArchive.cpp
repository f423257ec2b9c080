#include "QLSDKCoreKit/config/QLSDKDynamicConfigArchive.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <utility>

#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk {

namespace {

using platform::ArchivedObject;

constexpr std::size_t kCeilingBytes = std::size_t{4} << 20;

constexpr std::array kClasses = {
    platform::ArchivableClass{QLSDKDynamicConfigEntity::kClassName, QLSDKDynamicConfigEntity::initWithCoder},
};

Data archived(const DynamicConfigEntities& entities) {
    ArchivedObject::Entries entries;
    for (const auto& [name, entity] : entities) {
        entries.emplace_back(name, std::shared_ptr<platform::Archivable>(entity));
    }
    return platform::archiveRootObject(ArchivedObject(std::move(entries)),
                                       platform::RootClass::mutableDictionary);
}

std::optional<DynamicConfigEntities> unarchived(DataView bytes) {
    const std::optional<ArchivedObject> root = platform::unarchiveRootObject(bytes, kClasses);
    const std::optional<ArchivedObject::Entries> entries = root ? root->entries() : std::nullopt;
    if (!entries) return std::nullopt;
    DynamicConfigEntities entities;
    for (const auto& [name, object] : *entries) {
        auto entity = std::dynamic_pointer_cast<QLSDKDynamicConfigEntity>(object.record());
        if (entity != nullptr) entities.insert_or_assign(name, std::move(entity));
    }
    return entities;
}

void tell(platform::DiagnosticKind kind, const char* cause, int errorNumber, const std::string& path) {
    platform::reportDiagnostic({.kind = kind, .cause = cause, .errorNumber = errorNumber, .path = path});
}

}  // namespace

bool QLSDKDynamicConfigArchive::archiveSync(
    const std::optional<DynamicConfigEntities>& entities) const noexcept {
    try {
        const std::optional<std::string>& path = _archivePath();
        if (!entities || !path) return false;
        const Data bytes = archived(*entities);
        // What could not be read again would not be stored, whatever the write says.
        if (bytes.empty() || bytes.size() > kCeilingBytes) {
            tell(platform::DiagnosticKind::failedWrite, "the configuration is too large to be kept", 0,
                 *path);
            return false;
        }
        platform::removeAbandonedTemporaries(*path);
        if (platform::replaceFile(*path, bytes)) return true;
        if (platform::makeDirectoryOf(*path) && platform::replaceFile(*path, bytes)) return true;
        tell(platform::DiagnosticKind::failedWrite, "the configuration could not be kept", errno, *path);
        return false;
    } catch (...) {
        // Without the memory for an archive nothing is stored, and that is what is said.
        return false;
    }
}

std::optional<DynamicConfigEntities> QLSDKDynamicConfigArchive::unarchiveSync() const {
    const std::optional<std::string>& path = _archivePath();
    if (!path) return std::nullopt;
    const platform::FileContent content = platform::readFileContent(*path, kCeilingBytes);
    // On purpose: reading consumes the file, also one that cannot be read or decoded.
    platform::removeFile(*path);
    if (content.outcome == platform::FileOutcome::absent) return std::nullopt;
    // One that could only be emptied holds nothing.
    if (content.outcome == platform::FileOutcome::read && content.bytes.empty()) return std::nullopt;
    std::optional<DynamicConfigEntities> entities = unarchived(content.bytes);
    if (!entities) {
        tell(content.outcome == platform::FileOutcome::unreadable ? platform::DiagnosticKind::unreadableFile
                                                                  : platform::DiagnosticKind::damagedFile,
             "the stored configuration cannot be read", content.errorNumber, *path);
    }
    return entities;
}

const std::optional<std::string>& QLSDKDynamicConfigArchive::_archivePath() {
    static constinit platform::ForkSafeOnce<std::optional<std::string>> path;
    return path.get([]() -> std::optional<std::string> {
        const std::optional<std::string> directory = platform::current().directories->cachesDirectory();
        if (!directory) return std::nullopt;
        return *directory + "/qlsdk-dynamic-config.plist";
    });
}

}  // namespace qlsdk
