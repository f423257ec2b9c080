#pragma once

#include <memory>
#include <string>

#include <QLSDKCoreKit/QLSDKCoreKit.h>

/// A feature kit: what it offers to hosts, and the events that it reports about it.
class QLSDK_EXPORT StickerKit {
  public:
    /// The one instance, made on first use and never destroyed. Any thread.
    static StickerKit& shared();

    /// The version in the kit's own property list, whatever the host's says.
    [[nodiscard]] static std::string version();

    /// Reports one sent sticker. Any thread; returns at once.
    void stickerSent(const std::string& pack);

  private:
    StickerKit();

    // The queue holds its delegate weakly.
    const std::shared_ptr<qlsdk::AnalyticsEventsQueueDelegate> delegate_;
    const std::shared_ptr<qlsdk::AnalyticsEventsQueue> queue_;
};
