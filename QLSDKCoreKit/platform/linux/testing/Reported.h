#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "QLSDKCoreKit/platform/Diagnostics.h"

namespace qlsdk::platform::testing {

/// Whether this process has reported a failure of that kind about that path, with that system error.
inline bool hasReported(DiagnosticKind kind, const std::string& path, int errorNumber = 0) {
    const std::vector<Diagnostic> all = diagnostics();
    return std::any_of(all.begin(), all.end(), [&](const Diagnostic& one) {
        return one.kind == kind && one.path == path && one.errorNumber == errorNumber;
    });
}

}  // namespace qlsdk::platform::testing
