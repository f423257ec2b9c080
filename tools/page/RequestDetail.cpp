#include "tools/page/RequestDetail.h"

#include "tools/collector/Endpoints.h"
#include "tools/inspect/Hex.h"
#include "tools/inspect/WireMessages.h"
#include "tools/inspect/WireTree.h"
#include <google/protobuf/message.h>
#include <nlohmann/json.hpp>

namespace quillkit {

namespace {

using nlohmann::ordered_json;

void addContent(ordered_json& detail, const ServedRequest& request) {
    const Endpoint* endpoint = endpointAt(request.path);
    if (endpoint == nullptr) return;
    if (endpoint->messageName.empty()) {
        detail["isJson"] = !decodedBody(request).is_null();
        return;
    }
    detail["message"] = endpoint->messageName;
    detail["decoded"] = decodeMessage(endpoint->messageName, request.body) != nullptr;
    if (const auto* descriptor = descriptorNamed(endpoint->messageName)) {
        detail["fields"] = wireTree(*descriptor, request.body);
    }
}

}  // namespace

std::string detailOf(const ServedRequest& request, std::uint64_t id) {
    ordered_json headers = ordered_json::array();
    for (const auto& [name, value] : request.headers) headers.push_back({name, value});
    ordered_json detail{{"id", id},
                        {"at", request.receivedMillis},
                        {"method", request.method},
                        {"path", request.path},
                        {"headers", std::move(headers)},
                        {"token", tokenFields(request.token)},
                        {"status", statusOf(request)},
                        {"body", hexOf(request.body)},
                        {"message", nullptr},
                        {"line", jsonLine(request)}};
    addContent(detail, request);
    return detail.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace quillkit
