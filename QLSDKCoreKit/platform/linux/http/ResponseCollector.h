#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string_view>

#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk::platform {

/// Gathers one response as its lines and bytes arrive, within bounds that no server can make it pass.
class ResponseCollector {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;

    explicit ResponseCollector(BodyCeiling ceiling) : ceiling_(ceiling) {}

    /// What to do with the connection after a piece of the response.
    enum class Next {
        goOn,
        /// The response is complete for our purposes; the rest of the body is of no interest.
        enough,
        tooMuch,
    };

    /// One header line with its line break, status and closing empty line included. Interim responses (1xx)
    /// are forgotten when the next one begins; trailers are ignored.
    [[nodiscard]] Next addHeaderLine(std::string_view line, TimePoint now);
    [[nodiscard]] Next addBody(DataView bytes, TimePoint now);

    /// Until when an unwanted body is read so that the connection can be used again; absent when no final
    /// response has begun or its body is wanted.
    [[nodiscard]] std::optional<TimePoint> discardDeadline() const noexcept;

    /// The response so far. Once.
    [[nodiscard]] UrlResult take();

  private:
    void beginResponse(std::string_view statusLine);
    void addField(std::string_view line);

    const BodyCeiling ceiling_;
    std::size_t headerBytes_ = 0;
    std::size_t discardedBytes_ = 0;
    bool headComplete_ = false;
    TimePoint headCompletedAt_;
    UrlResponse response_;
    Data body_;
};

}  // namespace qlsdk::platform
