#include <algorithm>

#include "testing/Subprocess.h"
#include <gtest/gtest.h>

namespace quillkit {
namespace {

using testing::Finished;
using testing::runToEnd;

Finished quillkit(std::vector<std::string> words) {
    words.insert(words.begin(), QUILLKIT_BINARY);
    return runToEnd(words);
}

TEST(CommandLine, AnswersWrongUseWithOneLineAndStatusTwo) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{}, "a subcommand is missing"},
        {{"fly"}, "unknown subcommand 'fly'"},
        {{"--port"}, "unknown subcommand '--port'"},
        {{"collect"}, "option --port is required"},
        {{"collect", "--port", "0"}, "option --state is required"},
        {{"collect", "--port"}, "option --port wants a value"},
        {{"collect", "--port", "65536", "--state", "s"},
         "--port wants a number from 0 to 65535, not '65536'"},
        {{"collect", "--port=", "--state", "s"}, "--port wants a number"},
        {{"collect", "--port", "8x", "--state", "s"}, "--port wants a number"},
        {{"collect", "--port", "1", "--port", "2"}, "option --port is given twice"},
        {{"collect", "--speed", "9"}, "unknown option --speed"},
        {{"collect", "--port", "0", "--state", "s", "more"}, "surplus operand 'more'"},
        {{"collect", "--port", "0", "--state", "s", "--answer", "100"}, "an answer's status wants a number"},
        {{"collect", "--port", "0", "--state", "s", "--answer", "dropp"},
         "an answer's status wants a number"},
        {{"collect", "--port", "0", "--state", "s", "--answer", "503:X"},
         "an answer's header is HEADER=VALUE"},
        {{"collect", "--port", "0", "--state", "s", "--answer", "503:A=b\r\nC=d"}, "an answer's header"},
        {{"collect", "--port", "0", "--state", "s", "--no-page", "--page-port", "0"},
         "--page-port and --no-page exclude each other"},
        {{"collect", "--port", "0", "--state", "s", "--page-port", "-1"}, "--page-port wants a number"},
        {{"inspect"}, "an operand is missing"},
        {{"inspect", "a", "b"}, "surplus operand 'b'"},
        {{"send", "--kit", "access", "--kit-version", "1"}, "an operand is missing"},
        {{"send", "money", "--kit", "access", "--kit-version", "1"}, "cannot send 'money'"},
        {{"send", "heartbeat", "--kit-version", "1"}, "a heartbeat wants --kit"},
        {{"send", "heartbeat", "--kit", "axes", "--kit-version", "1"}, "--kit wants a number"},
        {{"send", "heartbeat", "--kit", "1", "--kit-version", "1", "--wait", "-1"}, "--wait wants a number"},
        {{"send", "count"}, "count wants a name and at least one number"},
        {{"send", "count", "name"}, "count wants a name and at least one number"},
        {{"send", "count", "name", "1.5"}, "count wants a number"},
        {{"send", "count", "name", "9223372036854775808"}, "count wants a number"},
        {{"send", "latency", "name", "1", "two"}, "latency wants a number"},
        {{"send", "latency", "name", "-1"}, "unknown option -1"},
        {{"send", "latency-from", "name", "1,5"}, "SECONDS_AGO wants a number, not '1,5'"},
        {{"send", "count", "name", "1", "--repeat", "0"}, "--repeat wants a number from 1"},
        {{"send", "count", "name", "1", "--threads", "257"}, "--threads wants a number from 1 to 256"},
        {{"config"}, "an operand is missing"},
        {{"config", "forget"}, "cannot forget the configuration"},
        {{"config", "update", "now"}, "update takes no operand"},
        {{"config", "update", "--wait", "soon"}, "--wait wants a number"},
        {{"link"}, "an operand is missing"},
        {{"link", "selfie"}, "unknown feature 'selfie'"},
        {{"link", "camera", "preview"}, "surplus operand 'preview'"},
        {{"link", "camera", "--metadata", "[1]"}, "--metadata wants a JSON object, not '[1]'"},
        {{"link", "camera", "--payload", "{"}, "--payload wants a JSON object, not '{'"},
        {{"link", "camera", "--query", "lang"}, "--query wants K=V, not 'lang'"},
        {{"link", "camera", "--open=yes"}, "option --open takes no value"},
        {{"probe", "--verbose=yes"}, "option --verbose takes no value"},
        {{"probe", "--connect-to", "127.0.0.1"}, "--connect-to wants HOST:PORT"},
    };
    for (const auto& [words, reason] : cases) {
        SCOPED_TRACE(reason);
        const Finished finished = quillkit(words);
        EXPECT_EQ(finished.exitStatus, 2);
        EXPECT_EQ(finished.output, "");
        EXPECT_EQ(finished.errors.rfind("quillkit: " + reason, 0), 0U) << finished.errors;
        // One line feed, at the end; those of a hostile argument stay out of it.
        EXPECT_EQ(finished.errors.find('\n'), finished.errors.size() - 1) << finished.errors;
    }
}

TEST(CommandLine, HelpsAndNamesItsVersion) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"--help"}, "Usage: quillkit SUBCOMMAND"},
        {{"collect", "--help"}, "Usage: quillkit collect"},
        {{"inspect", "--help"}, "Usage: quillkit inspect [OPTION]... FILE"},
        {{"probe", "--help"}, "Usage: quillkit probe"},
        {{"config", "--help"}, "Usage: quillkit config [OPTION]... update | get NAME KEY..."},
        {{"link", "--help"}, "Usage: quillkit link [OPTION]... camera|oauth2|preview"},
        {{"send", "--help"}, "Usage: quillkit send [OPTION]... heartbeat"},
        {{"--version"}, "quillkit 1."},
    };
    for (const auto& [words, beginning] : cases) {
        const Finished finished = quillkit(words);
        EXPECT_EQ(finished.exitStatus, 0);
        EXPECT_EQ(finished.errors, "");
        EXPECT_EQ(finished.output.rfind(beginning, 0), 0U) << finished.output;
    }
}

TEST(CommandLine, TakesOperandsThatLookLikeOptionsBehindTwoDashes) {
    const Finished finished = quillkit({"inspect", "--", "--help"});
    EXPECT_EQ(finished.exitStatus, 1);
    EXPECT_EQ(finished.errors, "quillkit: cannot read --help\n");
}

}  // namespace
}  // namespace quillkit
