#include <filesystem>

#include "tools/testing/HostApplication.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/Files.h"

namespace quillkit {
namespace {

namespace fs = std::filesystem;
using nlohmann::ordered_json;
using testing::Finished;
using testing::RunningCollector;

constexpr const char* kConfig = R"({
    "search": {"on": true, "limit": -9007199254740993, "ratio": 0.25, "name": "Zo\u00eb", "deep": {"x": {"y": 7}}},
    "other": {}})";

class ConfigCommand : public ::testing::Test {
  protected:
    [[nodiscard]] Finished update(const RunningCollector& collector) const {
        return host_.run(collector, {"config", "update", "--wait", "60"});
    }
    /// Fetches the configuration and keeps a copy of the file that the host got.
    void fetch() const {
        const RunningCollector collector(
            {"--config", testing::writeFile(directory_.path() + "/config.json", kConfig)});
        const Finished updated = update(collector);
        ASSERT_EQ(updated.output, "success: stored until it is read once\n") << updated.errors;
        ASSERT_EQ(updated.exitStatus, 0);
        ASSERT_TRUE(fs::copy_file(stored_, copy_));
    }
    void restore() const { fs::copy_file(copy_, stored_, fs::copy_options::overwrite_existing); }

    [[nodiscard]] Finished get(std::vector<std::string> words) const {
        words.insert(words.begin(), {"config", "get"});
        return host_.run(words);
    }

    const testing::HostApplication host_;
    const qlsdk::platform::testing::TemporaryDirectories directory_;
    const std::string stored_ = host_.cacheFile("qlsdk-dynamic-config.plist");
    const std::string copy_ = directory_.path() + "/copy";
};

TEST_F(ConfigCommand, AsksTheServiceForTheConfigurationOfItsVersion) {
    const RunningCollector collector;
    EXPECT_EQ(update(collector).exitStatus, 0);
    ASSERT_EQ(collector.logged().size(), 1U);
    const ordered_json line = collector.logged()[0];
    EXPECT_EQ(line["method"], "POST");
    EXPECT_EQ(line["path"], "/v1/config");
    EXPECT_EQ(line["headers"]["Content-Type"], "application/json;charset=utf-8");
    EXPECT_EQ(line["token"]["state"], "valid");
    EXPECT_EQ(line["message"]["variables"], ordered_json::parse(R"({"kitVersion":"1.3.4"})"));
    EXPECT_EQ(
        line["message"]["query"],
        "query($kitVersion: String!) {config(kitVersion: $kitVersion) {avatoonLearnedSearch{enabled}}}");
}

TEST_F(ConfigCommand, ReadsAConfigurationOnce) {
    ASSERT_NO_FATAL_FAILURE(fetch());
    const std::vector<std::string> words{"search", "on", "--type", "bool", "--default", "false"};
    const Finished first = get(words);
    EXPECT_EQ(first.output, "true\n");
    EXPECT_EQ(first.errors, "");
    EXPECT_EQ(first.exitStatus, 0);
    EXPECT_FALSE(fs::exists(stored_));
    const Finished second = get(words);
    EXPECT_EQ(second.output, "false\n");
    EXPECT_EQ(second.errors, "quillkit: no configuration 'search' is stored\n");
    EXPECT_EQ(second.exitStatus, 0);
}

TEST_F(ConfigCommand, PrintsAValueOfTheTypeOrTheDefault) {
    ASSERT_NO_FATAL_FAILURE(fetch());
    struct Case {
        std::vector<std::string> operands;
        std::string type;
        std::string fallback;
        std::string printed;
    };
    const std::vector<Case> cases{
        {{"search", "limit"}, "long", "0", "-9007199254740993"},
        {{"search", "ratio"}, "double", "1", "0.25"},
        {{"search", "name"}, "string", "none", "Zo\u00eb"},
        {{"search", "deep", "x", "y"}, "long", "0", "7"},
        {{"search", "deep", "y", "x"}, "long", "-5", "-5"},
        {{"search", "name"}, "bool", "1", "true"},
        {{"search", "on"}, "string", "a default", "a default"},
        {{"other", "on"}, "double", "-0.5", "-0.5"},
        {{"unknown", "on"}, "bool", "true", "true"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.operands.back() + " as " + c.type);
        restore();
        std::vector<std::string> words{"--type", c.type, "--default", c.fallback};
        words.insert(words.end(), c.operands.begin(), c.operands.end());
        const Finished finished = get(words);
        EXPECT_EQ(finished.output, c.printed + "\n");
        EXPECT_EQ(finished.exitStatus, 0);
        EXPECT_FALSE(fs::exists(stored_));
    }
}

TEST_F(ConfigCommand, LeavesTheStoredFileAloneWhenUsedWrongly) {
    ASSERT_NO_FATAL_FAILURE(fetch());
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"search", "--type", "bool", "--default", "true"},
         "an operand is missing: config get takes NAME KEY..."},
        {{"search", "on", "--default", "true"}, "option --type is required"},
        {{"search", "on", "--type", "bool"}, "option --default is required"},
        {{"search", "on", "--type", "bool", "--default", "yes"}, "--default wants true or false, not 'yes'"},
        {{"search", "on", "--type", "long", "--default", "1.5"}, "--default wants a whole number"},
        {{"search", "on", "--type", "double", "--default", "1,5"}, "--default wants a number, not '1,5'"},
        {{"search", "on", "--type", "date", "--default", "0"}, "unknown type 'date'"},
        {{"search", "on", "--type", "bool", "--default", "true", "--connect-to", "x"}, "--connect-to wants"},
    };
    for (const auto& [words, reason] : cases) {
        SCOPED_TRACE(reason);
        const Finished finished = get(words);
        EXPECT_EQ(finished.exitStatus, 2);
        EXPECT_EQ(finished.output, "");
        EXPECT_THAT(finished.errors, ::testing::StartsWith("quillkit: " + reason));
        EXPECT_EQ(qlsdk::platform::readFile(stored_, 4096), qlsdk::platform::readFile(copy_, 4096));
    }
    EXPECT_EQ(get({"search", "on", "--type", "bool", "--default", "false"}).output, "true\n");
}

TEST_F(ConfigCommand, KeepsWhatItHasWhenAnUpdateFails) {
    ASSERT_NO_FATAL_FAILURE(fetch());
    const RunningCollector collector({"--answer", "503", "--answer", "drop", "--answer", "stall"});
    for (int i = 0; i < 2; ++i) {
        const Finished failed = update(collector);
        EXPECT_EQ(failed.output, "failure: nothing was stored\n");
        EXPECT_EQ(failed.exitStatus, 1);
    }
    const Finished stalled = host_.run(collector, {"config", "update", "--wait", "0"});
    EXPECT_EQ(stalled.errors, "quillkit: no outcome in the time given\n");
    EXPECT_EQ(stalled.exitStatus, 1);
    EXPECT_EQ(get({"search", "on", "--type", "bool", "--default", "false"}).output, "true\n");
}

}  // namespace
}  // namespace quillkit
