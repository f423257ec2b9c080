#include "Collector.h"

#include "Endpoints.h"
#include "Failure.h"
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>

#include "QLSDKCoreKit/platform/Files.h"

namespace quillkit {

namespace {

constexpr std::size_t kConfigCeiling = std::size_t{1} << 20;
/// Threads beside those that scripted stalls keep for themselves.
constexpr std::size_t kSpareThreads = 16;

std::int64_t nowMillis() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

/// Takes the body up to the ceiling, whatever length the client announced, if any. 0, or the status of a
/// refusal.
int readBody(const httplib::Request& request, const httplib::ContentReader& reader, qlsdk::Data& body) {
    // The server's parser of such bodies would hand the parts elsewhere.
    if (request.is_multipart_form_data()) return 415;
    bool tooLarge = false;
    const bool complete = reader([&](const char* bytes, std::size_t count) {
        tooLarge = count > Collector::kBodyCeiling - body.size();
        if (!tooLarge) body.insert(body.end(), bytes, bytes + count);
        return !tooLarge;
    });
    if (tooLarge) return 413;
    return complete ? 0 : 400;
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
    const std::string header(kTokenHeader);
    served.token = checkToken(
        request.has_header(header) ? std::optional(request.get_header_value(header)) : std::nullopt,
        nowMillis());
    served.answer = wordFor(answer);
    return served;
}

/// By default the server shares its port with anyone who asks for it; here a taken port is an error.
void setSocketOptions(socket_t socket) {
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

}  // namespace

Collector::Collector(const Identity& identity, AnswerScript& script, RequestLog& log,
                     std::optional<std::string> configFile)
    : server_(std::make_unique<httplib::SSLServer>(identity.certificate.get(), identity.key.get())),
      script_(script),
      log_(log),
      configFile_(std::move(configFile)),
      threadCount_(kSpareThreads + script.stallCount()) {
    if (!server_->is_valid()) throw Failure("the server's certificate cannot be used");
    server_->set_socket_options(setSocketOptions);
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
        serveRequest(request, response, [&](qlsdk::Data& body) { return readBody(request, reader, body); });
    });
}

Collector::~Collector() = default;

int Collector::bind(int port) {
    const char* host = "127.0.0.1";
    const int bound = port == 0 ? server_->bind_to_any_port(host) : port;
    if (bound < 0 || (port != 0 && !server_->bind_to_port(host, port))) {
        throw Failure("cannot listen on 127.0.0.1:" + std::to_string(port));
    }
    return bound;
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
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    stopping_.notify_all();
    server_->stop();
}

void Collector::waitUntilStopped() {
    std::unique_lock lock(mutex_);
    stopping_.wait(lock, [this] { return stopped_; });
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
    const std::optional<std::string> config = givesConfig ? configBody() : std::nullopt;
    if (givesConfig && !config.has_value()) answer.status = 500;
    // Before the answer: who has it can rely on the log.
    log_.write(describe(request, std::move(body), answer));
    if (answer.kind == Answer::Kind::stall) waitUntilStopped();
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

std::optional<std::string> Collector::configBody() const {
    const auto file = configFile_.has_value() ? qlsdk::platform::readFile(*configFile_, kConfigCeiling)
                                              : std::optional(qlsdk::dataOf("{}"));
    if (!file.has_value() || !nlohmann::json::accept(file->begin(), file->end())) return std::nullopt;
    return R"({"data":{"config":)" + qlsdk::textOf(*file) + "}}";
}

}  // namespace quillkit
