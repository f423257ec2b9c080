#pragma once

#include <array>
#include <string_view>

namespace quillkit {

/// One path of the web service that the collector answers.
struct Endpoint {
    std::string_view path;
    /// The message of the request body; empty for a body in JSON.
    std::string_view messageName;
};

inline constexpr std::string_view kHeartbeatPath = "/v1/sdk/heartbeat";
inline constexpr std::string_view kMetricsPath = "/v1/sdk/metrics/operational";
inline constexpr std::string_view kConfigPath = "/v1/config";

inline constexpr std::array<Endpoint, 3> kEndpoints{
    {{kHeartbeatPath, "HearbeatBatch"}, {kMetricsPath, "Metrics"}, {kConfigPath, ""}}};

/// Null for a path that the service does not have.
[[nodiscard]] constexpr const Endpoint* endpointAt(std::string_view path) {
    for (const Endpoint& endpoint : kEndpoints) {
        if (endpoint.path == path) return &endpoint;
    }
    return nullptr;
}

}  // namespace quillkit
