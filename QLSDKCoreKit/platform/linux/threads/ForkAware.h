#pragma once

#include <memory>

namespace qlsdk::platform {

/// Something with threads, or with locks and condition variables of its own, which a child of fork() finds
/// without its threads and with its locks perhaps held for ever.
class ForkAware {
  public:
    virtual ~ForkAware() = default;

    /// Runs in the child before fork() returns there, while the child has one thread and that holds no lock.
    /// Replaces what the lost threads worked on with a fresh, empty one and leaks the old.
    virtual void restartInChild() noexcept = 0;
};

/// Makes the call above on every living watched object whenever this process forks, in the order in which the
/// objects were given. Any thread.
void watchForks(std::weak_ptr<ForkAware> object);

}  // namespace qlsdk::platform
