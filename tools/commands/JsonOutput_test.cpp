#include "tools/inspect/Hex.h"
#include "tools/testing/HostApplication.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <wire/heartbeat.pb.h>

namespace quillkit {
namespace {

using nlohmann::json;
using testing::Finished;
using testing::RunningCollector;
using testing::runToEnd;

/// What a subcommand prints with "--json": one line, and nothing else.
json printed(const Finished& finished) {
    EXPECT_EQ(finished.output.find('\n'), finished.output.size() - 1) << finished.output;
    return json::parse(finished.output, nullptr, false);
}

class JsonOutput : public ::testing::Test {
  protected:
    const testing::HostApplication host_;
};

TEST_F(JsonOutput, HoldsWhatAProbeSees) {
    const json probe = printed(host_.run({"probe", "--json"}));
    EXPECT_EQ(probe["mainBundle"]["identifier"], "com.example.app");
    EXPECT_EQ(probe["mainBundle"]["redirectUrl"], nullptr);
    EXPECT_TRUE(probe["mainBundle"]["regularFont"].contains("file"));
    EXPECT_EQ(probe["environment"]["runsWithADebugger"], false);
    EXPECT_EQ(probe["storageAndService"]["apiBaseUrl"], testing::kApiUrl);
    EXPECT_EQ(probe["storageAndService"]["installationId"].get<std::string>().size(), 36U);
}

TEST_F(JsonOutput, TellsTheOutcomeOfAHeartbeat) {
    const RunningCollector collector({"--answer", "503", "--answer", "200"});
    const auto send = [&](const std::string& kit) {
        return host_.run(collector,
                         {"send", "heartbeat", "--kit", kit, "--kit-version", "1", "--wait", "60", "--json"});
    };
    const Finished kept = send("access");
    EXPECT_EQ(kept.exitStatus, 1);
    EXPECT_EQ(printed(kept), json({{"outcome", "kept"},
                                   {"answer", "answered 503"},
                                   {"dropped", 0},
                                   {"archive", host_.cacheFile("qlsdk-heartbeat.plist")}}));
    const json archive =
        printed(runToEnd({QUILLKIT_BINARY, "inspect", "--json", host_.cacheFile("qlsdk-heartbeat.plist")}));
    const json record = archive["keyedArchive"]["unsent_events"][0];
    EXPECT_EQ(record["event"]["fields"]["kitType"], 1);
    EXPECT_TRUE(record.contains("notBeforeMillis"));
    const Finished delivered = send("feed");
    EXPECT_EQ(delivered.exitStatus, 0);
    EXPECT_EQ(printed(delivered)["outcome"], "delivered");
    EXPECT_EQ(printed(send("feed"))["outcome"], "notDue");
    EXPECT_EQ(printed(send("0")), json({{"outcome", "notDue"}, {"lastQueuedSecondsAgo", nullptr}}));
}

TEST_F(JsonOutput, CountsUploadsOfMetrics) {
    const RunningCollector collector;
    EXPECT_EQ(printed(host_.run(collector, {"send", "count", "n", "1", "2", "--wait", "60", "--json"})),
              json({{"recorded", 2},
                    {"uploads", {{"accepted", 0}, {"failed", 0}, {"underWay", 0}}},
                    {"waiting", 2},
                    {"archive", host_.cacheFile("qlsdk-operational-metrics2.plist")}}));
}

TEST_F(JsonOutput, GivesConfigurationValuesTheirTypes) {
    qlsdk::platform::testing::TemporaryDirectories directory;
    const std::string file = testing::writeFile(directory.path() + "/config.json",
                                                R"({"search": {"on": true, "limit": 12, "name": "a\"b"}})");
    const RunningCollector collector({"--config", file});
    const std::vector<std::tuple<std::string, std::string, std::string, json>> cases{
        {"on", "bool", "false", true},
        {"limit", "long", "0", 12},
        {"limit", "double", "0.5", 12.0},
        {"name", "string", "", "a\"b"},
        {"none", "double", "1.5", 1.5}};
    for (const auto& [key, type, fallback, value] : cases) {
        EXPECT_EQ(printed(host_.run(collector, {"config", "update", "--json"})), json({{"success", true}}));
        EXPECT_EQ(printed(host_.run(
                      {"config", "get", "search", key, "--type", type, "--default", fallback, "--json"})),
                  json({{"name", "search"}, {"path", {key}}, {"stored", true}, {"value", value}}));
    }
    const json absent = printed(
        host_.run({"config", "get", "search", "on", "--type", "bool", "--default", "true", "--json"}));
    EXPECT_EQ(absent["stored"], false);
    EXPECT_EQ(absent["value"], true);
}

TEST_F(JsonOutput, TakesALinkApart) {
    const Finished made = host_.run(
        {"link", "preview", "--payload", R"({"id":7})", "--query", "lang=en US", "--open", "--json"});
    EXPECT_EQ(made.exitStatus, 1);
    EXPECT_EQ(printed(made)["opened"], false);
    const json link = printed(runToEnd({QUILLKIT_BINARY, "inspect", "--json", printed(made)["link"]}));
    EXPECT_EQ(link["link"], "quillo://preview/1");
    std::map<std::string, json> parameters;
    for (const json& parameter : link["parameters"]) parameters[parameter["name"]] = parameter;
    EXPECT_EQ(parameters["payload"]["decoded"], json({{"id", 7}}));
    EXPECT_EQ(parameters["lang"], json({{"name", "lang"}, {"value", "en US"}}));
    const json broken = printed(runToEnd({QUILLKIT_BINARY, "inspect", "--json", "quillo://?payload=e30%3"}));
    EXPECT_EQ(broken["parameters"][0]["decoded"], nullptr);
}

}  // namespace
}  // namespace quillkit
