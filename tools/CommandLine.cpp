#include "CommandLine.h"

#include <algorithm>
#include <charconv>

#include "Failure.h"

namespace quillkit {

namespace {

constexpr std::size_t kHelpColumn = 30;

const Option& optionNamed(std::span<const Option> table, std::string_view name) {
    const auto found =
        std::find_if(table.begin(), table.end(), [&](const Option& o) { return o.name == name; });
    if (found == table.end()) throw UsageError("unknown option " + std::string(name));
    return *found;
}

void checkRequired(std::span<const Option> table, const Arguments& arguments) {
    for (const Option& option : table) {
        if (option.occurrence != Occurrence::required || arguments.has(option.name)) continue;
        throw UsageError("option " + std::string(option.name) + " is required");
    }
}

}  // namespace

std::int64_t integerArgument(std::string_view text, std::string_view what, std::int64_t lowest,
                             std::int64_t highest) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc{} && end == text.data() + text.size();
    if (whole && number >= lowest && number <= highest) return number;
    throw UsageError(std::string(what) + " wants a number from " + std::to_string(lowest) + " to " +
                     std::to_string(highest) + ", not '" + std::string(text) + "'");
}

Arguments::Arguments(std::span<const Option> table, OperandCount operandCount,
                     std::span<const std::string_view> words) {
    bool onlyOperands = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string_view word = words[i];
        if (onlyOperands || !word.starts_with('-')) {
            operands_.emplace_back(word);
        } else if (word == "--") {
            onlyOperands = true;
        } else {
            const std::size_t equals = word.find('=');
            const Option& option = optionNamed(table, word.substr(0, equals));
            const bool takesNext = !option.valueName.empty() && equals == std::string_view::npos;
            if (option.valueName.empty() && equals != std::string_view::npos) {
                throw UsageError("option " + std::string(option.name) + " takes no value");
            }
            if (takesNext && i + 1 == words.size()) {
                throw UsageError("option " + std::string(option.name) + " wants a value");
            }
            add(option, takesNext ? words[++i] : word.substr(std::min(word.size(), equals + 1)));
        }
    }
    if (operands_.size() < operandCount.least) throw UsageError("an operand is missing");
    if (operands_.size() > operandCount.most)
        throw UsageError("surplus operand '" + operands_[operandCount.most] + "'");
    checkRequired(table, *this);
}

void Arguments::add(const Option& option, std::string_view value) {
    std::vector<std::string>& values = values_[std::string(option.name)];
    if (!values.empty() && option.occurrence != Occurrence::repeated) {
        throw UsageError("option " + std::string(option.name) + " is given twice");
    }
    values.emplace_back(value);
}

std::optional<std::string> Arguments::value(std::string_view name) const {
    const auto found = values_.find(name);
    return found == values_.end() ? std::nullopt : std::optional(found->second.front());
}

std::vector<std::string> Arguments::valuesOf(std::string_view name) const {
    const auto found = values_.find(name);
    return found == values_.end() ? std::vector<std::string>{} : found->second;
}

std::vector<Option> joined(std::span<const Option> first, std::span<const Option> second) {
    std::vector<Option> all(first.begin(), first.end());
    all.insert(all.end(), second.begin(), second.end());
    return all;
}

std::string describeOptions(std::span<const Option> table) {
    std::string text;
    for (const Option& option : table) {
        std::string line = "  " + std::string(option.name);
        if (!option.valueName.empty()) line += " " + std::string(option.valueName);
        line.resize(std::max(line.size() + 2, kHelpColumn), ' ');
        text += line + std::string(option.help);
        if (option.occurrence == Occurrence::required) text += " (required)";
        text += '\n';
    }
    return text;
}

}  // namespace quillkit
