#include "QLSDKCoreKit/events/internal/QueueUpload.h"

#include <set>

#include "QLSDKCoreKit/control/Consent.h"
#include "QLSDKCoreKit/events/internal/UploadQueue_test.h"

namespace qlsdk {
namespace {

using platform::Delivery;
using platform::UrlCompletion;
using platform::UrlResult;

/// The fake session, unless a test has something else in mind for the next task.
class ReplaceableSession final : public platform::UrlSession {
  public:
    explicit ReplaceableSession(std::shared_ptr<platform::testing::FakeUrlSession> session)
        : session_(std::move(session)) {}
    void dataTask(platform::UrlRequest request, platform::BodyCeiling ceiling,
                  UrlCompletion completion) override {
        if (!instead) return session_->dataTask(std::move(request), ceiling, std::move(completion));
        ++replaced;
        instead(completion);
    }
    void refuseTasks(platform::Task done) override { session_->refuseTasks(std::move(done)); }
    void acceptTasks() override { session_->acceptTasks(); }

    std::function<void(UrlCompletion&)> instead;
    std::size_t replaced = 0;

  private:
    const std::shared_ptr<platform::testing::FakeUrlSession> session_;
};

UrlResult answered(std::int64_t status) {
    return {.error = {}, .response = platform::UrlResponse{.statusCode = status, .headers = {}}, .body = {}};
}

enum class End { done, refusedByServer, failed, discarded };

Delivery becameOf(End end, bool isRetry) {
    if (end == End::done) return Delivery::accepted;
    if (end == End::refusedByServer) return Delivery::refusedByServer;
    if (isRetry) return Delivery::droppedAfterRetry;
    return end == End::failed ? Delivery::retried : Delivery::discarded;
}

class QueueUploadTest : public UploadQueueTest {
  protected:
    void SetUp() override {
        platform::Platform platform = fakes.platform();
        session = std::make_shared<ReplaceableSession>(fakes.urlSession);
        platform.urlSession = session;
        ASSERT_EQ(platform::install(std::move(platform)), platform::InstallResult::installed);
    }
    [[nodiscard]] std::size_t sessionTasks() const {
        return fakes.urlSession->requests().size() + session->replaced;
    }
    [[nodiscard]] std::string file() const { return fakes.directories->path() + "/" + archive; }
    void sendsBy(Submission submission, const std::function<void(const SubmitCompletion&)>& meanwhile) {
        delegate->send = [submission, meanwhile](const SubmitCompletion& completion) {
            meanwhile(completion);
            return submission;
        };
    }
    void keepAs(Submission submission) {
        sendsBy(submission, [this](const auto& completion) { delegate->completions.push_back(completion); });
    }
    void complete(std::int64_t status) {
        delegate->completions.back()(std::nullopt, status, nullptr);
        run();
    }
    /// The delegate and the session are as ever again, and nothing of the last upload is kept.
    void behave() {
        delegate->parsed = nullptr;
        delegate->send = nullptr;
        session->instead = nullptr;
        delegate->completions.clear();
        kept = nullptr;
        run();
    }

    std::shared_ptr<ReplaceableSession> session;
    UrlCompletion kept;
    std::string archive;
};

/// One way in which an upload can end.
struct Way {
    const char* name;
    End end;
    /// How many requests reach the URL session.
    std::size_t tasks;
    /// Before the run that makes the upload, and after it.
    std::function<void()> before;
    std::function<void()> after;
    const char* endpoint = kEndpoint;
};

TEST_F(QueueUploadTest, EveryWayToEndKeepsARecordForOneMoreTryOrForNone) {
    const auto nothing = [] {};
    const auto answers = [this](std::int64_t status, std::string_view retryAfter = {}) {
        return [this, status, retryAfter] { answer(status, retryAfter); };
    };
    const auto call = [](std::int64_t status) {
        return [status](const SubmitCompletion& completion) { completion(std::nullopt, status, nullptr); };
    };
    const auto thrown = [](const SubmitCompletion&) { throw std::runtime_error("the delegate's own"); };
    std::vector<Way> ways = {
        {"200", End::done, 1, nothing, answers(200)},
        {"403", End::refusedByServer, 1, nothing, answers(403)},
        {"no answer", End::failed, 1, nothing, [this] { fakes.urlSession->fail("reset"); }},
        {"a delay that is none", End::failed, 1, nothing,
         [this] {
             answer(503, "soon");
             fakes.clock->advance(0.001);
         }},
        {"a delay before now", End::failed, 1, nothing, answers(503, "-5000")},
        {"a delay that is no longer than now", End::failed, 1, nothing,
         [this] {
             answer(503, "10");
             fakes.clock->advance(0.011);
         }},
        {"neither error nor response", End::failed, 1,
         [this] { session->instead = [](const auto& completion) { completion(UrlResult()); }; }, nothing},
        {"an error beside a response", End::failed, 1,
         [this] {
             session->instead = [](const auto& completion) {
                 UrlResult both = answered(200);
                 both.error = platform::UrlError{1, "reset"};
                 completion(std::move(both));
             };
         },
         nothing},
        {"the session throws", End::failed, 1,
         [this] { session->instead = [](auto&) { throw std::bad_alloc(); }; }, nothing},
        {"the session keeps the task, throws, and answers", End::failed, 1,
         [this] {
             session->instead = [this](auto& completion) {
                 kept = std::move(completion);
                 throw std::bad_alloc();
             };
         },
         [this] { kept(answered(200)); }},
        {"the session drops the task", End::failed, 1, [this] { session->instead = [](auto&) {}; }, nothing},
        {"the session drops the task later", End::failed, 1,
         [this] { session->instead = [this](auto& completion) { kept = std::move(completion); }; },
         [this] { kept = nullptr; }},
        {"the session answers twice", End::done, 1,
         [this] {
             session->instead = [](auto& completion) {
                 completion(answered(200));
                 completion(answered(500));
             };
         },
         nothing},
        {"no URL", End::failed, 0, nothing, nothing, "/no url[%"},
        {"the body's delegate throws", End::failed, 0,
         [this] { delegate->parsed = [] { throw std::runtime_error("the delegate's own"); }; }, nothing},
        {"the body's delegate throws no exception", End::failed, 0,
         [this] { delegate->parsed = [] { throw 7; }; }, nothing},
        {"the delegate sends", End::done, 0, [=, this] { sendsBy(Submission::taken, call(200)); }, nothing},
        {"the delegate fails", End::failed, 0, [=, this] { sendsBy(Submission::taken, call(500)); }, nothing},
        {"the delegate answers twice, later", End::failed, 0, [this] { keepAs(Submission::taken); },
         [this] {
             complete(500);
             complete(200);
         }},
        {"the delegate drops its completion", End::failed, 0,
         [this] { sendsBy(Submission::taken, [](const auto&) {}); }, nothing},
        {"the delegate drops its completion later", End::failed, 0, [this] { keepAs(Submission::taken); },
         [this] { delegate->completions.clear(); }},
        {"the delegate throws", End::failed, 0, [=, this] { sendsBy(Submission::taken, thrown); }, nothing},
        {"the delegate keeps its completion, throws, and succeeds", End::failed, 0,
         [=, this] {
             sendsBy(Submission::taken, [=, this](const auto& completion) {
                 delegate->completions.push_back(completion);
                 thrown(completion);
             });
         },
         [this] { complete(200); }},
        {"the delegate succeeds and throws", End::done, 0,
         [=, this] {
             sendsBy(Submission::taken, [=](const auto& completion) {
                 call(200)(completion);
                 thrown(completion);
             });
         },
         nothing},
        {"the delegate leaves what it has sent", End::done, 0,
         [=, this] { sendsBy(Submission::left, call(200)); }, nothing},
        {"the delegate leaves what it has failed to send", End::failed, 0,
         [=, this] { sendsBy(Submission::left, call(500)); }, nothing},
        {"the delegate fails what it has left before the session has sent it", End::failed, 1,
         [this] { keepAs(Submission::left); },
         [this] {
             complete(500);
             answer(200);
         }},
        {"the delegate drops what it has left", End::done, 1, [this] { keepAs(Submission::left); },
         [this] {
             delegate->completions.clear();
             answer(200);
         }},
        {"a refusal cuts it", End::discarded, 1, nothing,
         [this] {
             platform::setConsent(platform::Consent::refused);
             platform::setConsent(platform::Consent::granted);
         }},
        {"a delegate fails across a refusal", End::discarded, 0, [this] { keepAs(Submission::taken); },
         [this] {
             platform::setConsent(platform::Consent::refused);
             run();
             platform::setConsent(platform::Consent::granted);
             complete(500);
         }},
    };
    std::vector<std::string> statuses = {"100", "201", "204", "301", "400",
                                         "404", "413", "429", "500", "503"};
    for (const std::string& status : statuses) {
        ways.push_back({status.c_str(), End::failed, 1, nothing, answers(std::stoll(status))});
    }

    for (const Way& way : ways) {
        for (const bool isRetry : {false, true}) {
            archive = std::string(way.name) + (isRetry ? " again" : "");
            SCOPED_TRACE(archive);
            queue = AnalyticsEventsQueue::create(way.endpoint, nullptr, archive, 2, delegate);
            push();
            if (isRetry) {
                flush();
                if (fakes.urlSession->waiting() > 0) answer(500);
                ASSERT_EQ(onDisk(file()), "1r");
            }
            const std::size_t tasks = sessionTasks();
            way.before();
            flush();
            way.after();
            behave();
            EXPECT_EQ(sessionTasks() - tasks, way.tasks);

            platform::DeliveryCounts expected;
            if (isRetry) expected.of[static_cast<std::size_t>(Delivery::retried)] = 1;
            ++expected.of[static_cast<std::size_t>(becameOf(way.end, isRetry))];
            EXPECT_EQ(platform::deliveryCounts(archive), expected);
            const bool comesBack = way.end == End::failed && !isRetry;
            const char* none = way.end == End::discarded ? "none" : "";
            EXPECT_EQ(onDisk(file()), comesBack ? "1r" : none);
            const std::size_t asked = delegate->submitted.size();
            flush();
            EXPECT_EQ(delegate->submitted.size() - asked, comesBack ? 1u : 0u);
            while (fakes.urlSession->answer(200)) run();
            queue.reset();
        }
    }
    std::set<std::string> causes;
    for (const platform::Diagnostic& told : fakes.diagnostics->told()) causes.insert(told.cause);
    causes.erase("tokens are sealed with the public development key and prove nothing");
    EXPECT_EQ(causes, (std::set<std::string>{"a delegate could not build a body",
                                             "a delegate threw instead of sending",
                                             "a request could not be made", "base URL and path form no URL",
                                             "the completion of an upload was dropped"}));
}

}  // namespace
}  // namespace qlsdk
