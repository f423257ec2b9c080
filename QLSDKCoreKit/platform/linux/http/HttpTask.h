#pragma once

#include <memory>
#include <string_view>

#include "QLSDKCoreKit/platform/Activity.h"
#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk::platform {

/// One task given to the session. Whatever becomes of it, its completion is called once: the end of a task
/// that nobody completed is an error.
struct HttpTask {
    ~HttpTask();

    /// Hands `result` over, unless that has been done. What the completion throws is swallowed; it and what
    /// it holds are gone when this returns.
    void complete(UrlResult result) noexcept;
    /// Without the memory for the message the error has none.
    void fail(int code, std::string_view message) noexcept;

    // First, so that it is given up last, after the completion and all it holds.
    Activity::Token token;
    UrlRequest request;
    BodyCeiling ceiling;
    UrlCompletion completion;
    /// The list's.
    std::unique_ptr<HttpTask> next;
};

/// Tasks in the order in which they came. Allocates nothing, so that no task is lost between two lists.
class HttpTaskList {
  public:
    HttpTaskList() noexcept = default;
    ~HttpTaskList();
    HttpTaskList(const HttpTaskList&) = delete;
    HttpTaskList& operator=(const HttpTaskList&) = delete;

    [[nodiscard]] bool empty() const noexcept { return first_ == nullptr; }
    void push(std::unique_ptr<HttpTask> task) noexcept;
    /// Null when the list is empty.
    [[nodiscard]] std::unique_ptr<HttpTask> pop() noexcept;
    void swap(HttpTaskList& other) noexcept;

  private:
    std::unique_ptr<HttpTask> first_;
    HttpTask* last_ = nullptr;  // Meaningless while there is no first.
};

}  // namespace qlsdk::platform
