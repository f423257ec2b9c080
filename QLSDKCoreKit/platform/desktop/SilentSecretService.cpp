#include "QLSDKCoreKit/platform/desktop/SilentSecretService.h"

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

}  // namespace

GType silentSecretServiceType() {
    static const GType type = g_type_register_static_simple(SECRET_TYPE_SERVICE, "QLSDKSilentSecretService",
                                                            sizeof(SecretServiceClass), &initialiseClass,
                                                            sizeof(SecretService), nullptr, G_TYPE_FLAG_NONE);
    return type;
}

}  // namespace qlsdk::platform
