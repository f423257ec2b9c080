#include <functional>
#include <iostream>
#include <thread>

#include "tools/cli/Failure.h"
#include "tools/collector/Collector.h"
#include "tools/commands/Commands.h"
#include "tools/page/PageServer.h"
#include <pthread.h>
#include <signal.h>

#include "QLSDKCoreKit/core/QLSDKTweaks.h"

namespace quillkit {

namespace {

/// Blocks the signals that end the collector in this thread and all that it starts, so that one thread can
/// wait for them and no work is done in a handler.
sigset_t blockEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

/// A thread that stops the collector when an end signal comes.
class SignalWaiter {
  public:
    SignalWaiter(const sigset_t& signals, Collector& collector)
        : thread_([signals, &collector] {
              int signal = 0;
              sigwait(&signals, &signal);
              collector.stop();
          }) {}
    SignalWaiter(const SignalWaiter&) = delete;
    SignalWaiter& operator=(const SignalWaiter&) = delete;
    ~SignalWaiter() {
        // Wakes the thread when no signal had come.
        pthread_kill(thread_.native_handle(), SIGTERM);
        thread_.join();
    }

  private:
    std::thread thread_;
};

std::string apiHost() {
    const std::string url = qlsdk::QLSDKTweaks::shared().quillKitApiBaseUrl();
    return url.substr(url.find("//") + 2);
}

/// Port to serve the page on; absent when there is to be none.
std::optional<int> pagePort(const Arguments& arguments) {
    const std::string port = arguments.value("--page-port").value_or("0");
    const auto number = static_cast<int>(integerArgument(port, "--page-port", 0, 65535));
    if (!arguments.has("--no-page")) return number;
    if (arguments.has("--page-port")) throw UsageError("--page-port and --no-page exclude each other");
    return std::nullopt;
}

int collect(const Arguments& arguments) {
    const sigset_t signals = blockEndSignals();
    const std::vector<std::string> answers = arguments.valuesOf("--answer");
    AnswerScript script(answers);
    const auto port = static_cast<int>(integerArgument(*arguments.value("--port"), "--port", 0, 65535));
    const std::optional<int> portOfPage = pagePort(arguments);
    const ServerIdentity identity = serverIdentity(*arguments.value("--state"), apiHost());
    ChangeCondition changes;
    StalledRequests stalls(changes);
    ConfigSource config(arguments.value("--config"));
    RequestRing requests;
    RequestLog log(arguments.value("--log"), [&](const ServedRequest& request) {
        if (!portOfPage.has_value()) return;
        requests.add(request);
        changes.notify();
    });
    Collector collector(identity.server, script, config, stalls, log);
    const int bound = collector.bind(port);
    std::optional<PageServer> page;
    if (portOfPage.has_value())
        page.emplace(
            CollectorParts{"127.0.0.1:" + std::to_string(bound), script, config, stalls, requests, changes},
            *portOfPage);
    std::optional<SignalWaiter> waiter;
    const bool endedWell = collector.serve([&] {
        std::cout << "127.0.0.1:" << bound << '\n' << identity.authorityFile << std::endl;
        // Not on standard output, whose lines programs read.
        if (page.has_value()) std::cerr << "page: " << page->url() << std::endl;
        waiter.emplace(signals, collector);
    });
    if (!endedWell) throw Failure("the listening socket failed");
    return 0;
}

}  // namespace

Subcommand collectCommand() {
    return {
        .name = "collect",
        .operandNames = "",
        .operandCount = {0, 0},
        .summary = "a local HTTPS server in place of the web service",
        .description =
            "Listens on 127.0.0.1, prints its address and the path of its CA certificate, one line\n"
            "each, and then one line for each request. SIGTERM or SIGINT ends it. A page that shows the\n"
            "requests live and scripts the next answers is served on 127.0.0.1 besides; its address stands\n"
            "on standard error.\n",
        .options = {{"--port", "N", "port to listen on; 0 takes a free one", Occurrence::required},
                    {"--state", "DIR", "keeps the certificates; made when missing", Occurrence::required},
                    {"--log", "FILE", "appends one JSON object for each request"},
                    {"--answer", "ANSWER", "the next answer: STATUS, STATUS:HEADER=VALUE, drop, stall",
                     Occurrence::repeated, "200 403 503 429:X-Retry-After-Millis=5000 drop stall"},
                    {"--config", "FILE", "JSON that /v1/config answers; read at each request"},
                    {"--page-port", "N", "port of the page; without it a free one"},
                    {"--no-page", "", "serves no page"}},
        .run = collect};
}

}  // namespace quillkit
