#include <algorithm>
#include <string_view>

#include <stdlib.h>

#include "QLSDKCoreKit/platform/Device.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"

namespace qlsdk::platform {

namespace {

struct LocaleName {
    std::optional<std::string> language;
    std::optional<std::string> country;
};

bool isAlphanumeric(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    });
}

// The codes reach header fields and file names, so anything but a short word is no code.
std::optional<std::string> codeFrom(std::string_view text) {
    if (text.size() < 2 || text.size() > 8 || !isAlphanumeric(text)) return std::nullopt;
    return std::string(text);
}

// "en_US.UTF-8@euro" without the codeset and the modifier.
LocaleName parsedName(std::string_view name) {
    name = name.substr(0, name.find_first_of(".@"));
    if (name == "C" || name == "POSIX") return {};
    const std::size_t separator = name.find('_');
    const std::optional<std::string> language = codeFrom(name.substr(0, separator));
    if (!language || separator == std::string_view::npos) return {language, {}};
    return {language, codeFrom(name.substr(separator + 1))};
}

// The process's own locale is the host's to set; the environment says what the user wants.
LocaleName currentName() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = ::getenv(variable);
        if (value != nullptr && *value != '\0') return parsedName(value);
    }
    return {};
}

class LinuxLocale final : public Locale {
  public:
    std::optional<std::string> languageCode() override { return currentName().language; }
    std::optional<std::string> countryCode() override { return currentName().country; }
    std::string identifier() override {
        const LocaleName name = currentName();
        return name.language.value_or("") + (name.country ? "_" + *name.country : std::string());
    }
};

}  // namespace

std::shared_ptr<Locale> makeLinuxLocale() {
    return std::make_shared<LinuxLocale>();
}

}  // namespace qlsdk::platform
