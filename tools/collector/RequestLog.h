#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/inspect/TokenCheck.h"
#include <nlohmann/json_fwd.hpp>

#include "QLSDKCoreKit/values/Data.h"

namespace quillkit {

/// One request that the collector has read, and what it does with it.
struct ServedRequest {
    std::string method;
    std::string path;
    /// Names as received.
    std::vector<std::pair<std::string, std::string>> headers;
    qlsdk::Data body;
    TokenReport token;
    /// The status answered, "drop" or "stall".
    std::string answer;
    /// When it was read, since 1970.
    std::int64_t receivedMillis = 0;
};

/// The body as JSON: decoded by the path's schema, or parsed. Null when it is neither.
[[nodiscard]] nlohmann::ordered_json decodedBody(const ServedRequest& request);

/// The answer as a number, or as the word that stands for none.
[[nodiscard]] nlohmann::ordered_json statusOf(const ServedRequest& request);

/// The request as one JSON object on one line: "method", "path", "headers", "body" (hex), "message" (decoded
/// by the path; null when it does not decode), "token" and "status" (a number, "drop" or "stall").
[[nodiscard]] std::string jsonLine(const ServedRequest& request);

/// The request as one line for a person, bounded in length, control characters escaped.
[[nodiscard]] std::string humanLine(const ServedRequest& request);

/// Where the collector writes what it was sent: a line for people on standard output and, when there is a
/// file, a JSON line at its end. Any thread; lines never mix.
class RequestLog {
  public:
    using Watcher = std::function<void(const ServedRequest& request)>;

    /// `watcher`, when there is one, sees each request after it was written, on the thread that wrote it.
    /// Throws `Failure` when the file cannot be opened for writing.
    explicit RequestLog(const std::optional<std::string>& path, Watcher watcher = {});
    ~RequestLog();
    RequestLog(const RequestLog&) = delete;
    RequestLog& operator=(const RequestLog&) = delete;

    void write(const ServedRequest& request);

  private:
    const Watcher watcher_;
    std::mutex mutex_;
    int file_ = -1;
};

}  // namespace quillkit
