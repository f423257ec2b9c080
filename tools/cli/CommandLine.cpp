#include "tools/cli/CommandLine.h"

#include <algorithm>
#include <charconv>
#include <numeric>

#include "tools/cli/Failure.h"
#include <CLI/CLI.hpp>

namespace quillkit {

namespace {

constexpr std::size_t kHelpColumn = 30;

/// Stands before "[...]", which the parser would take for a list and split.
constexpr char kNoList = '\x01';

std::string protectedWord(std::string_view word) {
    const bool isList = word.starts_with('[') && word.ends_with(']');
    return (isList ? std::string(1, kNoList) : std::string()) + std::string(word);
}

std::vector<std::string> unprotectedWords(std::vector<std::string> words) {
    for (std::string& word : words) {
        if (word.starts_with(kNoList)) word.erase(0, 1);
    }
    return words;
}

/// "--name=" becomes "--name" and an empty word: the parser would take the next word for the value.
std::vector<std::string> wordsForParser(std::span<const std::string_view> words) {
    std::vector<std::string> split;
    bool onlyOperands = false;
    for (const std::string_view word : words) {
        onlyOperands = onlyOperands || word == "--";
        const bool isEmptyValue =
            !onlyOperands && word.starts_with("--") && word.find('=') == word.size() - 1;
        split.push_back(isEmptyValue ? std::string(word.substr(0, word.size() - 1)) : protectedWord(word));
        if (isEmptyValue) split.emplace_back();
    }
    return split;
}

[[noreturn]] void refuseWord(const std::string& word) {
    if (!word.starts_with('-')) throw UsageError("surplus operand '" + word + "'");
    throw UsageError("unknown option " + word.substr(0, word.find('=')));
}

/// The parser's complaint begins with the option's name.
[[noreturn]] void refuseValue(const std::string& complaint) {
    const bool isFlag = complaint.find("flag override") != std::string::npos;
    const std::string name = complaint.substr(0, complaint.find_first_of(": "));
    throw UsageError("option " + std::string(name.starts_with("--") ? "" : "--") + name +
                     (isFlag ? " takes no value" : " wants a value"));
}

/// True when the words ask for help.
bool parse(CLI::App& app, std::vector<std::string> words) {
    std::reverse(words.begin(), words.end());
    try {
        app.parse(words);
    } catch (const CLI::CallForHelp&) {
        return true;
    } catch (const CLI::ExtrasError&) {
        refuseWord(app.remaining().front());
    } catch (const CLI::ArgumentMismatch& error) {
        refuseValue(error.what());
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    return false;
}

/// How many letters are to be put in, left out or changed to make one of the other.
std::size_t editDistance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

}  // namespace

std::int64_t integerArgument(std::string_view text, std::string_view what, std::int64_t lowest,
                             std::int64_t highest) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc{} && end == text.data() + text.size();
    if (whole && number >= lowest && number <= highest) return number;
    throw UsageError(std::string(what) + " wants a whole number from " + std::to_string(lowest) + " to " +
                     std::to_string(highest) + ", not '" + std::string(text) + "'");
}

double numberArgument(std::string_view text, std::string_view what) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc{} && end == text.data() + text.size()) return number;
    throw UsageError(std::string(what) + " wants a number, not '" + std::string(text) + "'");
}

std::string_view nearestName(std::string_view names, std::string_view text) {
    // More than two slips are a guess.
    std::size_t least = 3;
    std::string_view nearest;
    while (!names.empty()) {
        const std::string_view name = names.substr(0, names.find(' '));
        names.remove_prefix(std::min(names.size(), name.size() + 1));
        const std::size_t distance = editDistance(name, text);
        if (distance >= least) continue;
        least = distance;
        nearest = name;
    }
    return nearest;
}

Arguments::Arguments(std::span<const Option> table, std::span<const std::string_view> words) {
    CLI::App app;
    app.set_help_flag("--help");
    std::vector<CLI::Option*> options;
    for (const Option& option : table) {
        const std::string name(option.name);
        options.push_back(option.valueName.empty() ? app.add_flag(name)->disable_flag_override()
                                                   : app.add_option(name));
        options.back()->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    }
    CLI::Option* operands = app.add_option("operands")->expected(-1)->allow_extra_args();
    operands->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    asksForHelp_ = parse(app, wordsForParser(words));
    operands_ = unprotectedWords(operands->results());
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (options[i]->count() == 0) continue;
        if (options[i]->count() > 1 && table[i].occurrence != Occurrence::repeated) {
            throw UsageError("option " + std::string(table[i].name) + " is given twice");
        }
        values_[std::string(table[i].name)] = unprotectedWords(options[i]->results());
    }
}

void Arguments::check(std::string_view command, std::span<const Option> table, OperandCount operandCount,
                      std::string_view operandNames) const {
    if (operands_.size() < operandCount.least) {
        throw UsageError("an operand is missing: " + std::string(command) + " takes " +
                         std::string(operandNames));
    }
    if (operands_.size() > operandCount.most) {
        throw UsageError("surplus operand '" + operands_[operandCount.most] + "'");
    }
    for (const auto& [name, values] : values_) {
        const auto isNamed = [&](const Option& option) { return option.name == name; };
        if (std::none_of(table.begin(), table.end(), isNamed)) {
            throw UsageError(std::string(command) + " has no option " + name);
        }
    }
    for (const Option& option : table) {
        if (option.occurrence != Occurrence::required || has(option.name)) continue;
        throw UsageError("option " + std::string(option.name) + " is required");
    }
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
