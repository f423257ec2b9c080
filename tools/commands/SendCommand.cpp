#include "tools/commands/Commands.h"
#include "tools/commands/SendActions.h"

namespace quillkit {

namespace {

std::vector<Subcommand> sendActions() {
    std::vector<Subcommand> actions = metricActions();
    actions.insert(actions.begin(), heartbeatAction());
    return actions;
}

}  // namespace

std::chrono::seconds waitArgument(const Arguments& arguments) {
    constexpr const char* kDefaultSeconds = "10";
    const std::string text = arguments.value(kWaitOption.name).value_or(kDefaultSeconds);
    return std::chrono::seconds(integerArgument(text, kWaitOption.name, 0, 3600));
}

Subcommand sendCommand() {
    return {
        .name = "send",
        .summary = "sends heartbeats and metrics as a host application would, and says what became of them",
        .description =
            "A metric is recorded once for each number; ten of them make an upload, fewer wait on disk for\n"
            "the next.\n"
            "\n"
            "Exit status 0 when all that was sent was accepted (answered 200, or 403, which is final), is\n"
            "not due or waits on disk for its first upload; 1 when something is kept for its retry, lost or\n"
            "still under way.\n",
        .actions = sendActions()};
}

}  // namespace quillkit
