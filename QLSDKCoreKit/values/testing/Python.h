#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform::testing {

/// Runs a Python 3 program as an outside judge: `input` is its standard input, and what it writes to its
/// standard output is returned. A program that fails also fails the test.
[[nodiscard]] Data runPython(std::string_view program, DataView input = {});

/// Evaluates Python expressions that give bytes, after running `prelude`, all in one process. As many results
/// as expressions.
[[nodiscard]] std::vector<Data> evaluatePython(std::string_view prelude,
                                               const std::vector<std::string>& expressions);

}  // namespace qlsdk::platform::testing
