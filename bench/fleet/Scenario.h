#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "ClientQueue.h"
#include "Random.h"

namespace qlsdk::fleet {

inline constexpr std::int64_t kSecond = 1000;
inline constexpr std::int64_t kMinute = 60 * kSecond;
inline constexpr std::int64_t kHour = 60 * kMinute;

/// The simulated day. The service fails from `kOutageBegins` until before `kOutageEnds`; the time before is
/// long enough for the clients' lists to be as they always are.
inline constexpr std::int64_t kBeginning = 1'700'000'000'000;
inline constexpr std::int64_t kOutageBegins = kBeginning + 45 * kMinute;
inline constexpr std::int64_t kOutageEnds = kOutageBegins + 10 * kMinute;
inline constexpr std::int64_t kEnd = kOutageEnds + 8 * kHour;

/// How an answer of the failing service delays the retry.
enum class Delay {
    none,
    /// By `delayMillis`.
    fixed,
    /// By `delayMillis` and a random part of `jitterMillis`.
    jittered,
    /// Until one and the same moment for all, `delayMillis` after the end of the outage.
    untilOneMoment,
};

/// What the service answers while it fails.
struct Scenario {
    std::string_view name;
    std::int64_t statusCode = 503;
    Delay delay = Delay::none;
    std::int64_t delayMillis = 0;
    std::int64_t jitterMillis = 0;
};

/// What a service may answer; the scenarios of the pictures.
[[nodiscard]] std::span<const Scenario> answers();
/// The same answer with shorter and longer delays.
[[nodiscard]] std::span<const Scenario> delays();

/// The requests that a service got in one stretch of time.
struct Load {
    std::uint64_t requests = 0;
    std::uint64_t records = 0;
};

/// A service that answers 200, but as its scenario says during the outage. Counts its load.
class FailingService final : public Service {
  public:
    /// The stretch of time that one `Load` counts.
    static constexpr std::int64_t kStretch = 10 * kSecond;

    FailingService(const Scenario& scenario, std::uint64_t seed);

    [[nodiscard]] Answer answer(std::int64_t nowMillis, std::size_t records) override;

    /// From `kBeginning` on.
    [[nodiscard]] std::span<const Load> load() const noexcept { return load_; }
    /// The most records in one request.
    [[nodiscard]] std::size_t largestRequest() const noexcept { return largestRequest_; }

  private:
    [[nodiscard]] std::int64_t delayMillis(std::int64_t nowMillis);

    const Scenario scenario_;
    Random random_;
    std::vector<Load> load_;
    std::size_t largestRequest_ = 0;
};

}  // namespace qlsdk::fleet
