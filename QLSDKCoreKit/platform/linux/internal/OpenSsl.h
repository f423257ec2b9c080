#pragma once

namespace qlsdk::platform {

/// Sets OpenSSL up without its exit handler, which would tear the library down under threads that still run
/// while the process ends. To be called before any other use of OpenSSL, curl's included; later calls cost
/// nothing. False when OpenSSL cannot be used. A host that has used OpenSSL before has settled the matter
/// itself. Any thread.
[[nodiscard]] bool ensureOpenSsl() noexcept;

}  // namespace qlsdk::platform
