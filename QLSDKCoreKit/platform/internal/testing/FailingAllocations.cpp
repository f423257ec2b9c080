#include "QLSDKCoreKit/platform/internal/testing/FailingAllocations.h"

#include <cstdlib>
#include <new>

namespace {

struct State {
    bool active;
    bool all;
    std::int64_t succeeding;
    std::int64_t failed;
};
constinit thread_local State state{};

bool failsNow() noexcept {
    if (!state.active || state.succeeding-- > 0) return false;
    if (!state.all && state.failed > 0) return false;
    ++state.failed;
    return true;
}

}  // namespace

extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size) {
    return failsNow() ? nullptr : __real_malloc(size);
}

// Both ways to allocate are replaced, as both are freed below: a sanitizer's own would not match.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return failsNow() ? nullptr : __real_malloc(size > 0 ? size : 1);
}
void* operator new(std::size_t size) {
    void* memory = operator new(size, std::nothrow);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace qlsdk::testing {

FailingAllocations::FailingAllocations(Which which, std::int64_t succeeding) noexcept {
    state = {true, which == Which::all, succeeding, 0};
}
FailingAllocations::~FailingAllocations() {
    stop();
}
std::int64_t FailingAllocations::failed() const noexcept {
    return state.failed;
}
void FailingAllocations::stop() noexcept {
    state.active = false;
}

}  // namespace qlsdk::testing
