#pragma once

#include <memory>

#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Queues.h"
#include "QLSDKCoreKit/platform/internal/DiagnosticsObserver.h"

namespace qlsdk::platform {

struct Platform;

/// Decides who hears of failures: the host's callback, where it set one, else the platform's sink.
class DiagnosticsDelivery final : public DiagnosticsObserver {
  public:
    /// Borrows the platform, which lives for ever. Null when nobody listens.
    [[nodiscard]] static std::unique_ptr<const DiagnosticsDelivery> create(const Platform& platform);

    /// From now on failures are told by `delivery`, those first that were met before. To be called once, with
    /// the platform settled. Null changes nothing.
    static void begin(std::unique_ptr<const DiagnosticsDelivery> delivery) noexcept;

    /// Queues that what is new gets told. Any thread; without the memory for a task the next one tells it.
    void hasNew() const noexcept override;

    void tell(const Diagnostic& diagnostic) const noexcept;

  private:
    explicit DiagnosticsDelivery(const Platform& platform);

    const Platform& platform_;
    // Made with the platform and not with the first failure, which may be met with any lock held.
    const std::shared_ptr<SerialQueue> queue_;
};

}  // namespace qlsdk::platform
