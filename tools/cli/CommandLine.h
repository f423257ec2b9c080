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
    /// Values that a shell offers, with spaces between. It completes files for "FILE" and folders for "DIR".
    std::string_view words = {};
};

/// Of the subcommands that print data.
inline constexpr Option kJsonOption{"--json", "", "prints one line of JSON instead of text"};

/// How many operands a subcommand takes.
struct OperandCount {
    std::size_t least = 0;
    std::size_t most = 0;
};

/// A decimal integer that lies within the bounds. `what` names the option or operand in the error, which also
/// tells the bounds and the text. Throws `UsageError` for anything else.
[[nodiscard]] std::int64_t integerArgument(std::string_view text, std::string_view what, std::int64_t lowest,
                                           std::int64_t highest);

/// A decimal number. Throws `UsageError` for anything else; `what` names it there.
[[nodiscard]] double numberArgument(std::string_view text, std::string_view what);

/// The name among `names`, which have spaces between, that `text` was probably meant to be; empty when none
/// is close.
[[nodiscard]] std::string_view nearestName(std::string_view names, std::string_view text);

/// What stood on the command line behind the subcommand's name.
class Arguments {
  public:
    /// Understands "--name VALUE", "--name=VALUE" and "--" before operands that begin with a dash. Throws
    /// `UsageError` for an option that the table does not have, a missing or surplus value, or a single
    /// option given twice.
    Arguments(std::span<const Option> table, std::span<const std::string_view> words);

    /// Throws `UsageError` when an option was given that `command`, whose table this is, does not have, when
    /// a required one was not, or when there are too few or too many operands.
    void check(std::string_view command, std::span<const Option> table, OperandCount operandCount,
               std::string_view operandNames) const;
    /// The first operand named an action and is none of its own.
    void removeFirstOperand() { operands_.erase(operands_.begin()); }

    /// True when "--help" stood there as an option.
    [[nodiscard]] bool asksForHelp() const noexcept { return asksForHelp_; }
    /// True when the option was given.
    [[nodiscard]] bool has(std::string_view name) const { return values_.contains(name); }
    /// The option's value; absent when it was not given.
    [[nodiscard]] std::optional<std::string> value(std::string_view name) const;
    /// The values of a repeated option in the order given.
    [[nodiscard]] std::vector<std::string> valuesOf(std::string_view name) const;
    [[nodiscard]] const std::vector<std::string>& operands() const noexcept { return operands_; }

  private:
    std::map<std::string, std::vector<std::string>, std::less<>> values_;
    std::vector<std::string> operands_;
    bool asksForHelp_ = false;
};

/// The option tables one after the other, for a subcommand that shares options with others.
[[nodiscard]] std::vector<Option> joined(std::span<const Option> first, std::span<const Option> second);

/// One line for each option, values and help in columns.
[[nodiscard]] std::string describeOptions(std::span<const Option> table);

}  // namespace quillkit
