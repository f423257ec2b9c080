#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/platform/UrlSession.h"
#include "QLSDKCoreKit/platform/UserDefaults.h"

namespace quillkit {

/// One HTTP task of the library: where it went and, once it has ended, how.
struct ObservedTask {
    std::string url;
    bool ended = false;
    std::optional<qlsdk::platform::UrlError> error;
    std::optional<qlsdk::platform::UrlResponse> response;
};

/// Passes every task on and remembers what became of it. Any thread.
class ObservingUrlSession final : public qlsdk::platform::UrlSession {
  public:
    explicit ObservingUrlSession(std::shared_ptr<qlsdk::platform::UrlSession> session)
        : session_(std::move(session)) {}

    void dataTask(qlsdk::platform::UrlRequest request, qlsdk::platform::BodyCeiling ceiling,
                  qlsdk::platform::UrlCompletion completion) override;
    void refuseTasks(qlsdk::platform::Task done) override { session_->refuseTasks(std::move(done)); }
    void acceptTasks() override { session_->acceptTasks(); }

    /// The tasks so far, in the order they were started.
    [[nodiscard]] std::vector<ObservedTask> tasks() const;

  private:
    void taskEnded(std::size_t index, const qlsdk::platform::UrlResult& result);

    const std::shared_ptr<qlsdk::platform::UrlSession> session_;
    mutable std::mutex mutex_;
    std::vector<ObservedTask> tasks_;
};

/// Passes every access on and remembers the keys. Any thread.
class ObservingUserDefaults final : public qlsdk::platform::UserDefaults {
  public:
    explicit ObservingUserDefaults(std::shared_ptr<qlsdk::platform::UserDefaults> defaults)
        : defaults_(std::move(defaults)) {}

    qlsdk::Value objectForKey(std::string_view key) override;
    void setObjectForKey(const qlsdk::Value& value, std::string_view key) override;

    /// What was found when the key that begins so was last read; null when none was or no such key was read.
    [[nodiscard]] qlsdk::Value lastRead(std::string_view keyPrefix) const;
    /// True when a key that begins so was set.
    [[nodiscard]] bool wasSet(std::string_view keyPrefix) const;

  private:
    const std::shared_ptr<qlsdk::platform::UserDefaults> defaults_;
    mutable std::mutex mutex_;
    std::vector<std::pair<std::string, qlsdk::Value>> reads_;
    std::vector<std::string> keysSet_;
};

}  // namespace quillkit
