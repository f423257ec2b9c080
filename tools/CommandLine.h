#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quillkit {

/// How often an option may be given.
enum class Occurrence { optional, required, repeated };

/// One row of a subcommand's option table.
struct Option {
    /// With the dashes, such as "--port".
    std::string_view name;
    /// How the help names its value, such as "DIR"; empty for a flag, which takes none.
    std::string_view valueName;
    std::string_view help;
    Occurrence occurrence = Occurrence::optional;
};

/// Of the subcommands that print data.
inline constexpr Option kJsonOption{"--json", "", "prints one line of JSON instead of text"};

/// How many operands a subcommand takes.
struct OperandCount {
    std::size_t least = 0;
    std::size_t most = 0;
};

/// A decimal integer that lies within the bounds; `what` names it in the error.
/// Throws `UsageError` for anything else.
[[nodiscard]] std::int64_t integerArgument(std::string_view text, std::string_view what, std::int64_t lowest,
                                           std::int64_t highest);

/// What stood on the command line behind the subcommand's name.
class Arguments {
  public:
    /// Understands "--name VALUE", "--name=VALUE" and "--" before operands that begin with a dash. Throws
    /// `UsageError` for an option that the table does not have, a missing or surplus value, a single option
    /// given twice, a required one not given, or too few or too many operands.
    Arguments(std::span<const Option> table, OperandCount operandCount,
              std::span<const std::string_view> words);

    /// True when the option was given.
    [[nodiscard]] bool has(std::string_view name) const { return values_.contains(name); }
    /// The option's value; absent when it was not given.
    [[nodiscard]] std::optional<std::string> value(std::string_view name) const;
    /// The values of a repeated option in the order given.
    [[nodiscard]] std::vector<std::string> valuesOf(std::string_view name) const;
    [[nodiscard]] const std::vector<std::string>& operands() const noexcept { return operands_; }

  private:
    void add(const Option& option, std::string_view value);

    std::map<std::string, std::vector<std::string>, std::less<>> values_;
    std::vector<std::string> operands_;
};

/// The option tables one after the other, for a subcommand that shares options with others.
[[nodiscard]] std::vector<Option> joined(std::span<const Option> first, std::span<const Option> second);

/// One line for each option, values and help in columns.
[[nodiscard]] std::string describeOptions(std::span<const Option> table);

}  // namespace quillkit
