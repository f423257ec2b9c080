#include "QLSDKCoreKit/control/internal/DiagnosticsDelivery.h"

#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/internal/DiagnosticsRecord.h"

namespace qlsdk::platform {

DiagnosticsDelivery::DiagnosticsDelivery(const Platform& platform)
    : platform_(platform), queue_(platform.queues->makeSerialQueue("com.quillo.quill-kit.diagnostics")) {}

std::unique_ptr<const DiagnosticsDelivery> DiagnosticsDelivery::create(const Platform& platform) {
    if (!platform.controls.diagnostics && !platform.diagnostics->isListening()) return nullptr;
    return std::unique_ptr<const DiagnosticsDelivery>(new DiagnosticsDelivery(platform));
}

void DiagnosticsDelivery::begin(std::unique_ptr<const DiagnosticsDelivery> delivery) noexcept {
    if (delivery != nullptr) observeDiagnostics(*delivery.release());
}

void DiagnosticsDelivery::hasNew() const noexcept {
    try {
        queue_->async([this] {
            DiagnosticsRecord::shared().tellNew([this](const Diagnostic& diagnostic) { tell(diagnostic); });
        });
    } catch (...) {
        // What is new stays so, and the next task tells it.
    }
}

void DiagnosticsDelivery::tell(const Diagnostic& diagnostic) const noexcept {
    if (!platform_.controls.diagnostics) return platform_.diagnostics->tell(diagnostic);
    try {
        platform_.controls.diagnostics(diagnostic);
    } catch (...) {
        // The host's own affair; it would have to be told the same way.
    }
}

}  // namespace qlsdk::platform
