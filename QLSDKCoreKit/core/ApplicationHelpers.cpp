#include "QLSDKCoreKit/core/ApplicationHelpers.h"

#include <utility>

#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

namespace {

constexpr int kLongestPresentation = 1000;

}  // namespace

void openURL(const platform::Url& url, platform::OpenCompletion completion) {
    platform::Application& application = *platform::current().application;
    if (application.openCall() == platform::OpenCall::modern) {
        application.openUrl(url.absoluteString(), Dictionary(), std::move(completion));
        return;
    }
    const bool success = application.openUrl(url.absoluteString());
    if (!completion) return;
    try {
        completion(success);
    } catch (...) {
        // The URL has been dealt with; what the listener makes of the news is its own affair.
    }
}

bool isRTL() {
    return platform::current().application->userInterfaceLayoutDirection() ==
           platform::LayoutDirection::rightToLeft;
}

std::shared_ptr<platform::ViewController> topViewController() {
    auto top = platform::current().application->keyWindowRootViewController();
    for (int step = 0; top != nullptr && step < kLongestPresentation; ++step) {
        auto presented = top->presentedViewController();
        if (presented == nullptr) break;
        top = std::move(presented);
    }
    return top;
}

}  // namespace qlsdk
