#include "QLSDKCoreKit/platform/testing/FakeUrlSession.h"

#include <string>
#include <utility>

namespace qlsdk::platform::testing {

namespace {

bool hasForbiddenByte(const UrlRequest& request) {
    constexpr std::string_view kForbidden("\r\n\0", 3);
    for (const auto& [name, value] : request.headers) {
        if (value.find_first_of(kForbidden) != std::string::npos) return true;
    }
    return false;
}

UrlResult refused() {
    return {.error = UrlError{4, "refused"}, .response = {}, .body = {}};
}

void call(const UrlCompletion& completion, UrlResult result) {
    try {
        if (completion) completion(std::move(result));
    } catch (...) {
        // The port swallows what a completion throws.
    }
}

}  // namespace

void FakeUrlSession::dataTask(UrlRequest request, BodyCeiling ceiling, UrlCompletion completion) {
    if (hasForbiddenByte(request)) {
        call(completion,
             {.error = UrlError{1, "forbidden byte in a header value"}, .response = {}, .body = {}});
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        if (!refusing_) {
            requests_.push_back(std::move(request));
            waiting_.push_back({ceiling, std::move(completion)});
            return;
        }
    }
    call(completion, refused());
}

void FakeUrlSession::refuseTasks(Task done) {
    std::vector<Waiting> ended;
    {
        const std::lock_guard lock(mutex_);
        refusing_ = true;
        ended.swap(waiting_);
    }
    for (const Waiting& task : ended) call(task.completion, refused());
    if (done) done();
}

void FakeUrlSession::acceptTasks() {
    const std::lock_guard lock(mutex_);
    refusing_ = false;
}

std::vector<UrlRequest> FakeUrlSession::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

std::size_t FakeUrlSession::waiting() const {
    const std::lock_guard lock(mutex_);
    return waiting_.size();
}

bool FakeUrlSession::complete(UrlResult result) {
    Waiting task;
    {
        const std::lock_guard lock(mutex_);
        if (waiting_.empty()) return false;
        task = std::move(waiting_.front());
        waiting_.erase(waiting_.begin());
    }
    if (task.ceiling.bytes == 0) {
        result.body.clear();
    } else if (result.body.size() > task.ceiling.bytes) {
        result = {.error = UrlError{2, "body over its ceiling"}, .response = {}, .body = {}};
    }
    call(task.completion, std::move(result));
    return true;
}

bool FakeUrlSession::answer(std::int64_t statusCode, const HeaderFields& headers, std::string_view body) {
    UrlResponse response{.statusCode = statusCode, .headers = {}};
    for (const auto& [name, value] : headers) response.headers.set(canonicalHeaderName(name), value);
    return complete({.error = {}, .response = std::move(response), .body = dataOf(body)});
}

bool FakeUrlSession::fail(std::string_view message) {
    return complete({.error = UrlError{3, std::string(message)}, .response = {}, .body = {}});
}

}  // namespace qlsdk::platform::testing
