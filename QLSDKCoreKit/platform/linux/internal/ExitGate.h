#pragma once

namespace qlsdk::platform {

/// Keeps the library's threads out of libraries that are being torn down.
///
/// Nothing joins our threads when a process ends, yet a host that initialised OpenSSL itself has OpenSSL free
/// its tables in an exit handler while they may be in the middle of a handshake. So they work in passes; when
/// the process ends the gate closes, waits a moment for the passes in progress, and threads that ask for
/// another one never get it.
class ExitGate {
  public:
    /// Makes the gate close when the process ends. Called after OpenSSL has been initialised, by us or by the
    /// host: exit handlers run last first, so that ours comes before OpenSSL's. Again is harmless.
    static void arm() noexcept;

    /// Closes the gate and waits for the other threads' passes, at most 40 ms. Threads inside after that were
    /// caught in something long and take their chance.
    static void close() noexcept;

    /// One stretch of work. Not nested. Blocks for ever once the gate is closed.
    class Pass {
      public:
        Pass() noexcept;
        ~Pass();
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;
    };
};

}  // namespace qlsdk::platform
