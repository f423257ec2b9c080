#include "tools/cli/Subcommand.h"

#include <algorithm>
#include <iostream>

#include "tools/cli/Failure.h"

namespace quillkit {

namespace {

std::string usageOf(const std::string& name, std::string_view operandNames) {
    std::string text = "quillkit " + name + " [OPTION]...";
    if (!operandNames.empty()) text += " " + std::string(operandNames);
    return text + "\n";
}

std::string usageOf(const Subcommand& subcommand) {
    const std::string name(subcommand.name);
    if (subcommand.actions.empty()) return "Usage: " + usageOf(name, subcommand.operandNames);
    std::string text;
    for (const Subcommand& action : subcommand.actions) {
        text += text.empty() ? "Usage: " : "       ";
        text += usageOf(name + " " + std::string(action.name), action.operandNames);
    }
    return text;
}

std::string helpOf(std::string_view usage, std::string_view description, std::span<const Option> options) {
    return std::string(usage) + "\n" + std::string(description) + "\nOptions:\n" + describeOptions(options) +
           "  --help                      print this text\n";
}

const Subcommand* actionNamed(const Subcommand& subcommand, std::string_view name) {
    const auto found = std::find_if(subcommand.actions.begin(), subcommand.actions.end(),
                                    [&](const Subcommand& action) { return action.name == name; });
    return found == subcommand.actions.end() ? nullptr : &*found;
}

/// "update get" is "update, get".
std::string listed(std::string_view words) {
    std::string text;
    for (const char c : words) text += c == ' ' ? std::string(", ") : std::string(1, c);
    return text;
}

int runAction(const Subcommand& subcommand, Arguments arguments) {
    const std::string word = arguments.operands().empty() ? "" : arguments.operands().front();
    const Subcommand* action = actionNamed(subcommand, word);
    if (action == nullptr && arguments.asksForHelp()) {
        std::cout << helpOf(usageOf(subcommand), subcommand.description, allOptions(subcommand));
        return 0;
    }
    if (arguments.operands().empty()) throw UsageError("an operand is missing");
    if (action == nullptr) {
        throw UsageError(std::string(subcommand.name) + " knows no '" + word + "', only " +
                         listed(firstOperands(subcommand)));
    }
    const std::string name = std::string(subcommand.name) + " " + word;
    if (arguments.asksForHelp()) {
        const std::string_view description =
            action->description.empty() ? subcommand.description : action->description;
        std::cout << helpOf("Usage: " + usageOf(name, action->operandNames), description, action->options);
        return 0;
    }
    arguments.removeFirstOperand();
    arguments.check(name, action->options, action->operandCount, action->operandNames);
    return action->run(arguments);
}

}  // namespace

std::vector<Option> allOptions(const Subcommand& subcommand) {
    std::vector<Option> all = subcommand.options;
    for (const Subcommand& action : subcommand.actions) {
        for (const Option& option : action.options) {
            const auto isSame = [&](const Option& other) { return other.name == option.name; };
            if (std::none_of(all.begin(), all.end(), isSame)) all.push_back(option);
        }
    }
    return all;
}

std::string firstOperands(const Subcommand& subcommand) {
    std::string names(subcommand.operandWords);
    for (const Subcommand& action : subcommand.actions) {
        names += (names.empty() ? "" : " ") + std::string(action.name);
    }
    return names;
}

int runSubcommand(const Subcommand& subcommand, std::span<const std::string_view> words) {
    Arguments arguments(allOptions(subcommand), words);
    if (!subcommand.actions.empty()) return runAction(subcommand, std::move(arguments));
    if (arguments.asksForHelp()) {
        std::cout << helpOf(usageOf(subcommand), subcommand.description, subcommand.options);
        return 0;
    }
    arguments.check(subcommand.name, subcommand.options, subcommand.operandCount, subcommand.operandNames);
    return subcommand.run(arguments);
}

}  // namespace quillkit
