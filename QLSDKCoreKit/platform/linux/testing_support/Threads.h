#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace qlsdk::platform::testing_support {

/// What the kernel says about this process's threads.
[[nodiscard]] std::size_t threadCount();
[[nodiscard]] std::size_t threadsNamed(const std::string& name);

/// The signals that the calling thread could take, as text; empty when all that can be blocked are.
[[nodiscard]] std::string openSignals();

/// The set of signals that wait for the process as a whole, as a bit mask.
[[nodiscard]] std::uint64_t pendingProcessSignals();

}  // namespace qlsdk::platform::testing_support
