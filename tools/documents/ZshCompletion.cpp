#include "tools/documents/Completions.h"

namespace quillkit {

namespace {

/// Within single quotes, where `special` characters mean something to the shell's completion.
std::string quoted(std::string_view text, std::string_view special) {
    std::string quotedText;
    for (const char c : text) {
        if (special.find(c) != std::string_view::npos) quotedText += '\\';
        quotedText += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quotedText;
}

std::string completionFor(std::string_view valueName, std::string_view words) {
    if (valueName.starts_with("FILE")) return "_files";
    if (valueName.starts_with("DIR")) return "_files -/";
    return words.empty() ? " " : "(" + quoted(words, ":") + ")";
}

std::string specification(const Option& option) {
    std::string text = "            '";
    if (option.occurrence == Occurrence::repeated) text += "*";
    text += std::string(option.name) + "[" + quoted(option.help, "[]") + "]";
    if (!option.valueName.empty()) {
        text += ":" + quoted(option.valueName, ":") + ":" + completionFor(option.valueName, option.words);
    }
    return text + "' \\\n";
}

/// `depth`: how many words stand before the options.
std::string caseOf(const std::string& pattern, int depth, std::span<const Option> options,
                   std::string_view operandNames, const std::string& operandWords) {
    std::string text = "        " + pattern + ")\n        shift " + std::to_string(depth) +
                       " words; (( CURRENT -= " + std::to_string(depth) + " ))\n        _arguments \\\n";
    for (const Option& option : options) text += specification(option);
    return text + "            '--help[print the help]' \\\n            '*:operand:" +
           completionFor(operandNames, operandWords) + "' ;;\n";
}

}  // namespace

std::string zshCompletion(std::span<const Subcommand> subcommands) {
    std::string cases;
    std::string names;
    for (const Subcommand& subcommand : subcommands) {
        const std::string name(subcommand.name);
        names += "            '" + name + ":" + quoted(subcommand.summary, ":") + "'\n";
        for (const Subcommand& action : subcommand.actions) {
            cases += caseOf("'" + name + " " + std::string(action.name) + "'", 2, action.options,
                            action.operandNames, "");
        }
        cases += caseOf("'" + name + " '*", 1, allOptions(subcommand), subcommand.operandNames,
                        firstOperands(subcommand));
    }
    return R"(#compdef quillkit

_quillkit() {
    if (( CURRENT == 2 )); then
        local -a subcommands=(
)" + names +
           R"(        )
        _describe subcommand subcommands
        compadd -- --help --version
        return
    fi
    local action=
    (( CURRENT > 3 )) && action=$words[3]
    case "$words[2] $action" in
)" + cases +
           R"(    esac
}

_quillkit "$@"
)";
}

}  // namespace quillkit
