#pragma once

#include <memory>

#include "QLSDKCoreKit/control/ConsentGate.h"
#include "QLSDKCoreKit/control/internal/DiagnosticsDelivery.h"
#include "QLSDKCoreKit/platform/internal/Policy.h"

namespace qlsdk::platform {

/// The host's decisions in force: consent, dry run, and who hears of failures.
class HostPolicy final : public Policy {
  public:
    explicit HostPolicy(Platform& platform);

    void begin() override;

    [[nodiscard]] ConsentGate& gate() noexcept { return gate_; }

  private:
    ConsentGate gate_;
    // Until it begins; from then on it is never destroyed.
    std::unique_ptr<const DiagnosticsDelivery> diagnostics_;
};

}  // namespace qlsdk::platform
