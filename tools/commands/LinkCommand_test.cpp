#include "tools/testing/HostApplication.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/network/QLSDKPayload.h"

namespace quillkit {
namespace {

using nlohmann::json;
using testing::Finished;
using testing::runToEnd;

Finished inspect(const std::string& link) {
    return runToEnd({QUILLKIT_BINARY, "inspect", link});
}

class LinkCommand : public ::testing::Test {
  protected:
    /// The link that `quillkit link` prints.
    [[nodiscard]] std::string link(std::vector<std::string> words) const {
        words.insert(words.begin(), "link");
        const Finished finished = host_.run(words);
        EXPECT_EQ(finished.exitStatus, 0) << finished.errors;
        EXPECT_EQ(finished.output.find('\n'), finished.output.size() - 1);
        return finished.output.substr(0, finished.output.find('\n'));
    }

    /// A link as Python reads it.
    [[nodiscard]] static json outsideView(const std::string& link) {
        const Finished python = runToEnd({"python3", QUILLKIT_TESTING_DIR "/read_link.py", link});
        EXPECT_EQ(python.exitStatus, 0) << python.errors;
        return json::parse(python.output, nullptr, false);
    }

    const testing::HostApplication host_;
};

TEST_F(LinkCommand, PrintsLinksThatOthersCanRead) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"camera"},
         R"({"base": "quillo://camera/1", "values": {"metadata": {"version": "1.3.4"}, "link": "client-7"}})"},
        // In base64 these texts make a "+" and a "/".
        {{"oauth2", "--metadata", R"({"text": "~~~\u00ff\u00be", "n": [1.5, true, null, {}]})", "--payload",
          "{}"},
         R"({"base": "quilloaccesskitv1://oauth2", "values": {"payload": {}, "link": "client-7",
             "metadata": {"text": "~~~\u00ff\u00be", "n": [1.5, true, null, {}], "version": "1.3.4"}}})"},
        {{"preview", "--payload", R"({"id": 9223372036854775807})", "--query", "a&b=c=d+e %", "--query",
          "empty="},
         R"({"base": "quillo://preview/1", "values": {"metadata": {"version": "1.3.4"}, "link": "client-7",
             "payload": {"id": 9223372036854775807}, "a&b": "c=d+e %", "empty": ""}})"},
    };
    for (const auto& [words, view] : cases) {
        SCOPED_TRACE(words[0]);
        EXPECT_EQ(outsideView(link(words)), json::parse(view));
    }
}

TEST_F(LinkCommand, AddsAFingerprintThatOpens) {
    const std::int64_t before = qlsdk::currentTimeMillis();
    const std::string first = link({"oauth2", "--fingerprint"});
    const std::string fingerprint = outsideView(first)["values"]["metadata"].value("fingerprint", "");
    const auto opened = qlsdk::openToken(fingerprint);
    ASSERT_TRUE(opened.has_value()) << fingerprint;
    EXPECT_EQ(opened->bundleIdentifier, "com.example.app");
    EXPECT_GE(opened->createdMillis, before);
    EXPECT_LE(opened->createdMillis, qlsdk::currentTimeMillis());

    EXPECT_THAT(inspect(first).output,
                ::testing::HasSubstr("    fingerprint: \"" + fingerprint +
                                     "\"\n  token: valid\n    bundle identifier: com.example.app\n"
                                     "    created: " +
                                     std::to_string(opened->createdMillis) + " ms since 1970, "));
    EXPECT_NE(link({"oauth2", "--fingerprint"}), first);
}

TEST_F(LinkCommand, SaysThatNothingHereOpensALink) {
    const Finished finished = host_.run({"link", "camera", "--open"});
    EXPECT_EQ(finished.exitStatus, 1);
    EXPECT_THAT(finished.output, ::testing::StartsWith("quillo://camera/1?"));
    EXPECT_TRUE(finished.output.ends_with("\nnot opened: nothing here opens such links\n"));
}

TEST_F(LinkCommand, ShowsWhatALinkHolds) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {link({"preview", "--metadata", R"({"source":"feed"})", "--payload", R"({"id":7})", "--query",
               "lang=en US"}),
         "link: quillo://preview/1\n"
         "  metadata: dictionary of 2 entries\n"
         "    source: \"feed\"\n"
         "    version: \"1.3.4\"\n"
         "  payload: dictionary of 1 entry\n"
         "    id: 7\n"
         "  lang: \"en US\"\n"
         "  link: \"client-7\"\n"},
        // {"fingerprint":"v2:(null)"}
        {"quillo://camera/1?metadata=eyJmaW5nZXJwcmludCI6InYyOihudWxsKSJ9#link=x",
         "link: quillo://camera/1\n"
         "  metadata: dictionary of 1 entry\n"
         "    fingerprint: \"v2:(null)\"\n"
         "  token: malformed\n"},
        {"quillo://?payload=e30&metadata=e30%3&%zz=%41+%&&=",
         "link: quillo://\n"
         "  payload: \"e30\", which is no base64 of JSON\n"
         "  metadata: \"e30%3\", which is no base64 of JSON\n"
         "  %zz: \"A+%\"\n"
         "  : \"\"\n"
         "  : \"\"\n"},
        {"quilloaccesskitv1://oauth2", "link: quilloaccesskitv1://oauth2\n"},
    };
    for (const auto& [url, tree] : cases) {
        SCOPED_TRACE(url);
        const Finished finished = inspect(url);
        EXPECT_EQ(finished.exitStatus, 0);
        EXPECT_EQ(finished.output, tree);
        EXPECT_EQ(finished.errors, "");
    }
}

}  // namespace
}  // namespace quillkit
