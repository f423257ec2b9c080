// A host that ends, or forks, while the kit's threads are at work. One that ends prints, as its very last
// act, how many microseconds passed between the decision to end and the end; the test that starts it compares
// that with a host without the kit.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <string_view>
#include <thread>

#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/internal/OpenSsl.h"

namespace {

using namespace qlsdk::platform;
using SteadyClock = std::chrono::steady_clock;

SteadyClock::time_point decidedAt;

// Registered before anything else, so that it runs after every other exit handler.
void report() {
    const auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(SteadyClock::now() - decidedAt).count();
    const auto value = static_cast<std::uint64_t>(micros);
    if (write(STDOUT_FILENO, &value, sizeof value) != sizeof value) abort();
}

std::atomic<int> started{0};

UrlRequest upload() {
    return {.url = "https://localhost/", .method = "POST", .headers = {}, .body = qlsdk::Data(9'000)};
}

// Keeps the kit's HTTP thread busy: uploads without end.
UrlSession& startUploads(const std::shared_ptr<Activity>& activity, const char* connectTo,
                         const char* caFile) {
    HttpOptions options;
    options.connectTo = connectTo;
    options.caFile = caFile;
    options.proxy = "";
    static auto& session = *new std::shared_ptr<UrlSession>(makeLinuxUrlSession(options, activity));
    static const UrlCompletion& again = *new UrlCompletion([](UrlResult) {
        ++started;
        session->dataTask(upload(), {}, again);
    });
    for (int i = 0; i < 4; ++i) again({});
    return *session;
}

// Keeps the pool busy: tasks that draw and post again.
void startTasks(const std::shared_ptr<Activity>& activity) {
    static auto& queue =
        *new std::shared_ptr<SerialQueue>(makeLinuxQueues(activity)->makeSerialQueue("busy"));
    static const Task& task = *new std::function<void()>([] {
        ++started;
        std::uint8_t drawn[16];
        RAND_bytes(drawn, sizeof drawn);
        queue->async(task);
    });
    queue->async(task);
}

void startWork(const char* connectTo, const char* caFile) {
    if (!ensureOpenSsl()) abort();
    const auto activity = std::make_shared<Activity>();
    startUploads(activity, connectTo, caFile);
    startTasks(activity);
    while (started < 50) std::this_thread::yield();
}

// Forks again and again, and lets each child send a request. Zero when all of them got their answers.
int forkUnderLoad(const char* connectTo, const char* caFile, int times) {
    UrlSession& session = startUploads(std::make_shared<Activity>(), connectTo, caFile);
    for (int i = 0; i < times; ++i) {
        for (const int before = started; started == before;) std::this_thread::yield();
        usleep(static_cast<useconds_t>(i * 137 % 3'000));  // Another moment of the uploads each time.
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);  // A child that hangs dies of it and is counted.
            std::promise<bool> answered;
            session.dataTask(upload(), {}, [&](const UrlResult& result) {
                answered.set_value(result.response.has_value());
            });
            _exit(answered.get_future().get() ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        if (status != 0) return 1;
    }
    return 0;
}

[[noreturn]] void endFromAnotherThread() {
    std::thread([] { std::exit(0); }).detach();
    for (;;) pause();
}

}  // namespace

/// exit_host WAY WHO CONNECT_TO CA_FILE PAUSE: WAY return, exit, thread, quick_exit, _exit or signal;
/// WHO "host" when the host initialises OpenSSL first, "kit" when the kit does, "none" for no kit at all;
/// PAUSE microseconds of work before the end.
/// exit_host fork TIMES CONNECT_TO CA_FILE: ends with 0 when every child of TIMES forks could use the kit.
int main(int, char** arguments) {
    const std::string_view way = arguments[1];
    if (way == "fork") _exit(forkUnderLoad(arguments[3], arguments[4], std::atoi(arguments[2])));
    const std::string_view who = arguments[2];
    std::atexit(report);
    std::at_quick_exit(report);
    if (who != "kit") OPENSSL_init_ssl(0, nullptr);
    if (who != "none") startWork(arguments[3], arguments[4]);
    usleep(static_cast<useconds_t>(std::atoi(arguments[5])));

    decidedAt = SteadyClock::now();
    if (way == "exit") std::exit(0);
    if (way == "thread") endFromAnotherThread();
    if (way == "quick_exit") std::quick_exit(0);
    if (way == "_exit") {
        report();
        _exit(0);
    }
    if (way == "signal") raise(SIGTERM);
    return 0;
}
