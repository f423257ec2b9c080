#include "tools/collector/Collector.h"

#include "tools/cli/Failure.h"
#include "tools/collector/Endpoints.h"
#include "tools/collector/LocalPort.h"
#include "tools/collector/RequestBody.h"
#include <httplib.h>
#include <sys/socket.h>

namespace quillkit {

namespace {

/// Threads beside those that scripted stalls keep for themselves.
constexpr std::size_t kSpareThreads = 16;

std::int64_t nowMillis() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

/// The client sees the connection end and no status.
void closeWithoutAnswer(const httplib::Request& request) {
    ::shutdown(SSL_get_fd(request.ssl), SHUT_RDWR);
}

std::string wordFor(const Answer& answer) {
    if (answer.kind == Answer::Kind::drop) return "drop";
    return answer.kind == Answer::Kind::stall ? "stall" : std::to_string(answer.status);
}

ServedRequest describe(const httplib::Request& request, qlsdk::Data body, const Answer& answer) {
    ServedRequest served;
    served.method = request.method;
    served.path = request.path;
    // The server adds fields of its own about the peer, which the client never sent.
    for (const auto& [name, value] : request.headers) {
        if (name != "REMOTE_ADDR" && name != "REMOTE_PORT" && name != "LOCAL_ADDR" && name != "LOCAL_PORT") {
            served.headers.emplace_back(name, value);
        }
    }
    served.body = std::move(body);
    served.receivedMillis = nowMillis();
    const std::string header(kTokenHeader);
    served.token = checkToken(
        request.has_header(header) ? std::optional(request.get_header_value(header)) : std::nullopt,
        served.receivedMillis);
    served.answer = wordFor(answer);
    return served;
}

}  // namespace

Collector::Collector(const Identity& identity, AnswerScript& script, ConfigSource& config,
                     StalledRequests& stalls, RequestLog& log)
    : server_(std::make_unique<httplib::SSLServer>(identity.certificate.get(), identity.key.get())),
      script_(script),
      config_(config),
      stalls_(stalls),
      log_(log),
      threadCount_(kSpareThreads + script.stallCount() + kLaterStallCeiling) {
    if (!server_->is_valid()) throw Failure("the server's certificate cannot be used");
    // On purpose one request to a connection: a client may send a request again by itself when a connection
    // that it had used before is closed, and a scripted "drop" would then take two answers.
    server_->set_keep_alive_max_count(1);
    server_->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        if (request.method == "POST") return httplib::Server::HandlerResponse::Unhandled;
        serveRequest(request, response,
                     [&](qlsdk::Data&) { return endpointAt(request.path) == nullptr ? 404 : 405; });
        return httplib::Server::HandlerResponse::Handled;
    });
    server_->Post(".*", [this](const httplib::Request& request, httplib::Response& response,
                               const httplib::ContentReader& reader) {
        serveRequest(request, response,
                     [&](qlsdk::Data& body) { return readRequestBody(request, reader, kBodyCeiling, body); });
    });
}

Collector::~Collector() = default;

int Collector::bind(int port) {
    return bindLocalPort(*server_, port, "cannot listen on");
}

bool Collector::serve(const std::function<void()>& onListening) {
    // The server asks for its threads once it counts as running, which is the first moment to stop it.
    server_->new_task_queue = [&] {
        onListening();
        return new httplib::ThreadPool(threadCount_);
    };
    return server_->listen_after_bind();
}

void Collector::stop() {
    stalls_.close();
    server_->stop();
}

void Collector::serveRequest(const httplib::Request& request, httplib::Response& response,
                             const Reader& readBody) {
    qlsdk::Data body;
    const int refusal = readBody(body);
    // A part of a body is of no use to anyone.
    if (refusal != 0) body.clear();
    Answer answer = answerTo(request, refusal);
    const bool givesConfig =
        answer.kind == Answer::Kind::status && answer.status == 200 && request.path == kConfigPath;
    const std::optional<std::string> config = givesConfig ? config_.body() : std::nullopt;
    if (givesConfig && !config.has_value()) answer.status = 500;
    // Before the answer: who has it can rely on the log.
    log_.write(describe(request, std::move(body), answer));
    if (answer.kind == Answer::Kind::stall) stalls_.wait();
    if (answer.kind != Answer::Kind::status) return closeWithoutAnswer(request);
    response.status = answer.status;
    for (const auto& [name, value] : answer.headers) response.set_header(name, value);
    if (config.has_value()) response.set_content(*config, "application/json;charset=utf-8");
}

Answer Collector::answerTo(const httplib::Request& request, int refusal) {
    if (endpointAt(request.path) == nullptr) refusal = 404;
    if (refusal == 0) return script_.next();
    return {.kind = Answer::Kind::status, .status = refusal, .headers = {}};
}

}  // namespace quillkit
