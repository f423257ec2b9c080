#include "QLSDKCoreKit/platform/desktop/UrlHandlers.h"

#include <gio/gdesktopappinfo.h>
#include <signal.h>

#include "QLSDKCoreKit/platform/desktop/BoundedCalls.h"

namespace qlsdk::platform {

namespace {

constexpr std::chrono::seconds kLaunchLimit{10};

enum class Bus {
    present,
    absent,
    /// There is an address, but nobody answers there.
    silent,
};

ObjectPointer<GAppInfo> handlerOf(const std::string& url) {
    const GLibMemory<char> scheme(g_uri_parse_scheme(url.c_str()));
    if (!scheme || url.find('\0') != std::string::npos) return nullptr;
    return ObjectPointer<GAppInfo>(g_app_info_get_default_for_uri_scheme(scheme.get()));
}

// GIO's launching asks for the same shared connection, without a deadline; so it is made here first.
Bus connectSharedBus(BoundedCalls& calls) {
    const auto result = calls.wait([](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
        g_bus_get(G_BUS_TYPE_SESSION, cancellable, done, data);
    });
    const ObjectPointer<GDBusConnection> bus(result ? g_bus_get_finish(result.get(), nullptr) : nullptr);
    if (bus) return Bus::present;
    return calls.expired() ? Bus::silent : Bus::absent;
}

// Runs between fork and exec, so it only makes calls that are safe there.
void unblockSignals(gpointer) noexcept {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool activateOverBus(BoundedCalls& calls, GAppInfo* handler, GList* urls) {
    const auto result = calls.wait([&](GCancellable* cancellable, GAsyncReadyCallback done, gpointer data) {
        g_app_info_launch_uris_async(handler, urls, nullptr, cancellable, done, data);
    });
    return result && g_app_info_launch_uris_finish(handler, result.get(), nullptr) != FALSE;
}

}  // namespace

bool hasUrlHandler(const std::string& url) {
    return canUseGLib() && handlerOf(url) != nullptr;
}

bool launchUrlHandler(const std::string& url) {
    if (!canUseGLib()) return false;
    BoundedCalls calls(kLaunchLimit);
    const ObjectPointer<GAppInfo> handler = handlerOf(url);
    if (!handler) return false;
    const Bus bus = connectSharedBus(calls);
    if (bus == Bus::silent) return false;
    GList urls{const_cast<char*>(url.c_str()), nullptr, nullptr};
    GDesktopAppInfo* entry = G_DESKTOP_APP_INFO(handler.get());
    if (bus == Bus::present && g_desktop_app_info_get_boolean(entry, "DBusActivatable") != FALSE) {
        return activateOverBus(calls, handler.get(), &urls);
    }
    return g_desktop_app_info_launch_uris_as_manager(entry, &urls, nullptr, G_SPAWN_SEARCH_PATH,
                                                     &unblockSignals, nullptr, nullptr, nullptr,
                                                     nullptr) != FALSE;
}

}  // namespace qlsdk::platform
