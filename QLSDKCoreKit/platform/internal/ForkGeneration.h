#pragma once

#include <atomic>
#include <cstdint>

namespace qlsdk::platform {

/// Counted up in a child of fork() before anything of the library runs there. Written by the system's folder
/// alone.
extern constinit std::atomic<int> theProcessGeneration;

/// Differs between a process and its children. At least 1; steady within one process. Any thread; a load.
[[nodiscard]] inline int processGeneration() noexcept {
    return theProcessGeneration.load(std::memory_order_relaxed);
}

/// The same from 0 on, for those who must tell what the parent has under way from what they have themselves.
[[nodiscard]] inline std::uint64_t forkGeneration() noexcept {
    return static_cast<std::uint64_t>(processGeneration() - 1);
}

}  // namespace qlsdk::platform
