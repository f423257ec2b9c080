#include "QLSDKCoreKit/platform/linux/http/HttpTask.h"

#include <string>
#include <utility>

#include <curl/curl.h>

#include "QLSDKCoreKit/platform/linux/threads/WorkGate.h"

namespace qlsdk::platform {

HttpTask::~HttpTask() {
    fail(CURLE_ABORTED_BY_CALLBACK, {});
}

void HttpTask::complete(UrlResult result) noexcept {
    const WorkGate::HostCode call;
    const UrlCompletion once = std::exchange(completion, nullptr);
    try {
        if (once) once(std::move(result));
    } catch (...) {
        // The port swallows what a completion throws.
    }
}

void HttpTask::fail(int code, std::string_view message) noexcept {
    std::string text;
    try {
        text = message;
    } catch (...) {
        // The error counts, not its words.
    }
    complete({.error = UrlError{code, std::move(text)}, .response = std::nullopt, .body = {}});
}

HttpTaskList::~HttpTaskList() {
    // One by one: each task owns the next, and a long chain of destructors would use up the stack.
    while (pop() != nullptr) {
    }
}

void HttpTaskList::push(std::unique_ptr<HttpTask> task) noexcept {
    std::unique_ptr<HttpTask>& end = empty() ? first_ : last_->next;
    last_ = task.get();
    end = std::move(task);
}

std::unique_ptr<HttpTask> HttpTaskList::pop() noexcept {
    std::unique_ptr<HttpTask> task = std::move(first_);
    if (task != nullptr) first_ = std::move(task->next);
    return task;
}

void HttpTaskList::swap(HttpTaskList& other) noexcept {
    first_.swap(other.first_);
    std::swap(last_, other.last_);
}

}  // namespace qlsdk::platform
