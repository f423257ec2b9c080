#include "QLSDKCoreKit/control/internal/ControlledUrlSession.h"

#include <utility>

namespace qlsdk::platform {

namespace {

UrlResult withoutConsent() {
    return {.error = UrlError{0, "no consent to send"}, .response = std::nullopt, .body = {}};
}

UrlResult dryAnswer(const DryRunSink& sink, const UrlRequest& request) {
    try {
        sink(request);
    } catch (...) {
        // The host's function only looks on; what it makes of a request does not change the answer.
    }
    constexpr std::int64_t kAccepted = 200;
    return {
        .error = std::nullopt, .response = UrlResponse{.statusCode = kAccepted, .headers = {}}, .body = {}};
}

}  // namespace

ControlledUrlSession::ControlledUrlSession(std::shared_ptr<UrlSession> session, ConsentGate& gate,
                                           DryRunSink dryRun)
    : session_(std::move(session)), gate_(gate), dryRun_(std::move(dryRun)) {}

void ControlledUrlSession::dataTask(UrlRequest request, BodyCeiling ceiling, UrlCompletion completion) {
    if (maySend(gate_.consent()) && !dryRun_) {
        return session_->dataTask(std::move(request), ceiling, std::move(completion));
    }
    // Asked once more when its turn comes: consent may have been withdrawn meanwhile.
    gate_.queue()->async([this, request = std::move(request), completion = std::move(completion)]() mutable {
        UrlResult result =
            maySend(gate_.consent()) && dryRun_ ? dryAnswer(dryRun_, request) : withoutConsent();
        if (completion) completion(std::move(result));
    });
}

void ControlledUrlSession::refuseTasks(Task done) {
    // Dry runs that wait are ahead of the end of the refusal, which is a task of the same queue.
    session_->refuseTasks(std::move(done));
}

void ControlledUrlSession::acceptTasks() {
    session_->acceptTasks();
}

std::size_t ControlledUrlSession::mostUploadsOfAQueue() const noexcept {
    return dryRun_ ? UrlSession::mostUploadsOfAQueue() : session_->mostUploadsOfAQueue();
}

}  // namespace qlsdk::platform
