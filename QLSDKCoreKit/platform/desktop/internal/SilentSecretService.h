#pragma once

#include <libsecret/secret.h>

#include "QLSDKCoreKit/platform/desktop/internal/GLibPointers.h"

namespace qlsdk::platform {

/// Opens the Secret Service behind `bus` as an object that never shows a prompt: libsecret would otherwise
/// carry out whatever prompt the service answers with, for as long as the user takes. Here a prompt ends the
/// call with `SECRET_ERROR_IS_LOCKED`. Asynchronous in the manner of GIO.
void openSilentSecretService(GDBusConnection* bus, GCancellable* cancellable, GAsyncReadyCallback done,
                             gpointer userData);

/// Null, and `error` set, when the service could not be opened.
[[nodiscard]] ObjectPointer<SecretService> openSilentSecretServiceFinish(GAsyncResult* result,
                                                                         ErrorPointer& error);

}  // namespace qlsdk::platform
