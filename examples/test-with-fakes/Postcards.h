#pragma once

#include <string_view>

#include <QLSDKCoreKit/QLSDKCoreKit.h>

/// The host under test: sends postcards, and reports to the kit what becomes of them.
class Postcards {
  public:
    Postcards() { qlsdk::QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({kKitType, "1.0"}); }

    /// A postcard without a text is not sent.
    bool send(std::string_view text) {
        auto& metrics = qlsdk::QLSDKOperationalMetricsQueue::sharedInstance();
        metrics.addCount(1, text.empty() ? "postcards.refused" : "postcards.sent");
        return !text.empty();
    }

    /// Called when the application is about to lose the focus: what is left is uploaded.
    static void resign() {
        qlsdk::platform::current().notificationCenter->post(qlsdk::platform::kWillResignActiveNotification);
    }

  private:
    static constexpr qlsdk::QLSDKKitType kKitType = qlsdk::QLSDKKitTypeSharing;
};
