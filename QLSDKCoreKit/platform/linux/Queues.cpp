#define ASIO_STANDALONE
// Tasks are handed over under locks; the extra fences would only blind the thread sanitizer.
#define ASIO_DISABLE_FENCED_BLOCK

#include "QLSDKCoreKit/platform/Queues.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/strand.hpp>

#include "QLSDKCoreKit/platform/Activity.h"
#include "QLSDKCoreKit/platform/linux/internal/DetachedThread.h"
#include "QLSDKCoreKit/platform/linux/internal/ExitGate.h"
#include "QLSDKCoreKit/platform/linux/internal/ForkAware.h"
#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/internal/LinuxMainQueue.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kThreads = 2;
constexpr std::size_t kStackBytes = std::size_t{1} << 20;
constexpr ThreadTraits kPoolThreads[kThreads] = {{"qlsdk-pool-1", kStackBytes},
                                                 {"qlsdk-pool-2", kStackBytes}};

using Strand = asio::strand<asio::io_context::executor_type>;

/// The threads that all serial queues of the process share.
class Pool final : public ForkAware {
  public:
    static Pool& shared() {
        static const auto& leaked = *[] {
            auto* pool = new std::shared_ptr<Pool>(std::make_shared<Pool>());
            watchForks(*pool);
            return pool;
        }();
        return *leaked;
    }

    [[nodiscard]] Strand makeStrand() { return Strand(engine_->context.get_executor()); }

    /// With no room for a thread, what was posted waits; the next task comes by here again.
    void ensureThreads() noexcept {
        Engine& engine = *engine_;
        if (engine.started.load(std::memory_order_acquire) == kThreads) return;
        const std::lock_guard lock(engine.starting);
        while (engine.started < kThreads) {
            if (!startDetachedThread(kPoolThreads[engine.started], [&engine] { engine.context.run(); }))
                return;
            ++engine.started;
        }
    }

    void restartInChild() noexcept override {
        (void)engine_.release();
        engine_ = std::make_unique<Engine>();
    }

  private:
    struct Engine {
        asio::io_context context{static_cast<int>(kThreads)};
        asio::executor_work_guard<asio::io_context::executor_type> keepsRunning =
            asio::make_work_guard(context);
        std::mutex starting;
        std::atomic<std::size_t> started{0};
    };
    std::unique_ptr<Engine> engine_ = std::make_unique<Engine>();
};

/// One task on its way; the token goes last, after everything that the task held.
struct QueuedTask {
    Activity::Token token;
    Task task;

    void operator()() noexcept {
        const ExitGate::Pass pass;
        try {
            task();
        } catch (...) {
            // The port swallows what a task throws.
        }
        task = nullptr;
    }
};

class PoolQueue final : public SerialQueue, public ForkAware {
  public:
    explicit PoolQueue(std::shared_ptr<Activity> activity) : activity_(std::move(activity)) {}

    void async(Task task) override {
        if (!task) return;
        try {
            asio::post(*strand_, QueuedTask{Activity::Token(activity_), std::move(task)});
        } catch (...) {
            return;  // No memory to remember the task: it is lost, the caller goes on.
        }
        Pool::shared().ensureThreads();
    }

    [[nodiscard]] bool isCurrent() const noexcept override { return strand_->running_in_this_thread(); }

    void restartInChild() noexcept override {
        (void)strand_.release();  // Its lock may be held by a thread that this process does not have.
        strand_ = std::make_unique<Strand>(Pool::shared().makeStrand());
    }

  private:
    const std::shared_ptr<Activity> activity_;
    std::unique_ptr<Strand> strand_ = std::make_unique<Strand>(Pool::shared().makeStrand());
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
