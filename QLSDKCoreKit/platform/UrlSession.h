#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Queues.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk::platform {

/// HTTP header fields in order. Names compare without regard to case, as HTTP has it; the spelling given last
/// is kept.
class QLSDK_EXPORT HeaderFields {
  public:
    using Field = std::pair<std::string, std::string>;

    /// Sets or replaces.
    void set(std::string_view name, std::string_view value);
    /// Removes the field, where there is one.
    void erase(std::string_view name);
    /// Borrowed; null when absent. Valid until the next change.
    [[nodiscard]] const std::string* find(std::string_view name) const noexcept;

    [[nodiscard]] std::size_t size() const noexcept { return fields_.size(); }
    [[nodiscard]] bool empty() const noexcept { return fields_.empty(); }
    [[nodiscard]] auto begin() const noexcept { return fields_.begin(); }
    [[nodiscard]] auto end() const noexcept { return fields_.end(); }

  private:
    std::vector<Field> fields_;
};

/// A header name in canonical case: the first letter and every letter after a hyphen upper, the rest lower
/// ("x-retry-after-millis" becomes "X-Retry-After-Millis").
[[nodiscard]] QLSDK_EXPORT std::string canonicalHeaderName(std::string_view name);

/// A mutable HTTP request.
struct UrlRequest {
    std::string url;
    std::string method = "GET";
    HeaderFields headers;
    std::optional<Data> body;
};

/// Why no response came. `code` is the transport's own number, for logs only.
struct UrlError {
    int code = 0;
    std::string message;
};

struct UrlResponse {
    std::int64_t statusCode = 0;
    /// Names in canonical case, whatever protocol carried them. Repeated fields are joined with ", ".
    HeaderFields headers;
};

/// What became of one data task. With `error` set, `response` is absent; otherwise it is present.
struct UrlResult {
    std::optional<UrlError> error;
    std::optional<UrlResponse> response;
    Data body;
};

/// The most bytes of a response body that are kept. A body that grows past a ceiling other than zero ends the
/// task with an error; with zero every byte is thrown away as it arrives and the body's size does not matter.
struct BodyCeiling {
    std::size_t bytes = 0;
};

using UrlCompletion = std::function<void(UrlResult)>;

/// Port: the shared HTTP session.
///
/// Any thread. HTTPS with verification of the peer that cannot be switched off. Header values that hold a CR,
/// LF or NUL end the task with an error before anything is sent. No redirect is followed, so that the
/// request's headers never reach another origin: its own status is the answer. Each completion is called
/// exactly once on every path, on a thread of the session's, and nothing that it throws gets out.
class QLSDK_EXPORT UrlSession {
  public:
    virtual ~UrlSession() = default;

    /// Starts one task and returns at once.
    virtual void dataTask(UrlRequest request, BodyCeiling ceiling, UrlCompletion completion) = 0;

    /// Consent has been withdrawn: ends every task, waiting or on the wire, with an error, and so each one
    /// that comes until `acceptTasks`. Returns at once; `done` is called once, when the completions of the
    /// tasks that were there have returned, from any thread or inside this call. The default cancels nothing
    /// and calls `done`: what is on the wire then ends by itself.
    virtual void refuseTasks(Task done);

    /// Tasks are welcome again. Called with a lock held: returns at once, calls nobody back and waits for
    /// nothing. The default does nothing.
    virtual void acceptTasks() {}

    /// The most uploads that one queue may have in this session at a time; further records wait in the
    /// queue's list, on disk. 0 counts as 1. The default has no such ceiling.
    [[nodiscard]] virtual std::size_t mostUploadsOfAQueue() const noexcept;
};

}  // namespace qlsdk::platform
