#include <algorithm>

#include "tools/testing/Subprocess.h"
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
         "--port wants a whole number from 0 to 65535, not '65536'"},
        {{"collect", "--port=", "--state", "s"}, "--port wants a whole number"},
        {{"collect", "--port", "8x", "--state", "s"}, "--port wants a whole number"},
        {{"collect", "--port", "1", "--port", "2"}, "option --port is given twice"},
        {{"collect", "--speed", "9"}, "unknown option --speed"},
        {{"collect", "--port", "0", "--state", "s", "more"}, "surplus operand 'more'"},
        {{"collect", "--port", "0", "--state", "s", "--answer", "100"},
         "an answer's status wants a whole number"},
        {{"collect", "--port", "0", "--state", "s", "--answer", "dropp"},
         "an answer's status wants a whole number"},
        {{"collect", "--port", "0", "--state", "s", "--answer", "503:X"},
         "an answer's header is HEADER=VALUE"},
        {{"collect", "--port", "0", "--state", "s", "--answer", "503:A=b\r\nC=d"}, "an answer's header"},
        {{"collect", "--port", "0", "--state", "s", "--no-page", "--page-port", "0"},
         "--page-port and --no-page exclude each other"},
        {{"collect", "--port", "0", "--state", "s", "--page-port", "-1"}, "--page-port wants a whole number"},
        {{"inspect"}, "an operand is missing"},
        {{"inspect", "a", "b"}, "surplus operand 'b'"},
        {{"send", "--kit", "access", "--kit-version", "1"}, "an operand is missing"},
        {{"send", "money", "--kit", "access", "--kit-version", "1"},
         "send knows no 'money', only heartbeat, count, latency, latency-from"},
        {{"send", "heartbeat", "--kit-version", "1"}, "option --kit is required"},
        {{"send", "heartbeat", "--kit", "acess", "--kit-version", "1"},
         "--kit, unless it is access, avatar, sharing or feed, wants a whole number from -2147483648 to "
         "2147483647, "
         "not 'acess'; did you mean access?"},
        {{"send", "count", "name", "1", "--kit", "access"}, "send count has no option --kit"},
        {{"send", "heartbeat", "--kit", "axes", "--kit-version", "1"},
         "--kit, unless it is access, avatar, sharing or feed, wants a whole number from -2147483648"},
        {{"send", "heartbeat", "--kit", "1", "--kit-version", "1", "--wait", "-1"},
         "--wait wants a whole number"},
        {{"send", "count"}, "an operand is missing: send count takes NAME N..."},
        {{"send", "count", "name"}, "an operand is missing: send count takes NAME N..."},
        {{"send", "count", "name", "1.5"}, "count wants a whole number"},
        {{"send", "count", "name", "9223372036854775808"}, "count wants a whole number"},
        {{"send", "latency", "name", "1", "two"}, "latency wants a whole number"},
        {{"send", "latency", "name", "-x"}, "unknown option -x"},
        {{"send", "latency-from", "name", "1,5"}, "SECONDS_AGO wants a number, not '1,5'"},
        {{"send", "count", "name", "1", "--repeat", "0"}, "--repeat wants a whole number from 1"},
        {{"send", "count", "name", "1", "--threads", "257"}, "--threads wants a whole number from 1 to 256"},
        {{"config"}, "an operand is missing"},
        {{"config", "forget"}, "config knows no 'forget', only update, get"},
        {{"config", "update", "now"}, "surplus operand 'now'"},
        {{"config", "update", "--wait", "soon"}, "--wait wants a whole number"},
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
        {{"config", "--help"},
         "Usage: quillkit config update [OPTION]...\n       quillkit config get [OPTION]... NAME KEY..."},
        {{"link", "--help"}, "Usage: quillkit link [OPTION]... camera|oauth2|preview"},
        {{"send", "--help"},
         "Usage: quillkit send heartbeat [OPTION]...\n       quillkit send count [OPTION]... NAME N..."},
        {{"send", "latency-from", "--help"},
         "Usage: quillkit send latency-from [OPTION]... NAME SECONDS_AGO..."},
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
    EXPECT_EQ(quillkit({"inspect", "[a,b]"}).errors, "quillkit: cannot read [a,b]\n");
}

}  // namespace
}  // namespace quillkit
