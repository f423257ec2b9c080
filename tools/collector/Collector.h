#pragma once

#include <functional>
#include <memory>

#include "tools/collector/AnswerScript.h"
#include "tools/collector/Certificates.h"
#include "tools/collector/ConfigSource.h"
#include "tools/collector/RequestLog.h"
#include "tools/collector/StalledRequests.h"

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
    /// How many requests may stall, beside those that the script orders now, with others still served.
    static constexpr std::size_t kLaterStallCeiling = 8;

    /// All but the identity is borrowed. Throws `Failure` when the identity is of no use to TLS.
    Collector(const Identity& identity, AnswerScript& script, ConfigSource& config, StalledRequests& stalls,
              RequestLog& log);
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

    std::unique_ptr<httplib::SSLServer> server_;
    AnswerScript& script_;
    ConfigSource& config_;
    StalledRequests& stalls_;
    RequestLog& log_;
    const std::size_t threadCount_;
};

}  // namespace quillkit
