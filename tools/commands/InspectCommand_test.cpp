#include <algorithm>

#include "tools/inspect/Hex.h"
#include "tools/inspect/Outline.h"
#include "tools/testing/Subprocess.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wire/heartbeat.pb.h>

#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace quillkit {
namespace {

using testing::Finished;

/// Files made by another writer of the format, one directory for each test.
class InspectCommand : public ::testing::Test {
  protected:
    void SetUp() override {
        wire::Heartbeat heartbeat;
        heartbeat.set_client_id("abc");
        heartbeat.mutable_timestamp()->set_seconds(5);
        const std::string bytes = heartbeat.SerializeAsString();
        ASSERT_EQ(testing::runToEnd({"python3", QUILLKIT_TESTING_DIR "/make_archives.py", directory_.path(),
                                     hexOf(qlsdk::bytesOf(bytes))})
                      .exitStatus,
                  0);
    }

    [[nodiscard]] Finished inspect(const std::string& name, std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {QUILLKIT_BINARY, "inspect", directory_.path() + "/" + name});
        return testing::runToEnd(options);
    }

    qlsdk::platform::testing::TemporaryDirectories directory_;
};

TEST_F(InspectCommand, ShowsQueuedRecordsWithTheirMessages) {
    const Finished finished = inspect("queue");
    EXPECT_EQ(finished.exitStatus, 0);
    EXPECT_EQ(finished.output,
              "keyed archive: dictionary of 2 entries\n"
              "  unsent_events: array of 3 elements\n"
              "    -: record 42, first attempt to come\n"
              "      event: Heartbeat, 9 bytes\n"
              "        client_id: \"abc\"\n"
              "        timestamp {\n"
              "          seconds: 5\n"
              "        }\n"
              "    -: record 41, waits for its retry, counted 1, not before 1700000000000 ms since 1970\n"
              "      event: KitsOwnEvent, 4 bytes\n"
              "        1: 7\n"
              "        2: \"\"\n"
              "    -: record 40, first attempt to come\n"
              "      event: null\n"
              "  max_sequence_id: 42\n");
}

TEST_F(InspectCommand, ShowsConfigurationAndPropertyLists) {
    EXPECT_EQ(inspect("config").output,
              "keyed archive: dictionary of 1 entry\n"
              "  search: entity search: dictionary of 1 entry\n"
              "    enabled: true\n");
    EXPECT_EQ(inspect("binary-list").output,
              "property list: dictionary of 2 entries\n"
              "  QLSDKClientId: \"abc\\x1b[31m\"\n"
              "  QLSDKScopes: array of 5 elements\n"
              "    -: \"a\"\n"
              "    -: 1\n"
              "    -: 1.5\n"
              "    -: true\n"
              "    -: 2 bytes <00ff>\n");
    EXPECT_EQ(inspect("xml-list").output,
              "property list: dictionary of 1 entry\n"
              "  QLSDKClientId: \"xml\"\n");
}

TEST_F(InspectCommand, PrintsAnEndlessTreeOnlySoFar) {
    const Finished finished = inspect("endless");
    EXPECT_EQ(finished.exitStatus, 0);
    const auto lines = std::count(finished.output.begin(), finished.output.end(), '\n');
    EXPECT_EQ(lines, static_cast<std::ptrdiff_t>(Outline::kLineCeiling) + 1);
    EXPECT_TRUE(finished.output.ends_with("(cut after 5000 lines)\n"));
    // Half of a JSON text is of no use.
    const Finished asJson = inspect("endless", {"--json"});
    EXPECT_EQ(asJson.exitStatus, 1);
    EXPECT_EQ(asJson.output, "");
    EXPECT_THAT(asJson.errors, ::testing::HasSubstr("more than 100000 values"));
}

TEST_F(InspectCommand, PrintsTheSameAsJson) {
    EXPECT_EQ(inspect("config", {"--json"}).output,
              R"({"keyedArchive":{"search":{"entity":"search","config":{"enabled":true}}}})"
              "\n");
    EXPECT_EQ(inspect("binary-list", {"--json"}).output,
              R"({"propertyList":{"QLSDKClientId":"abc\u001b[31m",)"
              R"("QLSDKScopes":["a",1,1.5,true,{"data":"00ff"}]}})"
              "\n");
    const std::string queue = inspect("queue", {"--json"}).output;
    EXPECT_THAT(queue, ::testing::HasSubstr(R"("fields":{"clientId":"abc","timestamp":{"seconds":5}}})"));
    EXPECT_THAT(queue, ::testing::HasSubstr(R"({"sequenceId":41,"retries":1,"notBeforeMillis":1700000000000,)"
                                            R"("event":{"message":"KitsOwnEvent","bytes":"08071200",)"
                                            R"("rawFields":"1: 7\n2: \"\"\n"}})"));
}

TEST_F(InspectCommand, SaysInOneLineWhatItCannotRead) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"cut", "cut is neither a keyed archive of known classes nor a property list, or is damaged\n"},
        {"missing", "missing\n"},
        {"", "/\n"},
    };
    for (const auto& [name, end] : cases) {
        const Finished finished = inspect(name);
        EXPECT_EQ(finished.exitStatus, 1) << name;
        EXPECT_EQ(finished.output, "");
        EXPECT_THAT(finished.errors, ::testing::StartsWith("quillkit: "));
        EXPECT_TRUE(finished.errors.ends_with(end)) << finished.errors;
        EXPECT_EQ(std::count(finished.errors.begin(), finished.errors.end(), '\n'), 1);
    }
}

}  // namespace
}  // namespace quillkit
