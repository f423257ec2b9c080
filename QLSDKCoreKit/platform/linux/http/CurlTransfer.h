#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "QLSDKCoreKit/platform/UrlSession.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/linux/http/HttpTask.h"
#include "QLSDKCoreKit/platform/linux/http/ResponseCollector.h"

namespace qlsdk::platform {

/// `HttpOptions` with everything settled that the HTTP thread must not ask the environment for, because a
/// host may be changing it there and then. Time-outs are positive here and no longer than curl can count.
struct HttpSettings {
    HttpOptions options;
    std::string proxy;
    /// Hosts that are reached without the proxy, as curl takes them.
    std::string noProxy;
    /// False when the option was refused: nothing may be sent, since it would go to another server than the
    /// host meant.
    bool isConnectToUsable = true;
};

/// One task under way on one curl handle. Lives on the HTTP thread. It is one request on the wire: where curl
/// would send it a second time by itself, the task ends with an error instead, because only the caller can
/// know how often it may be sent.
class CurlTransfer {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;

    CurlTransfer(std::unique_ptr<HttpTask> task, const HttpSettings& settings);
    ~CurlTransfer();
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

    /// Prepares `handle` (a fresh or reset easy handle, borrowed until the transfer is gone). False without
    /// memory and when curl refuses an option, verification of the peer first of all; the transfer must not
    /// be started then.
    [[nodiscard]] bool prepare(void* handle, TimePoint now) noexcept;
    [[nodiscard]] void* handle() const noexcept { return handle_; }

    /// True once after the beginning of a name look-up.
    [[nodiscard]] bool hasBegunLookup() noexcept;

    /// When to look again although nothing arrives.
    [[nodiscard]] TimePoint deadline() const noexcept;
    /// True when the transfer's whole time is up, or when the deadline has passed and nothing has moved since
    /// it was set: time to `complete` with a time-out. Otherwise sets a new one.
    [[nodiscard]] bool isOverdue(TimePoint now) noexcept;

    /// Completes the task. `code` is curl's result for this transfer.
    void complete(int code) noexcept;

  private:
    [[nodiscard]] bool setTransport() noexcept;
    [[nodiscard]] bool setRequest();
    [[nodiscard]] bool setHeaders();
    [[nodiscard]] bool setCallbacks() noexcept;
    [[nodiscard]] UrlResult result(int code);
    [[nodiscard]] const char* ownReason() const noexcept;
    [[nodiscard]] std::string curlsReason() const;
    [[nodiscard]] int connectErrorNumber(int code) const noexcept;
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
    bool hasBegun_ = false;
    bool hasBegunLookup_ = false;
    bool isRepeated_ = false;
    bool isOutOfTime_ = false;
    TimePoint idleDeadline_;
    TimePoint totalDeadline_;
    std::string errorText_;
};

}  // namespace qlsdk::platform
