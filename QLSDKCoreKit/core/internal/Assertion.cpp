#include "QLSDKCoreKit/core/internal/Assertion.h"

#include <optional>
#include <string>

#include "QLSDKCoreKit/core/QLCrashReporting.h"
#include "QLSDKCoreKit/core/internal/SharedClientSetup.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk {

void reportFailedAssertion(std::string_view signature, std::string_view condition,
                           std::string_view reason) noexcept {
    try {
        const std::string name = "Assertion failure in " + std::string(signature);
        const std::string text = "[ClientID=" + describe(clientIDForReports()) +
                                 "] Condition not satisfied: (" + std::string(condition) + "), reason: '" +
                                 std::string(reason) + "'";
        QLLogAssertAsHandledException(name.c_str(), text.c_str());
    } catch (...) {
        // Without the memory for its text a report is lost; the work it is about goes on.
    }
}

void reportInvalidParameter(std::string_view signature, std::string_view parameterName) noexcept {
    try {
        // On purpose: the condition brings parentheses of its own, so the report shows the name in two pairs.
        reportFailedAssertion(signature, "(" + std::string(parameterName) + ")",
                              "Invalid parameter not satisfying: " + std::string(parameterName));
    } catch (...) {
        // As above.
    }
}

}  // namespace qlsdk
