#pragma once

namespace qlsdk::platform {

/// Keeps the library's threads out of the libraries below while those are torn down, or copied into a child.
///
/// Nothing joins our threads when a process ends, yet a host that initialised OpenSSL itself has OpenSSL free
/// its tables in an exit handler while they may be in the middle of a handshake. And a child of fork() that
/// copies the process at such a moment has OpenSSL's and curl's locks taken for ever. So our threads work in
/// passes; before an end or a fork the gate closes and waits a moment for the passes in progress. After a
/// fork it opens again.
class WorkGate {
  public:
    /// Makes the gate close when the process ends. Called after OpenSSL has been initialised, by us or by the
    /// host: exit handlers run last first, so that ours comes before OpenSSL's. Again is harmless.
    static void arm() noexcept;

    /// Closes the gate for good and waits for the other threads' passes, at most 40 ms. Threads inside after
    /// that were caught in something long and take their chance.
    static void close() noexcept;

    /// Closes the gate and waits as `close` does, until the fork is over. By the thread that forks.
    static void closeBeforeFork() noexcept;
    static void reopenInParent() noexcept;
    /// The child has its own gate, with nobody inside but perhaps the forking thread.
    static void reopenInChild() noexcept;

    /// One stretch of work. Not nested. Waits at a gate that is closed, for ever when that is for good.
    class Pass {
      public:
        Pass() noexcept;
        ~Pass();
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;
    };
};

}  // namespace qlsdk::platform
