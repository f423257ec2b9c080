#include "QLSDKCoreKit/platform/linux/internal/WorkGate.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

namespace qlsdk::platform {

namespace {

constexpr std::chrono::milliseconds kPatience{40};

struct Gate {
    std::atomic<int> inside{0};
    /// Who wants it closed: every fork in progress, and the end of the process, which stays.
    std::atomic<int> closers{0};
    std::atomic<bool> isClosedForGood{false};
    std::mutex mutex;
    std::condition_variable left;
    std::condition_variable opened;
};

std::atomic<Gate*> theGate{nullptr};
thread_local bool thisThreadIsInside = false;

Gate& gate() {
    if (Gate* made = theGate.load()) return *made;
    // No static initialisation, which a child would find begun and never ended when the fork meets it.
    auto* fresh = new Gate;
    Gate* earlier = nullptr;
    if (theGate.compare_exchange_strong(earlier, fresh)) return *fresh;
    delete fresh;
    return *earlier;
}

void closeAndWait(Gate& it) noexcept {
    // A task may end or fork the process itself; it must not wait for its own pass.
    const int own = thisThreadIsInside ? 1 : 0;
    std::unique_lock lock(it.mutex);
    ++it.closers;
    it.left.wait_for(lock, kPatience, [&] { return it.inside <= own; });
}

void leave(Gate& it) noexcept {
    --it.inside;
    if (it.closers == 0) return;
    const std::lock_guard lock(it.mutex);
    it.left.notify_all();
}

void waitUntilOpen(Gate& it) noexcept {
    std::unique_lock lock(it.mutex);
    it.opened.wait(lock, [&] { return it.closers == 0; });
}

}  // namespace

void WorkGate::arm() noexcept {
    // Refused only when the exit handlers have all run: too late for work as well.
    if (std::atexit([] { close(); }) != 0) close();
}

void WorkGate::close() noexcept {
    Gate& it = gate();
    // Who was too long inside for the first of our handlers is not waited for by the next.
    if (!it.isClosedForGood.exchange(true)) closeAndWait(it);
}

void WorkGate::closeBeforeFork() noexcept {
    closeAndWait(gate());
}

void WorkGate::reopenInParent() noexcept {
    Gate& it = gate();
    const std::lock_guard lock(it.mutex);
    if (--it.closers == 0) it.opened.notify_all();
}

void WorkGate::reopenInChild() noexcept {
    auto* fresh = new Gate;
    fresh->inside = thisThreadIsInside ? 1 : 0;
    theGate = fresh;
}

WorkGate::Pass::Pass() noexcept {
    // Sequentially consistent on both sides: either this thread sees the gate closed or the closer sees it
    // inside.
    for (;;) {
        Gate& it = gate();
        ++it.inside;
        if (it.closers == 0) break;
        leave(it);
        waitUntilOpen(it);
    }
    thisThreadIsInside = true;
}

WorkGate::Pass::~Pass() {
    thisThreadIsInside = false;
    leave(gate());
}

}  // namespace qlsdk::platform
