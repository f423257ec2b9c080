#pragma once

#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// Port: what the device says of itself. Any thread. Never fails: an unknown fact is a fixed word. The texts
/// are printable ASCII, so that they can stand in a header field.
class QLSDK_EXPORT Device {
  public:
    virtual ~Device() = default;

    /// The device model, such as "iPhone".
    [[nodiscard]] virtual std::string model() = 0;
    /// The operating system's name, such as "iOS".
    [[nodiscard]] virtual std::string systemName() = 0;
    /// The operating system's version, such as "12.2".
    [[nodiscard]] virtual std::string systemVersion() = 0;
};

/// Port: the user's current locale, without touching the process's own. Any thread.
class QLSDK_EXPORT Locale {
  public:
    virtual ~Locale() = default;

    /// Such as "en"; absent when the locale names no language.
    [[nodiscard]] virtual std::optional<std::string> languageCode() = 0;
    /// Such as "US"; absent when the locale names no region.
    [[nodiscard]] virtual std::optional<std::string> countryCode() = 0;
    /// Such as "en_US"; the language alone without a region, empty without a language.
    [[nodiscard]] virtual std::string identifier() = 0;
};

}  // namespace qlsdk::platform
