#include "QLSDKCoreKit/platform/NotificationCenter.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/platform/internal/ForkSafeMutex.h"

namespace qlsdk::platform {

struct NotificationCenter::State {
    struct Registration {
        Observer observer;
        std::string name;
        std::shared_ptr<const Handler> handler;
    };
    ForkSafeMutex mutex;
    Observer last = 0;
    std::vector<Registration> registrations;
};

NotificationCenter::NotificationCenter() : state_(std::make_unique<State>()) {}
NotificationCenter::~NotificationCenter() = default;

NotificationCenter::Observer NotificationCenter::addObserver(std::string_view name, Handler handler) {
    if (!handler) return 0;
    const std::lock_guard lock(state_->mutex);
    state_->registrations.push_back(
        {++state_->last, std::string(name), std::make_shared<const Handler>(std::move(handler))});
    return state_->last;
}

void NotificationCenter::removeObserver(Observer observer) {
    // Outlives the lock: what the handler holds may do anything when it goes.
    std::shared_ptr<const Handler> removed;
    const std::lock_guard lock(state_->mutex);
    auto& registrations = state_->registrations;
    const auto found = std::ranges::find(registrations, observer, &State::Registration::observer);
    if (found == registrations.end()) return;
    removed = std::move(found->handler);
    registrations.erase(found);
}

void NotificationCenter::post(std::string_view name) {
    std::vector<std::shared_ptr<const Handler>> handlers;
    {
        const std::lock_guard lock(state_->mutex);
        for (const State::Registration& entry : state_->registrations) {
            if (entry.name == name) handlers.push_back(entry.handler);
        }
    }
    for (const auto& handler : handlers) {
        try {
            (*handler)();
        } catch (...) {
            // A handler's failure is its own; the next one must still hear the news.
        }
    }
}

}  // namespace qlsdk::platform
