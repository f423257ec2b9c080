#include <vector>

#include "QLSDKCoreKit/c/QLSDK.h"
#include "QLSDKCoreKit/c/internal/Diagnostics.h"
#include "QLSDKCoreKit/c/internal/Facade.h"

namespace qlsdk {

namespace {

constexpr bool isSame(int inC, platform::DiagnosticKind kind) {
    return inC == static_cast<int>(kind);
}

using Kind = platform::DiagnosticKind;
static_assert(isSame(QLSDKDiagnosticRequestFailed, Kind::requestFailed) &&
              isSame(QLSDKDiagnosticCertificate, Kind::certificate) &&
              isSame(QLSDKDiagnosticInvalidOption, Kind::invalidOption) &&
              isSame(QLSDKDiagnosticStateDirectory, Kind::stateDirectory) &&
              isSame(QLSDKDiagnosticPropertyList, Kind::propertyList) &&
              isSame(QLSDKDiagnosticUnreadableFile, Kind::unreadableFile) &&
              isSame(QLSDKDiagnosticDamagedFile, Kind::damagedFile) &&
              isSame(QLSDKDiagnosticFailedWrite, Kind::failedWrite) &&
              isSame(QLSDKDiagnosticRecords, Kind::records) && isSame(QLSDKDiagnosticClock, Kind::clock) &&
              isSame(QLSDKDiagnosticKeychain, Kind::keychain) &&
              isSame(QLSDKDiagnosticResources, Kind::resources) &&
              isSame(QLSDKDiagnosticHostCallback, Kind::hostCallback) &&
              isSame(QLSDKDiagnosticServerAnswer, Kind::serverAnswer) &&
              isSame(QLSDKDiagnosticRandom, Kind::random) &&
              isSame(QLSDKDiagnosticDevelopmentKey, Kind::developmentKey));

}  // namespace

void giveDiagnostic(const platform::Diagnostic& diagnostic, QLSDKDiagnosticsCallback callback,
                    void* context) {
    const QLSDKDiagnostic given = {.size = sizeof given,
                                   .kind = static_cast<QLSDKDiagnosticKind>(diagnostic.kind),
                                   .cause = diagnostic.cause.c_str(),
                                   .errorNumber = diagnostic.errorNumber,
                                   .path = diagnostic.path.c_str(),
                                   .detail = diagnostic.detail.c_str(),
                                   .times = diagnostic.times};
    callback(&given, context);
}

}  // namespace qlsdk

size_t QLSDKReadDiagnostics(QLSDKDiagnosticsCallback callback, void* context) {
    return qlsdk::answerOr(std::size_t{0}, [=] {
        const std::vector<qlsdk::platform::Diagnostic> all = qlsdk::platform::diagnostics();
        for (const auto& each : all) {
            if (callback != nullptr) qlsdk::giveDiagnostic(each, callback, context);
        }
        return all.size();
    });
}
