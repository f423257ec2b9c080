// An upload queue behind the host's controls, on fakes.

#include <filesystem>
#include <fstream>
#include <limits>

#include <sys/resource.h>

#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"
#include "QLSDKCoreKit/events/internal/QueueArchive.h"
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"
#include "QLSDKCoreKit/storage/QLSDKInstallation.h"
#include "QLSDKCoreKit/storage/QLSDKKeychainManager.h"

namespace qlsdk {
namespace {

using platform::Consent;
using platform::Delivery;

constexpr const char* kArchiveName = "queue.plist";
constexpr const char* kEndpoint = "/v1/test";

/// Writes each record's sequence id as one digit; takes the sending over when told to.
class Digits final : public AnalyticsEventsQueueDelegate {
  public:
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) override {
        Data body;
        for (const auto& element : events) {
            body.push_back(static_cast<std::uint8_t>('0' + eventWrapperOf(element)->sequenceId()));
        }
        return body;
    }
    Submission submit(const std::shared_ptr<QLSDKNetworkRequest>&, const SubmitCompletion& given) override {
        if (!takesOver) return Submission::left;
        completion = given;
        return Submission::taken;
    }

    bool takesOver = false;
    SubmitCompletion completion;
};

class ControlledQueue : public ::testing::Test {
  protected:
    void start(platform::HostControls controls, std::uint64_t maxEventBuffer = 1) {
        platform::Platform platform = fakes.platform();
        platform.controls = std::move(controls);
        ASSERT_EQ(platform::install(std::move(platform)), platform::InstallResult::installed);
        makeQueue(maxEventBuffer);
    }
    void makeQueue(std::uint64_t maxEventBuffer) {
        queue = AnalyticsEventsQueue::create(kEndpoint, std::make_shared<QLPayloadProvider>(), kArchiveName,
                                             maxEventBuffer, delegate);
        run();
    }
    void run() { fakes.queues->runSerialQueuesUntilIdle(); }
    void push(int count = 1) {
        for (int i = 0; i < count; ++i) {
            queue->pushEvent(std::make_shared<EncodablePicoproto>(picoproto_new("Event")));
        }
        run();
    }
    void flush() {
        queue->flushQueue();
        run();
    }
    void answer(std::int64_t status, std::string_view retryAfter = {}) {
        platform::HeaderFields headers;
        if (!retryAfter.empty()) headers.set("X-Retry-After-Millis", retryAfter);
        ASSERT_TRUE(fakes.urlSession->answer(status, headers));
        run();
    }
    void say(Consent consent) {
        platform::setConsent(consent, [this] { ++changes; });
        run();
    }

    std::string path() const { return fakes.directories->path() + "/" + kArchiveName; }
    /// The sequence ids on disk; "none" without a file.
    std::string onDisk() const {
        const auto archive = readQueueArchive(path());
        if (!archive) return "none";
        std::string ids;
        for (const auto& element : archive->unsentEvents) {
            ids += std::to_string(eventWrapperOf(element)->sequenceId());
        }
        return ids;
    }
    std::vector<std::string> bodies() const {
        std::vector<std::string> texts;
        for (const auto& request : fakes.urlSession->requests()) {
            texts.push_back(textOf(request.body.value_or(Data())));
        }
        return texts;
    }
    static std::uint64_t count(Delivery what) { return platform::deliveryCounts(kArchiveName).value()[what]; }

    platform::testing::FakePlatform fakes;
    std::shared_ptr<Digits> delegate = std::make_shared<Digits>();
    std::shared_ptr<AnalyticsEventsQueue> queue;
    int changes = 0;
};

using Consenting = ControlledQueue;

TEST_F(Consenting, UndecidedKeepsRecordsOnDiskAndAGrantSendsThemAtOnce) {
    start({.consent = Consent::undecided});
    push(2);
    flush();
    EXPECT_EQ(onDisk(), "21");
    EXPECT_TRUE(bodies().empty());
    say(Consent::granted);
    EXPECT_EQ(bodies(), std::vector<std::string>{"21"});
    EXPECT_EQ(changes, 1);
    answer(200);
    EXPECT_EQ(onDisk(), "");
}

TEST_F(Consenting, RecordsOfAnUndecidedProcessAreThereInTheNext) {
    start({.consent = Consent::undecided});
    push(2);
    queue.reset();
    makeQueue(1);
    say(Consent::granted);
    EXPECT_EQ(bodies(), std::vector<std::string>{"21"});
}

TEST_F(Consenting, BackToUndecidedLetsTheUploadEndAndKeepsWhatFails) {
    start({});
    push();
    say(Consent::undecided);
    push();
    EXPECT_EQ(fakes.urlSession->waiting(), 1u);
    answer(500);
    EXPECT_EQ(onDisk(), "12");
    EXPECT_EQ(bodies().size(), 1u);
}

TEST_F(Consenting, ARefusalCancelsDeletesAndThenReports) {
    start({}, 2);
    const std::string ofEarlierProcess = fakes.directories->path() + "/qlsdk-heartbeat.plist";
    const std::string ofNobody = fakes.directories->path() + "/other.plist";
    for (const std::string& file : {ofEarlierProcess, ofNobody}) std::ofstream(file) << "old";
    push(3);
    EXPECT_EQ(bodies(), std::vector<std::string>{"321"});
    push();
    EXPECT_EQ(onDisk(), "4");

    bool filesWereGone = false;
    platform::setConsent(Consent::refused, [&] {
        ++changes;
        filesWereGone = !platform::fileExists(path()) && !platform::fileExists(ofEarlierProcess);
    });
    EXPECT_EQ(platform::consent(), Consent::refused) << "at once";
    EXPECT_EQ(fakes.urlSession->waiting(), 0u) << "cancelled";
    EXPECT_EQ(changes, 0);
    run();
    EXPECT_EQ(changes, 1);
    EXPECT_TRUE(filesWereGone);
    EXPECT_TRUE(platform::fileExists(ofNobody));
    EXPECT_EQ(count(Delivery::discarded), 4u);

    push(3);
    flush();
    EXPECT_EQ(onDisk(), "none");
    EXPECT_EQ(bodies().size(), 1u);
    EXPECT_EQ(count(Delivery::discarded), 7u);
}

TEST_F(Consenting, AGrantAfterARefusalCollectsAnewFromTheFirstNumber) {
    start({}, 3);
    push(2);
    say(Consent::refused);
    push();
    say(Consent::granted);
    EXPECT_TRUE(bodies().empty());
    push(3);
    EXPECT_EQ(bodies(), std::vector<std::string>{"321"});
    EXPECT_EQ(changes, 2);
}

TEST_F(Consenting, AGrantDuringARefusalWaitsForItsEnd) {
    start({}, 2);
    push();
    std::string order;
    queue->pushEvent(std::make_shared<EncodablePicoproto>(picoproto_new("Event")));
    platform::setConsent(Consent::refused, [&order] { order += 'r'; });
    platform::setConsent(Consent::granted, [&order] { order += 'g'; });
    platform::setConsent(Consent::refused, [&order] { order += 'R'; });
    platform::setConsent(Consent::granted, [&order] { order += 'G'; });
    EXPECT_EQ(platform::consent(), Consent::refused);
    run();
    EXPECT_EQ(order, "rRgG");
    EXPECT_EQ(platform::consent(), Consent::granted);
    EXPECT_EQ(onDisk(), "none");
    EXPECT_TRUE(bodies().empty()) << "the record from before the refusal is not sent after it";
    push(2);
    EXPECT_EQ(bodies(), std::vector<std::string>{"21"});
}

TEST_F(Consenting, NoFailureBringsABatchBackAcrossARefusal) {
    delegate->takesOver = true;
    start({});
    push();
    const SubmitCompletion beyondCancelling = delegate->completion;
    say(Consent::refused);
    say(Consent::granted);
    beyondCancelling(std::nullopt, 500, nullptr);
    run();
    EXPECT_EQ(onDisk(), "none");

    push();
    delegate->completion(std::nullopt, 500, nullptr);
    say(Consent::refused);
    EXPECT_EQ(onDisk(), "none") << "it was about to be put back";
    EXPECT_EQ(count(Delivery::discarded), 2u);
    EXPECT_EQ(changes, 3);
}

TEST_F(Consenting, ADelegateThatAsksForARefusalWhileTheBatchIsTakenStopsIt) {
    class Refusing final : public AnalyticsEventsQueueDelegate {
        std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList&, std::int64_t) override {
            platform::setConsent(Consent::refused);
            return Data();
        }
    };
    start({});
    const auto refusing = std::make_shared<Refusing>();
    queue->setDelegate(refusing);
    push();
    EXPECT_TRUE(bodies().empty());
    EXPECT_EQ(onDisk(), "none");
    EXPECT_EQ(count(Delivery::discarded), 1u);
}

TEST_F(Consenting, AProcessThatStartsRefusedDeletesWhatItFindsAndLeavesNoTrace) {
    const std::string ofEarlierProcess = fakes.directories->path() + "/qlsdk-operational-metrics2.plist";
    std::ofstream(ofEarlierProcess) << "old";
    ASSERT_TRUE(QueueArchiveWriter(path()).write(7));
    start({.consent = Consent::refused});
    EXPECT_FALSE(platform::fileExists(ofEarlierProcess)) << "although its queue was never made";
    EXPECT_EQ(onDisk(), "none");

    QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({QLSDKKitTypeFeed, "1.0"});
    run();
    EXPECT_TRUE(bodies().empty());
    EXPECT_TRUE(fakes.userDefaults->objectForKey("com.quillo.quill-kit.heartbeat.FEED_KIT").isNull());
    EXPECT_FALSE(QLSDKKeychainManager::dataForKey(QLSDKInstallation::installationIdKey()));
    say(Consent::granted);
    QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({QLSDKKitTypeFeed, "1.0"});
    run();
    EXPECT_EQ(bodies().size(), 1u) << "due, because nothing was noted while refused";
}

TEST_F(Consenting, NoOtherRequestLeavesWithoutConsent) {
    start({.consent = Consent::undecided});
    for (const Consent consent : {Consent::undecided, Consent::refused}) {
        say(consent);
        int errors = 0;
        platform::current().urlSession->dataTask(
            {.url = "https://localhost/", .method = "GET", .headers = {}, .body = {}}, {},
            [&errors](const platform::UrlResult& result) { errors += result.error ? 1 : 0; });
        run();
        EXPECT_EQ(errors, 1);
    }
    EXPECT_TRUE(bodies().empty());
}

using DryRun = ControlledQueue;

TEST_F(DryRun, HandsRequestsToTheHostAndCountsThemAsAccepted) {
    std::vector<platform::UrlRequest> seen;
    start({.dryRun = [&seen](const platform::UrlRequest& request) {
        seen.push_back(request);
        throw std::runtime_error("the host's own failure");
    }});
    push();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen.front().method, "POST");
    EXPECT_TRUE(seen.front().url.ends_with(kEndpoint)) << seen.front().url;
    EXPECT_EQ(textOf(*seen.front().body), "1");
    EXPECT_EQ(*seen.front().headers.find("Content-Type"), "application/protobuf");
    EXPECT_TRUE(bodies().empty()) << "the network is not used";
    EXPECT_EQ(onDisk(), "");
    EXPECT_EQ(count(Delivery::accepted), 1u);

    queue->pushEvent(std::make_shared<EncodablePicoproto>(picoproto_new("Event")));
    say(Consent::refused);
    push();
    EXPECT_EQ(seen.size(), 1u) << "consent comes first";
}

using RetryDelay = ControlledQueue;

TEST_F(RetryDelay, OfTheServerIsCappedWhereTheHostSaysSo) {
    start({.longestRetryDelay = std::chrono::milliseconds(5000)});
    push();
    answer(503, "86400000");
    fakes.clock->advance(5.001);
    flush();
    EXPECT_EQ(bodies(), (std::vector<std::string>{"1", "1"}));
}

TEST_F(RetryDelay, HoldsOverAClockThatJumpsByYears) {
    constexpr double kYear = 365.25 * 86400;
    start({});
    const double begin = fakes.clock->secondsSince1970();
    push();
    answer(503, "5000");
    for (const double jump : {-30 * kYear, -80 * kYear, 0.0}) {
        fakes.clock->set(begin + jump);
        flush();
        EXPECT_EQ(onDisk(), "1") << "deferred until its own time, whatever day the clock shows: " << jump;
    }
    fakes.clock->set(begin + 100 * kYear);
    flush();
    EXPECT_EQ(bodies().size(), 2u);
    answer(200);

    // A delay that was counted from a wrong clock holds until that clock's time.
    push();
    answer(503, "5000");
    fakes.clock->set(begin);
    flush();
    EXPECT_EQ(onDisk(), "2");
    // Clocks without sense and delays without end neither overflow nor stop the queue.
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    for (const double senseless : {-1e300, 1e300, -kInfinity, kInfinity, begin}) {
        fakes.clock->set(senseless);
        flush();
        push();
        while (fakes.urlSession->waiting() > 0) answer(503, "9223372036854775807");
    }
    fakes.clock->set(begin + 200 * kYear);
    flush();
    EXPECT_NE(onDisk(), "none");
}

using DeliveryCounting = ControlledQueue;

TEST_F(DeliveryCounting, TellsWhatBecameOfEachRecord) {
    start({}, 2);
    push(2);
    answer(200);
    push(2);
    answer(403);
    push(2);
    answer(500);
    flush();
    answer(500);
    platform::DeliveryCounts expected;
    const auto expect = [&expected](Delivery what) -> std::uint64_t& {
        return expected.of[static_cast<std::size_t>(what)];
    };
    expect(Delivery::accepted) = 2;
    expect(Delivery::refusedByServer) = 2;
    expect(Delivery::retried) = 2;
    expect(Delivery::droppedAfterRetry) = 2;
    EXPECT_EQ(platform::deliveryCounts(kArchiveName), expected);
    EXPECT_EQ(platform::deliveryCounts(kEndpoint), expected);
    EXPECT_EQ(platform::totalDeliveryCounts(), expected);
    EXPECT_EQ(platform::deliveryCounts("qlsdk-heartbeat.plist"), std::nullopt);

    const auto second = AnalyticsEventsQueue::create("/v1/other", nullptr, "other.plist", 1, delegate);
    second->pushEvent(std::make_shared<EncodablePicoproto>(picoproto_new("Event")));
    second->pushEvent(nullptr);
    run();
    // The run found the invalid record before the valid one, which it took out in its place.
    EXPECT_EQ(platform::deliveryCounts("/v1/other").value()[Delivery::filtered], 1u);
    EXPECT_EQ(platform::totalDeliveryCounts()[Delivery::filtered], 1u);
    EXPECT_EQ(platform::totalDeliveryCounts()[Delivery::accepted], 2u);
}

TEST_F(DeliveryCounting, AFullDiskKeepsTheOldFileAndCountsWhatItDoesNotHold) {
    start({}, 10);
    push();
    const Data before = *platform::readFile(path(), 1 << 20);
    rlimit unlimited{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &unlimited), 0);
    rlimit full = unlimited;
    full.rlim_cur = before.size();
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
    push(2);
    const std::optional<Data> during = platform::readFile(path(), 1 << 20);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &unlimited), 0);
    EXPECT_EQ(during, before);
    EXPECT_EQ(count(Delivery::lostToFailedWrite), 2u);

    push();
    EXPECT_EQ(onDisk(), "4321") << "with room again the file holds all that memory does";
    EXPECT_EQ(count(Delivery::lostToFailedWrite), 2u);
    flush();
    answer(200);
    EXPECT_EQ(count(Delivery::accepted), 4u);
}

}  // namespace
}  // namespace qlsdk
