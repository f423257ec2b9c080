#include "tools/testing/HostApplication.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillkit {
namespace {

using testing::Finished;
using ::testing::HasSubstr;
using testing::RunningCollector;
using ::testing::StartsWith;

class SendHeartbeat : public ::testing::Test {
  protected:
    [[nodiscard]] Finished run(const RunningCollector& collector,
                               const std::vector<std::string>& words) const {
        return host_.run(collector, words);
    }

    [[nodiscard]] Finished sendHeartbeat(const RunningCollector& collector, const std::string& kit) const {
        return run(collector, {"send", "heartbeat", "--kit", kit, "--kit-version", "2.5", "--wait", "60"});
    }

    const testing::HostApplication host_;
};

TEST_F(SendHeartbeat, DeliversOneHeartbeatADay) {
    const RunningCollector collector;
    const Finished first = sendHeartbeat(collector, "avatar");
    EXPECT_EQ(first.output, "queued\ndelivered: answered 200\n") << first.errors;
    EXPECT_EQ(first.exitStatus, 0);
    const Finished second = sendHeartbeat(collector, "avatar");
    EXPECT_THAT(second.output, StartsWith("not due: the last one was queued "));
    EXPECT_EQ(second.exitStatus, 0);
    EXPECT_EQ(sendHeartbeat(collector, "0").output, "not due: no heartbeat is ever sent for this kit\n");

    ASSERT_EQ(collector.logged().size(), 1U);
    const auto line = collector.logged()[0];
    EXPECT_EQ(line["path"], "/v1/sdk/heartbeat");
    EXPECT_EQ(line["token"]["bundleIdentifier"], "com.example.app");
    EXPECT_EQ(line["token"]["state"], "valid");
    EXPECT_EQ(line["message"]["heartbeats"][0]["clientId"], "client-7");
    EXPECT_EQ(line["message"]["heartbeats"][0]["kitType"], 2);
    EXPECT_EQ(line["message"]["heartbeats"][0]["kitVersion"], "2.5");
}

TEST_F(SendHeartbeat, SaysWhatBecameOfAHeartbeatThatIsNotAccepted) {
    const RunningCollector collector({"--answer", "503", "--answer", "drop", "--answer", "403"});
    const Finished refused = sendHeartbeat(collector, "access");
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_THAT(refused.output, StartsWith("queued\nkept for one retry in " + host_.home()));
    EXPECT_THAT(refused.output, HasSubstr("qlsdk-heartbeat.plist: answered 503\n"));
    // The first one's retry goes along with the second heartbeat and fails with it.
    const Finished dropped = sendHeartbeat(collector, "feed");
    EXPECT_EQ(dropped.exitStatus, 1);
    EXPECT_THAT(dropped.output, HasSubstr(": no answer: "));
    EXPECT_THAT(dropped.output, HasSubstr("dropped after a second failure: 1 of earlier runs\n"));
    const Finished final = sendHeartbeat(collector, "sharing");
    EXPECT_EQ(final.output, "queued\ndelivered: answered 403\n");
    EXPECT_EQ(collector.logged().at(2)["message"]["heartbeats"].size(), 2U);
}

TEST_F(SendHeartbeat, SaysWhenNoOutcomeCameInTime) {
    const RunningCollector collector({"--answer", "stall"});
    const Finished finished =
        run(collector, {"send", "heartbeat", "--kit", "access", "--kit-version", "1", "--wait", "0"});
    EXPECT_EQ(finished.output, "queued\nstill under way; it is lost when this process ends\n");
    EXPECT_EQ(finished.exitStatus, 1);
}

TEST_F(SendHeartbeat, PrintsLogLinesOnDemand) {
    const RunningCollector collector;
    const Finished finished = run(
        collector, {"send", "heartbeat", "--kit", "1", "--kit-version", "1", "--wait", "60", "--verbose"});
    EXPECT_THAT(finished.errors, HasSubstr("[QuillKit] path=/v1/sdk/heartbeat trace_id="));
}

TEST_F(SendHeartbeat, ProbesItsHost) {
    const RunningCollector collector;
    const Finished first = run(collector, {"probe"});
    EXPECT_EQ(first.exitStatus, 0);
    EXPECT_THAT(first.output, HasSubstr("  identifier: \"com.example.app\"\n"));
    EXPECT_THAT(first.output, HasSubstr("  client id: \"client-7\"\n"));
    EXPECT_THAT(first.output, HasSubstr("  redirect URL: null\n"));
    EXPECT_THAT(first.output, HasSubstr("  runs with a debugger: false\n"));
    EXPECT_THAT(first.output, HasSubstr("  caches directory: \"" + host_.home() + "/"));
    // The installation id is the same the next time.
    EXPECT_EQ(run(collector, {"probe"}).output, first.output);
    EXPECT_TRUE(collector.logged().empty());
}

TEST_F(SendHeartbeat, NamesFilesThatAreNotThere) {
    for (const char* option : {"--info-plist", "--ca"}) {
        const Finished finished = testing::runToEnd({QUILLKIT_BINARY, "probe", option, "/nowhere"});
        EXPECT_EQ(finished.exitStatus, 1);
        EXPECT_EQ(finished.errors, "quillkit: cannot read /nowhere\n");
    }
}

}  // namespace
}  // namespace quillkit
