#pragma once

#include "tools/cli/Subcommand.h"

namespace quillkit {

/// Every subcommand, in the order of the help.
[[nodiscard]] std::vector<Subcommand> allSubcommands();

[[nodiscard]] Subcommand collectCommand();
[[nodiscard]] Subcommand configCommand();
[[nodiscard]] Subcommand inspectCommand();
[[nodiscard]] Subcommand linkCommand();
[[nodiscard]] Subcommand probeCommand();
[[nodiscard]] Subcommand sendCommand();

}  // namespace quillkit
