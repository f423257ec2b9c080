#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>

#include "QLSDKCoreKit/platform/Device.h"
#include "QLSDKCoreKit/platform/Fonts.h"
#include "QLSDKCoreKit/platform/Process.h"

namespace qlsdk::platform::testing {

/// A phone in the United States, unless the test says otherwise. Set the members before the kit asks.
class FakeDevice final : public Device {
  public:
    std::string modelText = "iPhone";
    std::string systemNameText = "iOS";
    std::string systemVersionText = "12.2";

    std::string model() override { return modelText; }
    std::string systemName() override { return systemNameText; }
    std::string systemVersion() override { return systemVersionText; }
};

class FakeLocale final : public Locale {
  public:
    std::optional<std::string> language = "en";
    std::optional<std::string> country = "US";

    std::optional<std::string> languageCode() override { return language; }
    std::optional<std::string> countryCode() override { return country; }
    std::string identifier() override {
        return language.value_or("") + (country ? "_" + *country : std::string());
    }
};

/// A process whose environment, kernel record and processor the test sets.
class FakeProcess final : public Process {
  public:
    std::map<std::string, std::string> environment;
    std::set<std::string> loadedClasses;
    ProcessRecord record;
    std::uint32_t type = 0x01000007;
    std::uint32_t subtype = 3;

    std::optional<std::string> environmentVariable(const std::string& name) override {
        const auto found = environment.find(name);
        return found != environment.end() ? std::optional(found->second) : std::nullopt;
    }
    bool isClassLoaded(const std::string& name) override { return loadedClasses.contains(name); }
    ProcessRecord processRecord() override { return record; }
    std::uint32_t cpuType() override { return type; }
    std::uint32_t cpuSubtype() override { return subtype; }
};

/// Knows the fonts that the test names.
class FakeFonts final : public Fonts {
  public:
    std::set<std::string> known;

    std::shared_ptr<const Font> fontWithName(const std::string& name, double pointSize) override {
        if (!known.contains(name)) return nullptr;
        return std::make_shared<const Font>(Font{name, pointSize, {}});
    }
};

}  // namespace qlsdk::platform::testing
