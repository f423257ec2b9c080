#include "QLSDKCoreKit/platform/linux/threads/DetachedThread.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include <pthread.h>
#include <signal.h>

namespace qlsdk::platform {

constinit thread_local bool thisThreadIsDetached = false;
constinit std::atomic<SeekingThread*> theSeeking{nullptr};

struct SeekingThread {
    std::shared_ptr<ThreadSeeker> seeker;
    SeekingThread* next;
};

namespace {

// The sanitizers' frames are several times larger than those that the stacks are sized for.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kStackFactor = 8;
#else
constexpr std::size_t kStackFactor = 1;
#endif

struct Launch {
    const char* name;
    std::function<void()> body;
};

void* enter(void* argument) {
    const std::unique_ptr<Launch> launch(static_cast<Launch*>(argument));
    thisThreadIsDetached = true;
    pthread_setname_np(pthread_self(), launch->name);
    launch->body();
    return nullptr;
}

bool create(const pthread_attr_t& attributes, Launch* launch) noexcept {
    // A new thread inherits the mask, so blocking here first leaves no moment at which it could take a
    // signal.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    const int refused = pthread_create(&thread, &attributes, enter, launch);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = refused;
    return refused == 0;
}

}  // namespace

bool startDetachedThread(const ThreadTraits& traits, std::function<void()> body) noexcept {
    try {
        auto launch = std::make_unique<Launch>(Launch{traits.name, std::move(body)});
        pthread_attr_t attributes;
        if (pthread_attr_init(&attributes) != 0) return false;
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
        pthread_attr_setstacksize(&attributes, kStackFactor * traits.stackBytes);
        const bool created = create(attributes, launch.get());
        pthread_attr_destroy(&attributes);
        if (created) (void)launch.release();
        return created;
    } catch (...) {
        errno = ENOMEM;
        return false;  // No memory for the launch record: the same to the caller as no room for a thread.
    }
}

bool askAgainForThread(std::shared_ptr<ThreadSeeker> seeker) noexcept {
    auto* seeking = new (std::nothrow) SeekingThread{std::move(seeker), theSeeking};
    if (seeking == nullptr) return false;
    while (!theSeeking.compare_exchange_weak(seeking->next, seeking)) {
    }
    return true;
}

void retryAllRefusedThreads() noexcept {
    // All at once, so that those who are refused again wait for the next time.
    std::unique_ptr<SeekingThread> seeking(theSeeking.exchange(nullptr));
    while (seeking != nullptr) {
        seeking->seeker->seekThread();
        seeking.reset(seeking->next);
    }
}

void forgetThreadSeekers() noexcept {
    theSeeking = nullptr;  // Leaked, as what they are about is.
}

}  // namespace qlsdk::platform
