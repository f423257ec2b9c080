#include "QLSDKCoreKit/platform/desktop/internal/BoundedCalls.h"

namespace qlsdk::platform {

namespace {

sigset_t blockSignals() noexcept {
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    return previous;
}

}  // namespace

BoundedCalls::BoundedCalls(std::chrono::milliseconds limit)
    : previousMask_(blockSignals()),
      context_(g_main_context_new()),
      cancellable_(g_cancellable_new()),
      deadline_(g_timeout_source_new(static_cast<guint>(limit.count()))) {
    g_main_context_push_thread_default(context_);
    g_source_set_callback(deadline_, &cancel, cancellable_.get(), nullptr);
    g_source_attach(deadline_, context_);
}

BoundedCalls::~BoundedCalls() {
    g_source_destroy(deadline_);
    g_source_unref(deadline_);
    // What is left are clean-ups of objects that are gone by now.
    while (g_main_context_iteration(context_, FALSE) != FALSE) continue;
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
    pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
}

void BoundedCalls::keepResult(GObject*, GAsyncResult* result, gpointer userData) noexcept {
    *static_cast<GAsyncResult**>(userData) = static_cast<GAsyncResult*>(g_object_ref(result));
}

gboolean BoundedCalls::cancel(gpointer cancellable) noexcept {
    g_cancellable_cancel(static_cast<GCancellable*>(cancellable));
    return G_SOURCE_REMOVE;
}

}  // namespace qlsdk::platform
