#include "QLSDKCoreKit/events/internal/EventRecording.h"

#include "QLSDKCoreKit/platform/Diagnostics.h"

namespace qlsdk {

void reportLostEvent(const char* event, EventLoss loss) noexcept {
    using platform::DiagnosticKind;
    switch (loss) {
        case EventLoss::incompleteMessage:
            return platform::reportDiagnostic(
                {.kind = DiagnosticKind::records,
                 .cause = "an event was dropped: a text in it is too long, or memory is short",
                 .detail = event});
        case EventLoss::noMemory:
            return platform::reportDiagnostic({.kind = DiagnosticKind::resources,
                                               .cause = "an event was dropped: no memory",
                                               .detail = event});
        case EventLoss::exception:
            return platform::reportDiagnostic(
                {.kind = DiagnosticKind::hostCallback,
                 .cause = "an event was dropped: a part of the platform threw an exception",
                 .detail = event});
    }
}

}  // namespace qlsdk
