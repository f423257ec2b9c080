#include "tools/documents/Completions.h"

namespace quillkit {

namespace {

std::string quoted(std::string_view text) {
    std::string quotedText = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\') quotedText += '\\';
        quotedText += c;
    }
    return quotedText + "'";
}

std::string seen(std::string_view word) {
    return "__fish_seen_subcommand_from " + std::string(word);
}

std::string line(const std::string& condition, const std::string& rest) {
    return "complete -c quillkit -n " + quoted(condition) + " " + rest + "\n";
}

std::string candidatesFor(std::string_view valueName, std::string_view words) {
    if (valueName.starts_with("FILE")) return " -r -F";
    if (valueName.starts_with("DIR")) return " -x -a '(__fish_complete_directories)'";
    return words.empty() ? " -x" : " -x -a " + quoted(words);
}

std::string optionLines(const std::string& condition, std::span<const Option> options) {
    std::string text;
    for (const Option& option : options) {
        std::string rest = "-l " + std::string(option.name.substr(2));
        if (!option.valueName.empty()) rest += candidatesFor(option.valueName, option.words);
        text += line(condition, rest + " -d " + quoted(option.help));
    }
    return text;
}

}  // namespace

std::string fishCompletion(std::span<const Subcommand> subcommands) {
    std::string text =
        "# fish completion for quillkit\n"
        "complete -c quillkit -f\n"
        "complete -c quillkit -l help -d 'print the help'\n"
        "complete -c quillkit -n __fish_use_subcommand -l version -d 'print the version'\n";
    for (const Subcommand& subcommand : subcommands) {
        const std::string inside = seen(subcommand.name);
        text += line("__fish_use_subcommand",
                     "-a " + std::string(subcommand.name) + " -d " + quoted(subcommand.summary));
        const std::string words = firstOperands(subcommand);
        if (subcommand.operandNames.starts_with("FILE")) text += line(inside, "-F");
        if (!words.empty()) text += line(inside + "; and not " + seen(words), "-a " + quoted(words));
        text += optionLines(inside, subcommand.options);
        for (const Subcommand& action : subcommand.actions) {
            text += optionLines(inside + "; and " + seen(action.name), action.options);
        }
    }
    return text;
}

}  // namespace quillkit
