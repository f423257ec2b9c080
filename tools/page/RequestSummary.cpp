#include "tools/page/RequestSummary.h"

#include <algorithm>

#include "tools/collector/Endpoints.h"
#include <nlohmann/json.hpp>

namespace quillkit {

namespace {

using nlohmann::ordered_json;

constexpr std::size_t kTextCeiling = 200;
constexpr std::size_t kKitsCeiling = 20;

std::string shortened(const std::string& text) {
    return text.size() <= kTextCeiling ? text : text.substr(0, kTextCeiling) + "...";
}

std::string kindOf(const ServedRequest& request) {
    const Endpoint* endpoint = endpointAt(request.path);
    if (endpoint == nullptr) return "other";
    if (endpoint->messageName.empty()) return "config";
    return endpoint->messageName == "Metrics" ? "metrics" : "heartbeat";
}

/// The element under `key`, or null.
ordered_json elementOf(const ordered_json& object, const char* key) {
    return object.is_object() && object.contains(key) ? object[key] : ordered_json();
}

std::string kitName(const ordered_json& kitType) {
    constexpr std::array<const char*, 5> kNames{"none", "access", "avatar", "sharing", "feed"};
    if (!kitType.is_number_unsigned()) return "no kit";
    const auto number = kitType.get<std::uint64_t>();
    return number < kNames.size() ? kNames[number] : "kit " + std::to_string(number);
}

void addHeartbeats(ordered_json& summary, const ordered_json& heartbeats) {
    ordered_json kits = ordered_json::array();
    for (const ordered_json& heartbeat : heartbeats) {
        const ordered_json version = elementOf(heartbeat, "kitVersion");
        std::string kit = kitName(elementOf(heartbeat, "kitType"));
        if (version.is_string()) kit += " " + shortened(version.get<std::string>());
        const bool isNew = std::find(kits.begin(), kits.end(), kit) == kits.end();
        if (isNew && kits.size() < kKitsCeiling) kits.push_back(kit);
    }
    summary["kits"] = std::move(kits);
    summary["records"] = heartbeats.size();
}

void addMetrics(ordered_json& list, const char* kind, const char* numberKey, const ordered_json& metrics) {
    for (const ordered_json& metric : metrics) {
        if (list.size() == kSummaryMetricsCeiling) return;
        const ordered_json name = elementOf(metric, "name");
        const ordered_json number = elementOf(metric, numberKey);
        list.push_back({kind, name.is_string() ? shortened(name.get<std::string>()) : "",
                        number.is_number() ? number : ordered_json(0)});
    }
}

void addContent(ordered_json& summary, const ServedRequest& request) {
    const ordered_json message = decodedBody(request);
    summary["decoded"] = !message.is_null();
    if (summary["kind"] == "heartbeat") addHeartbeats(summary, elementOf(message, "heartbeats"));
    if (summary["kind"] != "metrics") return;
    const ordered_json counters = elementOf(message, "counters");
    const ordered_json timers = elementOf(message, "timers");
    ordered_json list = ordered_json::array();
    addMetrics(list, "counter", "count", counters);
    addMetrics(list, "timer", "latencyMillis", timers);
    summary["metrics"] = std::move(list);
    summary["records"] = counters.size() + timers.size();
}

}  // namespace

std::string summaryOf(const ServedRequest& request) {
    ordered_json summary{{"at", request.receivedMillis},          {"method", shortened(request.method)},
                         {"path", shortened(request.path)},       {"kind", kindOf(request)},
                         {"status", statusOf(request)},           {"bytes", request.body.size()},
                         {"token", wordsFor(request.token.state)}};
    if (request.token.opened.has_value()) {
        summary["app"] = shortened(request.token.opened->bundleIdentifier);
        summary["age"] = request.token.ageMillis;
    }
    addContent(summary, request);
    summary["text"] = humanLine(request);
    return summary.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace quillkit
