#include "QLSDKCoreKit/platform/desktop/internal/SilentSecretService.h"

namespace qlsdk::platform {

namespace {

constexpr const char* kRefusal = "The store would have to ask the user";

GVariant* refuse(SecretService*, SecretPrompt*, GCancellable*, const GVariantType*, GError** error) noexcept {
    g_set_error_literal(error, SECRET_ERROR, SECRET_ERROR_IS_LOCKED, kRefusal);
    return nullptr;
}

void refuseLater(SecretService* service, SecretPrompt*, const GVariantType*, GCancellable*,
                 GAsyncReadyCallback done, gpointer userData) noexcept {
    g_task_report_new_error(service, done, userData, nullptr, SECRET_ERROR, SECRET_ERROR_IS_LOCKED, "%s",
                            kRefusal);
}

GVariant* finishRefusal(SecretService*, GAsyncResult* result, GError** error) noexcept {
    return static_cast<GVariant*>(g_task_propagate_pointer(G_TASK(result), error));
}

void initialiseClass(gpointer typeClass, gpointer) noexcept {
    SecretServiceClass& service = *static_cast<SecretServiceClass*>(typeClass);
    service.prompt_sync = &refuse;
    service.prompt_async = &refuseLater;
    service.prompt_finish = &finishRefusal;
}

GType silentServiceType() {
    static const GType type = g_type_register_static_simple(SECRET_TYPE_SERVICE, "QLSDKSilentSecretService",
                                                            sizeof(SecretServiceClass), &initialiseClass,
                                                            sizeof(SecretService), nullptr, G_TYPE_FLAG_NONE);
    return type;
}

}  // namespace

void openSilentSecretService(GDBusConnection* bus, GCancellable* cancellable, GAsyncReadyCallback done,
                             gpointer userData) {
    g_async_initable_new_async(silentServiceType(), G_PRIORITY_DEFAULT, cancellable, done, userData,  //
                               "g-connection", bus,                                                   //
                               "g-flags", G_DBUS_PROXY_FLAGS_NONE,                                    //
                               "g-name", "org.freedesktop.secrets",                                   //
                               "g-object-path", "/org/freedesktop/secrets",                           //
                               "g-interface-name", "org.freedesktop.Secret.Service",                  //
                               "flags", SECRET_SERVICE_NONE, nullptr);
}

ObjectPointer<SecretService> openSilentSecretServiceFinish(GAsyncResult* result, ErrorPointer& error) {
    const ObjectPointer<GObject> source(g_async_result_get_source_object(result));
    GObject* opened = g_async_initable_new_finish(G_ASYNC_INITABLE(source.get()), result, ErrorOut(error));
    return ObjectPointer<SecretService>(reinterpret_cast<SecretService*>(opened));
}

}  // namespace qlsdk::platform
