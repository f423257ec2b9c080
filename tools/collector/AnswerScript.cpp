#include "tools/collector/AnswerScript.h"

#include <algorithm>

#include "tools/cli/CommandLine.h"
#include "tools/cli/Failure.h"

namespace quillkit {

namespace {

bool isHeaderText(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

std::pair<std::string, std::string> parseHeader(std::string_view text) {
    const std::size_t equals = text.find('=');
    const std::string_view name = text.substr(0, equals);
    const bool named =
        equals != std::string_view::npos && !name.empty() && name.find_first_of(": ") == name.npos;
    if (!named || !isHeaderText(text)) {
        throw UsageError("an answer's header is HEADER=VALUE, not '" + std::string(text) + "'");
    }
    return {std::string(name), std::string(text.substr(equals + 1))};
}

}  // namespace

Answer parseAnswer(std::string_view text) {
    if (text == "drop") return {.kind = Answer::Kind::drop, .status = 0, .headers = {}};
    if (text == "stall") return {.kind = Answer::Kind::stall, .status = 0, .headers = {}};
    const std::size_t colon = text.find(':');
    Answer answer;
    // From 200 on: an interim answer would leave the client waiting for the real one.
    answer.status = static_cast<int>(integerArgument(text.substr(0, colon), "an answer's status", 200, 599));
    if (colon != std::string_view::npos) answer.headers.push_back(parseHeader(text.substr(colon + 1)));
    return answer;
}

std::string textOf(const Answer& answer) {
    if (answer.kind == Answer::Kind::drop) return "drop";
    if (answer.kind == Answer::Kind::stall) return "stall";
    std::string text = std::to_string(answer.status);
    for (const auto& [name, value] : answer.headers) text += ":" + name + "=" + value;
    return text;
}

AnswerScript::AnswerScript(std::span<const std::string> texts) {
    add(texts);
}

void AnswerScript::add(std::span<const std::string> texts) {
    std::vector<Answer> added;
    for (const std::string& text : texts) added.push_back(parseAnswer(text));
    const std::lock_guard lock(mutex_);
    answers_.insert(answers_.end(), added.begin(), added.end());
}

void AnswerScript::clear() {
    const std::lock_guard lock(mutex_);
    answers_.clear();
}

std::vector<std::string> AnswerScript::pending() {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> texts;
    for (const Answer& answer : answers_) texts.push_back(textOf(answer));
    return texts;
}

Answer AnswerScript::next() {
    const std::lock_guard lock(mutex_);
    if (answers_.empty()) return {};
    Answer answer = std::move(answers_.front());
    answers_.pop_front();
    return answer;
}

std::size_t AnswerScript::stallCount() {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count_if(answers_.begin(), answers_.end(), [](const Answer& answer) {
        return answer.kind == Answer::Kind::stall;
    }));
}

}  // namespace quillkit
