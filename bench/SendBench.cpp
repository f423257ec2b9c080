#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BenchHost.h"
#include "Contest.h"
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <spawn.h>
#include <sys/wait.h>

#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/linux/testing/Certificates.h"
#include "QLSDKCoreKit/platform/linux/testing/TlsServer.h"

// From a push to the server's 200, through the whole queue, against libcurl with one reused handle. Both
// speak HTTP/1.1 over TLS with the same keep-alive server in this process; plain HTTP is not measured,
// because the library refuses it.

namespace qlsdk::bench {
namespace {

namespace testing_support = platform::testing_support;

constexpr const char* kAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
constexpr const char* kStartProgram = QLSDK_START_PROGRAM;
constexpr std::size_t kBodyBytes = 138;
constexpr auto kLongEnough = std::chrono::minutes(5);

const testing_support::Certificates& certificates() {
    static const auto& made = *new testing_support::Certificates(home());
    return made;
}

testing_support::TlsServer& server() {
    static auto& running =
        *new testing_support::TlsServer(certificates().serverContext(testing_support::CertificateFlaw::none),
                                        testing_support::answering(kAnswer));
    return running;
}

std::string serverUrl() {
    const std::string address = server().address();
    return "https://localhost" + address.substr(address.find(':'));
}

/// Counts the records that go out.
class CountingDelegate final : public AnalyticsEventsQueueDelegate {
  public:
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) override {
        events_ += static_cast<int>(events.size());
        return Data(kBodyBytes, 'q');
    }
    [[nodiscard]] int events() const noexcept { return events_; }

  private:
    std::atomic<int> events_{0};
};

void sendThroughQueue(benchmark::State& state, int pushesAtOnce) {
    installLocalPlatform(serverUrl(), certificates().caFile());
    const auto delegate = std::make_shared<CountingDelegate>();
    const auto queue =
        AnalyticsEventsQueue::create("/v1/bench", std::make_shared<QLPayloadProvider>(), "bench-send.plist",
                                     static_cast<std::uint64_t>(pushesAtOnce), delegate);
    const auto send = [&] {
        for (int i = 0; i < pushesAtOnce; ++i) queue->pushEvent(counterEvent());
        require(platform::waitUntilIdle(kLongEnough), "no answer");
    };
    send();
    const int before = delegate->events();
    for (auto _ : state) send();
    const auto pushed = static_cast<double>(state.iterations()) * pushesAtOnce;
    require(delegate->events() - before == static_cast<int>(pushed), "a record was sent twice or not at all");
    state.counters["events_per_second"] = benchmark::Counter(pushed, benchmark::Counter::kIsRate);
}

std::size_t ignoreBody(char*, std::size_t, std::size_t size, void*) {
    return size;
}

void sendByEasyHandle(benchmark::State& state, bool isReused) {
    const std::string url = serverUrl() + "/v1/bench";
    const std::string body(kBodyBytes, 'q');
    curl_slist* headers = nullptr;
    for (const char* line : {"Content-Type: application/protobuf",
                             "X-Quill-SDK-Client-Auth-Token: v2:0123456789", "Accept:", "Expect:"}) {
        headers = curl_slist_append(headers, line);
    }
    CURL* handle = nullptr;
    const auto prepare = [&] {
        handle = curl_easy_init();
        curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
        curl_easy_setopt(handle, CURLOPT_CAINFO, certificates().caFile().c_str());
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.data());
        curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, ignoreBody);
        curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(handle, CURLOPT_PROXY, "");
    };
    prepare();
    require(curl_easy_perform(handle) == CURLE_OK, "no answer");
    for (auto _ : state) {
        require(curl_easy_perform(handle) == CURLE_OK, "no answer");
        if (isReused) continue;
        curl_easy_cleanup(handle);
        prepare();
    }
    curl_easy_cleanup(handle);
    curl_slist_free_all(headers);
    state.counters["events_per_second"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

/// When the server read its first request since the last look; the answer is the usual one.
std::atomic<std::int64_t> firstRequestNanos{0};

std::int64_t nowNanos() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

// From the start of a process to its first request on the wire.
void startAndSend(benchmark::State& state, const char* mode) {
    testing_support::TlsServer listening(certificates().serverContext(testing_support::CertificateFlaw::none),
                                         [](testing_support::Connection& connection) {
                                             while (!connection.readRequest().empty()) {
                                                 firstRequestNanos = nowNanos();
                                                 connection.write(kAnswer);
                                             }
                                         });
    const std::string address = listening.address();
    const std::string url = "https://localhost" + address.substr(address.find(':'));
    int round = 0;
    for (auto _ : state) {
        // A home of its own: an installation sends one heartbeat a day.
        const std::string directory = home() + "/start-" + mode + std::to_string(round++);
        std::filesystem::create_directory(directory);
        const std::string homeVariable = "HOME=" + directory;
        std::vector<const char*> words{kStartProgram, mode, url.c_str(), certificates().caFile().c_str(),
                                       nullptr};
        std::vector<const char*> environment{homeVariable.c_str(), nullptr};
        firstRequestNanos = 0;
        const std::int64_t start = nowNanos();
        pid_t child = 0;
        require(posix_spawn(&child, kStartProgram, nullptr, nullptr, const_cast<char**>(words.data()),
                            const_cast<char**>(environment.data())) == 0,
                "the start program is not there");
        int status = -1;
        waitpid(child, &status, 0);
        require(status == 0 && firstRequestNanos != 0, std::string(mode) + " sent nothing");
        state.SetIterationTime(static_cast<double>(firstRequestNanos - start) * 1e-9);
    }
}

}  // namespace
}  // namespace qlsdk::bench

int main(int argc, char** argv) {
    using namespace qlsdk::bench;
    benchmark::Initialize(&argc, argv);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    const auto add = [](const char* name, const std::function<void(benchmark::State&)>& run) {
        benchmark::RegisterBenchmark(name, run)->Unit(benchmark::kMicrosecond)->UseRealTime();
    };
    add("send/one-by-one/ours", [](benchmark::State& state) { sendThroughQueue(state, 1); });
    add("send/one-by-one/curl-reused", [](benchmark::State& state) { sendByEasyHandle(state, true); });
    add("send/one-by-one/curl-fresh", [](benchmark::State& state) { sendByEasyHandle(state, false); });
    add("send/tens/ours", [](benchmark::State& state) { sendThroughQueue(state, 10); });
    for (const char* mode : {"heartbeat", "curl"}) {
        const std::string name =
            std::string("start/first-heartbeat/") + (mode == std::string("curl") ? mode : "ours");
        benchmark::RegisterBenchmark(name.c_str(), startAndSend, mode)
            ->Unit(benchmark::kMicrosecond)
            ->UseManualTime()
            ->Iterations(5);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
