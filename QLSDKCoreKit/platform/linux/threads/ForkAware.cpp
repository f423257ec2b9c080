#include "QLSDKCoreKit/platform/linux/threads/ForkAware.h"

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

#include <pthread.h>

#include "QLSDKCoreKit/platform/internal/ForkGeneration.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeMutex.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"
#include "QLSDKCoreKit/platform/linux/threads/WorkGate.h"

namespace qlsdk::platform {

constinit std::atomic<int> theProcessGeneration{1};

namespace {

// Guards both lists below and the objects in hand. Held across the fork, so that the child finds them whole.
constinit std::mutex listsMutex;

struct Objects {
    std::vector<std::weak_ptr<ForkAware>> watched;
    // Those of a fork in progress, held so that none of them ends meanwhile: a destructor may want locks
    // that the forking thread holds. As large as the list above, so that nothing is allocated there.
    std::vector<std::shared_ptr<ForkAware>> inHand;
};

Objects& objects() {
    // With the mutex held. Not destroyed, and no static initialisation of its own.
    static constinit Objects* made = nullptr;
    if (made == nullptr) made = new Objects;
    return *made;
}

void makeRoom(Objects& all) noexcept {
    try {
        all.inHand.reserve(all.watched.size());
    } catch (...) {
        // The next fork goes without those that find no place.
    }
}

}  // namespace

/// All mutexes of the process, the latest first. With the lists' mutex held.
class ForkSafeMutexes {
  public:
    static void add(ForkSafeMutex& mutex) noexcept {
        mutex.next_ = first_;
        if (first_ != nullptr) first_->previous_ = &mutex;
        first_ = &mutex;
    }
    static void remove(ForkSafeMutex& mutex) noexcept {
        (mutex.previous_ != nullptr ? mutex.previous_->next_ : first_) = mutex.next_;
        if (mutex.next_ != nullptr) mutex.next_->previous_ = mutex.previous_;
    }
    static void lockAll() noexcept {
        for (ForkSafeMutex* mutex = first_; mutex != nullptr; mutex = mutex->next_) mutex->lock();
    }
    static void unlockAll() noexcept {
        for (ForkSafeMutex* mutex = first_; mutex != nullptr; mutex = mutex->next_) mutex->unlock();
    }

  private:
    static constinit ForkSafeMutex* first_;
};

constinit ForkSafeMutex* ForkSafeMutexes::first_ = nullptr;

ForkSafeMutex::ForkSafeMutex() noexcept {
    const std::lock_guard lock(listsMutex);
    ForkSafeMutexes::add(*this);
}

ForkSafeMutex::~ForkSafeMutex() {
    const std::lock_guard lock(listsMutex);
    ForkSafeMutexes::remove(*this);
}

namespace {

void prepare() {
    // First: a thread that is inside may need one of the locks that are taken next.
    WorkGate::closeBeforeFork();
    listsMutex.lock();
    Objects& all = objects();
    for (const auto& weak : all.watched) {
        // There is a place for each, but where memory was short when it was made.
        if (all.inHand.size() == all.inHand.capacity()) break;
        if (auto object = weak.lock()) all.inHand.push_back(std::move(object));
    }
    ForkSafeMutexes::lockAll();
}

/// Unlocks, and returns what the fork had in hand: it may lose its last owner now that no lock is held.
std::vector<std::shared_ptr<ForkAware>> release() noexcept {
    std::vector<std::shared_ptr<ForkAware>> inHand;
    inHand.swap(objects().inHand);
    makeRoom(objects());
    ForkSafeMutexes::unlockAll();
    listsMutex.unlock();
    return inHand;
}

void inParent() {
    const auto inHand = release();
    WorkGate::reopenInParent();
}

void inChild() {
    ++theProcessGeneration;
    WorkGate::reopenInChild();
    for (const auto& object : release()) object->restartInChild();
}

// When the library is loaded, before a host can register handlers of its own: theirs then run outside of
// ours and may call the kit. Out of memory is the only failure; a child then has no promise, the parent
// loses nothing.
[[maybe_unused]] const int registered = pthread_atfork(prepare, inParent, inChild);

}  // namespace

void watchForks(std::weak_ptr<ForkAware> object) {
    const std::lock_guard lock(listsMutex);
    Objects& all = objects();
    std::erase_if(all.watched, [](const auto& weak) { return weak.expired(); });
    all.watched.push_back(std::move(object));
    makeRoom(all);
}

}  // namespace qlsdk::platform
