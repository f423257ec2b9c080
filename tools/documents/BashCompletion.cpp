#include <map>

#include "tools/documents/Completions.h"

namespace quillkit {

namespace {

/// "'send heartbeat') WORDS": what one case of the shell's `case` offers.
std::string caseOf(const std::string& pattern, const std::string& command) {
    return "        " + pattern + ") " + command + " ;;\n";
}

std::string offer(std::string_view words) {
    return "_quillkit_offer -W '" + std::string(words) + "'";
}

std::string namesOf(std::span<const Option> options) {
    std::string names;
    for (const Option& option : options) names += std::string(option.name) + " ";
    return names + "--help";
}

std::string offerFor(std::string_view valueName, std::string_view words) {
    if (valueName.starts_with("FILE")) return "_quillkit_offer -f";
    if (valueName.starts_with("DIR")) return "_quillkit_offer -d";
    return words.empty() ? ":" : offer(words);
}

std::string valueCases(std::span<const Subcommand> subcommands) {
    std::map<std::string_view, std::string> offers;
    for (const Subcommand& subcommand : subcommands) {
        for (const Option& option : allOptions(subcommand)) {
            if (!option.valueName.empty()) offers[option.name] = offerFor(option.valueName, option.words);
        }
    }
    std::string text;
    for (const auto& [name, command] : offers) text += caseOf(std::string(name), command);
    return text;
}

std::string operandCases(std::span<const Subcommand> subcommands) {
    std::string text;
    for (const Subcommand& subcommand : subcommands) {
        const std::string words = firstOperands(subcommand);
        const std::string command = offerFor(subcommand.operandNames, words);
        if (command != ":") text += caseOf("'" + std::string(subcommand.name) + " '", command);
    }
    return text;
}

std::string optionCases(std::span<const Subcommand> subcommands) {
    std::string text;
    for (const Subcommand& subcommand : subcommands) {
        const std::string name(subcommand.name);
        for (const Subcommand& action : subcommand.actions) {
            text += caseOf("'" + name + " " + std::string(action.name) + "'", offer(namesOf(action.options)));
        }
        text += caseOf("'" + name + " '*", offer(namesOf(allOptions(subcommand))));
    }
    return text;
}

}  // namespace

std::string bashCompletion(std::span<const Subcommand> subcommands) {
    std::string names;
    std::string actions;
    for (const Subcommand& subcommand : subcommands) {
        names += std::string(subcommand.name) + " ";
        for (const Subcommand& action : subcommand.actions) {
            if (!actions.empty()) actions += " | ";
            actions += "'" + std::string(subcommand.name) + " " + std::string(action.name) + "'";
        }
    }
    return R"(# bash completion for quillkit

# _quillkit_offer FLAG...: what `compgen` makes of the flags and the word under the cursor.
_quillkit_offer() {
    mapfile -t COMPREPLY < <(compgen "$@" -- "$_quillkit_word")
}

# Fails for a word that takes no value.
_quillkit_value() {
    case $1 in
)" + valueCases(subcommands) +
           R"(        *) return 1 ;;
    esac
}

_quillkit_operand() {
    case $1 in
)" + operandCases(subcommands) +
           R"(    esac
}

_quillkit_option() {
    case $1 in
)" + optionCases(subcommands) +
           R"(    esac
}

_quillkit() {
    local _quillkit_word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command="${COMP_WORDS[1]} "
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        )" +
           offer(names + "--help --version") +
           R"(
        return
    fi
    if [ "$COMP_CWORD" -gt 2 ]; then
        case "$command${COMP_WORDS[2]}" in
            )" +
           actions +
           R"() command+=${COMP_WORDS[2]} ;;
        esac
    fi
    _quillkit_value "$previous" && return
    if [[ $_quillkit_word == -* ]]; then
        _quillkit_option "$command"
    else
        _quillkit_operand "$command"
    fi
}

# Files are completed by bash itself, which knows how to quote them.
complete -o filenames -F _quillkit quillkit
)";
}

}  // namespace quillkit
