#include "tools/page/RequestSummary.h"

#include "tools/page/RequestDetail.h"
#include "tools/testing/ServedRequests.h"
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <wire/heartbeat.pb.h>
#include <wire/metrics.pb.h>

namespace quillkit {
namespace {

using nlohmann::json;
using testing::served;

TEST(RequestSummary, NamesTheKitsOfHeartbeats) {
    wire::HearbeatBatch batch;
    for (const unsigned kit : {1U, 3U, 1U, 4000000000U}) {
        batch.add_heartbeats()->set_kit_type(kit);
        batch.mutable_heartbeats()->rbegin()->set_kit_version("1.0");
    }
    batch.add_heartbeats();
    const json summary = json::parse(summaryOf(served("/v1/sdk/heartbeat", batch.SerializeAsString())));
    EXPECT_EQ(summary["kind"], "heartbeat");
    EXPECT_EQ(summary["records"], 5);
    EXPECT_EQ(summary["kits"], json({"access 1.0", "sharing 1.0", "kit 4000000000 1.0", "no kit"}));
    EXPECT_EQ(summary["token"], "missing");
}

TEST(RequestSummary, IsBoundedWhateverARequestHolds) {
    wire::Metrics metrics;
    for (int i = 0; i < 3000; ++i) {
        metrics.add_counters()->set_name(std::string(300, '\xc3'));
        metrics.mutable_counters(i)->set_count(-i);
    }
    ServedRequest request = served("/v1/sdk/metrics/operational", metrics.SerializeAsString());
    const json summary = json::parse(summaryOf(request));
    EXPECT_EQ(summary["records"], 3000);
    EXPECT_EQ(summary["metrics"].size(), kSummaryMetricsCeiling);
    EXPECT_EQ(summary["metrics"][1][2], -1);

    request = served("/" + std::string(8000, 'a'), std::string(1'000'000, 'b'));
    request.method = std::string(8000, 'M');
    EXPECT_LT(summaryOf(request).size(), 2000U);
}

TEST(RequestSummary, TellsWhatDoesNotDecode) {
    for (const char* path : {"/v1/sdk/heartbeat", "/v1/sdk/metrics/operational", "/v1/config"}) {
        EXPECT_EQ(json::parse(summaryOf(served(path, "\xff\xff")))["decoded"], false) << path;
    }
}

TEST(RequestDetail, HoldsTheLineOfTheLogFile) {
    ServedRequest request = served("/v1/config", R"({"query":"q"})");
    request.headers = {{"X-One", "1"}, {"X-One", "\xff<b>"}};
    const json detail = json::parse(detailOf(request, 9));
    EXPECT_EQ(json::parse(detail["line"].get<std::string>())["message"], json({{"query", "q"}}));
    EXPECT_EQ(detail["isJson"], true);
    EXPECT_EQ(detail["headers"], json::parse(R"([["X-One", "1"], ["X-One", "\ufffd<b>"]])"));
    EXPECT_EQ(detail["body"], "7b227175657279223a2271227d");
}

}  // namespace
}  // namespace quillkit
