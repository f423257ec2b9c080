#include "QLSDKCoreKit/config/QLSDKDynamicConfigManager.h"

#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "QLSDKCoreKit/config/QLSDKDynamicConfigArchive.h"
#include "QLSDKCoreKit/network/QLSDKPayload.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

using platform::testing::FakePlatform;
using platform::testing::ManualQueue;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

using Callback = std::shared_ptr<const DynamicConfigCallback>;

constexpr const char* kQueueLabel = "com.quill.connect.QLSDKDynamicConfigManager";
constexpr const char* kGoodBody = R"({"data":{"config":{"avatoonLearnedSearch":{"enabled":true}}}})";

class QLSDKDynamicConfigManagerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(fakes.install());
        renewManager();
    }

    void renewManager() {
        manager = QLSDKDynamicConfigManager::create(QLSDKDynamicConfigArchive(), "1.3.4");
        queue = fakes.queues->labelled(kQueueLabel).back();
        heard.clear();
    }
    /// Runs the manager's queue only: the main one would start the shared manager.
    void run() {
        while (queue->runOne()) continue;
    }
    Callback listener(std::string name) {
        return std::make_shared<const DynamicConfigCallback>([this, name](bool success) {
            EXPECT_TRUE(queue->isCurrent()) << name;
            heard.push_back(name + (success ? " success" : " failure"));
        });
    }
    void update(const Callback& callback) {
        manager->updateIfNecessary(callback);
        run();
    }
    void answer(std::int64_t status, std::string_view body) {
        ASSERT_TRUE(fakes.urlSession->answer(status, {}, body));
        run();
    }

    FakePlatform fakes;
    std::shared_ptr<QLSDKDynamicConfigManager> manager;
    std::shared_ptr<ManualQueue> queue;
    std::vector<std::string> heard;
};

TEST_F(QLSDKDynamicConfigManagerTest, AsksTheServerInExactlyTheseBytes) {
    manager->updateIfNecessary(listener("a"));
    EXPECT_THAT(fakes.urlSession->requests(), IsEmpty()) << "the fetch ran inside the caller's frame";
    run();
    ASSERT_EQ(fakes.urlSession->requests().size(), 1U);
    const platform::UrlRequest request = fakes.urlSession->requests().front();
    EXPECT_TRUE(request.url.starts_with("https://")) << request.url;
    EXPECT_TRUE(request.url.ends_with("/v1/config")) << request.url;
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(textOf(request.body.value_or(Data())),
              "{\"query\":\"query($kitVersion: String!) {config(kitVersion: $kitVersion) "
              "{avatoonLearnedSearch{enabled}}}\",\"variables\":{\"kitVersion\":\"1.3.4\"}}");
    ASSERT_NE(request.headers.find("Content-Type"), nullptr);
    EXPECT_EQ(*request.headers.find("Content-Type"), "application/json;charset=utf-8");
    ASSERT_NE(request.headers.find("X-Quill-SDK-Client-Auth-Token"), nullptr);
    EXPECT_TRUE(openToken(*request.headers.find("X-Quill-SDK-Client-Auth-Token")));
}

TEST_F(QLSDKDynamicConfigManagerTest, FetchesOnceAndTellsEveryoneOnce) {
    const Callback twice = listener("twice");
    EXPECT_EQ(manager->state(), QLSDKDynamicConfigStateIdle);
    update(twice);
    update(listener("other"));
    update(twice);
    EXPECT_EQ(manager->state(), QLSDKDynamicConfigStateFetching);
    EXPECT_THAT(heard, IsEmpty());
    answer(200, kGoodBody);
    EXPECT_THAT(heard, UnorderedElementsAre("twice success", "other success"));
    EXPECT_EQ(manager->state(), QLSDKDynamicConfigStateDone);
    EXPECT_TRUE(manager->wasFetchFromNetworkSuccessful());

    heard.clear();
    update(twice);
    update(twice);
    EXPECT_THAT(heard, ElementsAre("twice success", "twice success"));
    EXPECT_EQ(fakes.urlSession->requests().size(), 1U);
}

TEST_F(QLSDKDynamicConfigManagerTest, HandsOutAStoredConfigurationOnce) {
    EXPECT_EQ(manager->dynamicConfig("avatoonLearnedSearch"), nullptr);
    update(listener("a"));
    answer(200, kGoodBody);
    const auto config = manager->dynamicConfig("avatoonLearnedSearch");
    ASSERT_NE(config, nullptr);
    EXPECT_TRUE(config->boolValue({"enabled"}, false));
    EXPECT_EQ(manager->dynamicConfig("avatoonLearnedSearch"), nullptr);
}

TEST_F(QLSDKDynamicConfigManagerTest, KeepsNamedObjectsOnlyAndEveryKindOfValue) {
    update(listener("a"));
    answer(200, R"({"data":{"config":{"a":{"n":1},"":{"n":1},"b":5,"c":"x","d":[{}],"e":null,
                    "a":{"n":2,"big":18446744073709551616,"max":9223372036854775807,"none":null,"r":2.5}}}})");
    EXPECT_THAT(heard, ElementsAre("a success"));
    const auto stored = QLSDKDynamicConfigArchive().unarchiveSync();
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->size(), 1U);
    const QLSDKDynamicConfigEntity& entity = *stored->at("a");
    EXPECT_EQ(entity.longValue({"n"}, 0), 2) << "the last of equal keys counts";
    EXPECT_EQ(entity.doubleValue({"big"}, 0), 18446744073709551616.0);
    EXPECT_EQ(entity.longValue({"max"}, 0), 9223372036854775807);
    EXPECT_EQ(entity.longValue({"none"}, 7), 7);
    EXPECT_EQ(entity.doubleValue({"r"}, 0), 2.5);
}

TEST_F(QLSDKDynamicConfigManagerTest, TreatsEveryOtherAnswerAsAFailedFetch) {
    const std::string deep =
        R"({"data":{"config":{"a":{"b":)" + std::string(600, '[') + std::string(600, ']') + "}}}}";
    const std::pair<std::int64_t, std::string> answers[] = {
        {201, kGoodBody},
        {204, ""},
        {304, kGoodBody},
        {500, kGoodBody},
        {200, ""},
        {200, "<html>"},
        {200, "[]"},
        {200, "null"},
        {200, std::string(kGoodBody) + "x"},
        {200, R"({"data":{"config":{"a":{"n":NaN}}}})"},
        {200, R"({"data":{"config":{"a":{"n":1e999}}}})"},
        {200, "{\"data\":{\"config\":{\"a\":{\"s\":\"\xFF\"}}}}"},
        {200, deep},
        {200, R"({"config":{}})"},
        {200, R"({"data":null})"},
        {200, R"({"data":[{"config":{}}]})"},
        {200, R"({"data":{}})"},
        {200, R"({"data":{"config":null}})"},
        {200, R"({"data":{"config":[]}})"},
        {200, R"({"data":{"config":{}}})" + std::string(1 << 20, ' ')},
    };
    for (const auto& [status, body] : answers) {
        renewManager();
        update(listener("a"));
        answer(status, body);
        EXPECT_THAT(heard, ElementsAre("a failure")) << status << " " << body.substr(0, 60);
        EXPECT_EQ(manager->state(), QLSDKDynamicConfigStateDone);
        const std::size_t requests = fakes.urlSession->requests().size();
        update(listener("late"));
        EXPECT_THAT(heard, ElementsAre("a failure", "late failure"));
        EXPECT_EQ(fakes.urlSession->requests().size(), requests) << "a failed fetch was repeated";
        EXPECT_EQ(manager->dynamicConfig("a"), nullptr);
    }
    renewManager();
    update(listener("a"));
    ASSERT_TRUE(fakes.urlSession->fail("no route"));
    run();
    EXPECT_THAT(heard, ElementsAre("a failure"));
}

// The session's thread has half the stack of the queue's, so that it must not even look at a deep answer.
TEST_F(QLSDKDynamicConfigManagerTest, LooksAtAnAnswerOnItsQueueAlone) {
    update(listener("a"));
    const auto complaints = [before = platform::diagnostics().size()] {
        return platform::diagnostics().size() - before;
    };
    const std::string deepest = std::string(510, '[') + std::string(510, ']');
    ASSERT_TRUE(fakes.urlSession->answer(200, {}, R"({"data":{"config":)" + deepest + "}}"));
    EXPECT_EQ(complaints(), 0U) << "it has been parsed on the thread that brought it";
    run();
    EXPECT_EQ(complaints(), 1U);
    EXPECT_THAT(heard, ElementsAre("a failure"));
}

TEST_F(QLSDKDynamicConfigManagerTest, ReportsAnAnswerThatCouldNotBeStoredAsFailed) {
    update(listener("a"));
    // A directory would be made again; there is no room for one.
    std::filesystem::remove_all(fakes.directories->path());
    std::ofstream(fakes.directories->path()).put('x');
    answer(200, kGoodBody);
    EXPECT_THAT(heard, ElementsAre("a failure"));
    EXPECT_FALSE(manager->wasFetchFromNetworkSuccessful());
}

TEST_F(QLSDKDynamicConfigManagerTest, IgnoresCallbacksThatAreNone) {
    manager->updateIfNecessary(nullptr);
    manager->updateIfNecessary(std::make_shared<const DynamicConfigCallback>());
    EXPECT_EQ(queue->waiting(), 0U);
    EXPECT_EQ(manager->state(), QLSDKDynamicConfigStateIdle);
}

TEST_F(QLSDKDynamicConfigManagerTest, AnswersAnUpdateAskedForInsideACallbackAfterwards) {
    const Callback inner = listener("inner");
    update(std::make_shared<const DynamicConfigCallback>([&](bool) {
        EXPECT_EQ(manager->state(), QLSDKDynamicConfigStateFetching);
        manager->updateIfNecessary(inner);
        EXPECT_THAT(heard, IsEmpty()) << "called inside the call that gave it";
    }));
    answer(200, kGoodBody);
    EXPECT_THAT(heard, ElementsAre("inner success"));
    EXPECT_EQ(fakes.urlSession->requests().size(), 1U);
}

TEST_F(QLSDKDynamicConfigManagerTest, SurvivesCallbacksThatThrow) {
    const auto thrower = [] {
        return std::make_shared<const DynamicConfigCallback>(
            [](bool) { throw std::runtime_error("the host's own failure"); });
    };
    const std::vector<Callback> callbacks{thrower(), listener("a"), thrower(), listener("b"), thrower()};
    for (const Callback& callback : callbacks) update(callback);
    answer(200, kGoodBody);
    EXPECT_THAT(heard, UnorderedElementsAre("a success", "b success"));
    EXPECT_EQ(manager->state(), QLSDKDynamicConfigStateDone);
}

TEST_F(QLSDKDynamicConfigManagerTest, CallsBackEvenWhenItsOwnerHasGivenItUp) {
    update(listener("a"));
    manager.reset();
    answer(200, kGoodBody);
    EXPECT_THAT(heard, ElementsAre("a success"));
}

TEST_F(QLSDKDynamicConfigManagerTest, TakesAnUnknownStateForDone) {
    manager->setState(static_cast<QLSDKDynamicConfigState>(7));
    manager->setWasFetchFromNetworkSuccessful(true);
    update(listener("a"));
    EXPECT_THAT(heard, ElementsAre("a success"));
    EXPECT_THAT(fakes.urlSession->requests(), IsEmpty());
}

TEST_F(QLSDKDynamicConfigManagerTest, FailsTheFetchWhenItsVersionCannotBeSent) {
    manager = QLSDKDynamicConfigManager::create(QLSDKDynamicConfigArchive(), "\xFF");
    queue = fakes.queues->labelled(kQueueLabel).back();
    update(listener("a"));
    EXPECT_THAT(heard, ElementsAre("a failure"));
    EXPECT_THAT(fakes.urlSession->requests(), IsEmpty());
}

/// Breaks the port's promise to complete exactly once, in each of three ways.
class MisbehavingSession final : public platform::UrlSession {
  public:
    enum Fault { completesTwice, dropsCompletion, throws };

    explicit MisbehavingSession(Fault fault) : fault_(fault) {}
    void dataTask(platform::UrlRequest, platform::BodyCeiling, platform::UrlCompletion completion) override {
        if (fault_ == throws) throw std::runtime_error("no session");
        if (fault_ == dropsCompletion) return;
        completion({.error = {}, .response = platform::UrlResponse{200, {}}, .body = dataOf(kGoodBody)});
        completion({.error = platform::UrlError{}, .response = {}, .body = {}});
    }

  private:
    const Fault fault_;
};

class MisbehavingSessionTest : public ::testing::TestWithParam<MisbehavingSession::Fault> {};

TEST_P(MisbehavingSessionTest, StillMakesTheManagerCallBackOnce) {
    const FakePlatform fakes;
    platform::Platform platform = fakes.platform();
    platform.urlSession = std::make_shared<MisbehavingSession>(GetParam());
    ASSERT_EQ(platform::install(platform), platform::InstallResult::installed);
    const auto manager = QLSDKDynamicConfigManager::create(QLSDKDynamicConfigArchive(), "1");
    std::vector<bool> outcomes;
    manager->updateIfNecessary(
        std::make_shared<const DynamicConfigCallback>([&](bool success) { outcomes.push_back(success); }));
    while (fakes.queues->labelled(kQueueLabel).front()->runOne()) continue;
    EXPECT_THAT(outcomes, ElementsAre(GetParam() == MisbehavingSession::completesTwice));
    EXPECT_EQ(manager->state(), QLSDKDynamicConfigStateDone);
}

INSTANTIATE_TEST_SUITE_P(Faults, MisbehavingSessionTest,
                         ::testing::Values(MisbehavingSession::completesTwice,
                                           MisbehavingSession::dropsCompletion, MisbehavingSession::throws));

class KitVersionTest : public ::testing::TestWithParam<const char*> {};

TEST_P(KitVersionTest, IsThatOfTheLibrarysOwnBundle) {
    const FakePlatform fakes;
    const std::string version = GetParam();
    fakes.bundles->setLibrary(version.empty() ? Dictionary() : Dictionary{{"CFBundleVersion", version}});
    ASSERT_TRUE(fakes.install());
    QLSDKDynamicConfigManager::shared().updateIfNecessary(
        std::make_shared<const DynamicConfigCallback>([](bool) {}));
    while (fakes.queues->labelled(kQueueLabel).front()->runOne()) continue;
    ASSERT_EQ(fakes.urlSession->requests().size(), 1U);
    EXPECT_THAT(textOf(*fakes.urlSession->requests().front().body),
                ::testing::EndsWith("{\"kitVersion\":\"" + version + "\"}}"));
}

INSTANTIATE_TEST_SUITE_P(Bundles, KitVersionTest, ::testing::Values("1.3.4", ""));

TEST(QLSDKDynamicConfigManager, ServesSixteenThreadsWithOneRequest) {
    constexpr std::size_t kThreads = 16;
    constexpr std::size_t kCalls = 1000;
    const FakePlatform fakes;
    // The real queues; everything else stays a fake.
    platform::Platform platform = fakes.platform();
    platform.queues = nullptr;
    platform.activity = nullptr;
    ASSERT_EQ(platform::install(platform), platform::InstallResult::installed);
    const auto manager = QLSDKDynamicConfigManager::create(QLSDKDynamicConfigArchive(), "1");

    std::array<std::atomic<int>, kCalls> called{};
    std::atomic<int> failures{0};
    const auto listener = [&](std::size_t place) {
        return std::make_shared<const DynamicConfigCallback>([&, place](bool success) {
            ++called.at(place);
            if (!success) ++failures;
        });
    };
    // One half is asked for before the server answers, the other while it does.
    std::barrier half(kThreads + 1);
    std::vector<std::thread> users;
    for (std::size_t user = 0; user < kThreads; ++user) {
        users.emplace_back([&, user] {
            for (std::size_t i = user; i < kCalls / 2; i += kThreads) manager->updateIfNecessary(listener(i));
            half.arrive_and_wait();
            half.arrive_and_wait();
            for (std::size_t i = kCalls / 2 + user; i < kCalls; i += kThreads) {
                manager->updateIfNecessary(listener(i));
            }
        });
    }
    half.arrive_and_wait();
    EXPECT_TRUE(platform::waitUntilIdle(std::chrono::minutes(1)));
    EXPECT_EQ(fakes.urlSession->requests().size(), 1U);
    half.arrive_and_wait();
    EXPECT_TRUE(fakes.urlSession->answer(200, {}, kGoodBody));
    for (std::thread& user : users) user.join();
    EXPECT_TRUE(platform::waitUntilIdle(std::chrono::minutes(1)));

    EXPECT_EQ(fakes.urlSession->requests().size(), 1U);
    EXPECT_THAT(std::vector<int>(called.begin(), called.end()), ::testing::Each(1));
    EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace qlsdk
