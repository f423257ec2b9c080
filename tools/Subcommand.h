#pragma once

#include <string_view>
#include <vector>

#include "CommandLine.h"

namespace quillkit {

/// One subcommand of `quillkit`: what its help says and what it does.
struct Subcommand {
    std::string_view name;
    /// How the operands are written in the help, such as "FILE"; empty for none.
    std::string_view operandNames;
    OperandCount operandCount;
    /// One line for the list of subcommands.
    std::string_view summary;
    /// What its own help says between the usage and the options; ends with a line feed.
    std::string_view description;
    std::vector<Option> options;
    /// Returns the exit status; throws `UsageError` or `Failure`.
    int (*run)(const Arguments& arguments);
};

[[nodiscard]] Subcommand collectCommand();
[[nodiscard]] Subcommand configCommand();
[[nodiscard]] Subcommand inspectCommand();
[[nodiscard]] Subcommand linkCommand();
[[nodiscard]] Subcommand probeCommand();
[[nodiscard]] Subcommand sendCommand();

}  // namespace quillkit
