#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include <gio/gio.h>

namespace qlsdk::platform::testing {

/// A connection of the test's own to the session's bus: the outside judge of what the adapters do there.
class SessionBus {
  public:
    SessionBus();
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    /// Calls a method of the Secret Service; `arguments` in GVariant's text format. The answer in the same
    /// format, or the error's text.
    std::string callSecretService(const std::string& path, const std::string& interface,
                                  const std::string& method, const std::string& arguments);

    /// From now on notes every method call on the bus, and nothing else can be done with this connection.
    void watchCalls();
    /// The calls noted, as "interface.member", up to the call of `marker` (which is waited for).
    std::vector<std::string> callsUntil(const std::string& marker);

    /// Takes `name` and answers every call to it with an empty reply, noting it like `watchCalls`.
    void serve(const std::string& name);

  private:
    static GDBusMessage* noteCall(GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                                  gpointer self);
    static GDBusMessage* answerCall(GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                                    gpointer self);

    GDBusConnection* connection_ = nullptr;
    std::mutex mutex_;
    std::condition_variable noted_;
    std::deque<std::string> calls_;
};

}  // namespace qlsdk::platform::testing
