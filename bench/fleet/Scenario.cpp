#include "Scenario.h"

#include <algorithm>
#include <array>
#include <string>

namespace qlsdk::fleet {

std::span<const Scenario> answers() {
    static constexpr std::array kAnswers = {
        Scenario{.name = "500 without a delay", .statusCode = 500},
        Scenario{.name = "503, delay 1 min", .delay = Delay::fixed, .delayMillis = kMinute},
        Scenario{.name = "503, delay 10 min", .delay = Delay::fixed, .delayMillis = 10 * kMinute},
        Scenario{
            .name = "503, all until one moment", .delay = Delay::untilOneMoment, .delayMillis = 10 * kMinute},
        Scenario{.name = "503, delay 10 to 20 min",
                 .delay = Delay::jittered,
                 .delayMillis = 10 * kMinute,
                 .jitterMillis = 10 * kMinute},
        Scenario{.name = "403, final", .statusCode = 403},
    };
    return kAnswers;
}

std::span<const Scenario> delays() {
    static constexpr auto after = [](std::string_view name, std::int64_t minutes) {
        return Scenario{.name = name, .delay = Delay::fixed, .delayMillis = minutes * kMinute};
    };
    static constexpr std::array kDelays = {after("503, delay 2 min", 2),   after("503, delay 5 min", 5),
                                           after("503, delay 8 min", 8),   after("503, delay 10 min", 10),
                                           after("503, delay 15 min", 15), after("503, delay 30 min", 30),
                                           after("503, delay 60 min", 60)};
    return kDelays;
}

FailingService::FailingService(const Scenario& scenario, std::uint64_t seed)
    : scenario_(scenario),
      random_(seed),
      load_(static_cast<std::size_t>((kEnd - kBeginning + kStretch - 1) / kStretch)) {}

Answer FailingService::answer(std::int64_t nowMillis, std::size_t records) {
    Load& load = load_.at(static_cast<std::size_t>((nowMillis - kBeginning) / kStretch));
    ++load.requests;
    load.records += records;
    largestRequest_ = std::max(largestRequest_, records);
    if (nowMillis < kOutageBegins || nowMillis >= kOutageEnds) return {};
    Answer answer{.statusCode = scenario_.statusCode, .retryAfterMillis = {}};
    if (scenario_.delay != Delay::none) answer.retryAfterMillis = std::to_string(delayMillis(nowMillis));
    return answer;
}

std::int64_t FailingService::delayMillis(std::int64_t nowMillis) {
    switch (scenario_.delay) {
        case Delay::none:
            return 0;
        case Delay::fixed:
            return scenario_.delayMillis;
        case Delay::jittered:
            return scenario_.delayMillis +
                   static_cast<std::int64_t>(random_.uniform() * static_cast<double>(scenario_.jitterMillis));
        case Delay::untilOneMoment:
            return kOutageEnds + scenario_.delayMillis - nowMillis;
    }
    return 0;
}

}  // namespace qlsdk::fleet
