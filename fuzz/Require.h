#pragma once

#include <cstdlib>

namespace qlsdk::fuzz {

/// Ends the process when a promise is broken, so that the fuzzer keeps the input.
inline void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace qlsdk::fuzz
