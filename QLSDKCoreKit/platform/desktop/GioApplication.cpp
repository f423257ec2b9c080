#include <algorithm>
#include <array>
#include <chrono>
#include <future>
#include <string_view>
#include <utility>

#include "QLSDKCoreKit/platform/desktop/DesktopAdapters.h"
#include "QLSDKCoreKit/platform/desktop/UrlHandlers.h"

namespace qlsdk::platform {

namespace {

// Longer than a launch can take by itself; others may be waiting before it.
constexpr std::chrono::seconds kLegacyLimit{15};

constexpr std::array<std::string_view, 14> kRightToLeftLanguages = {
    "ar", "ckb", "dv", "fa", "he", "iw", "ji", "ks", "ps", "sd", "syr", "ug", "ur", "yi"};

/// Looks handlers up on the caller's thread and launches them on a serial queue, because a launch may wait
/// for the session bus.
class GioApplication final : public Application {
  public:
    GioApplication(std::shared_ptr<Queues> queues, std::shared_ptr<Locale> locale)
        : queues_(std::move(queues)),
          locale_(std::move(locale)),
          launches_(queues_->makeSerialQueue("com.quillo.quill-kit.launch-url")) {}

    OpenCall openCall() override { return OpenCall::modern; }
    void openUrl(const std::string& url, const Dictionary& options, OpenCompletion completion) override;
    bool openUrl(const std::string& url) override;
    bool canOpenUrl(const std::string& url) override { return hasUrlHandler(url); }
    LayoutDirection userInterfaceLayoutDirection() override;
    std::shared_ptr<ViewController> keyWindowRootViewController() override { return nullptr; }

  private:
    const std::shared_ptr<Queues> queues_;
    const std::shared_ptr<Locale> locale_;
    const std::shared_ptr<SerialQueue> launches_;
};

void GioApplication::openUrl(const std::string& url, const Dictionary& /*options*/,
                             OpenCompletion completion) {
    launches_->async([url, completion = std::move(completion), main = queues_->mainQueue()] {
        const bool success = launchUrlHandler(url);
        if (completion) main->async([completion, success] { completion(success); });
    });
}

// Answers on the spot, so it has to wait. Shares the outcome: a launch that answers too late finds nobody.
bool GioApplication::openUrl(const std::string& url) {
    const auto outcome = std::make_shared<std::promise<bool>>();
    std::future<bool> answer = outcome->get_future();
    launches_->async([url, outcome] { outcome->set_value(launchUrlHandler(url)); });
    try {
        return answer.wait_for(kLegacyLimit) == std::future_status::ready && answer.get();
    } catch (...) {
        return false;  // The queue had no memory for the task: nothing was started.
    }
}

LayoutDirection GioApplication::userInterfaceLayoutDirection() {
    const std::string language = locale_->languageCode().value_or("");
    const bool rightToLeft = std::find(kRightToLeftLanguages.begin(), kRightToLeftLanguages.end(),
                                       language) != kRightToLeftLanguages.end();
    return rightToLeft ? LayoutDirection::rightToLeft : LayoutDirection::leftToRight;
}

}  // namespace

std::shared_ptr<Application> makeGioApplication(std::shared_ptr<Queues> queues,
                                                std::shared_ptr<Locale> locale) {
    return std::make_shared<GioApplication>(std::move(queues), std::move(locale));
}

}  // namespace qlsdk::platform
