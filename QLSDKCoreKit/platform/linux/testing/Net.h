#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "QLSDKCoreKit/platform/Activity.h"
#include "QLSDKCoreKit/platform/UrlSession.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/linux/testing/Certificates.h"
#include "QLSDKCoreKit/platform/linux/testing/TlsServer.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace qlsdk::platform::testing_support {

inline constexpr char kUrl[] = "https://localhost/v1/sdk/heartbeat";
// A bound on a hang, far above anything a loaded machine needs.
inline constexpr auto kLong = std::chrono::milliseconds(60'000);

/// A session, the authority it trusts and a server of the test's making.
class Net {
  public:
    explicit Net(TlsServer::Script script, CertificateFlaw flaw = CertificateFlaw::none,
                 TlsServer::Handshake handshake = TlsServer::Handshake::answered,
                 TlsServer::Start start = TlsServer::Start::now)
        : server(certificates.serverContext(flaw), std::move(script), handshake, start) {
        connect();
    }

    /// Has no thread before `server.start()`.
    Net(TlsServer::Script script, TlsServer::Start start)
        : Net(std::move(script), CertificateFlaw::none, TlsServer::Handshake::answered, start) {}

    enum class Protocol { http1, http2 };
    Net(TlsServer::Script script, Protocol protocol)
        : server(
              protocol == Protocol::http2 ? certificates.http2ServerContext() : certificates.serverContext(),
              std::move(script)) {
        connect();
    }

    const std::shared_ptr<UrlSession>& session() {
        if (session_ == nullptr) session_ = makeLinuxUrlSession(options, activity);
        return session_;
    }

    UrlResult send(UrlRequest request, BodyCeiling ceiling = {}) {
        std::promise<UrlResult> result;
        session()->dataTask(std::move(request), ceiling,
                            [&](UrlResult given) { result.set_value(std::move(given)); });
        return result.get_future().get();
    }
    UrlResult post(BodyCeiling ceiling = {}) {
        return send({.url = kUrl, .method = "POST", .headers = {}, .body = dataOf("payload")}, ceiling);
    }

    testing::TemporaryDirectories directories;
    Certificates certificates{directories.path()};
    TlsServer server;
    HttpOptions options;
    std::shared_ptr<Activity> activity = std::make_shared<Activity>();

  private:
    void connect() {
        options.caFile = certificates.caFile();
        options.connectTo = server.address();
        options.proxy = "";
    }

    std::shared_ptr<UrlSession> session_;
};

inline std::string response(std::string_view status, std::string_view headers, std::string_view body) {
    return "HTTP/1.1 " + std::string(status) + "\r\n" + std::string(headers) +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
}

}  // namespace qlsdk::platform::testing_support
