#include "QLSDKCoreKit/platform/desktop/testing/SessionBus.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include "QLSDKCoreKit/platform/desktop/GLibPointers.h"

namespace qlsdk::platform::testing {

namespace {

using Variant = std::unique_ptr<GVariant, DestroyWith<g_variant_unref>>;

std::string nameOf(GDBusMessage* message) {
    const char* interface = g_dbus_message_get_interface(message);
    return std::string(interface != nullptr ? interface : "") + "." + g_dbus_message_get_member(message);
}

bool isCall(GDBusMessage* message) {
    return g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
}

Variant callBus(GDBusConnection* connection, const char* name, const char* path, const char* interface,
                const char* method, GVariant* arguments, ErrorPointer& error) {
    return Variant(g_dbus_connection_call_sync(connection, name, path, interface, method, arguments, nullptr,
                                               G_DBUS_CALL_FLAGS_NONE, -1, nullptr, ErrorOut(error)));
}

void requireBusCall(GDBusConnection* connection, const char* interface, const char* method,
                    GVariant* arguments) {
    ErrorPointer error;
    callBus(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", interface, method, arguments, error);
    if (error) throw std::runtime_error(error->message);
}

}  // namespace

// Both filters run on GIO's own thread.
GDBusMessage* SessionBus::noteCall(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                   gpointer self) {
    if (incoming == FALSE || !isCall(message)) return message;
    SessionBus& bus = *static_cast<SessionBus*>(self);
    {
        const std::lock_guard lock(bus.mutex_);
        bus.calls_.push_back(nameOf(message));
    }
    bus.noted_.notify_one();
    g_object_unref(message);
    return nullptr;
}

GDBusMessage* SessionBus::answerCall(GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                                     gpointer self) {
    if (incoming != FALSE && isCall(message)) {
        const ObjectPointer<GDBusMessage> reply(g_dbus_message_new_method_reply(message));
        g_dbus_connection_send_message(connection, reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                       nullptr);
    }
    return noteCall(connection, message, incoming, self);
}

SessionBus::SessionBus() {
    ErrorPointer error;
    const GLibMemory<char> address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, ErrorOut(error)));
    if (!address) throw std::runtime_error(error->message);
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    connection_ =
        g_dbus_connection_new_for_address_sync(address.get(), kFlags, nullptr, nullptr, ErrorOut(error));
    if (connection_ == nullptr) throw std::runtime_error(error->message);
}

SessionBus::~SessionBus() {
    g_dbus_connection_close_sync(connection_, nullptr, nullptr);
    g_object_unref(connection_);
}

std::string SessionBus::callSecretService(const std::string& path, const std::string& interface,
                                          const std::string& method, const std::string& arguments) {
    ErrorPointer error;
    GVariant* parsed = g_variant_parse(nullptr, arguments.c_str(), nullptr, nullptr, ErrorOut(error));
    if (parsed == nullptr) throw std::runtime_error(error->message);
    const Variant answer =
        callBus(connection_, "org.freedesktop.secrets", path.c_str(),
                ("org.freedesktop.Secret." + interface).c_str(), method.c_str(), parsed, error);
    const GLibMemory<char> text(answer ? g_variant_print(answer.get(), FALSE) : g_strdup(error->message));
    return text.get();
}

void SessionBus::watchCalls() {
    g_dbus_connection_add_filter(connection_, &noteCall, this, nullptr);
    GVariantBuilder rules;
    g_variant_builder_init(&rules, G_VARIANT_TYPE("as"));
    g_variant_builder_add(&rules, "s", "type='method_call'");
    requireBusCall(connection_, "org.freedesktop.DBus.Monitoring", "BecomeMonitor",
                   g_variant_new("(asu)", &rules, 0U));
}

std::vector<std::string> SessionBus::callsUntil(const std::string& marker) {
    std::vector<std::string> calls;
    std::unique_lock lock(mutex_);
    do {
        noted_.wait(lock, [this] { return !calls_.empty(); });
        calls.push_back(std::move(calls_.front()));
        calls_.pop_front();
    } while (calls.back() != marker);
    return calls;
}

void SessionBus::serve(const std::string& name) {
    g_dbus_connection_add_filter(connection_, &answerCall, this, nullptr);
    requireBusCall(connection_, "org.freedesktop.DBus", "RequestName",
                   g_variant_new("(su)", name.c_str(), 0U));
}

}  // namespace qlsdk::platform::testing
