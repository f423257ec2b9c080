#include "QLSDKCoreKit/platform/linux/files/StateDirectory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>
#include <vector>

#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/values/internal/Hex.h"

namespace qlsdk::platform {

namespace {

struct Place {
    const char* variable;
    const char* belowUserHome;
    const char* belowGivenHome;
};

constexpr std::array kPlaces = {Place{"XDG_CACHE_HOME", "/.cache", "/cache"},
                                Place{"XDG_CONFIG_HOME", "/.config", "/config"},
                                Place{"XDG_DATA_HOME", "/.local/share", "/data"}};

// Leaves room in a file name of 255 bytes for suffixes.
constexpr std::size_t kFileNameBytes = 200;

// Relative paths do not count, as the XDG rules have it.
std::optional<std::string> absolutePath(const char* text) {
    if (text == nullptr || *text != '/') return std::nullopt;
    std::string path = text;
    path.erase(path.find_last_not_of('/') + 1);
    return path;
}

std::optional<std::string> userHome() {
    if (auto home = absolutePath(::secure_getenv("HOME"))) return home;
    std::vector<char> buffer(16384);
    passwd record{};
    passwd* found = nullptr;
    if (::getpwuid_r(::geteuid(), &record, buffer.data(), buffer.size(), &found) != 0) return std::nullopt;
    return found != nullptr ? absolutePath(found->pw_dir) : std::nullopt;
}

bool makeDirectory(const std::string& path) noexcept {
    if (::mkdir(path.c_str(), S_IRWXU) != 0) return errno == EEXIST;
    // The umask may have taken bits away.
    return ::chmod(path.c_str(), S_IRWXU) == 0;
}

}  // namespace

void makeDirectories(const std::string& path) {
    if (makeDirectory(path) || errno != ENOENT) return;
    for (std::size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
        makeDirectory(path.substr(0, end));
    }
    makeDirectory(path);
}

std::string safeFileName(std::string_view identifier) {
    std::string name;
    for (const char c : identifier.substr(0, kFileNameBytes)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F || c == '/' || c == '%' || (c == '.' && name.empty())) {
            name += '%';
            appendHex(name, byte, kUpperHex);
        } else {
            name += c;
        }
    }
    name.resize(std::min(name.size(), kFileNameBytes));
    return name.empty() ? "unidentified-application" : name;
}

StateDirectory::StateDirectory(StateKind kind, std::optional<std::string> home,
                               std::shared_ptr<Bundles> bundles)
    : kind_(kind), home_(std::move(home)), bundles_(std::move(bundles)) {}

std::optional<std::string> StateDirectory::base() const {
    const Place& place = kPlaces[static_cast<std::size_t>(kind_)];
    if (home_) return *home_ + place.belowGivenHome;
    if (auto named = absolutePath(::secure_getenv(place.variable))) return named;
    const std::optional<std::string> home = userHome();
    return home ? std::optional(*home + place.belowUserHome) : std::nullopt;
}

std::optional<std::string> StateDirectory::create() {
    const std::optional<std::string>& path = path_.get([this]() -> std::optional<std::string> {
        const auto identifier = bundles_->mainBundle()->textForInfoDictionaryKey(kBundleIdentifierKey);
        const auto directory = base();
        if (!directory) return std::nullopt;
        return *directory + "/" + safeFileName(identifier.value_or(""));
    });
    if (!path) {
        reportDiagnostic({DiagnosticKind::stateDirectory, "no home directory is known"});
        return std::nullopt;
    }
    makeDirectories(*path);
    if (::access(path->c_str(), W_OK | X_OK) != 0) {
        reportDiagnostic({DiagnosticKind::stateDirectory, "no files can be made here", errno, *path});
    }
    return path;
}

}  // namespace qlsdk::platform
