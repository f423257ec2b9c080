#include "tools/collector/RequestLog.h"

#include <cerrno>
#include <iostream>
#include <string_view>

#include "tools/cli/Failure.h"
#include "tools/collector/Endpoints.h"
#include "tools/inspect/Hex.h"
#include "tools/inspect/MessageJson.h"
#include "tools/inspect/WireMessages.h"
#include <fcntl.h>
#include <google/protobuf/message.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "QLSDKCoreKit/platform/Log.h"

namespace quillkit {

namespace {

using nlohmann::ordered_json;

constexpr int kDepthCeiling = 100;
constexpr std::size_t kHumanLineCeiling = 600;

/// Null for text that is no JSON or nested so deeply that working on it would need an unbounded stack.
ordered_json parsedJson(const qlsdk::Data& body) {
    bool tooDeep = false;
    const auto watchDepth = [&](int depth, ordered_json::parse_event_t, ordered_json&) {
        tooDeep = tooDeep || depth > kDepthCeiling;
        return !tooDeep;
    };
    ordered_json parsed = ordered_json::parse(body.begin(), body.end(), watchDepth, false);
    return tooDeep || parsed.is_discarded() ? ordered_json() : parsed;
}

std::string tokenText(const TokenReport& token) {
    std::string text = "token " + std::string(wordsFor(token.state));
    if (!token.opened.has_value()) return text + (token.isDevelopment ? " (development key)" : "");
    return text + " (" + token.opened->bundleIdentifier + ", " + std::to_string(token.ageMillis) + " ms old" +
           (token.isDevelopment ? ", development key)" : ")");
}

std::string bodyText(const ServedRequest& request) {
    const Endpoint* endpoint = endpointAt(request.path);
    if (endpoint == nullptr) return "";
    if (endpoint->messageName.empty()) return ": " + qlsdk::textOf(request.body);
    const auto message = decodeMessage(endpoint->messageName, request.body);
    const std::string name(endpoint->messageName);
    if (message == nullptr) return ": does not decode as " + name;
    return ": " + name + " { " + fieldsOnOneLine(*message) + "}";
}

void writeAll(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(file, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            std::cerr << "quillkit: cannot write to the log file" << std::endl;
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

}  // namespace

ordered_json decodedBody(const ServedRequest& request) {
    const Endpoint* endpoint = endpointAt(request.path);
    if (endpoint == nullptr) return nullptr;
    if (endpoint->messageName.empty()) return parsedJson(request.body);
    const auto message = decodeMessage(endpoint->messageName, request.body);
    return message == nullptr ? ordered_json() : jsonOf(*message);
}

ordered_json statusOf(const ServedRequest& request) {
    const bool isNumber = request.answer.find_first_not_of("0123456789") == std::string::npos;
    return isNumber ? ordered_json(std::stoi(request.answer)) : ordered_json(request.answer);
}

std::string jsonLine(const ServedRequest& request) {
    ordered_json headers = ordered_json::object();
    for (const auto& [name, value] : request.headers) {
        // A field that came twice is joined, as HTTP lets any recipient do.
        headers[name] = headers.contains(name) ? headers[name].get<std::string>() + ", " + value : value;
    }
    const ordered_json line{{"method", request.method},        {"path", request.path},
                            {"headers", std::move(headers)},   {"body", hexOf(request.body)},
                            {"message", decodedBody(request)}, {"token", tokenFields(request.token)},
                            {"status", statusOf(request)}};
    return line.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string humanLine(const ServedRequest& request) {
    std::string line = qlsdk::platform::escapedForLog(
        request.method + " " + request.path + " -> " + request.answer + ", " +
        std::to_string(request.body.size()) + " bytes, " + tokenText(request.token) + bodyText(request));
    if (line.size() > kHumanLineCeiling) line = line.substr(0, kHumanLineCeiling) + "...";
    return line;
}

RequestLog::RequestLog(const std::optional<std::string>& path, Watcher watcher)
    : watcher_(std::move(watcher)) {
    if (!path.has_value()) return;
    file_ = ::open(path->c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file_ < 0) throw Failure("cannot open " + *path + " for writing");
}

RequestLog::~RequestLog() {
    if (file_ >= 0) ::close(file_);
}

void RequestLog::write(const ServedRequest& request) {
    const std::string json = file_ < 0 ? std::string() : jsonLine(request) + "\n";
    const std::string human = humanLine(request);
    {
        const std::lock_guard lock(mutex_);
        if (file_ >= 0) writeAll(file_, json);
        std::cout << human << std::endl;
    }
    if (watcher_) watcher_(request);
}

}  // namespace quillkit
