#pragma once

#include <chrono>

#include <signal.h>

#include "QLSDKCoreKit/platform/desktop/GLibPointers.h"

namespace qlsdk::platform {

/// False in a child of fork() whose parent has worked with GLib through this library: GLib's threads are
/// missing there, and a lock that one of them held at the fork is held for ever. Ask before any use of GLib;
/// the answer counts as one. Any thread.
[[nodiscard]] bool canUseGLib() noexcept;

/// Carries asynchronous GIO calls to their end on the calling thread, all of them before one deadline.
///
/// While the object stands, the thread has a main context of its own as its default: the host's loops neither
/// have to run nor take part, and what GLib would tell later about a connection opened meanwhile (such as
/// "the bus has gone, end the process") goes to nobody. Signals are blocked on the thread meanwhile, so that
/// the threads which GLib starts for itself never take one of the host's. Any thread; on the stack.
class BoundedCalls {
  public:
    explicit BoundedCalls(std::chrono::milliseconds limit);
    ~BoundedCalls();
    BoundedCalls(const BoundedCalls&) = delete;
    BoundedCalls& operator=(const BoundedCalls&) = delete;

    /// `start(cancellable, callback, userData)` begins a call; returns what its finish function wants. Past
    /// the deadline calls are cancelled. Null for one that does not end even then, such as in a child of
    /// fork() where the host itself had used GLib before: the call is left to itself.
    template <typename Start>
    [[nodiscard]] ObjectPointer<GAsyncResult> wait(const Start& start) {
        auto* const call = new Call;
        start(cancellable_.get(), &keepResult, call);
        return finished(call);
    }

    /// True when the deadline has passed.
    [[nodiscard]] bool expired() const noexcept {
        return g_cancellable_is_cancelled(cancellable_.get()) != FALSE;
    }

  private:
    /// On the heap, because a call left to itself may yet write to it.
    struct Call {
        ObjectPointer<GAsyncResult> result;
    };

    static void keepResult(GObject* source, GAsyncResult* result, gpointer call) noexcept;
    [[nodiscard]] ObjectPointer<GAsyncResult> finished(Call* call);
    template <auto action>
    void after(std::chrono::milliseconds delay);

    const sigset_t previousMask_;
    GMainContext* const context_;
    const ObjectPointer<GCancellable> cancellable_;
    bool lost_ = false;
};

}  // namespace qlsdk::platform
