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

#include "QLSDKCoreKit/platform/Bundle.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/PropertyList.h"
#include "QLSDKCoreKit/platform/linux/internal/FileReading.h"
#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kPropertyListBytes = std::size_t{1} << 20;
constexpr std::string_view kFileSuffix = "Info.plist";

Value dictionaryAt(const std::string& path) {
    const std::optional<Data> bytes = readFileFrom(FileOrigin::system, path, kPropertyListBytes);
    const std::optional<Value> value = bytes ? parsePropertyList(*bytes) : std::nullopt;
    return value && value->dictionary() != nullptr ? *value : Value();
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

std::string executablePath() {
    std::string path(4096, '\0');
    const ssize_t size = ::readlink("/proc/self/exe", path.data(), path.size());
    if (size <= 0) return calledPath();
    path.resize(static_cast<std::size_t>(size));
    // The kernel says so of a program that was replaced by an update while it runs.
    constexpr std::string_view kDeleted = " (deleted)";
    if (path.ends_with(kDeleted) && !fileExists(path)) path.resize(path.size() - kDeleted.size());
    return path;
}

// The property list beside a shared object is named after its file or the link it was loaded by, or after the
// file without its ".so": ldconfig takes whatever has that in its name for a library. Empty when there is
// none.
std::string sharedObjectPropertyList(const std::string& path, const std::string& loadedPath) {
    std::string plain = path;
    const std::size_t extension = plain.rfind(".so");
    if (extension != std::string::npos) plain.erase(extension, 3);
    for (const std::string& name : {path, loadedPath, plain}) {
        std::string list = name + "." + std::string(kFileSuffix);
        if (fileExists(list)) return list;
    }
    return {};
}

class LinuxBundles final : public Bundles {
  public:
    LinuxBundles(std::optional<std::string> infoPlist, std::shared_ptr<Locale> locale, Value infoDictionary)
        : infoPlist_(std::move(infoPlist)),
          infoDictionary_(std::move(infoDictionary)),
          locale_(std::move(locale)) {}

    std::shared_ptr<const Bundle> mainBundle() override {
        std::call_once(mainOnce_, [this] {
            const std::string executable = executablePath();
            main_ = infoDictionary_.dictionary() != nullptr
                        ? std::make_shared<const Bundle>(directoryOf(executable), infoDictionary_)
                        : makeBundle(directoryOf(executable), mainPropertyList(executable));
        });
        return main_;
    }

    std::shared_ptr<const Bundle> bundleForAddress(const void* address) override {
        Dl_info info{};
        link_map* object = nullptr;
        const int found = ::dladdr1(address, &info, reinterpret_cast<void**>(&object), RTLD_DL_LINKMAP);
        // The program itself carries no name in the loader's list.
        if (found == 0 || object == nullptr || *object->l_name == '\0') return mainBundle();
        return sharedObjectBundle(object->l_name);
    }

  private:
    [[nodiscard]] std::string mainPropertyList(const std::string& executable) const {
        if (infoPlist_) return *infoPlist_;
        const char* named = ::secure_getenv("QLSDK_INFO_PLIST");
        if (named != nullptr && *named != '\0') return named;
        if (executable.empty()) return {};
        const std::string beside = executable + "." + std::string(kFileSuffix);
        return fileExists(beside) ? beside : directoryOf(executable) + "/" + std::string(kFileSuffix);
    }

    std::shared_ptr<const Bundle> sharedObjectBundle(const char* loadedPath) {
        const std::string path = resolvedPath(loadedPath);
        const std::lock_guard lock(mutex_);
        std::shared_ptr<const Bundle>& bundle = sharedObjects_[path];
        if (bundle != nullptr) return bundle;
        bundle = makeBundle(directoryOf(path), sharedObjectPropertyList(path, loadedPath));
        return bundle;
    }

    [[nodiscard]] std::shared_ptr<const Bundle> makeBundle(std::string path,
                                                           const std::string& propertyList) const {
        return std::make_shared<const Bundle>(std::move(path), dictionaryAt(propertyList),
                                              localizedStrings(propertyList));
    }

    // "app.Info.plist" has its German texts in "app.de.strings.plist", a plain dictionary of key to text.
    [[nodiscard]] Value localizedStrings(const std::string& propertyList) const {
        const std::optional<std::string> language = locale_->languageCode();
        if (!language || !propertyList.ends_with(kFileSuffix)) return {};
        const std::string stem = propertyList.substr(0, propertyList.size() - kFileSuffix.size());
        return dictionaryAt(stem + *language + ".strings.plist");
    }

    const std::optional<std::string> infoPlist_;
    const Value infoDictionary_;
    const std::shared_ptr<Locale> locale_;
    std::once_flag mainOnce_;
    std::shared_ptr<const Bundle> main_;
    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<const Bundle>> sharedObjects_;
};

}  // namespace

std::shared_ptr<Bundles> makeLinuxBundles(std::optional<std::string> infoPlist,
                                          std::shared_ptr<Locale> locale, Value infoDictionary) {
    return std::make_shared<LinuxBundles>(std::move(infoPlist), std::move(locale), std::move(infoDictionary));
}

}  // namespace qlsdk::platform
