#pragma once

#include <mutex>

namespace qlsdk::platform {

/// A mutex that a child of fork() never finds taken by a thread that it does not have: whoever forks takes
/// all of these first, which also means that the child finds what they guard whole, and gives them up on both
/// sides of the fork. Every mutex of the library is one of these, but for those of an object that is replaced
/// as a whole in the child (`ForkAware`).
///
/// A leaf lock: while it is held nothing is called that could wait or lock again - no I/O, no callback, no
/// destructor of anything that came from a caller, no other lock, no library that may lock. Forking waits for
/// each of them in any order, with the others held, so anything else could hold up or stop the host.
///
/// Made and destroyed on any thread. A derived `std::mutex`, so that a condition variable takes it; the
/// condition variable itself has to be replaced in the child, and never destroyed while it may have waiters.
class ForkSafeMutex : public std::mutex {
  public:
    ForkSafeMutex() noexcept;
    ~ForkSafeMutex();
    ForkSafeMutex(const ForkSafeMutex&) = delete;
    ForkSafeMutex& operator=(const ForkSafeMutex&) = delete;

  private:
    friend class ForkSafeMutexes;

    // The list of all of them.
    ForkSafeMutex* next_ = nullptr;
    ForkSafeMutex* previous_ = nullptr;
};

}  // namespace qlsdk::platform
