#pragma once

#include <span>
#include <string>

#include "tools/cli/Subcommand.h"

namespace quillkit {

// What each shell sources to complete the words of a `quillkit` command line.

[[nodiscard]] std::string bashCompletion(std::span<const Subcommand> subcommands);
[[nodiscard]] std::string zshCompletion(std::span<const Subcommand> subcommands);
[[nodiscard]] std::string fishCompletion(std::span<const Subcommand> subcommands);

}  // namespace quillkit
