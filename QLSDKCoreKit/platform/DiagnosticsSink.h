#pragma once

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"

namespace qlsdk::platform {

/// Port: who hears of failures when the host has set no callback (`HostControls::diagnostics`).
class QLSDK_EXPORT DiagnosticsSink {
  public:
    virtual ~DiagnosticsSink() = default;

    /// Asked once, when the platform is settled. False: nothing is ever told to this sink, and no queue is
    /// made for it; failures are counted all the same.
    [[nodiscard]] virtual bool isListening() const noexcept = 0;

    /// Hears of one failure, the first time that it is met. On a serial queue of the library's own.
    virtual void tell(const Diagnostic& diagnostic) noexcept = 0;
};

}  // namespace qlsdk::platform
