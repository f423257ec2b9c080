#include "QLSDKCoreKit/platform/linux/internal/CurlUrlSession.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <initializer_list>
#include <limits>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <curl/curl.h>

#include "QLSDKCoreKit/platform/linux/internal/CurlTransfer.h"
#include "QLSDKCoreKit/platform/linux/internal/DetachedThread.h"
#include "QLSDKCoreKit/platform/linux/internal/HttpRequestCheck.h"
#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/internal/OpenSsl.h"
#include "QLSDKCoreKit/platform/linux/internal/WorkGate.h"

namespace qlsdk::platform {

namespace {

constexpr ThreadTraits kHttpThread{"qlsdk-http", std::size_t{512} << 10};
constexpr std::size_t kMostTransfers = 4;
// Not one of curl's errors: the request was never given to it.
constexpr int kRefused = -1;
constexpr char kTasksAreRefused[] = "tasks are refused";

std::string firstSet(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (const char* value = std::getenv(name)) return value;
    }
    return {};
}

void callSwallowing(const Task& task) noexcept {
    try {
        if (task) task();
    } catch (...) {
        // As with completions: nothing that is called back may end the thread.
    }
}

HttpSettings settle(const HttpOptions& options) {
    return {.options = options,
            .proxy = options.proxy ? *options.proxy
                                   : firstSet({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}),
            .noProxy = firstSet({"no_proxy", "NO_PROXY"})};
}

}  // namespace

/// What the session shares with its thread. Outlives both: the thread never ends.
class CurlUrlSession::Engine : public std::enable_shared_from_this<Engine> {
  public:
    explicit Engine(const HttpOptions& options) : settings_(settle(options)) {
        active_.reserve(kMostTransfers);
        spare_.reserve(kMostTransfers);
    }

    void add(std::unique_ptr<HttpTask> task) {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(task));
        // With no room for the thread now, the tasks wait for the next one to come by here.
        if (!started_)
            started_ = startDetachedThread(kHttpThread, [self = shared_from_this()] { self->serve(); });
        wake();
    }

    /// The token keeps the process busy until `done` has been called.
    void refuse(Task done, Activity::Token token) {
        std::deque<std::unique_ptr<HttpTask>> neverStarted;
        {
            const std::lock_guard lock(mutex_);
            refusing_ = true;
            if (started_) {
                refusals_.push_back({std::move(token), std::move(done)});
                return wake();
            }
            neverStarted.swap(waiting_);
        }
        for (const auto& task : neverStarted) task->fail(kRefused, kTasksAreRefused);
        if (done) done();
    }

    void accept() noexcept { refusing_ = false; }
    [[nodiscard]] bool isRefusing() const noexcept { return refusing_; }

  private:
    using TimePoint = CurlTransfer::TimePoint;

    struct Refusal {
        Activity::Token token;
        Task done;
    };

    // With the lock held.
    void wake() noexcept {
        if (!std::exchange(asleep_, false)) return;
        multi_ == nullptr ? arrived_.notify_one() : static_cast<void>(curl_multi_wakeup(multi_));
    }

    // Between two passes the thread holds no lock and is in no library but curl's poll.
    [[noreturn]] void serve() noexcept {
        for (;;) {
            {
                const WorkGate::Pass pass;
                if (multi_ == nullptr) startCurl();
                turn();
            }
            sleep();
        }
    }

    void startCurl() noexcept {
        if (!ensureOpenSsl() || curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return;
        CURLM* multi = curl_multi_init();
        if (multi != nullptr)
            curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, static_cast<long>(kMostTransfers));
        const std::lock_guard lock(mutex_);
        multi_ = multi;
    }

    void turn() noexcept {
        endRefused();
        while (std::unique_ptr<HttpTask> task = nextTask()) begin(std::move(task));
        if (multi_ == nullptr) return;
        int running = 0;
        curl_multi_perform(multi_, &running);
        finishDone();
        finishOverdue();
    }

    void endRefused() noexcept {
        std::vector<Refusal> refusals;
        std::deque<std::unique_ptr<HttpTask>> waiting;
        {
            const std::lock_guard lock(mutex_);
            if (refusals_.empty()) return;
            refusals.swap(refusals_);
            waiting.swap(waiting_);
        }
        while (!active_.empty()) finish(*active_.back(), CURLE_ABORTED_BY_CALLBACK);
        for (const auto& task : waiting) task->fail(kRefused, kTasksAreRefused);
        for (const Refusal& refusal : refusals) callSwallowing(refusal.done);
    }

    std::unique_ptr<HttpTask> nextTask() noexcept {
        const std::lock_guard lock(mutex_);
        if (waiting_.empty() || active_.size() >= kMostTransfers) return nullptr;
        std::unique_ptr<HttpTask> task = std::move(waiting_.front());
        waiting_.pop_front();
        return task;
    }

    void begin(std::unique_ptr<HttpTask> task) noexcept {
        try {
            if (refusing_) return task->fail(kRefused, kTasksAreRefused);
            if (auto reason = reasonToRefuse(task->request)) return task->fail(kRefused, std::move(*reason));
            void* handle = multi_ == nullptr ? nullptr : takeHandle();
            if (handle == nullptr) return task->fail(CURLE_FAILED_INIT, "no transport");
            active_.push_back(std::make_unique<CurlTransfer>(std::move(task), settings_));
            CurlTransfer& transfer = *active_.back();
            if (!transfer.prepare(handle, now()) || curl_multi_add_handle(multi_, handle) != CURLM_OK) {
                finish(transfer, CURLE_FAILED_INIT);
            }
        } catch (...) {
            // Out of memory: the task goes, and its end calls the completion.
        }
    }

    void finishDone() noexcept {
        int left = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
            if (message->msg != CURLMSG_DONE) continue;
            const CURLcode code = message->data.result;
            char* transfer = nullptr;
            curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
            finish(*reinterpret_cast<CurlTransfer*>(transfer), code);
        }
    }

    void finishOverdue() noexcept {
        const TimePoint time = now();
        for (std::size_t i = active_.size(); i > 0; --i) {
            if (active_[i - 1]->isOverdue(time)) finish(*active_[i - 1], CURLE_OPERATION_TIMEDOUT);
        }
    }

    void finish(CurlTransfer& transfer, CURLcode code) noexcept {
        const auto found = std::find_if(active_.begin(), active_.end(),
                                        [&](const auto& active) { return active.get() == &transfer; });
        const std::unique_ptr<CurlTransfer> ended = std::move(*found);
        active_.erase(found);
        curl_multi_remove_handle(multi_, ended->handle());
        ended->complete(code);
        giveHandle(ended->handle());
    }

    // Handles are worth keeping: making one costs more than a request on a standing connection.
    void* takeHandle() noexcept {
        if (spare_.empty()) return curl_easy_init();
        void* handle = spare_.back();
        spare_.pop_back();
        return handle;
    }

    void giveHandle(void* handle) {
        curl_easy_reset(handle);
        spare_.push_back(handle);
    }

    void sleep() noexcept {
        std::unique_lock lock(mutex_);
        if (!refusals_.empty() || (!waiting_.empty() && active_.size() < kMostTransfers)) return;
        asleep_ = true;
        if (multi_ == nullptr) return arrived_.wait(lock, [this] { return !asleep_; });
        lock.unlock();
        curl_multi_poll(multi_, nullptr, 0, millisToNextDeadline(), nullptr);
        lock.lock();
        asleep_ = false;
    }

    [[nodiscard]] int millisToNextDeadline() const noexcept {
        constexpr std::chrono::milliseconds kForever{std::numeric_limits<int>::max()};
        const TimePoint time = now();
        std::chrono::milliseconds wait = kForever;
        for (const auto& transfer : active_) {
            wait = std::min(wait, std::chrono::ceil<std::chrono::milliseconds>(transfer->deadline() - time));
        }
        return static_cast<int>(std::max(wait, std::chrono::milliseconds(0)).count());
    }

    static TimePoint now() noexcept { return std::chrono::steady_clock::now(); }

    const HttpSettings settings_;

    std::mutex mutex_;
    std::condition_variable arrived_;
    // Guarded by `mutex_`; `multi_` is written once, by the thread, which reads it without.
    std::deque<std::unique_ptr<HttpTask>> waiting_;
    bool started_ = false;
    bool asleep_ = false;
    CURLM* multi_ = nullptr;
    std::vector<Refusal> refusals_;
    // Atomic, because it is read in a child whose lock may be held by a thread that is not there.
    std::atomic<bool> refusing_{false};

    // The thread's own.
    std::vector<std::unique_ptr<CurlTransfer>> active_;
    std::vector<void*> spare_;
};

CurlUrlSession::CurlUrlSession(const HttpOptions& options, std::shared_ptr<Activity> activity)
    : options_(options), activity_(std::move(activity)), engine_(std::make_shared<Engine>(options)) {}

CurlUrlSession::~CurlUrlSession() = default;

void CurlUrlSession::dataTask(UrlRequest request, BodyCeiling ceiling, UrlCompletion completion) {
    auto task = std::make_unique<HttpTask>();
    task->token = Activity::Token(activity_);
    task->request = std::move(request);
    task->ceiling = ceiling;
    task->completion = std::move(completion);
    engine_->add(std::move(task));
}

void CurlUrlSession::refuseTasks(Task done) {
    engine_->refuse(std::move(done), Activity::Token(activity_));
}

void CurlUrlSession::acceptTasks() {
    engine_->accept();
}

void CurlUrlSession::restartInChild() noexcept {
    const bool refuses = engine_->isRefusing();
    // Leaked: its lock may be held by a thread that this process does not have, its sockets are the parent's.
    (void)new std::shared_ptr<Engine>(std::move(engine_));
    engine_ = std::make_shared<Engine>(options_);
    if (refuses) engine_->refuse(nullptr, {});
    activity_->restart();
}

std::shared_ptr<UrlSession> makeLinuxUrlSession(const HttpOptions& options,
                                                std::shared_ptr<Activity> activity) {
    auto session = std::make_shared<CurlUrlSession>(options, std::move(activity));
    watchForks(session);
    return session;
}

}  // namespace qlsdk::platform
