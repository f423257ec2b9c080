#include "QLSDKCoreKit/platform/Application.h"

#include <utility>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"

namespace qlsdk::platform {

namespace {

class HeadlessApplication final : public Application {
  public:
    explicit HeadlessApplication(std::shared_ptr<Queues> queues) : queues_(std::move(queues)) {}

    OpenCall openCall() override { return OpenCall::modern; }
    void openUrl(const std::string&, const Dictionary&, OpenCompletion completion) override {
        if (!completion) return;
        queues_->mainQueue()->async([completion = std::move(completion)] { completion(false); });
    }
    bool openUrl(const std::string&) override { return false; }
    bool canOpenUrl(const std::string&) override { return false; }
    LayoutDirection userInterfaceLayoutDirection() override { return LayoutDirection::leftToRight; }
    std::shared_ptr<ViewController> keyWindowRootViewController() override { return nullptr; }

  private:
    const std::shared_ptr<Queues> queues_;
};

}  // namespace

std::shared_ptr<Application> makeHeadlessApplication(std::shared_ptr<Queues> queues) {
    return std::make_shared<HeadlessApplication>(std::move(queues));
}

}  // namespace qlsdk::platform
