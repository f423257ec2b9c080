#include <algorithm>
#include <exception>
#include <iostream>
#include <string>

#include "tools/cli/Failure.h"
#include "tools/commands/Commands.h"

#include "QLSDKCoreKit/platform/Diagnostics.h"
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

/// On one line, whatever the argument that it repeats holds.
void printError(std::string_view reason) {
    std::cerr << "quillkit: " << qlsdk::platform::escapedForLog(reason) << '\n';
}

/// Why the library could not do what was asked of it, each thing once.
void printDiagnostics() {
    for (const qlsdk::platform::Diagnostic& diagnostic : qlsdk::platform::diagnostics()) {
        // The workbench is for development; what receives its tokens says which key they have.
        if (diagnostic.kind == qlsdk::platform::DiagnosticKind::developmentKey) continue;
        std::string line = diagnosticLine(diagnostic);
        if (diagnostic.times > 1) line += " (" + std::to_string(diagnostic.times) + " times)";
        printError(line);
    }
}

int run(std::span<const std::string_view> words) {
    const std::vector<Subcommand> subcommands = quillkit::allSubcommands();
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
    return runSubcommand(*found, words.subspan(1));
}

/// A pipe that the reader closed and a full disk are failures, not silence.
int flushed(int status) {
    std::cout.flush();
    if (std::cout.good()) return status;
    throw quillkit::Failure("cannot write to standard output");
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const std::vector<std::string_view> words(argv + std::min(argc, 1), argv + argc);
        const int status = flushed(run(words));
        printDiagnostics();
        return status;
    } catch (const quillkit::UsageError& error) {
        printError(std::string(error.what()) + " (see quillkit --help)");
        return kExitUsage;
    } catch (const std::exception& error) {
        printDiagnostics();
        printError(error.what());
        return kExitFailure;
    }
}
