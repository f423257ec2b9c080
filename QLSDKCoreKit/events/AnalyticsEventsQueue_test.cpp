#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"

#include <filesystem>
#include <fstream>

#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/control/Consent.h"
#include "QLSDKCoreKit/core/QLCrashReporting.h"
#include "QLSDKCoreKit/events/internal/UploadQueue_test.h"

namespace qlsdk {
namespace {

class AnalyticsEventsQueueTest : public UploadQueueTest {
  protected:
    void SetUp() override { install(); }
};

platform::ArchivedObject record(std::uint64_t id, std::shared_ptr<EncodablePicoproto> content) {
    return std::shared_ptr<platform::Archivable>(std::make_shared<EventWrapper>(id, std::move(content)));
}

TEST_F(AnalyticsEventsQueueTest, PublishesWhenTheBufferIsFullWithADecoratedRequest) {
    makeQueue(3);
    push(2);
    EXPECT_EQ(onDisk(), "2 1");
    EXPECT_TRUE(delegate->bodies.empty());
    push();
    ASSERT_EQ(fakes.urlSession->requests().size(), 1u);
    const platform::UrlRequest request = fakes.urlSession->requests().front();
    EXPECT_TRUE(request.url.ends_with("/v1/test")) << request.url;
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(textOf(*request.body), "321");
    EXPECT_EQ(*request.headers.find("Content-Type"), "application/protobuf");
    EXPECT_EQ(request.headers.find("Accept"), nullptr);
    EXPECT_TRUE(request.headers.find("X-Quill-SDK-Client-Auth-Token")->starts_with("v2:"));
    EXPECT_EQ(onDisk(), "") << "while the upload runs its records are in no file";
    answer(200);
    EXPECT_EQ(onDisk(), "");
    EXPECT_EQ(delegate->lastMaxId, 3);
}

TEST_F(AnalyticsEventsQueueTest, ABufferOfZeroPublishesEachPush) {
    makeQueue(0);
    push(2);
    EXPECT_EQ(delegate->bodies, (std::vector<std::string>{"21", ""}))
        << "both were pushed before the first run; the second finds nothing";
    EXPECT_EQ(fakes.urlSession->requests().size(), 1u);
}

TEST_F(AnalyticsEventsQueueTest, AnEmptyRunAsksTheDelegateRewritesTheFileAndSendsNothing) {
    makeQueue(10);
    EXPECT_EQ(onDisk(), "none");
    flush();
    EXPECT_EQ(delegate->bodies, std::vector<std::string>{""});
    EXPECT_EQ(onDisk(), "");
    EXPECT_TRUE(fakes.urlSession->requests().empty());
}

TEST_F(AnalyticsEventsQueueTest, AFailedBatchComesBackOldestFirstAheadOfNewerRecords) {
    makeQueue(3);
    push(3);
    EXPECT_EQ(lastBody(), "321");
    push();
    answer(500);
    EXPECT_EQ(onDisk(), "1r 2r 3r 4");
    flush();
    EXPECT_EQ(lastBody(), "1234");
    answer(500);
    EXPECT_EQ(onDisk(), "4r") << "the first three are spent";
}

TEST_F(AnalyticsEventsQueueTest, TheServersDelayDefersUpToAndAtItsTime) {
    makeQueue(1);
    push();
    answer(503, "5000");
    fakes.clock->advance(5.0);
    push();
    EXPECT_EQ(lastBody(), "2") << "at exactly the time the first is still deferred";
    answer(200);
    EXPECT_EQ(onDisk(), "1s");
    fakes.clock->advance(0.001);
    flush();
    EXPECT_EQ(lastBody(), "1");
    answer(500);
    EXPECT_EQ(onDisk(), "") << "on purpose: the deferral counted as its retry";
}

TEST_F(AnalyticsEventsQueueTest, DeferredRecordsReturnNewestFirst) {
    makeQueue(3);
    push(3);
    answer(503, "60000");
    EXPECT_EQ(onDisk(), "1r 2r 3r");
    flush();
    EXPECT_EQ(onDisk(), "1s 2s 3s");
    EXPECT_EQ(fakes.urlSession->waiting(), 0u);
    push();
    EXPECT_EQ(fakes.urlSession->requests().size(), 2u) << "waiting records count towards the buffer";
}

TEST_F(AnalyticsEventsQueueTest, ContinuesTheIdsAndTheListOfAnEarlierProcess) {
    leaveArchive(path(), {record(41, event()), record(40, event())}, 41);
    makeQueue(10);
    push();
    EXPECT_EQ(onDisk(), "42 41 40");
    flush();
    EXPECT_EQ(delegate->lastMaxId, 42);
}

TEST_F(AnalyticsEventsQueueTest, AnInvalidElementCostsTheLastOneInItsPlace) {
    // On purpose: the walk from the end removes the last element for every invalid one it meets.
    leaveArchive(path(), {record(3, event()), record(2, nullptr), record(1, event())}, 3);
    makeQueue(10);
    flush();
    EXPECT_EQ(lastBody(), "32") << "the valid record 1 was removed, the invalid 2 went to the delegate";
    answer(500);
    EXPECT_EQ(onDisk(), "2r 3r");
    EXPECT_EQ(fakes.urlSession->waiting(), 0u);
}

TEST_F(AnalyticsEventsQueueTest, ElementsThatAreNoRecordsSurviveLoadingAndLeaveByTheFilter) {
    leaveArchive(
        path(),
        {platform::ArchivedObject(Value("stray")), record(1, event()), platform::ArchivedObject(Value(7))},
        1);
    makeQueue(10);
    EXPECT_EQ(onDisk(), "? 1 ?");
    flush();
    EXPECT_EQ(lastBody(), "?");
    answer(500);
    EXPECT_EQ(onDisk(), "") << "what carries no retry state is not tried again";
}

TEST_F(AnalyticsEventsQueueTest, DamagedFilesCountAsAbsent) {
    makeQueue(10);
    push();
    const Data good = *platform::readFile(path(), 1 << 20);
    queue.reset();
    const Data halved(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(good.size() / 2));
    for (const Data& bytes : {halved, Data(), dataOf("bplist00 and nothing sensible behind it at all")}) {
        ASSERT_TRUE(platform::replaceFile(path(), bytes));
        makeQueue(10);
        push();
        EXPECT_EQ(onDisk(), "1") << bytes.size() << " bytes";
        queue.reset();
        const std::string aside = path() + ".corrupt";
        EXPECT_EQ(platform::readFile(aside, 1 << 20).value_or(Data()), bytes)
            << "kept for a person to look at";
        platform::removeFile(aside);
    }
}

TEST_F(AnalyticsEventsQueueTest, AFileThatCannotBeWrittenCostsOnlyTheRestart) {
    std::filesystem::create_directory(path());
    makeQueue(2);
    push(2);
    EXPECT_EQ(lastBody(), "21");
    answer(500);
    flush();
    EXPECT_EQ(lastBody(), "12");
    std::filesystem::remove_all(fakes.directories->path());
    push();
    EXPECT_EQ(onDisk(), "3") << "the directory that somebody has cleaned away is made again";
}

TEST_F(AnalyticsEventsQueueTest, ObsoleteFilesAreRemovedOnTheirOwnQueue) {
    const std::string directory = fakes.directories->path();
    for (const char* name :
         {"qlsdk-analytics-events.plist", "qlsdk-operational-metrics.plist", "other.plist"}) {
        std::ofstream(directory + "/" + name) << "old";
    }
    queue = AnalyticsEventsQueue::create("/v1/test", nullptr, kArchiveName, 1, delegate);
    ASSERT_EQ(fakes.queues->labelled("delete_archive_dispatch_queue").size(), 1u);
    fakes.queues->labelled("delete_archive_dispatch_queue").front()->drain();
    EXPECT_FALSE(platform::fileExists(directory + "/qlsdk-analytics-events.plist"));
    EXPECT_FALSE(platform::fileExists(directory + "/qlsdk-operational-metrics.plist"));
    EXPECT_TRUE(platform::fileExists(directory + "/other.plist"));
}

TEST_F(AnalyticsEventsQueueTest, ResigningActivePublishesUntilTheQueueIsGone) {
    makeQueue(10);
    push();
    platform::current().notificationCenter->post(platform::kWillResignActiveNotification);
    run();
    EXPECT_EQ(lastBody(), "1");
    answer(200);
    queue.reset();
    platform::current().notificationCenter->post(platform::kWillResignActiveNotification);
    run();
    EXPECT_EQ(delegate->bodies.size(), 1u);
}

TEST_F(AnalyticsEventsQueueTest, QueuedWorkHoldsTheQueueWeaklyAndAnUploadHoldsItStrongly) {
    makeQueue(1);
    const std::weak_ptr<AnalyticsEventsQueue> weak = queue;
    push();
    queue->pushEvent(event());
    queue.reset();
    EXPECT_FALSE(weak.expired()) << "the upload in flight keeps it";
    ASSERT_TRUE(fakes.urlSession->answer(500));
    run();
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(onDisk(), "1r 2") << "the push in the queue still found it alive, the publish run did not";

    makeQueue(10);
    queue->pushEvent(event());
    queue.reset();
    run();
    EXPECT_EQ(onDisk(), "1r 2") << "this push found nobody";
}

TEST_F(AnalyticsEventsQueueTest, AWriteThatIsLeftToTheNextOperationIsNotLostAndMadeByNobodyElse) {
    const auto pushTwoAndRunOne = [this] {
        makeQueue(10);
        queue->pushEvent(event());
        queue->pushEvent(event());
        EXPECT_TRUE(fakes.queues->labelled(kArchiveName).back()->runOne());
        EXPECT_EQ(onDisk(), "none") << "the second push writes for both";
    };
    pushTwoAndRunOne();
    const pid_t child = ::fork();
    if (child == 0) {
        queue.reset();
        ::_exit(platform::fileExists(path()) ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "a child does not write its parent's list";
    queue.reset();
    EXPECT_EQ(onDisk(), "1") << "who ends the queue finds it owed";
    run();
    EXPECT_EQ(onDisk(), "1");

    ASSERT_TRUE(platform::removeFile(path()));
    pushTwoAndRunOne();
    platform::setConsent(platform::Consent::refused);
    while (fakes.queues->labelled(kArchiveName).back()->runOne()) {
        EXPECT_EQ(onDisk(), "none") << "after a refusal nothing is written";
    }
    run();
    EXPECT_EQ(count(platform::Delivery::discarded), 2u);
}

TEST_F(AnalyticsEventsQueueTest, AStreamThatNeverRestsIsWrittenEachTimeItHasDoubled) {
    makeQueue(1'000'000);
    for (int i = 0; i < 4100; ++i) queue->pushEvent(event());
    std::vector<std::size_t> lengths;
    std::optional<Data> last;
    for (int i = 0; i < 4099; ++i) {
        ASSERT_TRUE(fakes.queues->labelled(kArchiveName).back()->runOne());
        std::optional<Data> now = platform::readFile(path(), std::size_t{1} << 24);
        if (now == last) continue;
        last = std::move(now);
        lengths.push_back(readQueueArchive(path()).value_or(QueueArchive()).unsentEvents.size());
    }
    EXPECT_EQ(lengths, (std::vector<std::size_t>{500, 1000, 2000, 4000}));
    run();
    EXPECT_EQ(readQueueArchive(path()).value_or(QueueArchive()).unsentEvents.size(), 4100u);
}

TEST_F(AnalyticsEventsQueueTest, ADelegateThatIsGoneMeansARequestWithoutABody) {
    makeQueue(1);
    delegate = nullptr;
    push();
    ASSERT_EQ(fakes.urlSession->requests().size(), 1u);
    EXPECT_FALSE(fakes.urlSession->requests().back().body);
    EXPECT_EQ(fakes.urlSession->requests().back().headers.find("Content-Type"), nullptr);
}

std::vector<std::string>& reports() {
    static auto& reasons = *new std::vector<std::string>;
    return reasons;
}

TEST_F(AnalyticsEventsQueueTest, MissingParametersAreReportedAndNotFatal) {
    static const QLHandledExceptionLoggerClass logger = {
        [](const QLHandledExceptionLoggerClass*, const QLHandledException* exception) {
            reports().emplace_back(exception->reason);
        }};
    QLSetHandledExceptionLogger(&logger);
    queue = AnalyticsEventsQueue::create(std::nullopt, nullptr, std::nullopt, 1, {});
    EXPECT_EQ(
        reports(),
        (std::vector<std::string>{
            "[ClientID=abc] Condition not satisfied: ((analyticsEndpoint)), reason: 'Invalid parameter not "
            "satisfying: analyticsEndpoint'",
            "[ClientID=abc] Condition not satisfied: ((archiveName)), reason: 'Invalid parameter not "
            "satisfying: archiveName'",
            "[ClientID=abc] Condition not satisfied: ((delegate)), reason: 'Invalid parameter not "
            "satisfying: "
            "delegate'"}));
    push();
    EXPECT_EQ(fakes.urlSession->requests().size(), 1u);
}

}  // namespace
}  // namespace qlsdk
