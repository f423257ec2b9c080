// A host that ends, or forks, while the kit's threads and one of its own are at work in the kit.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <string_view>
#include <thread>

#include <dlfcn.h>
#include <openssl/rand.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Crypto.h"
#include "QLSDKCoreKit/platform/PropertyList.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/codecs/OpenSsl.h"
#include "QLSDKCoreKit/platform/linux/stores/Sqlite.h"
#include "QLSDKCoreKit/platform/linux/threads/DetachedThread.h"
#include "QLSDKCoreKit/platform/linux/threads/WorkGate.h"

namespace {

using namespace qlsdk::platform;
using namespace std::chrono_literals;

// A slow machine: the HTTP thread is inside another library when the process decides to end, and stays there
// for ten times as long as a task is waited for.
constexpr std::chrono::milliseconds kSlowCall{400};
enum Hold : int { kNoHold, kWanted, kInside, kEnding, kOut };
std::atomic<int> hold{kNoHold};
// The call at which the thread is held up, and whether it comes out again; written before `hold` is.
std::string_view heldCall;
bool isHeldForGood = false;

// What becomes of the process is told by its status, for the test to read.
constexpr int kTornDownUnderAThread = 3;
constexpr int kCryptoIsNotAsStated = 4;
constexpr int kStoresFail = 5;

bool isOpenSslTornDownByHost = false;

// All of the kit's calls of OpenSSL on this thread: the number of those that worked.
int cryptoCallsThatWork() {
    const std::array<std::uint8_t, 32> key{};
    const Block16 block{};
    Block16 tag{};
    std::array<std::uint8_t, 40> bytes{};
    int works = md5(bytes).has_value() + sha256(bytes).has_value();
    works += aes256CbcEncrypt(bytes, key, block).has_value();
    const bool isSealed = aes256GcmSeal(bytes, tag, block, key, bytes);
    return works + isSealed + aes256GcmOpen(bytes, tag, block, key, bytes);
}

// Registered before anything else, so that it runs after every other exit handler.
void checkAtTheVeryEnd() {
    if (hold == kEnding && !isHeldForGood) _exit(kTornDownUnderAThread);
    if (cryptoCallsThatWork() != (isOpenSslTornDownByHost ? 0 : 5)) _exit(kCryptoIsNotAsStated);
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

// Keeps threads of the host's in the kit's calls of other libraries; in those of OpenSSL until there is none.
void startHostsThreads() {
    std::thread([] {
        while (cryptoCallsThatWork() != 0) ++started;
    }).detach();
    std::thread([] {
        for (;;) {
            const auto bytes = serializePropertyList(qlsdk::Dictionary{{"key", "value"}});
            const SqliteSection section;
            SqliteConnection database(qlsdk::DataView{});
            const bool works = bytes && parsePropertyList(*bytes) &&
                               database.execute("create table made (number integer)") == SQLITE_OK;
            if (!works) _exit(kStoresFail);
        }
    }).detach();
}

// Takes a pool thread for good.
void startEndlessTask() {
    static auto& queue = *new std::shared_ptr<SerialQueue>(
        makeLinuxQueues(std::make_shared<Activity>())->makeSerialQueue("endless"));
    static std::promise<void>& runs = *new std::promise<void>;
    queue->async([] {
        runs.set_value();
        for (;;) pause();
    });
    runs.get_future().wait();
}

// Who gives up on one thread must not do so while another is in a library and moves.
enum class Work { everything, uploads };

void startWork(Work work, const char* connectTo, const char* caFile) {
    if (!ensureOpenSsl()) abort();
    const auto activity = std::make_shared<Activity>();
    startUploads(activity, connectTo, caFile);
    if (work == Work::everything) {
        startTasks(activity);
        startHostsThreads();
    }
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

// Holds the HTTP thread up in the first such call after `holdUp`.
class HeldUp {
  public:
    explicit HeldUp(std::string_view call) {
        int wanted = kWanted;
        // First: with it the thread sees what else has been written.
        if (hold != kWanted || call != heldCall || !isDetachedThread()) return;
        isHeld_ = hold.compare_exchange_strong(wanted, kInside);
        if (!isHeld_) return;
        hold.notify_all();
        hold.wait(kInside);
        while (isHeldForGood) pause();
        std::this_thread::sleep_for(kSlowCall);
    }
    ~HeldUp() {
        if (isHeld_) hold = kOut;
    }
    HeldUp(const HeldUp&) = delete;
    HeldUp& operator=(const HeldUp&) = delete;

  private:
    bool isHeld_ = false;
};

void holdUp(std::string_view call) {
    heldCall = call;
    hold = kWanted;
    hold.wait(kWanted);
    hold = kEnding;
    hold.notify_all();
}

template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {
#define QLSDK_HOLDS __attribute__((visibility("default")))
// A thread that ends after OpenSSL does leaves its cipher context behind: who would free it is gone.
QLSDK_HOLDS int __lsan_is_turned_off() {
    return 1;
}

// These stand before the libraries' own: what curl calls, and what OpenSSL calls for it.
QLSDK_HOLDS int SSL_connect(SSL* connection) {
    static const auto real = next<int(SSL*)>("SSL_connect");
    const HeldUp here("SSL_connect");
    return real(connection);
}
QLSDK_HOLDS int SSL_write(SSL* connection, const void* bytes, int size) {
    static const auto real = next<int(SSL*, const void*, int)>("SSL_write");
    const HeldUp here("SSL_write");
    return real(connection, bytes, size);
}
QLSDK_HOLDS SSL_CTX* SSL_CTX_new(const SSL_METHOD* method) {
    static const auto real = next<SSL_CTX*(const SSL_METHOD*)>("SSL_CTX_new");
    const HeldUp here("SSL_CTX_new");
    return real(method);
}
QLSDK_HOLDS int connect(int socket, const sockaddr* address, socklen_t size) {
    static const auto real = next<int(int, const sockaddr*, socklen_t)>("connect");
    const HeldUp here("connect");
    return real(socket, address, size);
}
#undef QLSDK_HOLDS
}

/// exit_host WAY WHO CONNECT_TO CA_FILE PAUSE: WAY return, exit, thread, quick_exit, _exit, signal or
/// cleanup; WHO "kit" when the kit initialises OpenSSL, "host" when the host does so first, "stopped" when
/// the HTTP thread does not come out of a handshake besides, "endless" when a task does not end, or the name
/// of the call in which the HTTP thread is held up; PAUSE microseconds of work before the end. exit_host fork
/// TIMES CONNECT_TO CA_FILE: ends with 0 when every child of TIMES forks could use the kit.
int main(int, char** arguments) {
    const std::string_view way = arguments[1];
    if (way == "fork") _exit(forkUnderLoad(arguments[3], arguments[4], std::atoi(arguments[2])));
    const std::string_view who = arguments[2];
    std::atexit(checkAtTheVeryEnd);
    std::at_quick_exit(checkAtTheVeryEnd);
    // Whoever waits for the time instead of for the work does not get to the end.
    WorkGate::setPatienceAtEnd({.task = 1h, .inLibrary = 1h});
    if (who != "kit") OPENSSL_init_ssl(0, nullptr);
    const bool isGivenUp = who == "endless" || who == "stopped";
    startWork(isGivenUp ? Work::uploads : Work::everything, arguments[3], arguments[4]);
    usleep(static_cast<useconds_t>(std::atoi(arguments[5])));

    if (who == "endless") {
        WorkGate::setPatienceAtEnd({.task = 1ms, .inLibrary = 1h});
        startEndlessTask();
    } else if (who == "stopped") {
        WorkGate::setPatienceAtEnd({.task = 1ms, .inLibrary = 1ms});
        isHeldForGood = true;
        holdUp("SSL_connect");
    } else if (who != "kit" && who != "host") {
        holdUp(who);
    }
    isOpenSslTornDownByHost = way == "cleanup" || (who != "kit" && way != "quick_exit" && way != "_exit");
    if (way == "exit") std::exit(0);
    if (way == "thread") endFromAnotherThread();
    if (way == "quick_exit") std::quick_exit(0);
    if (way == "_exit") _exit(0);
    if (way == "signal") raise(SIGTERM);
    if (way == "cleanup") {
        OPENSSL_cleanup();
        if (cryptoCallsThatWork() != 0) _exit(kCryptoIsNotAsStated);
    }
    return 0;
}
