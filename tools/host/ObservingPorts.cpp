#include "tools/host/ObservingPorts.h"

#include <algorithm>

namespace quillkit {

using namespace qlsdk::platform;

void ObservingUrlSession::dataTask(UrlRequest request, BodyCeiling ceiling, UrlCompletion completion) {
    std::size_t index = 0;
    {
        const std::lock_guard lock(mutex_);
        index = tasks_.size();
        tasks_.push_back({.url = request.url, .ended = false, .error = {}, .response = {}});
    }
    session_->dataTask(std::move(request), ceiling,
                       [this, index, completion = std::move(completion)](UrlResult result) {
                           taskEnded(index, result);
                           if (completion) completion(std::move(result));
                       });
}

void ObservingUrlSession::taskEnded(std::size_t index, const UrlResult& result) {
    const std::lock_guard lock(mutex_);
    tasks_[index].ended = true;
    tasks_[index].error = result.error;
    tasks_[index].response = result.response;
}

std::vector<ObservedTask> ObservingUrlSession::tasks() const {
    const std::lock_guard lock(mutex_);
    return tasks_;
}

qlsdk::Value ObservingUserDefaults::objectForKey(std::string_view key) {
    qlsdk::Value value = defaults_->objectForKey(key);
    const std::lock_guard lock(mutex_);
    reads_.emplace_back(key, value);
    return value;
}

void ObservingUserDefaults::setObjectForKey(const qlsdk::Value& value, std::string_view key) {
    defaults_->setObjectForKey(value, key);
    const std::lock_guard lock(mutex_);
    keysSet_.emplace_back(key);
}

qlsdk::Value ObservingUserDefaults::lastRead(std::string_view keyPrefix) const {
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(reads_.rbegin(), reads_.rend(),
                                    [&](const auto& read) { return read.first.starts_with(keyPrefix); });
    return found == reads_.rend() ? qlsdk::Value() : found->second;
}

bool ObservingUserDefaults::wasSet(std::string_view keyPrefix) const {
    const std::lock_guard lock(mutex_);
    return std::any_of(keysSet_.begin(), keysSet_.end(),
                       [&](const std::string& key) { return key.starts_with(keyPrefix); });
}

}  // namespace quillkit
