#include "QLSDKCoreKit/platform/linux/internal/DetachedThread.h"

#include <memory>
#include <utility>

#include <pthread.h>
#include <signal.h>

namespace qlsdk::platform {

namespace {

thread_local bool startedHere = false;

struct Launch {
    const char* name;
    std::function<void()> body;
};

void* enter(void* argument) {
    const std::unique_ptr<Launch> launch(static_cast<Launch*>(argument));
    startedHere = true;
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
    const bool created = pthread_create(&thread, &attributes, enter, launch) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return created;
}

}  // namespace

bool startDetachedThread(const ThreadTraits& traits, std::function<void()> body) noexcept {
    try {
        auto launch = std::make_unique<Launch>(Launch{traits.name, std::move(body)});
        pthread_attr_t attributes;
        if (pthread_attr_init(&attributes) != 0) return false;
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
        pthread_attr_setstacksize(&attributes, traits.stackBytes);
        const bool created = create(attributes, launch.get());
        pthread_attr_destroy(&attributes);
        if (created) (void)launch.release();
        return created;
    } catch (...) {
        return false;  // No memory for the launch record: the same to the caller as no room for a thread.
    }
}

bool isDetachedThread() noexcept {
    return startedHere;
}

}  // namespace qlsdk::platform
