#pragma once

#include <memory>
#include <string>
#include <utility>

#include "QLSDKCoreKit/platform/Bundle.h"

namespace qlsdk::platform::testing {

/// One main bundle, and one bundle for every address. Set both up before the kit reads them.
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
    /// The bundle of kits and of the library; the main bundle until this is called.
    void setKit(Dictionary info, Value localizedStrings = {}) {
        kit_ =
            std::make_shared<const Bundle>("/opt/example/kit", std::move(info), std::move(localizedStrings));
    }

    std::shared_ptr<const Bundle> mainBundle() override { return main_; }
    std::shared_ptr<const Bundle> bundleForAddress(const void*) override { return kit_ ? kit_ : main_; }

  private:
    std::shared_ptr<const Bundle> main_;
    std::shared_ptr<const Bundle> kit_;
};

}  // namespace qlsdk::platform::testing
