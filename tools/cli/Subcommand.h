#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/cli/CommandLine.h"

namespace quillkit {

/// One subcommand of `quillkit`, or one action of such. This table is all that the parser, the help, the
/// manual and the completions know.
struct Subcommand {
    std::string_view name;
    /// How the operands are written in the help, such as "FILE"; empty for none.
    std::string_view operandNames = {};
    OperandCount operandCount = {};
    /// What a shell offers for an operand, with spaces between.
    std::string_view operandWords = {};
    /// One line for the list of subcommands; an action has none.
    std::string_view summary = {};
    /// What its own help says between the usage and the options; ends with a line feed.
    std::string_view description = {};
    /// Those of this action, or of a subcommand without actions.
    std::vector<Option> options = {};
    /// Returns the exit status; throws `UsageError` or `Failure`.
    int (*run)(const Arguments& arguments) = nullptr;
    /// What the first operand chooses from; a subcommand that has any has no options and no `run` of its own.
    std::vector<Subcommand> actions = {};
};

/// The options of the subcommand and of its actions, each once.
[[nodiscard]] std::vector<Option> allOptions(const Subcommand& subcommand);

/// The names of the actions, or else the words offered for an operand, with spaces between.
[[nodiscard]] std::string firstOperands(const Subcommand& subcommand);

/// Reads the words behind the subcommand's name and runs it, or prints the help that they ask for. Returns
/// the exit status; throws `UsageError` or `Failure`.
[[nodiscard]] int runSubcommand(const Subcommand& subcommand, std::span<const std::string_view> words);

}  // namespace quillkit
