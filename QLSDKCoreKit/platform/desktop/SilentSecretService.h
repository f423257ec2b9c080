#pragma once

#include <libsecret/secret.h>

namespace qlsdk::platform {

/// The type of a Secret Service that never shows a prompt, for `secret_service_open`. libsecret would
/// otherwise carry out whatever prompt the service answers with, for as long as the user takes; of this
/// type's objects it hears `SECRET_ERROR_IS_LOCKED` at once. Any thread.
[[nodiscard]] GType silentSecretServiceType();

}  // namespace qlsdk::platform
