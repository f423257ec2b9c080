#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"

#include <wire/heartbeat.pb.h>

#include "QLSDKCoreKit/picoproto/testing/StrictReader.h"
#include "QLSDKCoreKit/platform/internal/testing/FailingAllocations.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"
#include "QLSDKCoreKit/storage/QLSDKInstallation.h"

namespace qlsdk {
namespace {

class QLSDKHeartbeatEventsQueueTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(fakes.install()); }

    /// Adds one heartbeat; true when it led to a request, which is answered with 200.
    bool sends(int kitType) {
        QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({static_cast<QLSDKKitType>(kitType), "3.2"});
        fakes.queues->runSerialQueuesUntilIdle();
        return fakes.urlSession->answer(200);
    }

    platform::testing::FakePlatform fakes;
};

TEST_F(QLSDKHeartbeatEventsQueueTest, DescribesTheKitTheInstallationAndTheDevice) {
    fakes.clock->set(1546300800.25);
    fakes.process->record = {.result = 0, .flags = platform::kProcessTraced};
    fakes.process->environment["XCInjectBundle"] = "";
    ASSERT_TRUE(sends(2));
    const platform::UrlRequest request = fakes.urlSession->requests().front();
    EXPECT_TRUE(request.url.ends_with("/v1/sdk/heartbeat"));
    quillkit::wire::HearbeatBatch batch;
    ASSERT_TRUE(batch.ParseFromString(textOf(*request.body)));
    ASSERT_EQ(batch.heartbeats_size(), 1);
    const auto& heartbeat = batch.heartbeats(0);
    EXPECT_EQ(heartbeat.client_id(), "abc");
    EXPECT_EQ(heartbeat.installation_id(), QLSDKInstallation().installationId());
    EXPECT_EQ(heartbeat.kit_type(), 2u);
    EXPECT_EQ(heartbeat.kit_version(), "3.2");
    EXPECT_EQ(heartbeat.timestamp().seconds(), 1546300800);
    EXPECT_EQ(heartbeat.timestamp().nanos(), 250000000);
    const auto& device = heartbeat.device_environment();
    EXPECT_EQ(device.constant_one(), 1u);
    EXPECT_EQ(device.system_version(), "12.2");
    EXPECT_EQ(device.device_model(), "iPhone");
    EXPECT_EQ(device.architecture(), "x86_64");
    EXPECT_EQ(device.locale(), "en-US");
    EXPECT_TRUE(device.running_with_debugger());
    EXPECT_TRUE(device.running_tests());
    EXPECT_EQ(device.constant_one_more(), 1u);
    EXPECT_TRUE(device.has_receipt_sandbox());
    EXPECT_FALSE(device.receipt_sandbox());
    EXPECT_TRUE(heartbeat.unknown_fields().empty());
}

TEST_F(QLSDKHeartbeatEventsQueueTest, TextsThatAreNoUtf8DecodeStrictly) {
    fakes.bundles->setMain({{"QLSDKClientId", "c\xFC"}});
    fakes.device->systemVersionText = fakes.device->modelText = "d\xC3";
    fakes.locale->language = "l\x80";
    auto& queue = QLSDKHeartbeatEventsQueue::sharedInstance();
    for (const auto& text : testing::kRepairedTexts) {
        queue.addEvent({QLSDKKitTypeFeed, std::string(text.raw)});
        fakes.queues->runSerialQueuesUntilIdle();
        fakes.clock->advance(86401);
        quillkit::wire::HearbeatBatch batch;
        const std::string bytes = textOf(*fakes.urlSession->requests().back().body);
        ASSERT_TRUE(testing::decodesStrictly(*batch.GetDescriptor(), bytes)) << text.raw;
        ASSERT_TRUE(batch.ParseFromString(bytes));
        const auto& heartbeat = batch.heartbeats(0);
        EXPECT_EQ(heartbeat.kit_version(), text.repaired);
        EXPECT_EQ(heartbeat.client_id(), "c\xEF\xBF\xBD");
        EXPECT_EQ(heartbeat.device_environment().system_version(), "d\xEF\xBF\xBD");
        EXPECT_EQ(heartbeat.device_environment().device_model(), "d\xEF\xBF\xBD");
        EXPECT_EQ(heartbeat.device_environment().locale(), "l\xEF\xBF\xBD-US");
        ASSERT_TRUE(fakes.urlSession->answer(200));
    }
}

TEST_F(QLSDKHeartbeatEventsQueueTest, WhatCannotBeEncodedIsNotSentAndLeavesTheKitDue) {
    using testing::FailingAllocations;
    auto& queue = QLSDKHeartbeatEventsQueue::sharedInstance();
    queue.addEvent({QLSDKKitTypeSharing, std::string(131072, 'v')});
    EXPECT_TRUE(fakes.userDefaults->entries().empty());
    const QLSDKHeartbeat heartbeat(QLSDKKitTypeFeed, std::string(900, 'v'));
    const std::string whole = textOf(encodedBytes(*heartbeat.encodeablePicoproto()->ctx()));
    for (const auto which : {FailingAllocations::Which::next, FailingAllocations::Which::all}) {
        bool failed = true;
        for (std::int64_t n = 0; failed; ++n) {
            FailingAllocations failing(which, n);
            queue.addEvent(heartbeat);
            failing.stop();
            failed = failing.failed() > 0;
            fakes.queues->runSerialQueuesUntilIdle();
            const bool sent = fakes.urlSession->answer(200);
            EXPECT_TRUE(sent || fakes.userDefaults->entries().empty()) << "dated and not queued";
            EXPECT_TRUE(failed || sent);
            if (!sent) continue;
            quillkit::wire::HearbeatBatch batch;
            ASSERT_TRUE(batch.ParseFromString(textOf(*fakes.urlSession->requests().back().body)));
            ASSERT_EQ(batch.heartbeats_size(), 1);
            EXPECT_EQ(batch.heartbeats(0).SerializeAsString(), whole) << n;
            fakes.userDefaults->setObjectForKey({}, "com.quillo.quill-kit.heartbeat.FEED_KIT");
        }
    }
}

TEST_F(QLSDKHeartbeatEventsQueueTest, EachKitIsDueOnceInStrictlyMoreThanADay) {
    EXPECT_TRUE(sends(1));
    EXPECT_FALSE(sends(1));
    EXPECT_TRUE(sends(4)) << "kits are independent";
    fakes.clock->advance(86400.0);
    EXPECT_FALSE(sends(1));
    fakes.clock->advance(0.001);
    EXPECT_TRUE(sends(1));
    fakes.clock->advance(-1000000.0);
    EXPECT_FALSE(sends(1)) << "a stored date in the future";
    EXPECT_FALSE(sends(1));
    const auto told = fakes.diagnostics->told();
    EXPECT_EQ(std::count_if(told.begin(), told.end(),
                            [](const auto& one) { return one.kind == platform::DiagnosticKind::clock; }),
              1)
        << "told, and once";
}

TEST_F(QLSDKHeartbeatEventsQueueTest, OnlyTheTableOfKitsHasKeysAndTheAvatarsIsCut) {
    for (const int kit : {0, 5, -1, INT32_MIN, INT32_MAX}) EXPECT_FALSE(sends(kit)) << kit;
    EXPECT_TRUE(fakes.userDefaults->entries().empty());
    for (const int kit : {1, 2, 3, 4}) EXPECT_TRUE(sends(kit)) << kit;
    for (const char* name : {"ACCESS_KIT", "AVATOON_KI", "SHARING_KIT", "FEED_KIT"}) {
        const Dictionary entries = fakes.userDefaults->entries();
        const Value* stored = entries.find("com.quillo.quill-kit.heartbeat." + std::string(name));
        ASSERT_NE(stored, nullptr) << name;
        EXPECT_EQ(*stored, Value(Date{fakes.clock->secondsSince1970()}));
    }
}

TEST_F(QLSDKHeartbeatEventsQueueTest, AFailedUploadDoesNotMakeTheKitDueAgain) {
    auto& queue = QLSDKHeartbeatEventsQueue::sharedInstance();
    queue.addEvent({QLSDKKitTypeFeed, std::nullopt});
    fakes.queues->runSerialQueuesUntilIdle();
    ASSERT_TRUE(fakes.urlSession->fail("refused"));
    EXPECT_FALSE(sends(4));
}

TEST_F(QLSDKHeartbeatEventsQueueTest, TheBatchKeepsTheOrderAndLeavesOutRecordsWithoutAnEvent) {
    const auto record = [](std::uint64_t id, bool withEvent) {
        auto event = withEvent ? std::make_shared<EncodablePicoproto>(picoproto_new("Heartbeat")) : nullptr;
        if (withEvent) picoproto_write_varint_field(event->ctx(), 3, id);
        return platform::ArchivedObject(
            std::shared_ptr<platform::Archivable>(std::make_shared<EventWrapper>(id, std::move(event))));
    };
    auto& shared = QLSDKHeartbeatEventsQueue::sharedInstance();
    const auto queue = AnalyticsEventsQueue::create("/", nullptr, "other.plist", 1, {});
    const auto body = shared.parseEvents(*queue, {record(9, true), record(8, false), record(7, true)}, 9);
    ASSERT_TRUE(body);
    EXPECT_EQ(textOf(*body), std::string("\x0A\x02\x18\x09\x0A\x02\x18\x07", 8));
    EXPECT_EQ(shared.parseEvents(*queue, {}, 9), Data());
}

}  // namespace
}  // namespace qlsdk
