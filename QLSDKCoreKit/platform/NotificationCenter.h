#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// The host posts this to the default center when it is about to become inactive (a window loses the focus
/// for good, a service is asked to stop); the upload queues then publish what they hold.
inline constexpr std::string_view kWillResignActiveNotification = "UIApplicationWillResignActiveNotification";

/// Passes named notifications on to those who asked for them. Any thread.
class QLSDK_EXPORT NotificationCenter {
  public:
    using Handler = std::function<void()>;
    /// Names one registration; 0 names none.
    using Observer = std::uint64_t;

    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// Registers `handler` for notifications named `name` from any sender. A null handler registers nothing.
    Observer addObserver(std::string_view name, Handler handler);

    /// Ends a registration. A handler that another thread is just running may still finish after this.
    void removeObserver(Observer observer);

    /// Calls the handlers registered for `name` on the calling thread, in the order of registration. Handlers
    /// may add, remove and post. What they throw is swallowed.
    void post(std::string_view name);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace qlsdk::platform
