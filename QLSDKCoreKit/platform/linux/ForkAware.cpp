#include "QLSDKCoreKit/platform/linux/internal/ForkAware.h"

#include <mutex>
#include <utility>
#include <vector>

#include <pthread.h>

#include "QLSDKCoreKit/platform/linux/internal/WorkGate.h"

namespace qlsdk::platform {

namespace {

struct Registry {
    std::mutex mutex;
    std::vector<std::weak_ptr<ForkAware>> objects;
};

Registry& registry() {
    static Registry& leaked = *new Registry;
    return leaked;
}

void forEach(void (ForkAware::*call)()) {
    for (const auto& weak : registry().objects) {
        if (const auto object = weak.lock()) (object.get()->*call)();
    }
}

// The registry is held across the fork, so that the child finds the list whole.
void prepare() {
    // First: a thread that is inside may need one of the locks that are taken next.
    WorkGate::closeBeforeFork();
    registry().mutex.lock();
    forEach(&ForkAware::beforeFork);
}

void inParent() {
    forEach(&ForkAware::afterForkInParent);
    registry().mutex.unlock();
    WorkGate::reopenInParent();
}

void inChild() {
    WorkGate::reopenInChild();
    forEach(&ForkAware::restartInChild);
    registry().mutex.unlock();
}

}  // namespace

void watchForks(std::weak_ptr<ForkAware> object) {
    static const int registered = pthread_atfork(prepare, inParent, inChild);
    (void)registered;  // Out of memory is its only failure; a child then has no promise, the parent loses
                       // nothing.
    const std::lock_guard lock(registry().mutex);
    std::erase_if(registry().objects, [](const auto& weak) { return weak.expired(); });
    registry().objects.push_back(std::move(object));
}

}  // namespace qlsdk::platform
