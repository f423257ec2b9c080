#include "QLSDKCoreKit/platform/linux/threads/LinuxMainQueue.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/internal/ForkSafeMutex.h"
#include "QLSDKCoreKit/platform/linux/threads/DetachedThread.h"
#include "QLSDKCoreKit/platform/linux/threads/WorkGate.h"

namespace qlsdk::platform {

namespace {

constexpr ThreadTraits kMainThread{"qlsdk-main", std::size_t{1} << 20};

int openEvent(unsigned initialValue) noexcept {
    return eventfd(initialValue, EFD_CLOEXEC | EFD_NONBLOCK);
}

// The old event is shared with the parent. The number stays, because the host's poll set holds it.
void replaceEvent(int descriptor) noexcept {
    const int fresh = openEvent(0);
    if (fresh == -1) return;
    dup3(fresh, descriptor, O_CLOEXEC);
    close(fresh);
}

}  // namespace

struct LinuxMainQueue::State {
    // A host may fork inside a task and go on pumping, on both sides.
    mutable ForkSafeMutex mutex;
    std::unique_ptr<std::condition_variable> changed = std::make_unique<std::condition_variable>();
    // Everything below is guarded by `mutex`, but for the runner's id, which is read from any thread.
    std::deque<Task> tasks;
    bool stopRequested = false;
    bool hasThread = false;
    int descriptor = -1;
    std::atomic<std::thread::id> runner{};

    [[nodiscard]] bool canRun() const noexcept {
        return !tasks.empty() && runner.load() == std::thread::id();
    }

    void add(Task task) {
        const std::lock_guard lock(mutex);
        tasks.push_back(std::move(task));
        if (tasks.size() == 1 && descriptor != -1) eventfd_write(descriptor, 1);
        changed->notify_all();
    }

    Task take() {
        Task task = std::move(tasks.front());
        tasks.pop_front();
        std::uint64_t ignored = 0;
        if (tasks.empty() && descriptor != -1) eventfd_read(descriptor, &ignored);
        runner = std::this_thread::get_id();
        return task;
    }

    // Enters and leaves with `lock` held.
    void runOne(std::unique_lock<std::mutex>& lock) {
        Task task = take();
        lock.unlock();
        try {
            task();
        } catch (...) {
            // The port swallows what a task throws.
        }
        task = nullptr;
        lock.lock();
        runner = std::thread::id();
        changed->notify_all();
    }
};

LinuxMainQueue::LinuxMainQueue() : state_(std::make_unique<State>()) {}

LinuxMainQueue::~LinuxMainQueue() {
    if (state_->descriptor != -1) close(state_->descriptor);
}

void LinuxMainQueue::async(Task task) {
    if (task) state_->add(std::move(task));
}

bool LinuxMainQueue::isCurrent() const noexcept {
    return state_->runner.load() == std::this_thread::get_id();
}

int LinuxMainQueue::fileDescriptor() {
    const std::lock_guard lock(state_->mutex);
    if (state_->descriptor == -1) state_->descriptor = openEvent(state_->tasks.empty() ? 0 : 1);
    return state_->descriptor;
}

std::size_t LinuxMainQueue::drain() {
    std::unique_lock<std::mutex> lock(state_->mutex);
    std::size_t ran = 0;
    for (std::size_t left = state_->tasks.size(); left > 0 && state_->canRun(); --left, ++ran)
        state_->runOne(lock);
    return ran;
}

void LinuxMainQueue::run() {
    if (isCurrent()) return;
    std::unique_lock<std::mutex> lock(state_->mutex);
    for (;;) {
        state_->changed->wait(lock, [this] { return state_->stopRequested || state_->canRun(); });
        if (std::exchange(state_->stopRequested, false)) return;
        state_->runOne(lock);
    }
}

void LinuxMainQueue::stop() {
    const std::lock_guard lock(state_->mutex);
    state_->stopRequested = true;
    state_->changed->notify_all();
}

void LinuxMainQueue::startThread() {
    const std::lock_guard lock(state_->mutex);
    if (state_->hasThread) return;
    state_->hasThread = startDetachedThread(kMainThread, [this] {
        std::unique_lock<std::mutex> threadLock(state_->mutex);
        for (;;) {
            state_->changed->wait(threadLock, [this] { return state_->canRun(); });
            threadLock.unlock();
            const WorkGate::Pass pass;
            threadLock.lock();
            if (state_->canRun()) state_->runOne(threadLock);
        }
    });
}

void LinuxMainQueue::restartInChild() noexcept {
    State& state = *state_;
    (void)state.changed.release();  // It still counts the parent's waiting threads and would wait for them.
    state.changed = std::make_unique<std::condition_variable>();
    (new std::deque<Task>)->swap(state.tasks);  // Leaked: what the tasks hold is the parent's as well.
    state.hasThread = false;
    if (!isCurrent()) state.runner = std::thread::id();
    if (state.descriptor != -1) replaceEvent(state.descriptor);
}

}  // namespace qlsdk::platform
