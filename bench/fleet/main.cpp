// Plays a fleet of clients against a service that fails for ten minutes, once for each scenario; draws the
// load and prints what became of the records.

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Fleet.h"
#include "LoadPicture.h"
#include "Scenario.h"

namespace qlsdk::fleet {
namespace {

struct Options {
    Endpoint endpoint = Endpoint::metrics;
    std::uint64_t clients = 1'000'000;
    std::uint64_t seed = 1;
    std::span<const Scenario> scenarios = answers();
    std::string svg;
    std::string csv;
};

constexpr const char* kUsage =
    "usage: qlsdk_fleet [--endpoint heartbeat|metrics] [--scenarios answers|delays] [--clients N] [--seed "
    "N]\n"
    "                   [--svg FILE] [--csv FILE]\n";

bool readNumber(const char* text, std::uint64_t& number) {
    const char* end = text + std::strlen(text);
    const auto [rest, error] = std::from_chars(text, end, number);
    return error == std::errc() && rest == end;
}

bool readEndpoint(std::string_view text, Endpoint& endpoint) {
    endpoint = text == "heartbeat" ? Endpoint::heartbeat : Endpoint::metrics;
    return text == "heartbeat" || text == "metrics";
}

bool readScenarios(std::string_view text, std::span<const Scenario>& scenarios) {
    scenarios = text == "delays" ? delays() : answers();
    return text == "delays" || text == "answers";
}

bool readOption(std::string_view name, const char* value, Options& options) {
    if (name == "--endpoint") return readEndpoint(value, options.endpoint);
    if (name == "--scenarios") return readScenarios(value, options.scenarios);
    if (name == "--clients") return readNumber(value, options.clients);
    if (name == "--seed") return readNumber(value, options.seed);
    if (name == "--svg") options.svg = value;
    if (name == "--csv") options.csv = value;
    return name == "--svg" || name == "--csv";
}

std::optional<Options> optionsOf(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 == argc || !readOption(argv[i], argv[i + 1], options)) return std::nullopt;
    }
    return options;
}

double highestMinute(const FleetRun& run, std::uint64_t Load::*kind, std::int64_t begins, std::int64_t ends) {
    double highest = 0;
    for (std::int64_t at = begins; at < ends; at += kMinute) {
        highest = std::max(highest, perSecond(run, kind, at, at + kMinute));
    }
    return highest;
}

/// Minutes from the end of the outage until the last minute whose load is a fifth above the usual one.
std::int64_t minutesUntilNormal(const FleetRun& run, double usual) {
    std::int64_t minutes = 0;
    for (std::int64_t at = kOutageEnds; at < kEnd; at += kMinute) {
        if (perSecond(run, &Load::requests, at, at + kMinute) > 1.2 * usual) {
            minutes = (at - kOutageEnds) / kMinute + 1;
        }
    }
    return minutes;
}

// A Markdown table. Loads are per second.
void printHeading() {
    std::puts(
        "| answer while it fails | requests before | during | highest minute during | after | minutes until "
        "normal | records before | highest minute after | largest request | failed once | dropped | refused "
        "| "
        "still waiting |\n|---|---|---|---|---|---|---|---|---|---|---|---|---|");
}

void printRow(const Played& played) {
    const FleetRun& run = played.run;
    const auto before = [&run](std::uint64_t Load::*kind) {
        return perSecond(run, kind, kOutageBegins - 20 * kMinute, kOutageBegins);
    };
    const auto whole = [](std::uint64_t number) { return static_cast<unsigned long long>(number); };
    std::printf("| %s | %.1f | %.1f | %.1f | %.1f | %lld ", std::string(played.name).c_str(),
                before(&Load::requests), perSecond(run, &Load::requests, kOutageBegins, kOutageEnds),
                highestMinute(run, &Load::requests, kOutageBegins, kOutageEnds),
                highestMinute(run, &Load::requests, kOutageEnds, kEnd),
                static_cast<long long>(minutesUntilNormal(run, before(&Load::requests))));
    std::printf("| %.1f | %.1f | %zu | %llu | %llu | %llu | %llu |\n", before(&Load::records),
                highestMinute(run, &Load::records, kOutageEnds, kEnd), run.largestRequest,
                whole(run.fates.retried), whole(run.fates.dropped), whole(run.fates.refused),
                whole(run.fates.waiting));
}

std::string csvOf(const std::vector<Played>& played) {
    std::string csv = "seconds since the outage began";
    for (const Played& each : played) csv += ";" + std::string(each.name);
    csv += '\n';
    for (std::int64_t at = kBeginning; at + FailingService::kStretch <= kEnd;
         at += FailingService::kStretch) {
        csv += std::to_string((at - kOutageBegins) / kSecond);
        for (const Played& each : played) {
            const auto stretch = static_cast<std::size_t>((at - kBeginning) / FailingService::kStretch);
            csv += ';' + std::to_string(each.run.load[stretch].requests);
        }
        csv += '\n';
    }
    return csv;
}

bool write(const std::string& path, const std::string& text) {
    if (path.empty()) return true;
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) std::fprintf(stderr, "qlsdk_fleet: cannot write %s\n", path.c_str());
    return static_cast<bool>(file);
}

std::string titleOf(const Options& options) {
    return std::string(options.endpoint == Endpoint::heartbeat ? "Heartbeat" : "Metrics") +
           " requests per second of " + std::to_string(options.clients) + " clients";
}

bool run(const Options& options) {
    std::vector<Played> played;
    printHeading();
    for (const Scenario& scenario : options.scenarios) {
        played.push_back({.name = scenario.name,
                          .run = playFleet(options.endpoint, scenario, options.clients, options.seed)});
        printRow(played.back());
    }
    const std::uint64_t made = played.front().run.fates.made;
    std::printf("\n%llu records of %llu clients\n", static_cast<unsigned long long>(made),
                static_cast<unsigned long long>(options.clients));
    const bool drawn = write(options.svg, loadPicture(titleOf(options), played));
    return write(options.csv, csvOf(played)) && drawn;
}

}  // namespace
}  // namespace qlsdk::fleet

int main(int argc, char** argv) {
    const auto options = qlsdk::fleet::optionsOf(argc, argv);
    if (!options) {
        std::fputs(qlsdk::fleet::kUsage, stderr);
        return 2;
    }
    return qlsdk::fleet::run(*options) ? 0 : 1;
}
