#include "QLSDKCoreKit/platform/linux/http/CurlUrlSession.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <initializer_list>
#include <limits>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <curl/curl.h>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/codecs/OpenSsl.h"
#include "QLSDKCoreKit/platform/linux/http/CurlTransfer.h"
#include "QLSDKCoreKit/platform/linux/http/HttpDiagnostics.h"
#include "QLSDKCoreKit/platform/linux/http/HttpRequestCheck.h"
#include "QLSDKCoreKit/platform/linux/http/HttpTask.h"
#include "QLSDKCoreKit/platform/linux/http/InheritedSockets.h"
#include "QLSDKCoreKit/platform/linux/threads/DetachedThread.h"
#include "QLSDKCoreKit/platform/linux/threads/WorkGate.h"

namespace qlsdk::platform {

namespace {

constexpr ThreadTraits kHttpThread{"qlsdk-http", std::size_t{512} << 10};
constexpr std::size_t kMostTransfers = 4;
// Not one of curl's errors: the request was never given to it.
constexpr int kRefused = -1;
constexpr std::chrono::milliseconds kPollRefused{100};
constexpr char kTasksAreRefused[] = "tasks are refused";

std::string firstSet(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (const char* value = std::getenv(name)) return value;
    }
    return {};
}

void callSwallowing(Task task) noexcept {
    const WorkGate::HostCode call;
    try {
        if (const Task once = std::move(task)) once();
    } catch (...) {
        // As with completions: nothing that is called back may end the thread.
    }
}

void settleTimeout(std::chrono::milliseconds& timeout, std::chrono::milliseconds standard) noexcept {
    // curl counts in 32 bits on some machines; three weeks are as good as for ever.
    constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24 * 21);
    timeout = timeout.count() > 0 ? std::min(timeout, kLongest) : standard;
}

HttpSettings settle(const HttpOptions& options) {
    HttpSettings settings{.options = options,
                          .proxy = options.proxy
                                       ? *options.proxy
                                       : firstSet({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}),
                          .noProxy = firstSet({"no_proxy", "NO_PROXY"}),
                          .isConnectToUsable = !options.connectTo || isHostAndPort(*options.connectTo)};
    const HttpOptions standard;
    settleTimeout(settings.options.connectTimeout, standard.connectTimeout);
    settleTimeout(settings.options.idleTimeout, standard.idleTimeout);
    settleTimeout(settings.options.totalTimeout, standard.totalTimeout);
    if (!settings.isConnectToUsable) reportUnusableConnectTo(*options.connectTo);
    return settings;
}

}  // namespace

/// What the session shares with its thread. Outlives both: the thread never ends.
class CurlUrlSession::Engine : public ThreadSeeker, public std::enable_shared_from_this<Engine> {
  public:
    explicit Engine(std::shared_ptr<const HttpSettings> settings)
        : settingsOwner_(std::move(settings)), settings_(*settingsOwner_) {
        active_.reserve(kMostTransfers);
        spare_.reserve(kMostTransfers);
        spareRefusal_ = std::make_unique<Refusal>();
    }

    void add(std::unique_ptr<HttpTask> task) noexcept {
        const std::lock_guard lock(mutex_);
        waiting_.push(std::move(task));
        startThread();
        wake();
    }

    void seekThread() noexcept override {
        const std::lock_guard lock(mutex_);
        isSeeking_ = false;
        if (!waiting_.empty()) startThread();
    }

    /// The token keeps the process busy until `done` has been called. Needs no memory for one refusal at a
    /// time; where there is none for another, its `done` does not wait for the tasks.
    void refuse(Task done, Activity::Token token) noexcept {
        refusing_ = true;
        HttpTaskList neverStarted;
        {
            const std::lock_guard lock(mutex_);
            if (!started_) {
                neverStarted.swap(waiting_);
            } else {
                isToEndTasks_ = true;
                auto refusal = std::move(spareRefusal_);
                if (refusal == nullptr) refusal.reset(new (std::nothrow) Refusal);
                if (refusal != nullptr) {
                    refusal->token = std::move(token);
                    refusal->done.swap(done);
                    refusal->next = std::move(refusals_);
                    refusals_ = std::move(refusal);
                }
                wake();
            }
        }
        failAll(neverStarted);
        callSwallowing(std::move(done));
    }

    /// Takes over in a child what the parent's engine was told.
    void refuseFromStart() noexcept { refusing_ = true; }

    void accept() noexcept { refusing_ = false; }
    [[nodiscard]] bool isRefusing() const noexcept { return refusing_; }

  private:
    using TimePoint = CurlTransfer::TimePoint;

    struct Refusal {
        Activity::Token token;
        Task done;
        std::unique_ptr<Refusal> next;
    };

    // With the lock held.
    void startThread() noexcept {
        if (started_) return;
        try {
            started_ = startDetachedThread(kHttpThread, [self = shared_from_this()] { self->serve(); });
        } catch (...) {
            // No memory to say what the thread is to do: as good as no thread.
        }
        if (started_) return;
        if (!isSeeking_) isSeeking_ = askAgainForThread(shared_from_this());
        reportScarcity("no thread for requests, which wait for one", errno);
    }

    // With the lock held.
    void wake() noexcept {
        if (!std::exchange(asleep_, false)) return;
        arrived_.notify_one();
        if (multi_ != nullptr) curl_multi_wakeup(multi_);
    }

    // Between two passes the thread holds no lock and is in no library but curl's poll.
    [[noreturn]] void serve() noexcept {
        for (;;) {
            {
                const WorkGate::Pass pass;
                const WorkGate::LibraryUse use;
                turn();
            }
            sleep();
        }
    }

    // What is refused here, for want of descriptors for example, is asked for again by the next task.
    void startCurl() noexcept {
        if (!ensureOpenSsl()) return reportScarcity("OpenSSL cannot be set up", 0);
        if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK)
            return reportScarcity("curl cannot be set up", 0);
        CURLM* multi = curl_multi_init();
        const int errorNumber = errno;
        if (multi == nullptr || !closeWakeUpOnExec(multi)) {
            curl_multi_cleanup(multi);
            return reportScarcity("curl got no memory or no descriptors to be woken by", errorNumber);
        }
        curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, static_cast<long>(kMostTransfers));
        curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, &markSocket);
        const std::lock_guard lock(mutex_);
        multi_ = multi;
    }

    void turn() noexcept {
        endRefused();
        while (std::unique_ptr<HttpTask> task = nextTask()) begin(std::move(task));
        if (multi_ == nullptr) return;
        int running = 0;
        curl_multi_perform(multi_, &running);
        markLookups();
        finishDone();
        finishOverdue();
    }

    static int markSocket(CURL*, curl_socket_t socket, int what, void*, void*) noexcept {
        if (what != CURL_POLL_REMOVE) closePairOnExec(socket);
        return 0;
    }

    [[nodiscard]] bool anyLookupBegan() noexcept {
        bool any = false;
        for (const auto& transfer : active_) any |= transfer->hasBegunLookup();
        return any;
    }

    void markLookups() noexcept {
        // Of the calls that go on with the transfers this one alone tells which sockets curl waits for, the
        // end of a look-up's pair among them, whatever their numbers.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
        for (int running = 0; anyLookupBegan();) curl_multi_socket_all(multi_, &running);
#pragma GCC diagnostic pop
    }

    void endRefused() noexcept {
        std::unique_ptr<Refusal> refusals;
        HttpTaskList waiting;
        {
            const std::lock_guard lock(mutex_);
            if (!std::exchange(isToEndTasks_, false)) return;
            refusals = std::move(refusals_);
            waiting.swap(waiting_);
        }
        while (!active_.empty()) finish(*active_.back(), CURLE_ABORTED_BY_CALLBACK);
        failAll(waiting);
        while (refusals != nullptr) endRefusal(std::exchange(refusals, std::move(refusals->next)));
    }

    void endRefusal(std::unique_ptr<Refusal> refusal) noexcept {
        const Activity::Token token = std::move(refusal->token);
        Task done = std::exchange(refusal->done, nullptr);
        {
            // Ready again before anybody hears that this one is over and begins the next.
            const std::lock_guard lock(mutex_);
            spareRefusal_ = std::move(refusal);
        }
        callSwallowing(std::move(done));
    }

    static void failAll(HttpTaskList& tasks) noexcept {
        while (const std::unique_ptr<HttpTask> task = tasks.pop()) task->fail(kRefused, kTasksAreRefused);
    }

    std::unique_ptr<HttpTask> nextTask() noexcept {
        const std::lock_guard lock(mutex_);
        return active_.size() < kMostTransfers ? waiting_.pop() : nullptr;
    }

    void begin(std::unique_ptr<HttpTask> task) noexcept {
        if (refusing_) return task->fail(kRefused, kTasksAreRefused);
        if (!settings_.isConnectToUsable) return task->fail(kRefused, "connectTo is not HOST:PORT");
        try {
            if (auto reason = reasonToRefuse(task->request)) return task->fail(kRefused, *reason);
            active_.push_back(std::make_unique<CurlTransfer>(std::move(task), settings_));
        } catch (...) {
            return;  // Out of memory: the task goes, and its end calls the completion.
        }
        if (multi_ == nullptr) startCurl();
        CurlTransfer& transfer = *active_.back();
        void* handle = multi_ == nullptr ? nullptr : takeHandle();
        if (handle == nullptr || !transfer.prepare(handle, now()) ||
            curl_multi_add_handle(multi_, handle) != CURLM_OK) {
            finish(transfer, CURLE_FAILED_INIT);
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
        void* handle = ended->handle();
        if (handle != nullptr) curl_multi_remove_handle(multi_, handle);
        ended->complete(code);
        if (handle != nullptr) giveHandle(handle);
    }

    // Handles are worth keeping: making one costs more than a request on a standing connection.
    void* takeHandle() noexcept {
        if (spare_.empty()) return curl_easy_init();
        void* handle = spare_.back();
        spare_.pop_back();
        return handle;
    }

    void giveHandle(void* handle) noexcept {
        curl_easy_reset(handle);
        spare_.push_back(handle);
    }

    void sleep() noexcept {
        std::unique_lock lock(mutex_);
        if (isToEndTasks_ || (!waiting_.empty() && active_.size() < kMostTransfers)) return;
        asleep_ = true;
        if (multi_ == nullptr) return arrived_.wait(lock, [this] { return !asleep_; });
        lock.unlock();
        const bool slept = curl_multi_poll(multi_, nullptr, 0, millisToNextDeadline(), nullptr) == CURLM_OK;
        lock.lock();
        // The system refuses to poll when a host has set its limit of descriptors below what is open.
        if (!slept) arrived_.wait_for(lock, kPollRefused, [this] { return !asleep_; });
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

    static TimePoint now() noexcept {
        return std::chrono::steady_clock::now();
    }

    const std::shared_ptr<const HttpSettings> settingsOwner_;
    const HttpSettings& settings_;

    std::mutex mutex_;
    std::condition_variable arrived_;
    // Guarded by `mutex_`; `multi_` is written once, by the thread, which reads it without.
    HttpTaskList waiting_;
    bool started_ = false;
    bool isSeeking_ = false;
    bool asleep_ = false;
    CURLM* multi_ = nullptr;
    bool isToEndTasks_ = false;
    std::unique_ptr<Refusal> refusals_;
    std::unique_ptr<Refusal> spareRefusal_;
    // Atomic, because it is read in a child whose lock may be held by a thread that is not there.
    std::atomic<bool> refusing_{false};

    // The thread's own.
    std::vector<std::unique_ptr<CurlTransfer>> active_;
    std::vector<void*> spare_;
};

CurlUrlSession::CurlUrlSession(const HttpOptions& options, std::shared_ptr<Activity> activity)
    : settings_(std::make_shared<const HttpSettings>(settle(options))),
      mostUploadsOfAQueue_(options.mostUploadsOfAQueue),
      activity_(std::move(activity)),
      engine_(std::make_shared<Engine>(settings_)) {}

CurlUrlSession::~CurlUrlSession() = default;

void CurlUrlSession::dataTask(UrlRequest request, BodyCeiling ceiling, UrlCompletion completion) {
    auto task = std::make_unique<HttpTask>();
    task->token = Activity::Token(activity_);
    task->request = std::move(request);
    task->ceiling = ceiling;
    task->completion = std::move(completion);
    if (engine_ == nullptr) return task->fail(kRefused, "no memory after fork");
    engine_->add(std::move(task));
}

void CurlUrlSession::refuseTasks(Task done) {
    if (engine_ == nullptr) return callSwallowing(std::move(done));
    engine_->refuse(std::move(done), Activity::Token(activity_));
}

void CurlUrlSession::acceptTasks() {
    if (engine_ != nullptr) engine_->accept();
}

void CurlUrlSession::restartInChild() noexcept {
    forgetThreadSeekers();
    const bool refuses = engine_ != nullptr && engine_->isRefusing();
    try {
        // Leaked: its lock may be held by a thread that this process does not have, its sockets are the
        // parent's.
        (void)new std::shared_ptr<Engine>(std::move(engine_));
        engine_ = std::make_shared<Engine>(settings_);
        if (refuses) engine_->refuseFromStart();
    } catch (...) {
        // Without an engine the child's tasks all fail.
    }
    activity_->restart();
}

std::shared_ptr<UrlSession> makeLinuxUrlSession(const HttpOptions& options,
                                                std::shared_ptr<Activity> activity) {
    WorkGate::prepare();
    auto session = std::make_shared<CurlUrlSession>(options, std::move(activity));
    watchForks(session);
    return session;
}

}  // namespace qlsdk::platform
