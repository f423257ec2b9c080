#include "tools/inspect/Hex.h"
#include "tools/testing/RunningCollector.h"
#include <gmock/gmock.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <wire/heartbeat.pb.h>
#include <wire/metrics.pb.h>

namespace quillkit {
namespace {

using nlohmann::ordered_json;
using testing::Finished;
using testing::RunningCollector;
using testing::runToEnd;

constexpr const char* kHeartbeat = "/v1/sdk/heartbeat";
constexpr const char* kMetrics = "/v1/sdk/metrics/operational";
constexpr const char* kConfig = "/v1/config";
// What curl says when a connection ends before an answer.
constexpr int kCurlEmptyReply = 52;

std::string batchOfOne() {
    wire::HearbeatBatch batch;
    wire::Heartbeat& heartbeat = *batch.add_heartbeats();
    heartbeat.set_client_id("client \xc3\xa9");
    heartbeat.set_kit_type(4294967295U);
    heartbeat.mutable_device_environment()->set_constant_one(1);
    heartbeat.mutable_device_environment()->set_running_tests(false);
    heartbeat.mutable_timestamp()->set_seconds(1546300800);
    heartbeat.mutable_timestamp()->set_nanos(-250);
    return batch.SerializeAsString();
}

TEST(Collector, LogsTheDecodedRequest) {
    RunningCollector collector;
    const std::string body = batchOfOne();
    const Finished curl = collector.post(
        kHeartbeat, body, {"--header", "x-MiXed: 1", "--header", "Content-Type: application/protobuf"});
    EXPECT_EQ(curl.output, "200");
    ASSERT_EQ(collector.logged().size(), 1U);
    const ordered_json line = collector.logged()[0];

    std::vector<std::string> keys;
    for (const auto& [key, value] : line.items()) keys.push_back(key);
    EXPECT_THAT(keys,
                ::testing::ElementsAre("method", "path", "headers", "body", "message", "token", "status"));
    EXPECT_EQ(line["method"], "POST");
    EXPECT_EQ(line["path"], kHeartbeat);
    EXPECT_EQ(line["headers"]["x-MiXed"], "1");
    EXPECT_EQ(line["headers"]["Content-Type"], "application/protobuf");
    EXPECT_EQ(line["body"], hexOf(qlsdk::bytesOf(body)));
    EXPECT_EQ(line["status"], 200);
    EXPECT_EQ(line["message"], ordered_json::parse(R"({"heartbeats":[{"clientId":"client \u00e9",
        "kitType":4294967295,"deviceEnvironment":{"constantOne":1,"runningTests":false},
        "timestamp":{"seconds":1546300800,"nanos":-250}}]})"));
}

TEST(Collector, DecodesMetricsAndShowsUnknownFields) {
    RunningCollector collector;
    wire::Metrics metrics;
    metrics.add_counters()->set_count(-5);
    metrics.add_timers()->set_name("t");
    // Field 9, varint 7: in no schema.
    EXPECT_EQ(collector.post(kMetrics, metrics.SerializeAsString() + "\x48\x07").output, "200");
    EXPECT_EQ(collector.logged().at(0)["message"],
              ordered_json::parse(
                  R"({"counters":[{"count":-5}],"timers":[{"name":"t"}],"unknownFields":"9: 7\n"})"));
}

TEST(Collector, AnswersByTheScriptAndThenWith200) {
    RunningCollector collector(
        {"--answer", "503", "--answer=429:X-Retry-After-Millis=5000", "--answer", "drop", "--answer", "201"});
    EXPECT_EQ(collector.post(kHeartbeat, "").output, "503");
    // Neither a path that the service does not have nor another method takes an answer from the script.
    EXPECT_EQ(collector.post("/v1/sdk/heartbeats", "").output, "404");
    EXPECT_EQ(runToEnd(collector.curl(kHeartbeat, {})).output, "405");
    const Finished limited = collector.post(kMetrics, "", {"--dump-header", "-"});
    EXPECT_THAT(limited.output, ::testing::HasSubstr("\r\nX-Retry-After-Millis: 5000\r\n"));
    EXPECT_TRUE(limited.output.ends_with("429"));
    const Finished dropped = collector.post(kHeartbeat, "");
    EXPECT_EQ(dropped.exitStatus, kCurlEmptyReply);
    EXPECT_EQ(dropped.output, "000");
    EXPECT_EQ(collector.post(kConfig, "{}").output, "201");
    EXPECT_EQ(collector.post(kHeartbeat, "").output, "200");

    std::vector<ordered_json> statuses;
    for (const ordered_json& line : collector.logged()) statuses.push_back(line["status"]);
    EXPECT_THAT(statuses, ::testing::ElementsAre(503, 404, 405, 429, "drop", 201, 200));
}

TEST(Collector, StallsUntilItIsEnded) {
    RunningCollector collector({"--answer", "stall"});
    testing::Subprocess stalled(collector.curl(kHeartbeat, {"--data", "x"}));
    EXPECT_THAT(collector.process().nextLine().value(), ::testing::HasSubstr("-> stall"));
    // Others are served meanwhile.
    EXPECT_EQ(collector.post(kHeartbeat, "").output, "200");
    collector.process().sendSignal(SIGTERM);
    EXPECT_EQ(collector.process().finish().exitStatus, 0);
    const Finished curl = stalled.finish();
    EXPECT_EQ(curl.exitStatus, kCurlEmptyReply);
    EXPECT_EQ(curl.output, "000");
}

TEST(Collector, EndsCleanlyOnEitherSignal) {
    for (const int signal : {SIGTERM, SIGINT}) {
        RunningCollector collector;
        collector.process().sendSignal(signal);
        const Finished finished = collector.process().finish();
        EXPECT_EQ(finished.exitStatus, 0);
        EXPECT_THAT(finished.errors, ::testing::MatchesRegex("page: http://127\\.0\\.0\\.1:[0-9]+/[^\n]+\n"));
    }
    RunningCollector withoutPage({"--no-page"});
    withoutPage.process().sendSignal(SIGTERM);
    EXPECT_EQ(withoutPage.process().finish().errors, "");
}

TEST(Collector, ReadsItsConfigurationAtEachRequest) {
    qlsdk::platform::testing::TemporaryDirectories directory;
    const std::string file = directory.path() + "/config.json";
    RunningCollector collector({"--config", file});
    EXPECT_EQ(collector.post(kConfig, "{}").output, "500");
    testing::writeFile(file, R"({"a": {"enabled": true}})");
    EXPECT_EQ(collector.post(kConfig, "{}").output, R"({"data":{"config":{"a": {"enabled": true}}}}200)");
    testing::writeFile(file, "{}");
    EXPECT_EQ(collector.post(kConfig, R"({"query":"q"})").output, R"({"data":{"config":{}}}200)");
    testing::writeFile(file, "{");
    EXPECT_EQ(collector.post(kConfig, "{}").output, "500");
    EXPECT_EQ(collector.logged().at(2)["message"], ordered_json::parse(R"({"query":"q"})"));
    EXPECT_EQ(RunningCollector().post(kConfig, "{}").output, R"({"data":{"config":{}}}200)");
}

TEST(Collector, SurvivesBadClients) {
    RunningCollector collector;
    const std::string large(std::size_t{2} << 20, '\0');
    EXPECT_EQ(collector.post(kHeartbeat, large).output, "413");
    EXPECT_EQ(collector.post(kHeartbeat, large, {"--header", "Transfer-Encoding: chunked"}).output, "413");
    EXPECT_EQ(runToEnd(collector.curl(kHeartbeat, {"--form", "a=b"})).output, "415");
    EXPECT_EQ(collector.post(kHeartbeat, "\xff\xff garbage").output, "200");
    EXPECT_EQ(collector.post(kHeartbeat, "", {"--header", "X-Bytes: \xff\xfe"}).output, "200");
    EXPECT_EQ(collector.post(kConfig, std::string(500'000, '[')).output, R"({"data":{"config":{}}}200)");
    EXPECT_EQ(collector.post(std::string("/") + std::string(9000, 'a'), "").output, "414");
    // No TLS at all.
    EXPECT_EQ(runToEnd({"curl", "--silent", "--noproxy", "*", "http://" + collector.address()}).exitStatus,
              kCurlEmptyReply);
    for (const ordered_json& line : collector.logged()) {
        const bool isEmptyMessage = line["message"].is_null() || line["message"].empty();
        EXPECT_TRUE(isEmptyMessage) << line["message"];
    }
    EXPECT_EQ(collector.post(kHeartbeat, batchOfOne()).output, "200");
    collector.process().sendSignal(SIGTERM);
    EXPECT_EQ(collector.process().finish().exitStatus, 0);
}

TEST(Collector, RefusesWhatItCannotUse) {
    RunningCollector collector;
    const std::string port = collector.address().substr(collector.address().rfind(':') + 1);
    qlsdk::platform::testing::TemporaryDirectories directory;
    const std::string state = directory.path() + "/state";
    const Finished taken = runToEnd({QUILLKIT_BINARY, "collect", "--port", port, "--state", state});
    EXPECT_EQ(taken.exitStatus, 1);
    EXPECT_EQ(taken.errors, "quillkit: cannot listen on 127.0.0.1:" + port + ": Address already in use\n");
    const Finished noState = runToEnd({QUILLKIT_BINARY, "collect", "--port", "0", "--state", "/proc/none"});
    EXPECT_EQ(noState.exitStatus, 1);
    EXPECT_EQ(noState.errors, "quillkit: cannot make /proc/none\n");
}

}  // namespace
}  // namespace quillkit
