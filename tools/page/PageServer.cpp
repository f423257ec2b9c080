#include "tools/page/PageServer.h"

#include <future>

#include "tools/cli/Failure.h"
#include "tools/collector/LocalPort.h"
#include "tools/collector/RequestBody.h"
#include "tools/page/EventStream.h"
#include "tools/page/PageAssets.h"
#include "tools/page/RequestDetail.h"
#include <httplib.h>
#include <nlohmann/json.hpp>

namespace quillkit {

namespace {

/// Threads beside those that the pages' events take.
constexpr std::size_t kSpareThreads = 8;
constexpr std::size_t kBodyCeiling = ConfigSource::kCeiling;
/// A client that does not take what it is sent is given up after that.
constexpr int kWriteTimeoutSeconds = 5;
constexpr std::chrono::seconds kKeepAlive{15};
/// How soon the end of a client is seen.
constexpr std::chrono::seconds kLook{1};
/// Where index.html wants the token.
constexpr std::string_view kTokenMark = "@TOKEN@";

const httplib::Headers& commonHeaders() {
    static const httplib::Headers& headers = *new httplib::Headers{
        {"Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
         "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; require-trusted-types-for 'script'; "
         "trusted-types 'none'"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Cache-Control", "no-store"},
        {"Referrer-Policy", "no-referrer"},
        {"X-Content-Type-Options", "nosniff"}};
    return headers;
}

/// The field's value when it came exactly once.
std::optional<std::string> onlyHeader(const httplib::Request& request, const char* name) {
    if (request.get_header_value_count(name) != 1) return std::nullopt;
    return request.get_header_value(name);
}

PageCaller callerOf(const httplib::Request& request) {
    PageCaller caller{.method = request.method,
                      .path = request.path,
                      .host = onlyHeader(request, "Host"),
                      .origin = onlyHeader(request, "Origin"),
                      .fetchSite = onlyHeader(request, "Sec-Fetch-Site"),
                      .queryToken = std::nullopt};
    if (request.get_param_value_count("token") == 1) caller.queryToken = request.get_param_value("token");
    return caller;
}

void answerInWords(httplib::Response& response, int status, const std::string& reason) {
    response.status = status;
    response.set_content(reason + "\n", "text/plain;charset=utf-8");
}

/// One of the places that `kClientCeiling` counts.
class Place {
  public:
    explicit Place(std::atomic<int>& taken) : taken_(taken), isFree_(++taken <= PageServer::kClientCeiling) {}
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place() { --taken_; }
    [[nodiscard]] bool isFree() const noexcept { return isFree_; }

  private:
    std::atomic<int>& taken_;
    const bool isFree_;
};

/// Waits for the next events, but not longer than until a word that the server is still there is due.
std::string nextText(EventStream& stream, ChangeCondition& changes, const httplib::DataSink& sink) {
    const auto deadline = std::chrono::steady_clock::now() + kKeepAlive;
    while (!changes.isClosed() && sink.is_writable()) {
        const std::uint64_t count = changes.count();
        if (std::string text = stream.next(); !text.empty()) return text;
        if (std::chrono::steady_clock::now() >= deadline) return ": still here\n\n";
        changes.waitPast(count, kLook);
    }
    return "";
}

}  // namespace

PageServer::PageServer(const CollectorParts& parts, int port)
    : parts_(parts), controls_(parts), server_(std::make_unique<httplib::Server>()) {
    bind(port);
    route();
    serve();
}

PageServer::~PageServer() {
    parts_.changes.close();
    server_->stop();
    thread_.join();
}

void PageServer::bind(int port) {
    const int bound = bindLocalPort(*server_, port, "cannot serve the page on");
    access_ = std::make_unique<PageAccess>(bound, PageAccess::newToken());
}

void PageServer::route() {
    server_->set_default_headers(commonHeaders());
    server_->set_tcp_nodelay(true);
    server_->set_write_timeout(kWriteTimeoutSeconds);
    // One request to a connection: idle ones would take the threads that others need.
    server_->set_keep_alive_max_count(1);
    server_->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        using Response = httplib::Server::HandlerResponse;
        if (refuses(request, response)) return Response::Handled;
        if (request.method == "POST") return Response::Unhandled;
        get(request, response);
        return Response::Handled;
    });
    server_->Post(".*", [this](const httplib::Request& request, httplib::Response& response,
                               const httplib::ContentReader& reader) { post(request, response, reader); });
}

void PageServer::serve() {
    std::promise<void> listening;
    // The server asks for its threads once it counts as running, which is the first moment to stop it.
    server_->new_task_queue = [&] {
        listening.set_value();
        return new httplib::ThreadPool(kSpareThreads + kClientCeiling);
    };
    thread_ = std::thread([this] { (void)server_->listen_after_bind(); });
    listening.get_future().wait();
}

bool PageServer::refuses(const httplib::Request& request, httplib::Response& response) const {
    const int refusal = access_->refusalOf(callerOf(request));
    if (refusal != 0) answerInWords(response, refusal, "The page's address is what quillkit printed.");
    return refusal != 0;
}

void PageServer::get(const httplib::Request& request, httplib::Response& response) {
    const std::string name = access_->nameIn(request.path);
    constexpr std::string_view kDetails = "requests/";
    if (name == "events") {
        streamEvents(request, response);
    } else if (name == "config") {
        response.set_content(parts_.config.text().value_or(""), "text/plain;charset=utf-8");
    } else if (name.starts_with(kDetails)) {
        sendDetail(name.substr(kDetails.size()), response);
    } else {
        sendAsset(name.empty() ? "index.html" : name, response);
    }
}

void PageServer::post(const httplib::Request& request, httplib::Response& response,
                      const httplib::ContentReader& reader) {
    qlsdk::Data body;
    const int refusal = readRequestBody(request, reader, kBodyCeiling, body);
    if (refusal != 0) return answerInWords(response, refusal, "The body is of no use.");
    const ControlOutcome outcome = controls_.perform(access_->nameIn(request.path), qlsdk::textOf(body));
    if (!outcome.reason.empty()) return answerInWords(response, outcome.status, outcome.reason);
    response.status = outcome.status;
}

void PageServer::streamEvents(const httplib::Request& request, httplib::Response& response) {
    const auto place = std::make_shared<Place>(clients_);
    if (!place->isFree()) return answerInWords(response, 503, "Too many pages are open.");
    const auto stream = std::make_shared<EventStream>(
        parts_.requests, [this] { return controls_.state(); },
        lastEventId(request.get_header_value("Last-Event-ID")));
    response.set_chunked_content_provider(
        "text/event-stream", [this, stream, place](std::size_t, httplib::DataSink& sink) {
            const std::string text = nextText(*stream, parts_.changes, sink);
            return !text.empty() && sink.write(text.data(), text.size());
        });
}

void PageServer::sendDetail(const std::string& id, httplib::Response& response) {
    const auto recorded = parts_.requests.find(lastEventId(id));
    if (recorded == nullptr) return answerInWords(response, 404, "The request is not kept any more.");
    response.set_content(detailOf(recorded->request, recorded->id), "application/json");
}

void PageServer::sendAsset(const std::string& name, httplib::Response& response) const {
    const PageAsset* asset = pageAssetNamed(name);
    if (asset == nullptr) return answerInWords(response, 404, "There is nothing of that name.");
    std::string content(asset->content);
    for (std::size_t mark = content.find(kTokenMark); name == "index.html" && mark != std::string::npos;
         mark = content.find(kTokenMark, mark)) {
        content.replace(mark, kTokenMark.size(), access_->token());
    }
    response.set_content(content, std::string(contentTypeOf(name)));
}

}  // namespace quillkit
