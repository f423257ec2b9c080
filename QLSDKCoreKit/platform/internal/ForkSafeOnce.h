#pragma once

#include <atomic>
#include <utility>

#include "QLSDKCoreKit/platform/internal/ForkGeneration.h"

namespace qlsdk::platform {

/// A value that the first who asks makes, while others who ask wait: for a function-local static, or
/// std::call_once, whose guard a child of fork() finds taken for ever when another thread was just making the
/// value. Such a child makes its own; what the parent's thread had begun is leaked.
///
/// For variables of the process, which are never destroyed: declare it `constinit`. An object's member is an
/// `OwnedForkSafeOnce`. Any thread. Making may do I/O and lock; it must not ask for the value itself.
template <typename Type>
class ForkSafeOnce {
  public:
    constexpr ForkSafeOnce() noexcept = default;
    ForkSafeOnce(const ForkSafeOnce&) = delete;
    ForkSafeOnce& operator=(const ForkSafeOnce&) = delete;

    /// The value; `make` returns it, by the first call. What it throws reaches the caller, and the next
    /// call tries again.
    template <typename Make>
    Type& get(const Make& make) {
        for (;;) {
            if (Type* made = value_.load(std::memory_order_acquire)) return *made;
            const int here = processGeneration();
            int maker = maker_.load();
            if (maker == here) {
                maker_.wait(maker);
            } else if (maker_.compare_exchange_strong(maker, here)) {
                const Turn turn{maker_};
                if (value_.load() == nullptr) value_.store(new Type(make()), std::memory_order_release);
            }
        }
    }

    /// Null before it has been made.
    [[nodiscard]] Type* ifMade() const noexcept { return value_.load(std::memory_order_acquire); }

  private:
    struct Turn {
        std::atomic<int>& maker;
        ~Turn() {
            maker = 0;
            maker.notify_all();
        }
    };

    std::atomic<Type*> value_{nullptr};
    // The generation of the process in which a thread is making the value; 0 when none is.
    std::atomic<int> maker_{0};
};

/// The same for a member: the value goes with its owner.
template <typename Type>
class OwnedForkSafeOnce : public ForkSafeOnce<Type> {
  public:
    constexpr OwnedForkSafeOnce() noexcept = default;
    ~OwnedForkSafeOnce() { delete this->ifMade(); }
};

}  // namespace qlsdk::platform
