#pragma once

#include <memory>

namespace qlsdk::platform {

/// Something with threads or locks that a child of fork() finds without its threads and perhaps with its
/// locks held for ever.
class ForkAware {
  public:
    virtual ~ForkAware() = default;

    /// Around fork() in the parent, for a lock that the forking thread itself comes back to in the child.
    virtual void beforeFork() noexcept {}
    virtual void afterForkInParent() noexcept {}

    /// Runs in the child before fork() returns there, while the child has one thread. Replaces what the lost
    /// threads worked on with a fresh, empty one and leaks the old.
    virtual void restartInChild() noexcept = 0;
};

/// Makes the calls above on every living watched object whenever this process forks, in the order in which
/// the objects were given. Any thread.
void watchForks(std::weak_ptr<ForkAware> object);

}  // namespace qlsdk::platform
