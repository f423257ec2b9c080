#include "QLSDKCoreKit/platform/desktop/BoundedCalls.h"

#include <atomic>
#include <utility>

#include <unistd.h>

namespace qlsdk::platform {

namespace {

/// What a cancelled call may take to notice.
constexpr std::chrono::seconds kGrace{1};

sigset_t blockSignals() noexcept {
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    return previous;
}

}  // namespace

bool canUseGLib() noexcept {
    static std::atomic<pid_t> user{0};
    pid_t previous = 0;
    const pid_t self = ::getpid();
    return user.compare_exchange_strong(previous, self) || previous == self;
}

BoundedCalls::BoundedCalls(std::chrono::milliseconds limit)
    : previousMask_(blockSignals()), context_(g_main_context_new()), cancellable_(g_cancellable_new()) {
    g_main_context_push_thread_default(context_);
    after<[](BoundedCalls& calls) { g_cancellable_cancel(calls.cancellable_.get()); }>(limit);
    after<[](BoundedCalls& calls) { calls.lost_ = true; }>(limit + kGrace);
}

BoundedCalls::~BoundedCalls() {
    // What is left are clean-ups of objects that are gone by now.
    while (g_main_context_iteration(context_, FALSE) != FALSE) continue;
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
    pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
}

template <auto action>
void BoundedCalls::after(std::chrono::milliseconds delay) {
    GSource* const timer = g_timeout_source_new(static_cast<guint>(delay.count()));
    constexpr GSourceFunc kFire = [](gpointer calls) -> gboolean {
        action(*static_cast<BoundedCalls*>(calls));
        return G_SOURCE_REMOVE;
    };
    g_source_set_callback(timer, kFire, this, nullptr);
    g_source_attach(timer, context_);
    g_source_unref(timer);
}

ObjectPointer<GAsyncResult> BoundedCalls::finished(Call* call) {
    while (call->result == nullptr && !lost_) g_main_context_iteration(context_, TRUE);
    if (call->result == nullptr) return nullptr;
    ObjectPointer<GAsyncResult> result = std::move(call->result);
    delete call;
    return result;
}

void BoundedCalls::keepResult(GObject*, GAsyncResult* result, gpointer call) noexcept {
    static_cast<Call*>(call)->result.reset(static_cast<GAsyncResult*>(g_object_ref(result)));
}

}  // namespace qlsdk::platform
