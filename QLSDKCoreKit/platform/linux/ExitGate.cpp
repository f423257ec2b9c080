#include "QLSDKCoreKit/platform/linux/internal/ExitGate.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include <pthread.h>
#include <unistd.h>

namespace qlsdk::platform {

namespace {

constexpr std::chrono::milliseconds kPatience{40};

struct Gate {
    std::atomic<int> inside{0};
    std::atomic<bool> closed{false};
    std::mutex mutex;
    std::condition_variable left;
};

std::atomic<Gate*> theGate{nullptr};
thread_local bool thisThreadIsInside = false;

void reopenInChild() {
    // Only the forking thread lives on in a child, so nobody else is inside there.
    auto* fresh = new Gate;
    fresh->inside = thisThreadIsInside ? 1 : 0;
    theGate.store(fresh);
}

Gate& gate() {
    if (Gate* made = theGate.load()) return *made;
    // No static initialisation, which a child would find begun and never ended when the fork meets it.
    auto* fresh = new Gate;
    Gate* earlier = nullptr;
    if (theGate.compare_exchange_strong(earlier, fresh)) {
        (void)pthread_atfork(nullptr, nullptr, reopenInChild);
        return *fresh;
    }
    delete fresh;
    return *earlier;
}

[[noreturn]] void park() noexcept {
    for (;;) pause();
}

void leave() noexcept {
    Gate& it = gate();
    --it.inside;
    if (!it.closed) return;
    const std::lock_guard lock(it.mutex);
    it.left.notify_all();
}

}  // namespace

void ExitGate::arm() noexcept {
    // Refused only when the exit handlers have all run: too late for work as well.
    if (std::atexit([] { close(); }) != 0) close();
}

void ExitGate::close() noexcept {
    Gate& it = gate();
    // A task may end the process itself; it must not wait for its own pass.
    const int own = thisThreadIsInside ? 1 : 0;
    std::unique_lock lock(it.mutex);
    it.closed = true;
    it.left.wait_for(lock, kPatience, [&] { return it.inside <= own; });
}

ExitGate::Pass::Pass() noexcept {
    // Sequentially consistent on both sides: either this thread sees the gate closed or the closer sees it
    // inside.
    Gate& it = gate();
    ++it.inside;
    if (it.closed) {
        leave();
        park();
    }
    thisThreadIsInside = true;
}

ExitGate::Pass::~Pass() {
    thisThreadIsInside = false;
    leave();
}

}  // namespace qlsdk::platform
