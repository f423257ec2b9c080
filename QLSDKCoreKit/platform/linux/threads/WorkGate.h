#pragma once

#include <atomic>
#include <chrono>

namespace qlsdk::platform {

/// What of the gate every pass goes through.
struct WorkGateEntrance {
    std::atomic<int> inside{0};
    /// Who wants it closed: every fork in progress, and the end of the process, which stays.
    std::atomic<int> closers{0};

    /// True for whoever is inside now. Sequentially consistent on both sides: either this thread sees the
    /// gate closed or the closer sees it inside.
    [[nodiscard]] bool tryToEnter() noexcept {
        ++inside;
        if (closers == 0) return true;
        leave();
        return false;
    }
    void leave() noexcept {
        --inside;
        if (closers != 0) wakeClosers();
    }
    void wakeClosers() noexcept;
    void waitUntilOpen() noexcept;

    /// The process's; made when it is first asked for, which may throw `std::bad_alloc`.
    static WorkGateEntrance& get() {
        WorkGateEntrance* const entrance = made.load();
        return entrance != nullptr ? *entrance : make();
    }
    static WorkGateEntrance& make();

    static constinit std::atomic<WorkGateEntrance*> made;
    static constinit thread_local bool isThisThreadInside;
};

/// Keeps the library's threads out of the libraries below while those are torn down, or copied into a child.
///
/// Nothing joins our threads when a process ends, yet a host that initialised OpenSSL itself has OpenSSL free
/// its tables in an exit handler while they may be in the middle of a handshake. And a child of fork() that
/// copies the process at such a moment has OpenSSL's and curl's locks taken for ever. So our threads work in
/// passes; before an end or a fork the gate closes and waits for the passes in progress. After a fork it
/// opens again.
///
/// How long it waits is a matter of what a pass is doing. A task may be in code of the host's that never
/// returns: a moment must do. A stretch inside OpenSSL or curl (`LibraryUse`) blocks on nothing and ends by
/// itself, however slow the machine, and going on without it would crash the process or stop the child: it is
/// waited for with patience.
class WorkGate {
  public:
    /// Makes the gate itself, called by whoever makes something that works in passes: a pass cannot say that
    /// there was no memory for the gate (`std::bad_alloc`). Again is harmless.
    static void prepare();

    /// Makes the gate close when the process ends. Called after OpenSSL has been initialised, by us or by the
    /// host: exit handlers run last first, so that ours comes before OpenSSL's. Again is harmless. False when
    /// there was no memory for a handler, or the process has run them all.
    [[nodiscard]] static bool arm() noexcept;

    /// How long the end of the process waits at most. 40 ms are more than a task of ours takes, and little to
    /// somebody who waits for a prompt; 30 s are more than the slowest machine needs for a turn of curl.
    struct Patience {
        std::chrono::milliseconds task{40};
        std::chrono::milliseconds inLibrary{30'000};
    };
    /// For tests, which need other limits than hosts do. Not while another thread may end the process.
    static void setPatienceAtEnd(Patience patience) noexcept;

    /// Closes the gate for good and waits for the other threads, for as long as the patience lasts. A thread
    /// that is still inside a library then has been stopped rather than slow, and is expected not to move
    /// again. A later call waits for those uses of the host's threads that have begun since the one before,
    /// and for none that was waited for in vain.
    static void close() noexcept;

    /// Closes the gate until the fork is over, and waits: at most 40 ms for a task, at most 2 s for a library
    /// use. By the thread that forks.
    static void closeBeforeFork() noexcept;
    static void reopenInParent() noexcept;
    /// The child has its own gate, with nobody inside but perhaps the forking thread.
    static void reopenInChild() noexcept;

    /// One stretch of work. Not nested. Waits at a gate that is closed, for ever when that is for good.
    class Pass {
      public:
        Pass() noexcept {
            while (!WorkGateEntrance::get().tryToEnter()) WorkGateEntrance::get().waitUntilOpen();
            WorkGateEntrance::isThisThreadInside = true;
        }
        ~Pass() {
            WorkGateEntrance::isThisThreadInside = false;
            WorkGateEntrance::get().leave();
        }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;
    };

    /// One stretch inside OpenSSL or curl, by any thread, in a pass or not; nested ones count once. Blocks on
    /// nothing, calls nothing of the host's, and takes no lock that is held elsewhere while this begins.
    /// Waits while another thread forks; once the gate is closed for good a thread of ours does not get in
    /// any more, and one of the host's is not held up.
    class LibraryUse {
      public:
        LibraryUse() noexcept;
        ~LibraryUse();
        LibraryUse(const LibraryUse&) = delete;
        LibraryUse& operator=(const LibraryUse&) = delete;
    };

    /// Leaves the library use that this thread is in, if any, for a call of the host's code, which may take
    /// any time, and enters it again afterwards.
    class HostCode {
      public:
        HostCode() noexcept;
        ~HostCode();
        HostCode(const HostCode&) = delete;
        HostCode& operator=(const HostCode&) = delete;

      private:
        const int uses_;
    };
};

}  // namespace qlsdk::platform
