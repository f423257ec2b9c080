#pragma once

#include <atomic>
#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "QLSDKCoreKit/platform/Bundle.h"
#include "QLSDKCoreKit/platform/Clock.h"
#include "QLSDKCoreKit/platform/Device.h"
#include "QLSDKCoreKit/platform/Process.h"
#include "QLSDKCoreKit/platform/Random.h"

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

/// A clock that stands still until the test moves it. Any thread.
class FakeClock final : public Clock {
  public:
    explicit FakeClock(double now = 1'700'000'000.0) : now_(now) {}

    double secondsSince1970() noexcept override { return now_.load(); }
    void set(double now) noexcept { now_.store(now); }
    void advance(double seconds) noexcept { now_.store(now_.load() + seconds); }

  private:
    std::atomic<double> now_;
};

/// Counts upward instead of drawing, so that a test knows every byte; fails on demand. Any thread.
class FakeRandom final : public Random {
  public:
    int copyBytes(std::span<std::uint8_t> bytes) noexcept override {
        if (successesLeft_ == 0) {
            errno = failureErrno_;
            return -1;
        }
        if (successesLeft_ > 0) --successesLeft_;
        for (std::uint8_t& byte : bytes) byte = next_++;
        return 0;
    }
    /// After `successes` more calls every call fails and leaves `error` in errno.
    void failAfter(int successes, int error) {
        successesLeft_ = successes;
        failureErrno_ = error;
    }

  private:
    std::atomic<std::uint8_t> next_{0};
    std::atomic<int> successesLeft_{-1};
    std::atomic<int> failureErrno_{0};
};

/// A main bundle, the library's own, and those of kits, each for exactly one address; every other address
/// belongs to the main bundle. Set them up before the library reads them.
class FakeBundles final : public Bundles {
  public:
    explicit FakeBundles(Dictionary info = {{"CFBundleIdentifier", "com.example.app"},
                                            {"CFBundleVersion", "7.1"},
                                            {"QLSDKClientId", "abc"},
                                            {"QLSDKRedirectUrl", "example://auth"}}) {
        setMain(std::move(info));
    }

    void setMain(Dictionary info, std::string path = "/opt/example") {
        main_ = std::make_shared<const Bundle>(std::move(path), std::move(info));
    }
    /// The library's own bundle; the main bundle until this is called.
    void setLibrary(Dictionary info, Value localizedStrings = {}) {
        set(libraryAddress(), "/opt/example/library", std::move(info), std::move(localizedStrings));
    }
    /// The bundle of the kit to which `address` belongs.
    void setKit(const void* address, Dictionary info) {
        set(address, "/opt/example/kit", std::move(info), {});
    }

    std::shared_ptr<const Bundle> mainBundle() override { return main_; }
    std::shared_ptr<const Bundle> bundleForAddress(const void* address) override {
        const auto found = others_.find(address);
        return found != others_.end() ? found->second : main_;
    }

  private:
    void set(const void* address, std::string path, Dictionary info, Value localizedStrings) {
        others_.insert_or_assign(address, std::make_shared<const Bundle>(std::move(path), std::move(info),
                                                                         std::move(localizedStrings)));
    }

    std::shared_ptr<const Bundle> main_;
    std::map<const void*, std::shared_ptr<const Bundle>> others_;
};

}  // namespace qlsdk::platform::testing
