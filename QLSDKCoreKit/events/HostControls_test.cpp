// An upload queue behind the host's controls, on fakes.

#include <filesystem>
#include <fstream>
#include <limits>

#include <sys/resource.h>

#include "QLSDKCoreKit/control/Consent.h"
#include "QLSDKCoreKit/control/ConsentGate.h"
#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"
#include "QLSDKCoreKit/events/internal/UploadQueue_test.h"
#include "QLSDKCoreKit/storage/QLSDKInstallation.h"
#include "QLSDKCoreKit/storage/QLSDKKeychainManager.h"

namespace qlsdk {
namespace {

using platform::Consent;
using platform::Delivery;

class ControlledQueue : public UploadQueueTest {
  protected:
    void start(platform::HostControls controls, std::uint64_t maxEventBuffer = 1) {
        install(std::move(controls));
        makeQueue(maxEventBuffer);
    }
    void say(Consent consent) {
        platform::setConsent(consent, [this] { ++changes; });
        run();
    }

    int changes = 0;
};

using Consenting = ControlledQueue;

TEST_F(Consenting, UndecidedKeepsRecordsOnDiskAndAGrantSendsThemAtOnce) {
    start({.consent = Consent::undecided});
    push(2);
    flush();
    EXPECT_EQ(onDisk(), "2 1");
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
    EXPECT_EQ(onDisk(), "1r 2");
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
    delegate->takeOver();
    start({});
    push();
    const SubmitCompletion beyondCancelling = delegate->completions.back();
    say(Consent::refused);
    say(Consent::granted);
    beyondCancelling(std::nullopt, 500, nullptr);
    run();
    EXPECT_EQ(onDisk(), "none");

    push();
    delegate->completions.back()(std::nullopt, 500, nullptr);
    say(Consent::refused);
    EXPECT_EQ(onDisk(), "none") << "it was about to be put back";
    EXPECT_EQ(count(Delivery::discarded), 2u);
    EXPECT_EQ(changes, 3);
}

TEST_F(Consenting, ARefusalDeletesTheFilesOfQueuesThatAreGone) {
    start({}, 10);
    push();
    queue.reset();
    ASSERT_EQ(onDisk(), "1");
    say(Consent::refused);
    EXPECT_FALSE(platform::fileExists(path()));
    EXPECT_EQ(changes, 1);
}

/// Queues that are given their tasks by the test, which knows them by their label.
class MeddlingQueues final : public platform::Queues {
  public:
    using Give = std::function<void(const std::string& label, platform::SerialQueue& queue, platform::Task)>;

    MeddlingQueues(std::shared_ptr<platform::testing::ManualQueues> queues, Give give)
        : queues_(std::move(queues)), give_(std::move(give)) {}

    std::shared_ptr<platform::SerialQueue> makeSerialQueue(const std::string& label) override {
        return std::make_shared<Meddling>(label, queues_->makeSerialQueue(label), give_);
    }
    std::shared_ptr<platform::MainQueue> mainQueue() override { return queues_->mainQueue(); }

  private:
    struct Meddling final : platform::SerialQueue {
        Meddling(std::string itsLabel, std::shared_ptr<platform::SerialQueue> itsQueue, Give function)
            : label(std::move(itsLabel)), queue(std::move(itsQueue)), give(std::move(function)) {}
        void async(platform::Task task) override { give(label, *queue, std::move(task)); }
        [[nodiscard]] bool isCurrent() const noexcept override { return queue->isCurrent(); }
        const std::string label;
        const std::shared_ptr<platform::SerialQueue> queue;
        const Give give;
    };
    const std::shared_ptr<platform::testing::ManualQueues> queues_;
    const Give give_;
};

TEST_F(Consenting, ARefusalWithoutMemoryHoldsAndIsCarriedOutAfterwards) {
    enum Memory { enough, noneAndThrows, noneAndLosesTheTask };
    constexpr const char* kGate = "com.quillo.quill-kit.consent";
    Memory memory = enough;
    std::string without;
    platform::Platform platform = fakes.platform();
    platform.queues = std::make_shared<MeddlingQueues>(
        fakes.queues, [&](const std::string& label, platform::SerialQueue& given, platform::Task task) {
            if (memory == enough || without.find(label) == std::string::npos)
                given.async(std::move(task));
            else if (memory == noneAndThrows)
                throw std::bad_alloc();
        });
    ASSERT_EQ(platform::install(std::move(platform)), platform::InstallResult::installed);
    makeQueue(1);
    for (const std::string& labels :
         {std::string(kArchiveName), std::string(kGate), std::string(kArchiveName) + kGate}) {
        for (const Memory kind : {noneAndThrows, noneAndLosesTheTask}) {
            say(Consent::undecided);
            push(2);
            ASSERT_EQ(onDisk(), "2 1");
            changes = 0;
            without = labels;
            memory = kind;
            platform::setConsent(Consent::refused, [this] { ++changes; });
            EXPECT_EQ(platform::consent(), Consent::refused);
            memory = enough;
            run();
            EXPECT_EQ(changes, 1) << labels << kind;
            EXPECT_EQ(onDisk(), "none") << labels << kind;
            say(Consent::granted);
            EXPECT_TRUE(bodies().empty()) << labels << kind << ": what was kept before is not sent after";
        }
    }
}

TEST_F(Consenting, ARefusalWhileAQueueIsMadeReachesItAlsoWhenItIsOver) {
    std::function<void()> meanwhile = [] {};
    platform::Platform platform = fakes.platform();
    // The queue gives this one a task right before it reads its file.
    platform.queues = std::make_shared<MeddlingQueues>(
        fakes.queues,
        [&meanwhile](const std::string& label, platform::SerialQueue& given, platform::Task task) {
            given.async(std::move(task));
            if (label == "delete_archive_dispatch_queue") meanwhile();
        });
    ASSERT_EQ(platform::install(std::move(platform)), platform::InstallResult::installed);
    for (const bool isOver : {false, true}) {
        // A name that nobody has had yet, so that no refusal knows the file.
        const std::string name = isOver ? "over.plist" : "underway.plist";
        const std::string file = fakes.directories->path() + "/" + name;
        leaveArchive(file,
                     {std::shared_ptr<platform::Archivable>(std::make_shared<EventWrapper>(7, event()))}, 7);
        meanwhile = [&] {
            platform::setConsent(Consent::refused);
            if (!isOver) return;
            run();
            say(Consent::granted);
        };
        queue = AnalyticsEventsQueue::create(kEndpoint, nullptr, name, 1, delegate);
        meanwhile = [] {};
        run();
        EXPECT_EQ(onDisk(file), "none") << isOver;
        say(Consent::granted);
        EXPECT_EQ(platform::consent(), Consent::granted);
        push();
        EXPECT_EQ(lastBody(), "1") << isOver;
    }
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
    leaveArchive(path(), {}, 7);
    const std::vector<std::string> beside = {".spare", ".unreadable", ".corrupt", ".qlsdk~aB3dE9"};
    for (const std::string& suffix : beside) {
        std::ofstream(path() + suffix) << "old";
        std::ofstream(ofEarlierProcess + suffix) << "old";
    }
    start({.consent = Consent::refused});
    say(Consent::refused);
    for (const std::string& suffix : beside) {
        EXPECT_FALSE(platform::fileExists(path() + suffix)) << suffix;
        EXPECT_FALSE(platform::fileExists(ofEarlierProcess + suffix)) << suffix;
    }
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

TEST_F(DryRun, ARefusalEndsThoseThatWaitAndAGrantAllowsNewOnes) {
    int seen = 0;
    fakes.urlSession->setMostUploadsOfAQueue(1);
    start({.dryRun = [&seen](const platform::UrlRequest&) { ++seen; }});
    EXPECT_GT(platform::current().urlSession->mostUploadsOfAQueue(), 1u) << "nothing waits for a network";
    std::string order;
    const auto ask = [&order](char name) {
        platform::current().urlSession->dataTask(
            {.url = "https://localhost/", .method = "GET", .headers = {}, .body = {}}, {},
            [&order, name](const platform::UrlResult& result) {
                order += name;
                order += result.error ? '-' : '+';
            });
    };
    ask('a');
    platform::setConsent(Consent::refused, [&order] { order += 'R'; });
    ask('b');
    run();
    EXPECT_EQ(order, "a-b-R");
    EXPECT_EQ(seen, 0);
    say(Consent::granted);
    ask('c');
    push();
    EXPECT_EQ(order, "a-b-Rc+");
    EXPECT_EQ(seen, 2);
    EXPECT_TRUE(bodies().empty());
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
        EXPECT_EQ(onDisk(), "1s") << "deferred until its own time, whatever day the clock shows: " << jump;
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
    EXPECT_EQ(onDisk(), "2s");
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
    EXPECT_EQ(onDisk(), "4 3 2 1") << "with room again the file holds all that memory does";
    EXPECT_EQ(count(Delivery::lostToFailedWrite), 2u);
    flush();
    answer(200);
    EXPECT_EQ(count(Delivery::accepted), 4u);
}

}  // namespace
}  // namespace qlsdk
