#include "QLSDKCoreKit/platform/Diagnostics.h"

#include <atomic>
#include <cerrno>
#include <system_error>
#include <utility>

#include "QLSDKCoreKit/platform/Log.h"
#include "QLSDKCoreKit/platform/internal/DiagnosticsObserver.h"
#include "QLSDKCoreKit/platform/internal/DiagnosticsRecord.h"

namespace qlsdk::platform {

namespace {

// Null until the platform is settled, and for good where nobody listens. Never destroyed.
std::atomic<const DiagnosticsObserver*> theObserver{nullptr};

}  // namespace

void observeDiagnostics(const DiagnosticsObserver& observer) noexcept {
    theObserver = &observer;
    // Whoever adds one looks for the observer afterwards; either sees the other.
    if (DiagnosticsRecord::shared().hasNew()) observer.hasNew();
}

void reportDiagnostic(const DiagnosticReport& report) noexcept {
    const int error = errno;
    // The queue may have something to report itself, which is known by the second time: this ends there.
    const bool isNew = DiagnosticsRecord::shared().add(report);
    const DiagnosticsObserver* observer = theObserver;
    if (isNew && observer != nullptr) observer->hasNew();
    errno = error;
}

std::vector<Diagnostic> diagnostics() {
    return DiagnosticsRecord::shared().all();
}

const char* diagnosticKindName(DiagnosticKind kind) noexcept {
    switch (kind) {
        case DiagnosticKind::requestFailed:
            return "requestFailed";
        case DiagnosticKind::certificate:
            return "certificate";
        case DiagnosticKind::invalidOption:
            return "invalidOption";
        case DiagnosticKind::stateDirectory:
            return "stateDirectory";
        case DiagnosticKind::propertyList:
            return "propertyList";
        case DiagnosticKind::unreadableFile:
            return "unreadableFile";
        case DiagnosticKind::damagedFile:
            return "damagedFile";
        case DiagnosticKind::failedWrite:
            return "failedWrite";
        case DiagnosticKind::records:
            return "records";
        case DiagnosticKind::clock:
            return "clock";
        case DiagnosticKind::keychain:
            return "keychain";
        case DiagnosticKind::resources:
            return "resources";
        case DiagnosticKind::hostCallback:
            return "hostCallback";
        case DiagnosticKind::serverAnswer:
            return "serverAnswer";
        case DiagnosticKind::random:
            return "random";
        case DiagnosticKind::developmentKey:
            return "developmentKey";
    }
    return "unknown";
}

std::string diagnosticLine(const Diagnostic& diagnostic) {
    std::string line = diagnosticKindName(diagnostic.kind);
    for (const std::string& part : {diagnostic.cause, diagnostic.path, diagnostic.detail}) {
        if (!part.empty()) line += ": " + part;
    }
    if (diagnostic.errorNumber != 0) {
        line += ": " + std::generic_category().message(diagnostic.errorNumber) + " (errno " +
                std::to_string(diagnostic.errorNumber) + ")";
    }
    return escapedForLog(line);
}

}  // namespace qlsdk::platform
