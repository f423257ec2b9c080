#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/platform/Application.h"
#include "QLSDKCoreKit/platform/Fonts.h"

namespace qlsdk::platform::testing {

/// An application object that records what it is asked to open. Answers as its public members say; the modern
/// call answers inside the call. One thread at a time.
class FakeApplication final : public Application {
  public:
    OpenCall call = OpenCall::modern;
    bool opens = true;
    bool canOpen = true;
    LayoutDirection direction = LayoutDirection::leftToRight;
    std::shared_ptr<ViewController> rootViewController;
    std::vector<std::string> opened;
    std::vector<std::string> asked;

    OpenCall openCall() override { return call; }
    void openUrl(const std::string& url, const Dictionary&, OpenCompletion completion) override {
        opened.push_back(url);
        if (completion) completion(opens);
    }
    bool openUrl(const std::string& url) override {
        opened.push_back(url);
        return opens;
    }
    bool canOpenUrl(const std::string& url) override {
        asked.push_back(url);
        return canOpen;
    }
    LayoutDirection userInterfaceLayoutDirection() override { return direction; }
    std::shared_ptr<ViewController> keyWindowRootViewController() override { return rootViewController; }
};

/// A view controller with a settable successor.
class FakeViewController final : public ViewController {
  public:
    explicit FakeViewController(std::shared_ptr<ViewController> presented = nullptr)
        : presented_(std::move(presented)) {}
    std::shared_ptr<ViewController> presentedViewController() override { return presented_; }

  private:
    std::shared_ptr<ViewController> presented_;
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
