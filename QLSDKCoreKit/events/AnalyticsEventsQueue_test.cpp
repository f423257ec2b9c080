#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "QLSDKCoreKit/core/QLCrashReporting.h"
#include "QLSDKCoreKit/events/internal/QueueArchive.h"
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/picoproto/MessageContext.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

using platform::testing::FakePlatform;

constexpr const char* kArchiveName = "queue.plist";

/// Writes each record's sequence id as one byte, '?' for what is no record, and keeps what it was asked.
class Recorder final : public AnalyticsEventsQueueDelegate {
  public:
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events,
                                    std::int64_t maxId) override {
        Data body;
        for (const auto& element : events) {
            const auto record = eventWrapperOf(element);
            body.push_back(record != nullptr ? static_cast<std::uint8_t>('0' + record->sequenceId()) : '?');
        }
        bodies.push_back(textOf(body));
        lastMaxId = maxId;
        if (throws) throw std::runtime_error("the delegate's own failure");
        return body;
    }
    Submission submit(const std::shared_ptr<QLSDKNetworkRequest>& request,
                      const SubmitCompletion& completion) override {
        if (!takesOver) return Submission::left;
        taken.push_back(request);
        completions.push_back(completion);
        return Submission::taken;
    }

    std::vector<std::string> bodies;
    std::int64_t lastMaxId = -1;
    bool throws = false;
    bool takesOver = false;
    std::vector<std::shared_ptr<QLSDKNetworkRequest>> taken;
    std::vector<SubmitCompletion> completions;
};

std::shared_ptr<EncodablePicoproto> event() {
    return std::make_shared<EncodablePicoproto>(picoproto_new("Event"));
}

class AnalyticsEventsQueueTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(fakes.install()); }

    void makeQueue(std::uint64_t maxEventBuffer) {
        queue = AnalyticsEventsQueue::create("/v1/test", std::make_shared<QLPayloadProvider>(), kArchiveName,
                                             maxEventBuffer, delegate);
        run();
    }
    void run() { fakes.queues->runSerialQueuesUntilIdle(); }
    void push(int count = 1) {
        for (int i = 0; i < count; ++i) queue->pushEvent(event());
        run();
    }
    void flush() {
        queue->flushQueue();
        run();
    }
    void answer(std::int64_t status, const platform::HeaderFields& headers = {}) {
        ASSERT_TRUE(fakes.urlSession->answer(status, headers));
        run();
    }
    std::string path() const { return fakes.directories->path() + "/" + kArchiveName; }

    /// The list on disk: sequence ids, a retry marked by 'r', a spent one by 's'; "none" without a file.
    std::string onDisk() const {
        const auto archive = readQueueArchive(path());
        if (!archive) return "none";
        std::string text;
        for (const auto& element : archive->unsentEvents) {
            const auto record = eventWrapperOf(element);
            if (!text.empty()) text += ' ';
            text += record == nullptr ? "?" : std::to_string(record->sequenceId());
            if (record != nullptr && record->isRetry()) text += record->numRetried() != 0 ? 's' : 'r';
        }
        return text;
    }
    std::string lastBody() const {
        const auto requests = fakes.urlSession->requests();
        return requests.empty() ? "none" : textOf(requests.back().body.value_or(Data()));
    }
    void writeList(const EventList& events, std::uint64_t maxId) {
        QueueArchiveWriter writer(path());
        std::for_each(events.rbegin(), events.rend(), [&](const auto& event) { writer.pushFront(event); });
        ASSERT_TRUE(writer.write(maxId));
    }

    FakePlatform fakes;
    std::shared_ptr<Recorder> delegate = std::make_shared<Recorder>();
    std::shared_ptr<AnalyticsEventsQueue> queue;
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

TEST_F(AnalyticsEventsQueueTest, EveryOutcomeButTwoKeepsTheBatchOnce) {
    makeQueue(1);
    for (const std::int64_t status : {200, 403}) {
        push();
        answer(status);
        EXPECT_EQ(onDisk(), "") << status;
    }
    const std::uint64_t first = 3;
    std::uint64_t id = first;
    for (const std::int64_t status : {100, 201, 204, 301, 404, 429, 500, 503, 0}) {
        push();
        status != 0 ? answer(status) : void(fakes.urlSession->fail("reset"));
        run();
        EXPECT_EQ(onDisk(), std::to_string(id) + "r") << status;
        flush();
        EXPECT_EQ(fakes.urlSession->waiting(), 1u) << status;
        answer(status != 0 ? 500 : 200);
        EXPECT_EQ(onDisk(), "") << "gone after its second attempt: " << status;
        ++id;
    }
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
    platform::HeaderFields headers;
    headers.set("x-retry-after-millis", "5000");
    answer(503, headers);
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
    platform::HeaderFields headers;
    headers.set("X-Retry-After-Millis", "60000");
    answer(503, headers);
    EXPECT_EQ(onDisk(), "1r 2r 3r");
    flush();
    EXPECT_EQ(onDisk(), "1s 2s 3s");
    EXPECT_EQ(fakes.urlSession->waiting(), 0u);
    push();
    EXPECT_EQ(fakes.urlSession->requests().size(), 2u) << "waiting records count towards the buffer";
}

TEST_F(AnalyticsEventsQueueTest, ContinuesTheIdsAndTheListOfAnEarlierProcess) {
    writeList({record(41, event()), record(40, event())}, 41);
    makeQueue(10);
    push();
    EXPECT_EQ(onDisk(), "42 41 40");
    flush();
    EXPECT_EQ(delegate->lastMaxId, 42);
}

TEST_F(AnalyticsEventsQueueTest, AnInvalidElementCostsTheLastOneInItsPlace) {
    // On purpose: the walk from the end removes the last element for every invalid one it meets.
    writeList({record(3, event()), record(2, nullptr), record(1, event())}, 3);
    makeQueue(10);
    flush();
    EXPECT_EQ(lastBody(), "32") << "the valid record 1 was removed, the invalid 2 went to the delegate";
    answer(500);
    EXPECT_EQ(onDisk(), "2r 3r");
    EXPECT_EQ(fakes.urlSession->waiting(), 0u);
}

TEST_F(AnalyticsEventsQueueTest, ElementsThatAreNoRecordsSurviveLoadingAndLeaveByTheFilter) {
    writeList(
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
    }
}

TEST_F(AnalyticsEventsQueueTest, AFileThatCannotBeWrittenCostsOnlyTheRestart) {
    std::filesystem::create_directory(path());
    makeQueue(2);
    push();
    std::filesystem::remove_all(fakes.directories->path());
    push();
    EXPECT_EQ(lastBody(), "21");
    answer(500);
    flush();
    EXPECT_EQ(lastBody(), "12");
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

TEST_F(AnalyticsEventsQueueTest, ADelegateThatIsGoneOrThrowsMeansARequestWithoutABody) {
    makeQueue(1);
    delegate->throws = true;
    push();
    EXPECT_FALSE(fakes.urlSession->requests().back().body);
    delegate = nullptr;
    push();
    ASSERT_EQ(fakes.urlSession->requests().size(), 2u);
    EXPECT_FALSE(fakes.urlSession->requests().back().body);
    EXPECT_EQ(fakes.urlSession->requests().back().headers.find("Content-Type"), nullptr);
}

TEST_F(AnalyticsEventsQueueTest, ADelegateMaySendItselfAndOnlyItsFirstAnswerCounts) {
    delegate->takesOver = true;
    makeQueue(1);
    push();
    ASSERT_EQ(delegate->taken.size(), 1u);
    EXPECT_TRUE(fakes.urlSession->requests().empty());
    EXPECT_EQ(delegate->taken.front()->path(), "/v1/test");
    for (int i = 0; i < 3; ++i) delegate->completions.front()(std::nullopt, 500, nullptr);
    run();
    EXPECT_EQ(onDisk(), "1r");
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
