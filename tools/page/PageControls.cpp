#include "tools/page/PageControls.h"

#include <algorithm>
#include <optional>

#include "tools/cli/Failure.h"
#include "tools/collector/Collector.h"
#include <nlohmann/json.hpp>

namespace quillkit {

namespace {

using nlohmann::ordered_json;

/// The texts of {"answers": [TEXT...]}; absent for anything else.
std::optional<std::vector<std::string>> answersIn(const std::string& body) {
    const ordered_json json = ordered_json::parse(body, nullptr, false);
    if (!json.is_object() || !json.contains("answers") || !json["answers"].is_array()) return std::nullopt;
    std::vector<std::string> answers;
    for (const ordered_json& answer : json["answers"]) {
        if (!answer.is_string()) return std::nullopt;
        answers.push_back(answer);
    }
    return answers;
}

}  // namespace

ControlOutcome PageControls::perform(const std::string& name, const std::string& body) {
    ControlOutcome outcome;
    if (name == "answers") {
        outcome = orderAnswers(body);
    } else if (name == "answers/clear") {
        parts_.script.clear();
    } else if (name == "stalls/release") {
        parts_.stalls.release();
    } else if (name == "config") {
        outcome = replaceConfig(body);
    } else if (name == "config/restore") {
        parts_.config.restore();
    } else if (name == "requests/clear") {
        parts_.requests.clear();
    } else {
        return {.status = 404, .reason = "there is no such control"};
    }
    parts_.changes.notify();
    return outcome;
}

std::string PageControls::state() {
    const ordered_json state{{"collector", parts_.address},
                             {"answers", parts_.script.pending()},
                             {"stalled", parts_.stalls.count()},
                             {"config", parts_.config.isReplaced() ? "page" : "file"},
                             {"clearedUpTo", parts_.requests.clearedUpTo()},
                             {"capacity", RequestRing::kCapacity}};
    return state.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

ControlOutcome PageControls::orderAnswers(const std::string& body) {
    const auto answers = answersIn(body);
    if (!answers.has_value()) return {.status = 400, .reason = R"(wanted is {"answers": [TEXT...]})"};
    if (!hasRoomFor(*answers)) return {.status = 409, .reason = "too many answers or stalls wait already"};
    try {
        parts_.script.add(*answers);
    } catch (const UsageError& error) {
        return {.status = 400, .reason = error.what()};
    }
    return {};
}

ControlOutcome PageControls::replaceConfig(const std::string& body) {
    if (parts_.config.replace(body)) return {};
    return {.status = 400, .reason = "the configuration is no JSON, or too long"};
}

bool PageControls::hasRoomFor(const std::vector<std::string>& answers) {
    // Each stall takes a thread of the collector.
    const auto stalls = static_cast<std::size_t>(std::count(answers.begin(), answers.end(), "stall"));
    const std::size_t stallsBefore = parts_.script.stallCount() + parts_.stalls.count();
    return parts_.script.pending().size() + answers.size() <= kScriptCeiling &&
           (stalls == 0 || stallsBefore + stalls <= Collector::kLaterStallCeiling);
}

}  // namespace quillkit
