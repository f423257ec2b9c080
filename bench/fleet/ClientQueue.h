#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "QLSDKCoreKit/events/EventWrapper.h"

namespace qlsdk::fleet {

/// How a request ended.
struct Answer {
    /// 0 when no answer came.
    std::int64_t statusCode = 200;
    /// The value of "X-Retry-After-Millis".
    std::optional<std::string> retryAfterMillis;
};

/// What clients send their records to.
class Service {
  public:
    virtual ~Service() = default;
    [[nodiscard]] virtual Answer answer(std::int64_t nowMillis, std::size_t records) = 0;
};

/// What became of records. Every record made is exactly one of the other four.
struct Fates {
    std::uint64_t made = 0;
    std::uint64_t delivered = 0;
    std::uint64_t refused = 0;
    std::uint64_t dropped = 0;
    std::uint64_t waiting = 0;
    /// Those whose first attempt failed, whatever became of the second.
    std::uint64_t retried = 0;

    Fates& operator+=(const Fates& other) noexcept;
};

/// The upload queue of one client without its threads and files: the same list and the library's own
/// decisions on due times, outcomes and retries. An answer is there at once, before anything else happens.
class ClientQueue {
  public:
    /// `service` is borrowed and must outlive the queue.
    ClientQueue(std::size_t maxEventBuffer, Service& service)
        : maxEventBuffer_(maxEventBuffer), service_(service) {}

    void push(std::int64_t nowMillis);
    /// A publish run: what is due goes out in one request.
    void publish(std::int64_t nowMillis);

    [[nodiscard]] Fates fates() const;

  private:
    [[nodiscard]] std::vector<EventWrapper> takeDue(std::int64_t nowMillis);
    void keepFailed(std::vector<EventWrapper>& batch, const Answer& answer, std::int64_t nowMillis);

    const std::size_t maxEventBuffer_;
    Service& service_;
    std::vector<EventWrapper> waiting_;
    Fates fates_;
};

}  // namespace qlsdk::fleet
