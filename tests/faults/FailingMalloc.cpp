// Stands in front of the C library's allocator for everything in the process: the loader finds the program's
// functions first, and operator new comes by here, too.

#include <cerrno>

#include "tests/faults/FailingAllocator.h"

using qlsdk::faults::mayAllocate;

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) {
    if (mayAllocate(__builtin_return_address(0))) return __libc_malloc(size);
    errno = ENOMEM;
    return nullptr;
}

void* calloc(std::size_t count, std::size_t size) {
    if (mayAllocate(__builtin_return_address(0))) return __libc_calloc(count, size);
    errno = ENOMEM;
    return nullptr;
}

void* realloc(void* memory, std::size_t size) {
    // To no size at all it only frees.
    if (size == 0 || mayAllocate(__builtin_return_address(0))) return __libc_realloc(memory, size);
    errno = ENOMEM;
    return nullptr;
}

void* memalign(std::size_t alignment, std::size_t size) {
    if (mayAllocate(__builtin_return_address(0))) return __libc_memalign(alignment, size);
    errno = ENOMEM;
    return nullptr;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    if (mayAllocate(__builtin_return_address(0))) return __libc_memalign(alignment, size);
    errno = ENOMEM;
    return nullptr;
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    void* given = mayAllocate(__builtin_return_address(0)) ? __libc_memalign(alignment, size) : nullptr;
    if (given == nullptr) return ENOMEM;
    *memory = given;
    return 0;
}
}
