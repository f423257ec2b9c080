#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "tools/page/PageAccess.h"
#include "tools/page/PageControls.h"

namespace httplib {
class ContentReader;
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace quillkit {

/// The collector's page: plain HTTP on 127.0.0.1, on threads of its own, so that no page delays the
/// collector. Serves from the moment it is made until its end.
class PageServer {
  public:
    /// More pages than that get 503 instead of events.
    static constexpr int kClientCeiling = 8;

    /// Takes the port, or any free one for 0. Throws `Failure` when it is taken.
    PageServer(const CollectorParts& parts, int port);
    /// Ends the pages' events.
    ~PageServer();
    PageServer(const PageServer&) = delete;
    PageServer& operator=(const PageServer&) = delete;

    /// What a person opens.
    [[nodiscard]] std::string url() const { return access_->url(); }

  private:
    void bind(int port);
    void route();
    void serve();
    /// True when the caller is refused, and `response` says so.
    [[nodiscard]] bool refuses(const httplib::Request& request, httplib::Response& response) const;
    void get(const httplib::Request& request, httplib::Response& response);
    void post(const httplib::Request& request, httplib::Response& response,
              const httplib::ContentReader& reader);
    void streamEvents(const httplib::Request& request, httplib::Response& response);
    void sendDetail(const std::string& id, httplib::Response& response);
    void sendAsset(const std::string& name, httplib::Response& response) const;

    const CollectorParts parts_;
    PageControls controls_;
    std::unique_ptr<httplib::Server> server_;
    std::unique_ptr<PageAccess> access_;
    std::atomic<int> clients_ = 0;
    std::thread thread_;
};

}  // namespace quillkit
