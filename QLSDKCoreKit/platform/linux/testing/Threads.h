#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qlsdk::platform::testing_support {

/// How many threads of this process have a name that begins so, as the kernel tells it.
[[nodiscard]] std::size_t threadsNamed(const std::string& beginning);

/// The signals that the calling thread could take, as text; empty when all that can be blocked are.
[[nodiscard]] std::string openSignals();

/// The set of signals that wait for the process as a whole, as a bit mask.
[[nodiscard]] std::uint64_t pendingProcessSignals();

}  // namespace qlsdk::platform::testing_support
