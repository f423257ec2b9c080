#pragma once

#include <chrono>

#include <signal.h>

#include "QLSDKCoreKit/platform/desktop/internal/GLibPointers.h"

namespace qlsdk::platform {

/// Carries asynchronous GIO calls to their end on the calling thread, all of them before one deadline.
///
/// While the object stands, the thread has a main context of its own as its default: the host's loops neither
/// have to run nor take part, and what GLib would tell later about connections opened meanwhile (such as "the
/// bus has gone, end the process") goes to nobody. Signals are blocked on the thread meanwhile, so that the
/// threads which GLib starts for itself never take one of the host's. Any thread; on the stack.
class BoundedCalls {
  public:
    explicit BoundedCalls(std::chrono::milliseconds limit);
    ~BoundedCalls();
    BoundedCalls(const BoundedCalls&) = delete;
    BoundedCalls& operator=(const BoundedCalls&) = delete;

    /// `start(cancellable, callback, userData)` begins a call; returns what its finish function wants. After
    /// the deadline calls end at once with `G_IO_ERROR_CANCELLED`.
    template <typename Start>
    [[nodiscard]] ObjectPointer<GAsyncResult> wait(const Start& start) {
        GAsyncResult* result = nullptr;
        start(cancellable_.get(), &keepResult, &result);
        while (result == nullptr) g_main_context_iteration(context_, TRUE);
        return ObjectPointer<GAsyncResult>(result);
    }

    /// True when the deadline has passed.
    [[nodiscard]] bool expired() const noexcept {
        return g_cancellable_is_cancelled(cancellable_.get()) != FALSE;
    }

  private:
    static void keepResult(GObject* source, GAsyncResult* result, gpointer userData) noexcept;
    static gboolean cancel(gpointer cancellable) noexcept;

    sigset_t previousMask_;
    GMainContext* const context_;
    const ObjectPointer<GCancellable> cancellable_;
    GSource* const deadline_;
};

}  // namespace qlsdk::platform
