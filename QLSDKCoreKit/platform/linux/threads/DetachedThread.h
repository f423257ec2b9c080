#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>

namespace qlsdk::platform {

/// How a thread of the library looks to a person who debugs, and what it may use.
struct ThreadTraits {
    /// At most 15 characters, the kernel's limit.
    const char* name;
    std::size_t stackBytes;
};

/// Starts a thread that nobody joins, with every signal blocked from its first instruction, so that a host's
/// signals only ever reach the host's own threads. False, with `errno` set, when the system has no room for
/// one now; nothing was started then and a later call may succeed. `body` must not throw.
[[nodiscard]] bool startDetachedThread(const ThreadTraits& traits, std::function<void()> body) noexcept;

/// Someone with work and no thread, because the system had no room for one.
class ThreadSeeker {
  public:
    virtual ~ThreadSeeker() = default;
    /// Tries again. Any thread.
    virtual void seekThread() noexcept = 0;
};

/// Has `seeker` try again at the next `retryRefusedThreads`, once. False without the memory to remember it.
/// Any thread, under any lock.
[[nodiscard]] bool askAgainForThread(std::shared_ptr<ThreadSeeker> seeker) noexcept;

/// The latest of those who were refused a thread.
extern constinit std::atomic<struct SeekingThread*> theSeeking;
void retryAllRefusedThreads() noexcept;

/// A thread of the library has done a piece of work: those who were refused theirs try again. Costs one look
/// when nobody was.
inline void retryRefusedThreads() noexcept {
    if (theSeeking.load(std::memory_order_relaxed) != nullptr) retryAllRefusedThreads();
}

/// In a child of fork(): who asked in the parent shall not get a thread here.
void forgetThreadSeekers() noexcept;

/// Written where the threads are started.
extern thread_local constinit bool thisThreadIsDetached;

/// True on a thread that was started here, where no signal is ever taken.
[[nodiscard]] inline bool isDetachedThread() noexcept {
    return thisThreadIsDetached;
}

}  // namespace qlsdk::platform
