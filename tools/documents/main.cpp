#include <fstream>
#include <iostream>
#include <sstream>

#include "tools/commands/Commands.h"
#include "tools/documents/Completions.h"
#include "tools/documents/Manual.h"
#include "tools/host/HostOptions.h"

/// quillkit_documents FILE (manual TEMPLATE | bash | zsh | fish): writes what the package installs beside the
/// program.
int main(int argc, char** argv) try {
    const std::vector<quillkit::Subcommand> subcommands = quillkit::allSubcommands();
    const std::string_view kind = argc > 2 ? argv[2] : "";
    std::string text;
    if (kind == "manual" && argc == 4) {
        std::ostringstream page;
        page << std::ifstream(argv[3]).rdbuf();
        text = quillkit::manual(page.str(), subcommands, quillkit::kHostOptions);
    } else if (kind == "bash") {
        text = quillkit::bashCompletion(subcommands);
    } else if (kind == "zsh") {
        text = quillkit::zshCompletion(subcommands);
    } else if (kind == "fish") {
        text = quillkit::fishCompletion(subcommands);
    } else {
        std::cerr << "usage: quillkit_documents FILE (manual TEMPLATE | bash | zsh | fish)\n";
        return 2;
    }
    std::ofstream file(argv[1]);
    file << text;
    return file.flush().good() ? 0 : 1;
} catch (const std::exception& error) {
    std::cerr << "quillkit_documents: " << error.what() << '\n';
    return 1;
}
