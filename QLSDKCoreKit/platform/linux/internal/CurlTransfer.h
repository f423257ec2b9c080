#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "QLSDKCoreKit/platform/Activity.h"
#include "QLSDKCoreKit/platform/UrlSession.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/linux/internal/ResponseCollector.h"

namespace qlsdk::platform {

/// `HttpOptions` with everything settled that the HTTP thread must not ask the environment for, because a
/// host may be changing it there and then.
struct HttpSettings {
    HttpOptions options;
    std::string proxy;
    /// Hosts that are reached without the proxy, as curl takes them.
    std::string noProxy;
};

/// One task given to the session. Whatever becomes of it, its completion is called once: the end of a task
/// that nobody completed is an error.
struct HttpTask {
    ~HttpTask();

    /// Hands `result` over, unless that has been done. What the completion throws is swallowed; it and what
    /// it holds are gone when this returns.
    void complete(UrlResult result) noexcept;
    void fail(int code, std::string message) noexcept;

    // First, so that it is given up last, after the completion and all it holds.
    Activity::Token token;
    UrlRequest request;
    BodyCeiling ceiling;
    UrlCompletion completion;
};

/// One task under way on one curl handle. Lives on the HTTP thread.
class CurlTransfer {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;

    CurlTransfer(std::unique_ptr<HttpTask> task, const HttpSettings& settings);
    ~CurlTransfer();
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

    /// Prepares `handle` (a fresh or reset easy handle, borrowed until the transfer is gone). False when curl
    /// refuses an option, verification of the peer first of all; the transfer must not be started then.
    [[nodiscard]] bool prepare(void* handle, TimePoint now);
    [[nodiscard]] void* handle() const noexcept { return handle_; }

    /// When to look again although nothing arrives.
    [[nodiscard]] TimePoint deadline() const noexcept;
    /// True when the deadline has passed and nothing has moved since it was set: time to `complete` with a
    /// time-out. Otherwise sets a new one.
    [[nodiscard]] bool isOverdue(TimePoint now) noexcept;

    /// Completes the task. `code` is curl's result for this transfer.
    void complete(int code) noexcept;

  private:
    [[nodiscard]] bool setTransport() noexcept;
    [[nodiscard]] bool setRequest();
    [[nodiscard]] bool setHeaders();
    [[nodiscard]] bool setCallbacks() noexcept;
    [[nodiscard]] UrlResult result(int code);
    [[nodiscard]] std::int64_t bytesMoved() const noexcept;

    struct Callbacks;
    struct HeaderList;
    const std::unique_ptr<HttpTask> task_;
    const HttpSettings& settings_;
    void* handle_ = nullptr;
    // Both are borrowed by the handle.
    const std::unique_ptr<HeaderList> headerList_;
    const std::unique_ptr<HeaderList> connectTo_;
    ResponseCollector collector_;
    ResponseCollector::Next outcome_ = ResponseCollector::Next::goOn;
    std::int64_t bytesSeen_ = 0;
    TimePoint idleDeadline_;
    std::string errorText_;
};

}  // namespace qlsdk::platform
