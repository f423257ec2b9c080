#include "QLSDKCoreKit/platform/linux/threads/WorkGate.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "QLSDKCoreKit/platform/linux/threads/DetachedThread.h"

namespace qlsdk::platform {

namespace {

constexpr std::chrono::milliseconds kTaskPatienceAtFork{40};
constexpr std::chrono::milliseconds kLibraryPatienceAtFork{2'000};

constinit WorkGate::Patience patienceAtEnd{};

struct Gate : WorkGateEntrance {
    /// The uses that began in an even and in an odd round. Each end begins another, so that it waits for
    /// those that were there and not for a host's thread that comes back again and again.
    std::array<std::atomic<int>, 2> inLibraries{};
    std::atomic<unsigned> round{0};
    std::atomic<bool> isClosedForGood{false};
    std::mutex mutex;
    // With the lock held: the end of the process waited for a use of such a round that did not end.
    std::array<bool, 2> hasGivenUp{};
    std::condition_variable left;
    std::condition_variable opened;
};

thread_local int libraryUsesOfThisThread = 0;
thread_local unsigned roundOfThisThread = 0;
// Such a thread still calls into the library from the exit handlers that follow.
thread_local bool thisThreadEndsTheProcess = false;

Gate& gate() {
    return static_cast<Gate&>(WorkGateEntrance::get());
}

// A task may end or fork the process itself; it must not wait for its own pass.
bool isAlone(const Gate& it) noexcept {
    return it.inside <= (WorkGateEntrance::isThisThreadInside ? 1 : 0);
}
bool isAloneInLibraries(const Gate& it, unsigned round) noexcept {
    const bool isInside = libraryUsesOfThisThread > 0 && roundOfThisThread == round % 2;
    return it.inLibraries[round % 2] <= (isInside ? 1 : 0);
}

// With the lock. False when a library use outlasts its time.
template <typename IsAlone>
bool waitForOthers(Gate& it, std::unique_lock<std::mutex>& lock, std::chrono::milliseconds task,
                   std::chrono::milliseconds inLibrary, const IsAlone& isAloneInThem) noexcept {
    it.left.wait_for(lock, task, [&] { return isAlone(it) && isAloneInThem(); });
    return it.left.wait_for(lock, inLibrary, isAloneInThem);
}

void waitUntilForksAreOver(Gate& it) noexcept {
    std::unique_lock lock(it.mutex);
    it.opened.wait(lock, [&] { return it.closers <= (it.isClosedForGood ? 1 : 0); });
}

// With a look at who is there: true when this thread may stay inside.
bool mayUseLibraries(Gate& it) noexcept {
    if (it.closers == 0) return true;
    if (it.isClosedForGood) return !isDetachedThread() || thisThreadEndsTheProcess;
    // The fork waits for the whole pass.
    return WorkGateEntrance::isThisThreadInside;
}

void enterLibraries() noexcept {
    // As with passes: either this thread sees the gate closed or the closer sees it inside.
    for (;;) {
        Gate& it = gate();
        const unsigned round = it.round;
        ++it.inLibraries[round % 2];
        const bool isInTime = it.round == round;
        if (isInTime && mayUseLibraries(it)) {
            roundOfThisThread = round % 2;
            return;
        }
        --it.inLibraries[round % 2];
        if (it.closers != 0) it.wakeClosers();
        if (!isInTime) continue;
        if (it.isClosedForGood && WorkGateEntrance::isThisThreadInside) it.leave();
        it.isClosedForGood ? it.waitUntilOpen() : waitUntilForksAreOver(it);
    }
}

void leaveLibraries() noexcept {
    Gate& it = gate();
    --it.inLibraries[roundOfThisThread];
    if (it.closers != 0) it.wakeClosers();
}

}  // namespace

constinit std::atomic<WorkGateEntrance*> WorkGateEntrance::made{nullptr};
constinit thread_local bool WorkGateEntrance::isThisThreadInside = false;

WorkGateEntrance& WorkGateEntrance::make() {
    // No static initialisation, which a child would find begun and never ended when the fork meets it.
    auto* fresh = new Gate;
    WorkGateEntrance* earlier = nullptr;
    if (made.compare_exchange_strong(earlier, fresh)) return *fresh;
    delete fresh;
    return *earlier;
}

void WorkGateEntrance::wakeClosers() noexcept {
    auto& it = static_cast<Gate&>(*this);
    const std::lock_guard lock(it.mutex);
    it.left.notify_all();
}

void WorkGateEntrance::waitUntilOpen() noexcept {
    auto& it = static_cast<Gate&>(*this);
    std::unique_lock lock(it.mutex);
    it.opened.wait(lock, [&] { return it.closers == 0; });
}

void WorkGate::prepare() {
    (void)gate();
}

bool WorkGate::arm() noexcept {
    errno = 0;
    if (std::atexit([] { close(); }) == 0) return true;
    // Refused also when the exit handlers have all run: too late for work as well.
    if (errno != ENOMEM) close();
    return false;
}

void WorkGate::setPatienceAtEnd(Patience patience) noexcept {
    patienceAtEnd = patience;
}

void WorkGate::close() noexcept {
    Gate& it = gate();
    const Patience patience = patienceAtEnd;
    thisThreadEndsTheProcess = true;
    std::unique_lock lock(it.mutex);
    const bool isFirst = !it.isClosedForGood.exchange(true);
    if (isFirst) ++it.closers;
    // A task that outlived the first call's wait is not waited for again by the later ones.
    const auto task = isFirst ? patience.task : std::chrono::milliseconds(0);
    const unsigned before = it.round++;
    const auto isAloneInThem = [&] { return isAloneInLibraries(it, before); };
    bool& hasGivenUp = it.hasGivenUp[before % 2];
    if (!hasGivenUp) hasGivenUp = !waitForOthers(it, lock, task, patience.inLibrary, isAloneInThem);
}

void WorkGate::closeBeforeFork() noexcept {
    Gate& it = gate();
    std::unique_lock lock(it.mutex);
    ++it.closers;
    const auto isAloneInThem = [&] { return isAloneInLibraries(it, 0) && isAloneInLibraries(it, 1); };
    (void)waitForOthers(it, lock, kTaskPatienceAtFork, kLibraryPatienceAtFork, isAloneInThem);
}

void WorkGate::reopenInParent() noexcept {
    Gate& it = gate();
    const std::lock_guard lock(it.mutex);
    --it.closers;
    it.opened.notify_all();
}

void WorkGate::reopenInChild() noexcept {
    auto* fresh = new Gate;
    fresh->inside = WorkGateEntrance::isThisThreadInside ? 1 : 0;
    fresh->inLibraries[0] = libraryUsesOfThisThread > 0 ? 1 : 0;
    roundOfThisThread = 0;
    WorkGateEntrance::made = fresh;
}

WorkGate::LibraryUse::LibraryUse() noexcept {
    if (libraryUsesOfThisThread++ == 0) enterLibraries();
}

WorkGate::LibraryUse::~LibraryUse() {
    if (--libraryUsesOfThisThread == 0) leaveLibraries();
}

WorkGate::HostCode::HostCode() noexcept : uses_(std::exchange(libraryUsesOfThisThread, 0)) {
    if (uses_ > 0) leaveLibraries();
}

WorkGate::HostCode::~HostCode() {
    if (uses_ > 0) enterLibraries();
    libraryUsesOfThisThread = uses_;
}

}  // namespace qlsdk::platform
