#include "QLSDKCoreKit/platform/Queues.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "QLSDKCoreKit/platform/Activity.h"
#include "QLSDKCoreKit/platform/linux/internal/DetachedThread.h"
#include "QLSDKCoreKit/platform/linux/internal/ForkAware.h"
#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/internal/LinuxMainQueue.h"
#include "QLSDKCoreKit/platform/linux/internal/WorkGate.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kThreads = 2;
constexpr std::size_t kStackBytes = std::size_t{1} << 20;
constexpr ThreadTraits kPoolThreads[kThreads] = {{"qlsdk-pool-1", kStackBytes},
                                                 {"qlsdk-pool-2", kStackBytes}};

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

    /// Runs what waits by now. True when more came meanwhile; other queues go first.
    [[nodiscard]] bool runWaiting() noexcept {
        {
            const std::lock_guard lock(mutex_);
            running_.swap(waiting_);
        }
        runner_ = std::this_thread::get_id();
        for (Task& task : running_) {
            if (isAbandoned_) return false;
            run(task);
        }
        runner_ = std::thread::id();
        running_.clear();
        return !becameIdle();
    }

    [[nodiscard]] bool isRunning() const noexcept { return runner_ == std::this_thread::get_id(); }

    /// For a backlog that a child of fork() leaves behind, perhaps from inside one of its tasks.
    void abandon() noexcept { isAbandoned_ = true; }

    /// The pool's, while the backlog is scheduled: who comes after it.
    std::shared_ptr<Backlog> next;

  private:
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

    std::mutex mutex_;
    std::deque<Task> waiting_;              // Guarded by the mutex.
    bool isScheduled_ = false;              // Guarded by the mutex.
    std::optional<Activity::Token> token_;  // Guarded by the mutex.
    std::deque<Task> running_;              // The pool thread's that runs this backlog.
    std::atomic<std::thread::id> runner_{};
    std::atomic<bool> isAbandoned_{false};
};

/// The threads that all serial queues of the process share.
class Pool final : public ForkAware {
  public:
    static Pool& shared() {
        static const std::shared_ptr<Pool>& leaked = *[] {
            auto* owner = new std::shared_ptr<Pool>(std::make_shared<Pool>());
            watchForks(*owner);
            return owner;
        }();
        return *leaked;
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
            const std::lock_guard lock(starting_);
            while (started_ < kThreads) {
                if (!startDetachedThread(kPoolThreads[started_], [this] { serve(); })) return;
                ++started_;
            }
        }

      private:
        [[noreturn]] void serve() noexcept {
            for (;;) {
                std::shared_ptr<Backlog> backlog = nextBacklog();
                if (backlog->runWaiting()) schedule(std::move(backlog));
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
    explicit PoolQueue(std::shared_ptr<Activity> activity) : activity_(std::move(activity)) {}

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
        auto queue = std::make_shared<PoolQueue>(activity_);
        watchForks(queue);
        return queue;
    }

    std::shared_ptr<MainQueue> mainQueue() override {
        static const auto& leaked = *[] {
            auto* queue = new std::shared_ptr<LinuxMainQueue>(std::make_shared<LinuxMainQueue>());
            watchForks(*queue);
            return queue;
        }();
        return leaked;
    }

    void restartInChild() noexcept override { activity_->restart(); }

  private:
    const std::shared_ptr<Activity> activity_;
};

}  // namespace

std::shared_ptr<Queues> makeLinuxQueues(std::shared_ptr<Activity> activity) {
    auto queues = std::make_shared<LinuxQueues>(std::move(activity));
    watchForks(queues);
    return queues;
}

}  // namespace qlsdk::platform
