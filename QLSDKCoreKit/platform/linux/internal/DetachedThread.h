#pragma once

#include <cstddef>
#include <functional>

namespace qlsdk::platform {

/// How a thread of the library looks to a person who debugs, and what it may use.
struct ThreadTraits {
    /// At most 15 characters, the kernel's limit.
    const char* name;
    std::size_t stackBytes;
};

/// Starts a thread that nobody joins, with every signal blocked from its first instruction, so that a host's
/// signals only ever reach the host's own threads. False when the system has no room for one now; nothing was
/// started then and a later call may succeed. `body` must not throw.
[[nodiscard]] bool startDetachedThread(const ThreadTraits& traits, std::function<void()> body) noexcept;

/// True on a thread that was started here, where no signal is ever taken.
[[nodiscard]] bool isDetachedThread() noexcept;

}  // namespace qlsdk::platform
