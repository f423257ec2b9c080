#include <algorithm>
#include <exception>
#include <iostream>
#include <string>

#include "Failure.h"
#include "Subcommand.h"

#include "QLSDKCoreKit/platform/Log.h"

namespace {

using quillkit::Subcommand;

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

std::string overview(const std::vector<Subcommand>& subcommands) {
    std::string text =
        "Usage: quillkit SUBCOMMAND [OPTION]...\n"
        "       quillkit --help | --version\n"
        "\n"
        "The workbench of QLSDKCoreKit: a local server for the kit, a client, and a reader of its files.\n"
        "\n"
        "Subcommands (each has a --help of its own):\n";
    for (const Subcommand& subcommand : subcommands) {
        std::string line = "  " + std::string(subcommand.name);
        line.resize(12, ' ');
        text += line + std::string(subcommand.summary) + "\n";
    }
    return text + "\nExit status: 0 done, 1 failed, 2 wrong usage.\n";
}

std::string helpOf(const Subcommand& subcommand) {
    std::string text = "Usage: quillkit " + std::string(subcommand.name) + " [OPTION]...";
    if (!subcommand.operandNames.empty()) text += " " + std::string(subcommand.operandNames);
    text += "\n\n" + std::string(subcommand.description) + "\nOptions:\n";
    return text + describeOptions(subcommand.options) + "  --help                      print this text\n";
}

/// True for a "--help" that stands as an option, not as an operand behind "--".
bool asksForHelp(std::span<const std::string_view> words) {
    const auto end = std::find(words.begin(), words.end(), "--");
    return std::find(words.begin(), end, "--help") != end;
}

int run(std::span<const std::string_view> words) {
    const std::vector<Subcommand> subcommands{quillkit::collectCommand(), quillkit::sendCommand(),
                                              quillkit::configCommand(),  quillkit::linkCommand(),
                                              quillkit::probeCommand(),   quillkit::inspectCommand()};
    if (words.empty()) throw quillkit::UsageError("a subcommand is missing");
    if (words[0] == "--help") {
        std::cout << overview(subcommands);
        return 0;
    }
    if (words[0] == "--version") {
        std::cout << "quillkit " QUILLKIT_VERSION "\n";
        return 0;
    }
    const auto found = std::find_if(subcommands.begin(), subcommands.end(),
                                    [&](const Subcommand& s) { return s.name == words[0]; });
    if (found == subcommands.end()) {
        throw quillkit::UsageError("unknown subcommand '" + std::string(words[0]) + "'");
    }
    if (asksForHelp(words.subspan(1))) {
        std::cout << helpOf(*found);
        return 0;
    }
    return found->run(quillkit::Arguments(found->options, found->operandCount, words.subspan(1)));
}

/// A pipe that the reader closed and a full disk are failures, not silence.
int flushed(int status) {
    std::cout.flush();
    if (std::cout.good()) return status;
    throw quillkit::Failure("cannot write to standard output");
}

/// On one line, whatever the argument that it repeats holds.
void printError(std::string_view reason) {
    std::cerr << "quillkit: " << qlsdk::platform::escapedForLog(reason) << '\n';
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const std::vector<std::string_view> words(argv + std::min(argc, 1), argv + argc);
        return flushed(run(words));
    } catch (const quillkit::UsageError& error) {
        printError(std::string(error.what()) + " (see quillkit --help)");
        return kExitUsage;
    } catch (const std::exception& error) {
        printError(error.what());
        return kExitFailure;
    }
}
