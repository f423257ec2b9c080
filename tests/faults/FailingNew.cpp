// For the sanitizers, whose allocator nobody may stand in front of: only what is made with `new` fails.

#include <cstdlib>
#include <new>

#include "tests/faults/FailingAllocator.h"

using qlsdk::faults::mayAllocate;

void* operator new(std::size_t size) {
    void* memory = mayAllocate(__builtin_return_address(0)) ? std::malloc(size) : nullptr;
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return mayAllocate(__builtin_return_address(0)) ? std::malloc(size) : nullptr;
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& nothrow) noexcept {
    return operator new(size, nothrow);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
