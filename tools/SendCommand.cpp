#include "Failure.h"
#include "HostOptions.h"
#include "SendActions.h"
#include "Subcommand.h"

namespace quillkit {

namespace {

constexpr std::array<Option, 7> kSendOptions{
    {{"--kit", "KIT", "of a heartbeat: access, avatar, sharing, feed or a number"},
     {"--kit-version", "VERSION", "of a heartbeat: the kit's version"},
     {"--repeat", "K", "of metrics: records each value so many times on each thread; 1 without it"},
     {"--threads", "T", "of metrics: records from so many threads at once; 1 without it"},
     {"--wait", "SECONDS", "how long to wait for the outcome; 10 without it"},
     {"--stay", "", "of a heartbeat: goes on running until the time of --wait is over"},
     kJsonOption}};

int send(const Arguments& arguments) {
    const std::string& what = arguments.operands().front();
    if (what == "heartbeat") return sendHeartbeat(arguments);
    if (what == "count" || what == "latency" || what == "latency-from") return sendMetrics(arguments);
    throw UsageError("cannot send '" + what + "', only heartbeat, count, latency and latency-from");
}

}  // namespace

std::chrono::seconds waitArgument(const Arguments& arguments) {
    const std::string text = arguments.value("--wait").value_or(std::to_string(kDefaultWaitSeconds));
    return std::chrono::seconds(integerArgument(text, "--wait", 0, 3600));
}

Subcommand sendCommand() {
    return {
        .name = "send",
        .operandNames = "heartbeat | count NAME N... | latency NAME MS... | latency-from NAME SECONDS_AGO...",
        .operandCount = {1, SIZE_MAX},
        .summary = "sends heartbeats and metrics as a host application would, and says what became of them",
        .description =
            "A heartbeat wants --kit and --kit-version. A metric is recorded once for each number; ten of\n"
            "them make an upload, fewer wait on disk for the next. Negative numbers come behind \"--\".\n"
            "\n"
            "Exit status 0 when all that was sent was accepted (answered 200, or 403, which is final), is\n"
            "not due or waits on disk for its first upload; 1 when something is kept for its retry, lost or\n"
            "still under way.\n",
        .options = joined(kSendOptions, kHostOptions),
        .run = send};
}

}  // namespace quillkit
