// Part of every library in the build of scripts/mutate: marks which calls of the compiler's hook ran, one
// byte for each address, in a file named after the library in the folder that QLSDK_REACH names. The file is
// mapped and shared, so that it is whole however the process ends, and so that its children mark in it, too.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#define UNMARKED __attribute__((no_sanitize_coverage))

extern const char __ehdr_start __attribute__((visibility("hidden")));
enum { kSize = 1 << 25 };  // more than the library has, even unoptimised
static unsigned char* reached;

// Some tests wrap the library's allocations, which a link can only do to what it links.
void* __real_malloc(size_t size);
void* __wrap_malloc(size_t size);
static void* (*hostsMalloc)(size_t size);
UNMARKED void* __wrap_malloc(size_t size) {
    return hostsMalloc ? hostsMalloc(size) : __real_malloc(size);
}
UNMARKED __attribute__((constructor(101))) static void findMalloc(void) {
    void* found = dlsym(RTLD_DEFAULT, "__wrap_malloc");
    void* own = (void*)__wrap_malloc;
    if (found != own) {
        memcpy(&hostsMalloc, &found, sizeof found);
    }
}

UNMARKED __attribute__((constructor(101))) static void openMap(void) {
    const char* folder = getenv("QLSDK_REACH");
    Dl_info library;
    char path[4096];
    if (!folder || !dladdr(&__ehdr_start, &library)) {
        return;
    }
    snprintf(path, sizeof path, "%s%s", folder, strrchr(library.dli_fname, '/'));
    int file = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file >= 0 && ftruncate(file, kSize) == 0) {
        void* map = mmap(NULL, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        reached = map == MAP_FAILED ? NULL : map;
    }
    close(file);
}

UNMARKED __attribute__((visibility("hidden"))) void __sanitizer_cov_trace_pc(void) {
    size_t offset = (size_t)((const char*)__builtin_return_address(0) - &__ehdr_start);
    if (reached && offset < kSize) {
        reached[offset] = 1;
    }
}
