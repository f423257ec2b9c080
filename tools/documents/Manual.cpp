#include "tools/documents/Manual.h"

#include <algorithm>
#include <sstream>

#include "tools/cli/Failure.h"

namespace quillkit {

namespace {

std::string lowered(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        // Between words; the macro language would take it for a second argument.
        if (c == ' ') c = '-';
    }
    return lower;
}

std::string optionWords(const Option& option) {
    std::string text = "Fl Fl " + std::string(option.name.substr(2));
    if (!option.valueName.empty()) text += " Ar " + lowered(option.valueName);
    return text;
}

bool contains(std::span<const Option> options, const Option& option) {
    return std::any_of(options.begin(), options.end(),
                       [&](const Option& other) { return other.name == option.name; });
}

/// The actions that understand the option, where others of the subcommand do not.
std::string actionsLine(const Subcommand& subcommand, const Option& option) {
    std::string names;
    std::size_t count = 0;
    for (const Subcommand& action : subcommand.actions) {
        if (!contains(action.options, option)) continue;
        names += (names.empty() ? " " : " , ") + std::string(action.name);
        ++count;
    }
    return count == subcommand.actions.size() ? "" : "Only with\n.Cm" + names + " .\n";
}

std::string listOf(const Subcommand& subcommand, std::span<const Option> options) {
    std::string text = ".Bl -tag -width Ds\n";
    for (const Option& option : options) {
        std::string help(option.help);
        if (help[0] >= 'a' && help[0] <= 'z') help[0] = static_cast<char>(help[0] - 'a' + 'A');
        text += ".It " + optionWords(option) + "\n" + help + ".\n" + actionsLine(subcommand, option);
    }
    return text + ".El\n";
}

/// "NAME N..." is a name and any number of numbers; "FILE|LINK" is one of two.
std::string operandLines(std::string_view names) {
    std::istringstream words{std::string(names)};
    std::string text;
    for (std::string word; words >> word;) {
        const bool repeats = word.ends_with("...");
        if (repeats) word.resize(word.size() - 3);
        text += ".Ar " + lowered(word) + (repeats ? " ...\n" : "\n");
    }
    return text;
}

std::string synopsisOf(const std::string& name, const Subcommand& subcommand,
                       std::span<const Option> shared) {
    std::string text = ".Nm\n.Cm " + name + "\n";
    bool takesShared = false;
    for (const Option& option : subcommand.options) {
        if (contains(shared, option)) {
            takesShared = true;
        } else {
            text += (option.occurrence == Occurrence::required ? "." : ".Op ") + optionWords(option) + "\n";
        }
    }
    if (takesShared) text += ".Op Ar host options\n";
    return text + operandLines(subcommand.operandNames);
}

std::string synopsis(std::span<const Subcommand> subcommands, std::span<const Option> shared) {
    std::string text;
    for (const Subcommand& subcommand : subcommands) {
        const std::string name(subcommand.name);
        if (subcommand.actions.empty()) text += synopsisOf(name, subcommand, shared);
        for (const Subcommand& action : subcommand.actions) {
            text += synopsisOf(name + " " + std::string(action.name), action, shared);
        }
    }
    return text + ".Nm\n.Op Ar subcommand\n.Fl Fl help\n.Nm\n.Fl Fl version\n";
}

std::string optionsOf(std::string_view name, std::span<const Subcommand> subcommands,
                      std::span<const Option> shared) {
    if (name == "host") return listOf({}, shared);
    const auto found = std::find_if(subcommands.begin(), subcommands.end(),
                                    [&](const Subcommand& s) { return s.name == name; });
    if (found == subcommands.end()) throw Failure("no subcommand " + std::string(name));
    std::vector<Option> options = allOptions(*found);
    std::erase_if(options, [&](const Option& option) {
        return contains(shared, option) || option.name == kJsonOption.name;
    });
    return listOf(*found, options);
}

}  // namespace

std::string manual(std::string_view text, std::span<const Subcommand> subcommands,
                   std::span<const Option> shared) {
    constexpr std::string_view kOptions = "@OPTIONS ";
    std::istringstream lines{std::string(text)};
    std::string page;
    for (std::string line; std::getline(lines, line);) {
        if (line == "@SYNOPSIS@") {
            page += synopsis(subcommands, shared);
        } else if (line.starts_with(kOptions) && line.ends_with('@')) {
            const std::string_view name(line);
            page += optionsOf(name.substr(kOptions.size(), name.size() - kOptions.size() - 1), subcommands,
                              shared);
        } else {
            page += line + "\n";
        }
    }
    return page;
}

}  // namespace quillkit
