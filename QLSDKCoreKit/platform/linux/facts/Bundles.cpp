#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>

#include <dlfcn.h>
#include <link.h>
#include <stdlib.h>
#include <sys/auxv.h>
#include <unistd.h>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Bundle.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/PropertyList.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeMutex.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"
#include "QLSDKCoreKit/platform/internal/LibraryAddresses.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/files/FileReading.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kPropertyListBytes = std::size_t{1} << 20;
constexpr std::string_view kFileSuffix = "Info.plist";

/// Whether somebody misses a property list that is not there.
enum class Presence { expected, optional };

void reportPropertyList(const char* cause, int errorNumber, const std::string& path) {
    reportDiagnostic({DiagnosticKind::propertyList, cause, errorNumber, path});
}

Value dictionaryAt(const std::string& path, Presence presence) {
    const FileContent content = readContentFrom(FileOrigin::system, path, kPropertyListBytes);
    if (content.outcome == FileOutcome::absent) {
        if (presence == Presence::expected) reportPropertyList("missing", content.errorNumber, path);
        return {};
    }
    if (content.outcome != FileOutcome::read) {
        reportPropertyList("cannot be read", content.errorNumber, path);
        return {};
    }
    const std::optional<Value> value = parsePropertyList(content.bytes);
    if (value && value->dictionary() != nullptr) return *value;
    reportPropertyList("is no property list with a dictionary", 0, path);
    return {};
}

std::string directoryOf(const std::string& path) {
    return std::filesystem::path(path).parent_path().string();
}

std::string resolvedPath(const char* path) {
    std::error_code error;
    const std::filesystem::path resolved = std::filesystem::canonical(path, error);
    return error ? path : resolved.string();
}

// As the program was called, which is all there is where /proc is hidden. A relative name means another file
// once the host has changed its directory; there is no property list beside that, then.
std::string calledPath() {
    const auto* const called = reinterpret_cast<const char*>(::getauxval(AT_EXECFN));
    return called != nullptr ? resolvedPath(called) : std::string();
}

// The kernel says so of a file that was replaced by an update while it is in use.
std::string withoutDeletion(std::string path) {
    constexpr std::string_view kDeleted = " (deleted)";
    if (path.ends_with(kDeleted) && !fileExists(path)) path.resize(path.size() - kDeleted.size());
    return path;
}

std::string executablePath() {
    std::string path(4096, '\0');
    const ssize_t size = ::readlink("/proc/self/exe", path.data(), path.size());
    if (size <= 0) return calledPath();
    path.resize(static_cast<std::size_t>(size));
    return withoutDeletion(std::move(path));
}

// What files beside a shared object may be named after: its file or the link it was loaded by, or the file
// without its ".so", because ldconfig takes whatever has that in its name for a library.
std::array<std::string, 3> sharedObjectNames(const std::string& path, const std::string& loadedPath) {
    std::string plain = path;
    const std::size_t extension = plain.rfind(".so");
    if (extension != std::string::npos) plain.erase(extension, 3);
    return {path, loadedPath, plain};
}

// The same for a library that is linked into a program: beside that, or where packages of the program's
// prefix install data.
std::array<std::string, 2> linkedLibraryNames(const std::string& directory) {
    return {directory + "/qlsdkcorekit", directory + "/../share/qlsdkcorekit/qlsdkcorekit"};
}

// Empty when there is none.
std::string sharedObjectPropertyList(const std::string& path, const std::string& loadedPath) {
    for (const std::string& name : sharedObjectNames(path, loadedPath)) {
        std::string list = name + "." + std::string(kFileSuffix);
        if (fileExists(list)) return list;
    }
    return {};
}

// The file that is mapped at an address, by the kernel's list of mappings; empty where that is hidden.
std::string mappedFile(const void* address) {
    constexpr std::size_t kMappingsBytes = std::size_t{16} << 20;
    const std::optional<Data> bytes = readFileFrom(FileOrigin::system, "/proc/self/maps", kMappingsBytes);
    const std::string mappings = bytes ? textOf(*bytes) : std::string();
    const std::uint64_t place = reinterpret_cast<std::uintptr_t>(address);
    for (std::size_t at = 0; at < mappings.size(); at = mappings.find('\n', at) + 1) {
        // "begin-end rights offset device inode   /path"; nothing but the path has a slash.
        char* rest = nullptr;
        const std::uint64_t begin = std::strtoull(mappings.c_str() + at, &rest, 16);
        const std::uint64_t end = *rest == '-' ? std::strtoull(rest + 1, &rest, 16) : 0;
        if (place < begin || place >= end) continue;
        const std::string line = mappings.substr(at, mappings.find('\n', at) - at);
        const std::size_t path = line.find('/');
        return path != std::string::npos ? withoutDeletion(line.substr(path)) : std::string();
    }
    return {};
}

const link_map* objectAt(const void* address) noexcept {
    Dl_info info{};
    link_map* object = nullptr;
    const int found = ::dladdr1(address, &info, reinterpret_cast<void**>(&object), RTLD_DL_LINKMAP);
    return found != 0 ? object : nullptr;
}

// Whether this shared object is the library: not a program, nor a kit, that has the library linked in.
bool isLibraryObject(const link_map* object) noexcept {
    return isSharedLibrary() && object == objectAt(libraryAddress());
}

// Where a shared object lies. One that was opened by a relative name is where the name led then: the host
// may have changed its directory since.
std::string objectPath(const link_map& object) {
    if (*object.l_name != '/') {
        std::string mapped = mappedFile(object.l_ld);
        if (!mapped.empty()) return mapped;
    }
    return resolvedPath(object.l_name);
}

// The name it was loaded by, in the directory where it lies.
std::string loadedPath(const link_map& object, const std::string& path) {
    if (*object.l_name == '/') return object.l_name;
    return directoryOf(path) + "/" + std::filesystem::path(object.l_name).filename().string();
}

class LinuxBundles final : public Bundles {
  public:
    LinuxBundles(std::optional<std::string> infoPlist, std::shared_ptr<Locale> locale, Value infoDictionary)
        : infoPlist_(std::move(infoPlist)),
          infoDictionary_(std::move(infoDictionary)),
          locale_(std::move(locale)) {}

    std::shared_ptr<const Bundle> mainBundle() override {
        return main_.get([this] {
            const std::string executable = executablePath();
            return infoDictionary_.dictionary() != nullptr
                       ? std::make_shared<const Bundle>(directoryOf(executable), infoDictionary_)
                       : madeMainBundle(executable);
        });
    }

    std::shared_ptr<const Bundle> bundleForAddress(const void* address) override {
        if (isLibraryAddress(address)) return libraryBundle();
        const link_map* const object = objectAt(address);
        // The program itself carries no name in the loader's list.
        if (object == nullptr || *object->l_name == '\0') return mainBundle();
        if (isLibraryObject(object)) return libraryBundle();
        return sharedObjectBundle(*object);
    }

  private:
    [[nodiscard]] std::shared_ptr<const Bundle> madeMainBundle(const std::string& executable) const {
        const std::string list = mainPropertyList(executable);
        return std::make_shared<const Bundle>(directoryOf(executable), dictionaryAt(list, Presence::expected),
                                              localizedStrings(list));
    }

    [[nodiscard]] std::string mainPropertyList(const std::string& executable) const {
        if (infoPlist_) return *infoPlist_;
        const char* named = ::secure_getenv("QLSDK_INFO_PLIST");
        if (named != nullptr && *named != '\0') return named;
        if (executable.empty()) return {};
        const std::string beside = executable + "." + std::string(kFileSuffix);
        return fileExists(beside) ? beside : directoryOf(executable) + "/" + std::string(kFileSuffix);
    }

    std::shared_ptr<const Bundle> sharedObjectBundle(const link_map& object) {
        // The same relative name may lead to another object when that is loaded elsewhere.
        const std::string key = *object.l_name == '/'
                                    ? resolvedPath(object.l_name)
                                    : std::string(object.l_name) + '@' + std::to_string(object.l_addr);
        if (auto known = knownSharedObject(key)) return known;
        const std::string path = objectPath(object);
        const std::string list = sharedObjectPropertyList(path, loadedPath(object, path));
        auto made = std::make_shared<const Bundle>(
            directoryOf(path), list.empty() ? Value() : dictionaryAt(list, Presence::expected),
            localizedStrings(list));
        // Two threads may have read the files; one bundle is given out.
        const std::lock_guard lock(mutex_);
        return sharedObjects_.try_emplace(key, std::move(made)).first->second;
    }

    [[nodiscard]] std::shared_ptr<const Bundle> knownSharedObject(const std::string& key) const {
        const std::lock_guard lock(mutex_);
        const auto known = sharedObjects_.find(key);
        return known != sharedObjects_.end() ? known->second : nullptr;
    }

    // Knows its version by itself, however it is linked. The host's own table goes before the library's.
    std::shared_ptr<const Bundle> libraryBundle() {
        return library_.get([this] { return madeLibraryBundle(); });
    }

    [[nodiscard]] std::shared_ptr<const Bundle> madeLibraryBundle() const {
        const link_map* const object = isSharedLibrary() ? objectAt(libraryAddress()) : nullptr;
        const std::string executable = executablePath();
        const std::string path = object != nullptr ? objectPath(*object) : executable;
        Dictionary texts;
        const auto add = [&texts](const Value& table) {
            if (table.dictionary() == nullptr) return;
            for (const auto& [key, text] : *table.dictionary()) texts.set(key, text);
        };
        add(object != nullptr ? firstStrings(sharedObjectNames(path, loadedPath(*object, path)))
                              : firstStrings(linkedLibraryNames(directoryOf(path))));
        if (infoDictionary_.dictionary() == nullptr) add(localizedStrings(mainPropertyList(executable)));
        return std::make_shared<const Bundle>(
            directoryOf(path),
            Dictionary{{std::string(kBundleIdentifierKey), "com.quillo.quill-kit.core"},
                       {std::string(kBundleVersionKey), QLSDK_VERSION_TEXT}},
            std::move(texts));
    }

    template <std::size_t Count>
    [[nodiscard]] Value firstStrings(const std::array<std::string, Count>& names) const {
        Value texts;
        for (const std::string& name : names) {
            if (texts.isNull()) texts = stringsBeside(name + ".");
        }
        return texts;
    }

    // "app.Info.plist" has its German texts in "app.de.strings.plist", a plain dictionary of key to text.
    [[nodiscard]] Value localizedStrings(const std::string& propertyList) const {
        if (!propertyList.ends_with(kFileSuffix)) return {};
        return stringsBeside(propertyList.substr(0, propertyList.size() - kFileSuffix.size()));
    }

    // In the user's language, or in English where there are none in that.
    [[nodiscard]] Value stringsBeside(const std::string& stem) const {
        const std::string language = locale_->languageCode().value_or("en");
        for (const std::string& one : {language, std::string("en")}) {
            Value texts = dictionaryAt(stem + one + ".strings.plist", Presence::optional);
            if (!texts.isNull()) return texts;
        }
        return {};
    }

    const std::optional<std::string> infoPlist_;
    const Value infoDictionary_;
    const std::shared_ptr<Locale> locale_;
    OwnedForkSafeOnce<std::shared_ptr<const Bundle>> main_;
    OwnedForkSafeOnce<std::shared_ptr<const Bundle>> library_;
    mutable ForkSafeMutex mutex_;
    std::map<std::string, std::shared_ptr<const Bundle>> sharedObjects_;
};

}  // namespace

std::shared_ptr<Bundles> makeLinuxBundles(std::optional<std::string> infoPlist,
                                          std::shared_ptr<Locale> locale, Value infoDictionary) {
    return std::make_shared<LinuxBundles>(std::move(infoPlist), std::move(locale), std::move(infoDictionary));
}

}  // namespace qlsdk::platform
