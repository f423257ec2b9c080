#include "tools/commands/Commands.h"

namespace quillkit {

std::vector<Subcommand> allSubcommands() {
    return {collectCommand(), sendCommand(),  configCommand(),
            linkCommand(),    probeCommand(), inspectCommand()};
}

}  // namespace quillkit
