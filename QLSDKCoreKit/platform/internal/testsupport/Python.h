#pragma once

#include <string_view>

#include "QLSDKCoreKit/platform/Data.h"

namespace qlsdk::platform::testing {

/// Runs a Python 3 program as an outside judge: `input` is its standard input, and what it writes to its
/// standard output is returned. A program that fails also fails the test.
[[nodiscard]] Data runPython(std::string_view program, DataView input = {});

}  // namespace qlsdk::platform::testing
