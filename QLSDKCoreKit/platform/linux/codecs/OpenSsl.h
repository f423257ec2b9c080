#pragma once

namespace qlsdk::platform {

/// Sets OpenSSL up without its exit handler, which would tear the library down under threads that still run
/// while the process ends. To be called before any other use of OpenSSL, curl's included; later calls cost
/// nothing. False when OpenSSL cannot be used. A host that has used OpenSSL before has settled the matter
/// itself. Any thread, within a `WorkGate::LibraryUse` that lasts as long as the use of OpenSSL does: once
/// OpenSSL has been torn down, by the host's own call or at exit, the answer is false for the rest of the
/// process, and the teardown waits for those who were told otherwise.
[[nodiscard]] bool ensureOpenSsl() noexcept;

/// True from the beginning of OpenSSL's teardown: what was got from it must not even be freed any more.
[[nodiscard]] bool isOpenSslTornDown() noexcept;

}  // namespace qlsdk::platform
