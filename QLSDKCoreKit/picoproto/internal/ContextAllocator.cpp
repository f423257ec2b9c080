#include "QLSDKCoreKit/picoproto/internal/ContextAllocator.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "QLSDKCoreKit/platform/internal/ThreadEnd.h"

#if defined(__has_feature)
#define QLSDK_HAS_FEATURE(feature) __has_feature(feature)
#else
#define QLSDK_HAS_FEATURE(feature) 0
#endif

namespace qlsdk {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_HWADDRESS__) ||               \
    QLSDK_HAS_FEATURE(address_sanitizer) || QLSDK_HAS_FEATURE(hwaddress_sanitizer) || \
    QLSDK_HAS_FEATURE(memory_sanitizer)
constexpr bool kRecycles = false;
#else
constexpr bool kRecycles = true;
#endif

/// Longer than the names of the library's own messages; other names get an allocation of their own.
constexpr std::size_t kInlineNameBytes = 32;
/// A heartbeat takes three blocks at a time.
constexpr int kMostKept = 8;
constexpr std::size_t kChains = 8;

/// Chains of freed blocks on their way from the threads that free messages to those that make them. Whole
/// chains change hands, so that one exchange is all it takes. Constant, and never destroyed: threads may
/// still come by at exit.
constinit std::atomic<ContextBlock*> chains[kChains];

/// Freed blocks that this thread keeps for its next messages. Plain data, so that reaching it takes no more
/// than an address.
struct FreeList {
    ContextBlock* first;
    int count;
    enum class State { unused, used, gone } state;
    platform::ThreadEnd threadEnd;

    ContextBlock* take() noexcept {
        if (first == nullptr && state == State::used) fetchChain();
        ContextBlock* block = first;
        if (block == nullptr) return nullptr;
        first = block->nextFree;
        --count;
        return block;
    }
    bool keep(ContextBlock* block) noexcept {
        if (!kRecycles) return false;
        if (state != State::used && !begin()) return false;
        if (count == kMostKept && !handOn()) return false;
        block->nextFree = first;
        first = block;
        ++count;
        return true;
    }

  private:
    bool begin() noexcept;
    void end() noexcept {
        state = State::gone;
        while (first != nullptr) std::free(std::exchange(first, first->nextFree));
    }
    void fetchChain() noexcept {
        for (std::atomic<ContextBlock*>& chain : chains) {
            if (chain.load(std::memory_order_relaxed) == nullptr) continue;
            first = chain.exchange(nullptr, std::memory_order_acquire);
            if (first == nullptr) continue;
            count = kMostKept;
            return;
        }
    }
    bool handOn() noexcept {
        for (std::atomic<ContextBlock*>& chain : chains) {
            ContextBlock* none = nullptr;
            if (!chain.compare_exchange_strong(none, first, std::memory_order_release,
                                               std::memory_order_relaxed)) {
                continue;
            }
            first = nullptr;
            count = 0;
            return true;
        }
        return false;
    }
};

// The model is for speed; these few bytes find room in the static block of a library that is loaded late,
// too.
[[gnu::tls_model("initial-exec")]] constinit thread_local FreeList freeList{};

bool FreeList::begin() noexcept {
    if (state == State::gone) return false;
    threadEnd.run = [] { freeList.end(); };
    // A thread whose end nobody would tell of keeps nothing.
    state = platform::atThreadEnd(threadEnd) ? State::used : State::gone;
    return state == State::used;
}

void release(ContextBlock* block) noexcept {
    if (block->state.kind != ContextBlock::Kind::standard || !freeList.keep(block)) std::free(block);
}

/// False without the memory for it.
bool setName(ContextBlock* block, const char* name) noexcept {
    const std::size_t size = std::strlen(name) + 1;
    auto* copy = size <= kInlineNameBytes ? block->nameRoom() : static_cast<char*>(std::malloc(size));
    if (copy == nullptr) return false;
    std::memcpy(copy, name, size);
    block->ctx.name = copy;
    return true;
}

/// An empty message in a block with a first buffer of `firstBytes` and room for the name, if it is short.
/// Null without the memory for the block or its name.
picoproto_ctx_s* begin(ContextBlock* block, ContextBlock::Kind kind, std::uint64_t firstBytes,
                       const char* name) noexcept {
    if (block == nullptr) return nullptr;
    block->state = {static_cast<std::uint32_t>(firstBytes), static_cast<std::uint16_t>(firstBytes), kind,
                    false};
    block->ctx = {nullptr, 0, firstBytes, block->firstBuffer()};
    if (name == nullptr || setName(block, name)) return &block->ctx;
    release(block);
    return nullptr;
}

ContextBlock* allocatedBlock(std::uint64_t firstBytes, std::size_t nameBytes) noexcept {
    const std::size_t size = sizeof(ContextBlock) + static_cast<std::size_t>(firstBytes) + nameBytes;
    return static_cast<ContextBlock*>(std::malloc(size));
}

}  // namespace

picoproto_ctx_s* newTightContext(const char* name, std::uint64_t firstBytes) noexcept {
    const std::size_t nameBytes = name != nullptr ? std::strlen(name) + 1 : 0;
    ContextBlock* block = allocatedBlock(firstBytes, nameBytes <= kInlineNameBytes ? nameBytes : 0);
    return begin(block, ContextBlock::Kind::tight, firstBytes, name);
}

bool reserveBuffer(picoproto_ctx_s* ctx, std::uint64_t bytes) noexcept {
    ContextBlock* block = blockOf(ctx);
    bytes = std::min<std::uint64_t>(bytes, PICOPROTO_MAX_LENGTH);
    if (bytes <= block->state.allocated) return true;
    auto* buffer = static_cast<std::uint8_t*>(std::malloc(static_cast<std::size_t>(bytes)));
    if (buffer == nullptr) return false;
    std::memcpy(buffer, ctx->buffer, static_cast<std::size_t>(ctx->length));
    if (ctx->buffer != block->firstBuffer()) std::free(ctx->buffer);
    ctx->buffer = buffer;
    block->state.allocated = static_cast<std::uint32_t>(bytes);
    return true;
}

}  // namespace qlsdk

picoproto_ctx_s* picoproto_new(const char* name) {
    using namespace qlsdk;
    ContextBlock* block = freeList.take();
    if (block == nullptr) block = allocatedBlock(kInitialCapacity, kInlineNameBytes);
    return begin(block, ContextBlock::Kind::standard, kInitialCapacity, name);
}

void picoproto_free(picoproto_ctx_s* ctx) {
    if (ctx == nullptr) return;
    qlsdk::ContextBlock* block = qlsdk::blockOf(ctx);
    if (ctx->name != block->nameRoom()) std::free(ctx->name);
    if (ctx->buffer != block->firstBuffer()) std::free(ctx->buffer);
    qlsdk::release(block);
}
