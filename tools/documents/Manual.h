#pragma once

#include <span>
#include <string>
#include <string_view>

#include "tools/cli/Subcommand.h"

namespace quillkit {

/// The manual: the template with "@SYNOPSIS@" and "@OPTIONS NAME@" replaced, each on a line of its own, by
/// what the table says of every subcommand, of the one of that name, or for "host" of `shared`. The lists of
/// the subcommands leave `shared` and "--json" out, which the template explains once for all.
[[nodiscard]] std::string manual(std::string_view text, std::span<const Subcommand> subcommands,
                                 std::span<const Option> shared);

}  // namespace quillkit
