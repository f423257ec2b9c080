#include "QLSDKCoreKit/platform/Queues.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "QLSDKCoreKit/platform/Activity.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/threads/DetachedThread.h"
#include "QLSDKCoreKit/platform/linux/threads/ForkAware.h"
#include "QLSDKCoreKit/platform/linux/threads/LinuxMainQueue.h"
#include "QLSDKCoreKit/platform/linux/threads/WorkGate.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kThreads = 2;
constexpr std::size_t kStackBytes = std::size_t{1} << 20;
constexpr ThreadTraits kPoolThreads[kThreads] = {{"qlsdk-pool-1", kStackBytes},
                                                 {"qlsdk-pool-2", kStackBytes}};

template <typename Object>
std::shared_ptr<Object> watched(std::shared_ptr<Object> object) {
    watchForks(object);
    return object;
}

/// The tasks of one queue. They wait here and not in the pool, which learns only that there are some: giving
/// a task to a queue that is busy anyway costs a lock and a place in the list.
class Backlog {
  public:
    /// True when the pool must hear of the queue; the token keeps the work counted until it is all done.
    [[nodiscard]] bool add(Task task, const std::shared_ptr<Activity>& activity) {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(task));
        if (isScheduled_) return false;
        token_.emplace(activity);
        return isScheduled_ = true;
    }

    /// Runs what waits by now, and then what came during that: a task's follow-up is not kept waiting. True
    /// when there is still more; other queues go first.
    [[nodiscard]] bool runWaiting() noexcept {
        isSecondRound_ = false;
        if (!runRound() || becameIdle()) return false;
        isSecondRound_ = true;
        return runRound() && !becameIdle();
    }

    [[nodiscard]] bool isRunning() const noexcept { return runner_ == std::this_thread::get_id(); }

    /// For the task that is running.
    [[nodiscard]] bool hasNext() const noexcept {
        if (leftInRound_ > 0) return true;
        if (isSecondRound_) return false;
        const std::lock_guard lock(mutex_);
        return !waiting_.empty();
    }

    /// For a backlog that a child of fork() leaves behind, perhaps from inside one of its tasks.
    void abandon() noexcept { isAbandoned_ = true; }

    /// The pool's, while the backlog is scheduled: who comes after it.
    std::shared_ptr<Backlog> next;

  private:
    /// False when the backlog was abandoned meanwhile.
    bool runRound() noexcept {
        {
            const std::lock_guard lock(mutex_);
            running_.swap(waiting_);
        }
        runner_ = std::this_thread::get_id();
        leftInRound_ = running_.size();
        for (Task& task : running_) {
            if (isAbandoned_) return false;
            --leftInRound_;
            run(task);
        }
        runner_ = std::thread::id();
        running_.clear();
        return true;
    }

    static void run(Task& task) noexcept {
        const WorkGate::Pass pass;
        try {
            task();
        } catch (...) {
            // The port swallows what a task throws.
        }
        task = nullptr;
    }

    bool becameIdle() noexcept {
        std::optional<Activity::Token> token;
        const std::lock_guard lock(mutex_);
        if (!waiting_.empty()) return false;
        isScheduled_ = false;
        token_.swap(token);
        return true;
    }

    mutable std::mutex mutex_;
    std::deque<Task> waiting_;              // Guarded by the mutex.
    bool isScheduled_ = false;              // Guarded by the mutex.
    std::optional<Activity::Token> token_;  // Guarded by the mutex.
    // The pool thread's that runs this backlog.
    std::deque<Task> running_;
    std::size_t leftInRound_ = 0;
    bool isSecondRound_ = false;
    std::atomic<std::thread::id> runner_{};
    std::atomic<bool> isAbandoned_{false};
};

/// The threads that all serial queues of the process share.
class Pool final : public ForkAware {
  public:
    static Pool& shared() {
        static constinit ForkSafeOnce<std::shared_ptr<Pool>> leaked;
        return *leaked.get([] { return watched(std::make_shared<Pool>()); });
    }

    /// Has a thread run what waits in the backlog, after those that were given before.
    void schedule(std::shared_ptr<Backlog> backlog) noexcept { engine_->schedule(std::move(backlog)); }

    /// With no room for a thread, what was scheduled waits; the next task comes by here again.
    void ensureThreads() noexcept { engine_->ensureThreads(); }

    void restartInChild() noexcept override {
        (void)engine_.release();
        engine_ = std::make_unique<Engine>();
    }

  private:
    /// What the threads share. Outlives them all: they never end.
    class Engine {
      public:
        void schedule(std::shared_ptr<Backlog> backlog) noexcept {
            const std::lock_guard lock(mutex_);
            std::shared_ptr<Backlog>& end = first_ == nullptr ? first_ : last_->next;
            last_ = backlog.get();
            end = std::move(backlog);
            arrived_.notify_one();
        }

        void ensureThreads() noexcept {
            if (started_.load(std::memory_order_acquire) == kThreads) return;
            // With no lock held: whoever hears of it does so by way of this pool.
            if (!startThreads()) {
                reportDiagnostic({DiagnosticKind::resources, "no thread for the library's queues", errno});
            }
        }

      private:
        /// False, with `errno` set, when the system refuses one.
        bool startThreads() noexcept {
            const std::lock_guard lock(starting_);
            while (started_ < kThreads) {
                if (!startDetachedThread(kPoolThreads[started_], [this] { serve(); })) return false;
                ++started_;
            }
            return true;
        }

        [[noreturn]] void serve() noexcept {
            for (;;) {
                std::shared_ptr<Backlog> backlog = nextBacklog();
                if (backlog->runWaiting()) schedule(std::move(backlog));
                retryRefusedThreads();
            }
        }

        std::shared_ptr<Backlog> nextBacklog() noexcept {
            std::unique_lock lock(mutex_);
            arrived_.wait(lock, [this] { return first_ != nullptr; });
            std::shared_ptr<Backlog> backlog = std::move(first_);
            first_ = std::move(backlog->next);
            return backlog;
        }

        std::mutex mutex_;
        std::condition_variable arrived_;
        std::shared_ptr<Backlog> first_;  // Guarded by the mutex.
        Backlog* last_ = nullptr;         // Guarded by the mutex; meaningless while there is no first.
        std::mutex starting_;
        std::atomic<std::size_t> started_{0};
    };

    std::unique_ptr<Engine> engine_ = std::make_unique<Engine>();
};

class PoolQueue final : public SerialQueue, public ForkAware {
  public:
    /// Makes the pool as well: a task may be given with a lock held, and who makes the pool waits for forks,
    /// which wait for locks.
    explicit PoolQueue(std::shared_ptr<Activity> activity) : activity_(std::move(activity)) {
        (void)Pool::shared();
    }

    void async(Task task) override {
        if (!task) return;
        try {
            Pool& pool = Pool::shared();
            if (backlog_->add(std::move(task), activity_)) pool.schedule(backlog_);
            pool.ensureThreads();
        } catch (...) {
            // No memory to remember the task: it is lost, the caller goes on.
        }
    }

    [[nodiscard]] bool isCurrent() const noexcept override { return backlog_->isRunning(); }
    [[nodiscard]] bool hasNext() const noexcept override { return backlog_->hasNext(); }

    void restartInChild() noexcept override {
        // Leaked: its lock may be held by a thread that this process does not have.
        const auto& left = *new std::shared_ptr<Backlog>(std::move(backlog_));
        left->abandon();
        backlog_ = std::make_shared<Backlog>();
    }

  private:
    const std::shared_ptr<Activity> activity_;
    std::shared_ptr<Backlog> backlog_ = std::make_shared<Backlog>();
};

class LinuxQueues final : public Queues, public ForkAware {
  public:
    explicit LinuxQueues(std::shared_ptr<Activity> activity) : activity_(std::move(activity)) {}

    std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& /*label*/) override {
        return watched(std::make_shared<PoolQueue>(activity_));
    }

    std::shared_ptr<MainQueue> mainQueue() override {
        static constinit ForkSafeOnce<std::shared_ptr<LinuxMainQueue>> leaked;
        return leaked.get([] { return watched(std::make_shared<LinuxMainQueue>()); });
    }

    void restartInChild() noexcept override { activity_->restart(); }

  private:
    const std::shared_ptr<Activity> activity_;
};

}  // namespace

std::shared_ptr<Queues> makeLinuxQueues(std::shared_ptr<Activity> activity) {
    WorkGate::prepare();
    return watched(std::make_shared<LinuxQueues>(std::move(activity)));
}

}  // namespace qlsdk::platform
