#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Fleet.h"

namespace qlsdk::fleet {

/// One scenario as it was played.
struct Played {
    std::string_view name;
    FleetRun run;
};

/// The mean of one kind of load from `begins` (whole stretches after `kBeginning`) until before `ends`.
[[nodiscard]] double perSecond(const FleetRun& run, std::uint64_t Load::*kind, std::int64_t begins,
                               std::int64_t ends);

/// The load around the outage as an SVG picture: one line for each scenario, readable on light and on dark.
[[nodiscard]] std::string loadPicture(std::string_view title, const std::vector<Played>& played);

}  // namespace qlsdk::fleet
