#include "QLSDKCoreKit/control/Durability.h"

#include <atomic>

namespace qlsdk::platform {

namespace {

std::atomic<Durability> wanted{Durability::processEnd};

}  // namespace

void setDurability(Durability durability) noexcept {
    wanted.store(durability, std::memory_order_relaxed);
}

Durability durability() noexcept {
    return wanted.load(std::memory_order_relaxed);
}

}  // namespace qlsdk::platform
