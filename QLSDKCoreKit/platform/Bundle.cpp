#include "QLSDKCoreKit/platform/Bundle.h"

#include <utility>

namespace qlsdk::platform {

Bundle::Bundle(std::string path, Value infoDictionary, Value localizedStrings)
    : path_(std::move(path)),
      infoDictionary_(std::move(infoDictionary)),
      localizedStrings_(std::move(localizedStrings)) {}

std::optional<std::string> Bundle::textForInfoDictionaryKey(std::string_view key) const {
    const Value value = infoDictionary_[key];
    if (value.isNull()) return std::nullopt;
    return describe(value);
}

std::string Bundle::localizedString(std::string_view key) const {
    const Value text = localizedStrings_[key];
    return text.string() != nullptr ? *text.string() : std::string(key);
}

}  // namespace qlsdk::platform
