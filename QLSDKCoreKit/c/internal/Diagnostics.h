#pragma once

#include "QLSDKCoreKit/c/QLSDK.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"

namespace qlsdk {

/// Hands `diagnostic` to a function in C.
void giveDiagnostic(const platform::Diagnostic& diagnostic, QLSDKDiagnosticsCallback callback, void* context);

}  // namespace qlsdk
