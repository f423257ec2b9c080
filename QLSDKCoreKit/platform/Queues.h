#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

using Task = std::function<void()>;

/// Runs tasks one at a time, in the order they were given. Any thread may give one. What a task throws is
/// swallowed at the queue. A queue that loses its last owner still runs the tasks it has.
class QLSDK_EXPORT SerialQueue {
  public:
    virtual ~SerialQueue() = default;

    /// Queues `task` and returns at once; it never runs inside this call. A null task is ignored.
    virtual void async(Task task) = 0;

    /// True on the thread that is running a task of this queue right now.
    [[nodiscard]] virtual bool isCurrent() const noexcept = 0;

    /// For the task that is running: true when another task of this queue surely runs right after it, with no
    /// other queue's in between. Who collects work may then leave it to that one. An adapter that cannot tell
    /// says false, which is never wrong.
    [[nodiscard]] virtual bool hasNext() const noexcept { return false; }
};

/// The host's main queue. Tasks given to it wait until the host pumps it in one of three ways; a host that
/// never does is unharmed, its tasks just never run. Only one thread may pump at a time.
class QLSDK_EXPORT MainQueue : public SerialQueue {
  public:
    /// For a host with a poll loop: readable while tasks wait. Owned by the queue; -1 where the platform's
    /// own main loop does the pumping.
    [[nodiscard]] virtual int fileDescriptor() = 0;

    /// Runs the tasks that waited when the call began, not those they add, and returns how many ran. Called
    /// from inside a task it runs nothing and returns 0.
    virtual std::size_t drain() = 0;

    /// For a host without a loop: pumps on the calling thread until `stop`.
    virtual void run() = 0;
    /// Makes `run` return after the task in hand. Any thread; called before `run`, it makes that return at
    /// once.
    virtual void stop() = 0;

    /// For a host that wants neither: gives the queue a thread of its own that pumps until the process ends.
    /// Later calls change nothing.
    virtual void startThread() = 0;
};

/// Port: makes queues. Threads start with the first task, not before.
class QLSDK_EXPORT Queues {
  public:
    virtual ~Queues() = default;

    /// A new serial queue. `label` says whose it is, to a person who debugs; an adapter whose queues share
    /// their threads may make nothing of it.
    [[nodiscard]] virtual std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label) = 0;

    /// The one main queue of the process. Never null, always the same.
    [[nodiscard]] virtual std::shared_ptr<MainQueue> mainQueue() = 0;
};

}  // namespace qlsdk::platform
