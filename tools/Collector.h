#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "AnswerScript.h"
#include "Certificates.h"
#include "RequestLog.h"

namespace httplib {
class SSLServer;
struct Request;
struct Response;
}  // namespace httplib

namespace quillkit {

/// A local stand-in for the kit's web service: HTTPS on 127.0.0.1, one request to a connection. Logs every
/// request and answers the ones to the service's paths by the script. Nothing a client sends ends it.
class Collector {
  public:
    /// Larger bodies are refused with 413.
    static constexpr std::size_t kBodyCeiling = std::size_t{1} << 20;

    /// `configFile` holds the JSON that the configuration path answers with; absent answers an empty object.
    /// `script` and `log` are borrowed. Throws `Failure` when the identity is of no use to TLS.
    Collector(const Identity& identity, AnswerScript& script, RequestLog& log,
              std::optional<std::string> configFile);
    ~Collector();

    /// Takes the port, or any free one for 0, and returns it. Throws `Failure` when it is taken.
    [[nodiscard]] int bind(int port);

    /// Serves until `stop`; calls `onListening` first. A `stop` before that moment is lost. False when the
    /// socket failed by itself.
    [[nodiscard]] bool serve(const std::function<void()>& onListening);

    /// Any thread. Stalled requests end without an answer.
    void stop();

  private:
    using Reader = std::function<int(qlsdk::Data& body)>;

    void serveRequest(const httplib::Request& request, httplib::Response& response, const Reader& readBody);
    Answer answerTo(const httplib::Request& request, int refusal);
    [[nodiscard]] std::optional<std::string> configBody() const;
    void waitUntilStopped();

    std::unique_ptr<httplib::SSLServer> server_;
    AnswerScript& script_;
    RequestLog& log_;
    const std::optional<std::string> configFile_;
    std::size_t threadCount_;

    std::mutex mutex_;
    std::condition_variable stopping_;
    bool stopped_ = false;
};

}  // namespace quillkit
