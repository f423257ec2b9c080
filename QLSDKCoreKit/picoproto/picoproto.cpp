#include "QLSDKCoreKit/picoproto/picoproto.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "QLSDKCoreKit/picoproto/MessageContext.h"

namespace {

constexpr std::uint64_t kInitialCapacity = 1024;
constexpr std::uint64_t kSpareBytes = 1024;
constexpr std::uint64_t kMaxVarintBytes = 10;
// A timestamp, a counter with its name: what most children are.
constexpr std::uint64_t kShortBytes = 48;
constexpr std::uint64_t kGrowth = 4;
// A key of one byte and a length of one.
constexpr std::uint64_t kUsualPrefixBytes = 2;
constexpr std::uint64_t kAhead = 8;
constexpr std::size_t kInlineNameBytes = 32;

enum WireType : std::uint64_t { varint = 0, fixed64 = 1, lengthDelimited = 2, fixed32 = 5 };

/// A context with its first buffer and a short name behind it in one allocation, so that a small message
/// costs one and, with the free list below, none in the steady state. The bytes come first: a short message
/// lies in two cache lines.
struct Block {
    picoproto_ctx_s ctx;
    union {
        struct {
            /// What the buffer really holds: more than the context's capacity tells, once it had to grow.
            std::uint32_t allocated;
            /// The size of the first buffer; the room for the name stands behind it.
            std::uint32_t firstBytes;
        } sizes;
        Block* nextFree;
    };

    [[nodiscard]] std::uint8_t* firstBuffer() noexcept { return reinterpret_cast<std::uint8_t*>(this + 1); }
    [[nodiscard]] char* nameRoom() noexcept {
        return reinterpret_cast<char*>(firstBuffer() + sizes.firstBytes);
    }
};
static_assert(offsetof(Block, ctx) == 0);

template <typename T>
T* orDie(void* memory) {
    if (memory == nullptr) std::abort();
    return static_cast<T*>(memory);
}

/// Chains of freed blocks on their way from the threads that free messages to those that make them. Whole
/// chains change hands, so that one exchange is all it takes. Constant, and never destroyed: threads may
/// still come by at exit.
constexpr std::size_t kChains = 8;
constinit std::atomic<Block*> chains[kChains];

/// Freed blocks that this thread keeps for its next messages. A heartbeat takes three at a time. Plain data,
/// so that reaching it takes no more than an address.
struct FreeList {
    static constexpr int kMost = 8;
    Block* first;
    int count;
    enum class State { unused, used, gone } state;

    Block* take() noexcept {
        if (first == nullptr && state == State::used) fetchChain();
        Block* block = first;
        if (block == nullptr) return nullptr;
        first = block->nextFree;
        --count;
        return block;
    }
    bool keep(Block* block) noexcept {
        if (state != State::used && !begin()) return false;
        if (count == kMost && !handOn()) return false;
        block->nextFree = first;
        first = block;
        ++count;
        return true;
    }
    void end() noexcept {
        state = State::gone;
        while (first != nullptr) std::free(std::exchange(first, first->nextFree));
    }

  private:
    bool begin() noexcept;
    void fetchChain() noexcept {
        for (std::atomic<Block*>& chain : chains) {
            if (chain.load(std::memory_order_relaxed) == nullptr) continue;
            first = chain.exchange(nullptr, std::memory_order_acquire);
            if (first == nullptr) continue;
            count = kMost;
            return;
        }
    }
    bool handOn() noexcept {
        for (std::atomic<Block*>& chain : chains) {
            Block* none = nullptr;
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

/// Made on a thread's first freed message; its end is the thread's.
struct FreeListEnd {
    bool watched = false;
    ~FreeListEnd() { freeList.end(); }
};
thread_local FreeListEnd freeListEnd;

bool FreeList::begin() noexcept {
    if (state == State::gone) return false;
    freeListEnd.watched = true;
    state = State::used;
    return true;
}

Block* blockOf(picoproto_ctx_s* ctx) noexcept {
    return reinterpret_cast<Block*>(ctx);
}

Block* newBlock() noexcept {
    Block* block = freeList.take();
    if (block != nullptr) return block;
    return orDie<Block>(std::malloc(sizeof(Block) + kInitialCapacity + kInlineNameBytes));
}

char* copiedName(Block* block, const char* name) noexcept {
    if (name == nullptr) return nullptr;
    const std::size_t size = std::strlen(name) + 1;
    char* copy = size <= kInlineNameBytes ? block->nameRoom() : orDie<char>(std::malloc(size));
    std::memcpy(copy, name, size);
    return copy;
}

/// An empty message in a block with a first buffer of `firstBytes` and room for a short name.
picoproto_ctx_s* begin(Block* block, std::uint64_t firstBytes, const char* name) noexcept {
    block->sizes = {static_cast<std::uint32_t>(firstBytes), static_cast<std::uint32_t>(firstBytes)};
    block->ctx = {copiedName(block, name), 0, firstBytes, block->firstBuffer()};
    return &block->ctx;
}

/// Gives the buffer room for `bytes`, at most the ceiling; what the context tells of it stays.
void reserve(picoproto_ctx_s* ctx, std::uint64_t bytes) noexcept {
    Block* block = blockOf(ctx);
    bytes = std::min<std::uint64_t>(bytes, PICOPROTO_MAX_LENGTH);
    if (bytes <= block->sizes.allocated) return;
    auto* buffer = orDie<std::uint8_t>(std::malloc(bytes));
    std::memcpy(buffer, ctx->buffer, ctx->length);
    if (ctx->buffer != block->firstBuffer()) std::free(ctx->buffer);
    ctx->buffer = buffer;
    block->sizes.allocated = static_cast<std::uint32_t>(bytes);
}

/// The capacity grows by little more than what is needed, as it always has; the buffer behind it grows by
/// factors, so that many appends cost few copies.
void grow(picoproto_ctx_s* ctx, std::uint64_t requested) noexcept {
    ctx->capacity = std::min<std::uint64_t>(requested, PICOPROTO_MAX_LENGTH);
    const std::uint64_t allocated = blockOf(ctx)->sizes.allocated;
    if (ctx->capacity > allocated) reserve(ctx, std::max(ctx->capacity, kGrowth * allocated));
}

std::int32_t append(picoproto_ctx_s* ctx, const void* bytes, std::uint64_t count) noexcept {
    if (count > ctx->capacity - ctx->length) {
        // A count past the ceiling is refused whatever it is exactly, so it may be cut before it is added.
        const std::uint64_t needed = ctx->length + std::min<std::uint64_t>(count, PICOPROTO_MAX_LENGTH + 1);
        grow(ctx, needed + kSpareBytes);
        if (needed > PICOPROTO_MAX_LENGTH) return PICOPROTO_MESSAGE_TOO_LONG;
    }
    if (count > 0) std::memcpy(ctx->buffer + ctx->length, bytes, count);
    ctx->length += count;
    return 0;
}

/// Each byte is appended by itself, so that a message near its ceiling keeps the bytes that still fit.
std::int32_t writeVarintNearTheEnd(picoproto_ctx_s* ctx, std::uint64_t value) noexcept {
    for (;;) {
        const bool last = value < 0x80;
        const auto byte = static_cast<std::uint8_t>(last ? value : ((value & 0x7F) | 0x80));
        if (const std::int32_t status = append(ctx, &byte, 1)) return status;
        if (last) return 0;
        value >>= 7;
    }
}

std::uint8_t* putVarint(std::uint8_t* out, std::uint64_t value) noexcept {
    while (value >= 0x80) {
        *out++ = static_cast<std::uint8_t>((value & 0x7F) | 0x80);
        value >>= 7;
    }
    *out++ = static_cast<std::uint8_t>(value);
    return out;
}

bool hasRoom(const picoproto_ctx_s* ctx, std::uint64_t count) noexcept {
    return ctx->capacity - ctx->length >= count;
}

std::int32_t writeVarint(picoproto_ctx_s* ctx, std::uint64_t value) noexcept {
    if (!hasRoom(ctx, kMaxVarintBytes)) return writeVarintNearTheEnd(ctx, value);
    std::uint8_t* out = putVarint(ctx->buffer + ctx->length, value);
    ctx->length = static_cast<std::uint64_t>(out - ctx->buffer);
    return 0;
}

std::int32_t writeKey(picoproto_ctx_s* ctx, std::uint64_t field, WireType type) noexcept {
    return writeVarint(ctx, field * 8 + type);
}

/// A child that is short enough to be copied with a fixed count, past its end: all buffers are long enough.
bool isShort(const picoproto_ctx_s* child) noexcept {
    static_assert(kShortBytes < 0x80 && kShortBytes <= kInitialCapacity);
    return child != nullptr && child->length <= kShortBytes;
}

/// The capacity after a short child that does not fit: the first of its three parts, appended one by one,
/// that finds no room makes some.
std::uint64_t capacityForChild(std::uint64_t capacity, std::uint64_t position, std::uint64_t prefixBytes,
                               std::uint64_t length) noexcept {
    const bool prefixFits = capacity - position >= prefixBytes;
    return (prefixFits ? position + prefixBytes + length : capacity + 1) + kSpareBytes;
}

/// Writes children whose key takes one byte at once, as long as they are short and the buffer has room, and
/// returns how many. Children lie far from each other; the ones behind are fetched while these are written.
std::uint64_t writeShortChildren(picoproto_ctx_s* ctx, std::uint8_t key, picoproto_ctx_s* const* children,
                                 std::uint64_t count) noexcept {
    const std::uint64_t allocated = blockOf(ctx)->sizes.allocated;
    // Up to here a child fits into the capacity, and its fixed count into the buffer.
    const auto limitOf = [allocated](std::uint64_t capacity) {
        return std::min(capacity, allocated - std::min(allocated, kShortBytes));
    };
    std::uint8_t* const buffer = ctx->buffer;
    std::uint64_t position = ctx->length;
    std::uint64_t limit = limitOf(ctx->capacity);
    std::uint64_t i = 0;
    for (; i < count; ++i) {
        if (i + kAhead < count) {
            __builtin_prefetch(children[i + kAhead]);
            __builtin_prefetch(blockOf(children[i + kAhead])->firstBuffer() + kShortBytes - 1);
        }
        const picoproto_ctx_s* child = children[i];
        if (!isShort(child)) break;
        const std::uint64_t length = child->length;
        const std::uint64_t end = position + kUsualPrefixBytes + length;
        if (end > limit) {
            const std::uint64_t grown = capacityForChild(ctx->capacity, position, kUsualPrefixBytes, length);
            if (end <= ctx->capacity || grown > allocated || end > limitOf(grown)) break;
            ctx->capacity = grown;
            limit = limitOf(grown);
        }
        std::uint8_t* const out = buffer + position;
        out[0] = key;
        out[1] = static_cast<std::uint8_t>(length);
        std::memcpy(out + kUsualPrefixBytes, child->buffer, kShortBytes);
        position = end;
    }
    ctx->length = position;
    return i;
}

/// Children of one kind are of much the same size, so the first one tells how much room they all take.
void reserveForChildren(picoproto_ctx_s* ctx, const picoproto_ctx_s* first, std::uint64_t count) noexcept {
    const std::uint64_t each = kUsualPrefixBytes + (first != nullptr ? first->length : 0);
    const std::uint64_t most = PICOPROTO_MAX_LENGTH / each;
    reserve(ctx, ctx->length + std::min(count, most + 1) * each + kSpareBytes);
}

std::int32_t writeChild(picoproto_ctx_s* ctx, std::uint64_t field, picoproto_ctx_s* child) noexcept {
    if (ctx == nullptr) return PICOPROTO_MESSAGE_TOO_LONG;
    if (isShort(child) && hasRoom(ctx, kMaxVarintBytes + 1 + kShortBytes)) {
        std::uint8_t* out = putVarint(ctx->buffer + ctx->length, field * 8 + lengthDelimited);
        *out++ = static_cast<std::uint8_t>(child->length);
        std::memcpy(out, child->buffer, kShortBytes);
        ctx->length = static_cast<std::uint64_t>(out - ctx->buffer) + child->length;
        return 0;
    }
    if (const std::int32_t status = writeKey(ctx, field, lengthDelimited)) return status;
    const std::uint64_t length = child != nullptr ? child->length : 0;
    // On purpose: a refused length goes unreported; the status is that of the child's bytes.
    (void)writeVarint(ctx, length);
    return append(ctx, child != nullptr ? child->buffer : nullptr, length);
}

template <std::size_t count>
std::int32_t writeFixed(picoproto_ctx_s* ctx, std::uint64_t field, WireType type,
                        std::uint64_t value) noexcept {
    if (ctx == nullptr) return PICOPROTO_MESSAGE_TOO_LONG;
    if (const std::int32_t status = writeKey(ctx, field, type)) return status;
    std::uint8_t bytes[count];
    for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
    // On purpose: the two fixed-size fields swallow the status of their body.
    (void)append(ctx, bytes, count);
    return 0;
}

}  // namespace

picoproto_ctx_s* picoproto_new(const char* name) {
    return begin(newBlock(), kInitialCapacity, name);
}

picoproto_ctx_s* picoproto_new_from_bytes(const char* name, const std::uint8_t* bytes, std::uint64_t count) {
    picoproto_ctx_s* ctx = picoproto_new(name);
    if (bytes != nullptr) (void)append(ctx, bytes, count);
    return ctx;
}

void picoproto_free(picoproto_ctx_s* ctx) {
    if (ctx == nullptr) return;
    Block* block = blockOf(ctx);
    if (ctx->name != block->nameRoom()) std::free(ctx->name);
    if (ctx->buffer != block->firstBuffer()) std::free(ctx->buffer);
    if (block->sizes.firstBytes != kInitialCapacity || !freeList.keep(block)) std::free(block);
}

std::int32_t picoproto_write_string_field(picoproto_ctx_s* ctx, std::uint64_t field, const char* text) {
    if (ctx == nullptr) return PICOPROTO_MESSAGE_TOO_LONG;
    const std::uint64_t length = text != nullptr ? std::strlen(text) : 0;
    if (hasRoom(ctx, 2 * kMaxVarintBytes) && ctx->capacity - ctx->length - 2 * kMaxVarintBytes >= length) {
        std::uint8_t* out = putVarint(ctx->buffer + ctx->length, field * 8 + lengthDelimited);
        out = putVarint(out, length);
        if (length != 0) std::memcpy(out, text, length);
        ctx->length = static_cast<std::uint64_t>(out - ctx->buffer) + length;
        return 0;
    }
    if (const std::int32_t status = writeKey(ctx, field, lengthDelimited)) return status;
    if (const std::int32_t status = writeVarint(ctx, length)) return status;
    return append(ctx, text, length);
}

std::int32_t picoproto_write_repeated_string_field(picoproto_ctx_s* ctx, std::uint64_t field,
                                                   const char* const* texts, std::uint64_t count) {
    if (texts == nullptr) return 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        if (const std::int32_t status = picoproto_write_string_field(ctx, field, texts[i])) return status;
    }
    return 0;
}

std::int32_t picoproto_write_embedded_message_field(picoproto_ctx_s* ctx, std::uint64_t field,
                                                    picoproto_ctx_s* child, int free_child) {
    const std::int32_t status = writeChild(ctx, field, child);
    if (free_child != 0) picoproto_free(child);
    return status;
}

std::int32_t picoproto_write_repeated_embedded_message_field(picoproto_ctx_s* ctx, std::uint64_t field,
                                                             picoproto_ctx_s* const* children,
                                                             std::uint64_t count, int free_children) {
    if (children == nullptr) return 0;
    const std::uint64_t key = field * 8 + lengthDelimited;
    if (ctx != nullptr && count > 1) reserveForChildren(ctx, children[0], count);
    for (std::uint64_t i = 0; i < count; ++i) {
        if (ctx != nullptr && free_children == 0 && key < 0x80) {
            i += writeShortChildren(ctx, static_cast<std::uint8_t>(key), children + i, count - i);
            if (i == count) break;
        }
        const std::int32_t status = writeChild(ctx, field, children[i]);
        if (free_children != 0) picoproto_free(children[i]);
        if (status == 0) continue;
        // The refused child is gone already; the ones behind it are freed here.
        while (free_children != 0 && ++i < count) picoproto_free(children[i]);
        return status;
    }
    return 0;
}

std::int32_t picoproto_write_fixed32_field(picoproto_ctx_s* ctx, std::uint64_t field, std::uint32_t value) {
    return writeFixed<4>(ctx, field, fixed32, value);
}

std::int32_t picoproto_write_fixed64_field(picoproto_ctx_s* ctx, std::uint64_t field, std::uint64_t value) {
    return writeFixed<8>(ctx, field, fixed64, value);
}

std::int32_t picoproto_write_varint_field(picoproto_ctx_s* ctx, std::uint64_t field, std::uint64_t value) {
    if (ctx == nullptr) return PICOPROTO_MESSAGE_TOO_LONG;
    if (hasRoom(ctx, 2 * kMaxVarintBytes)) {
        std::uint8_t* out = putVarint(ctx->buffer + ctx->length, field * 8 + varint);
        ctx->length = static_cast<std::uint64_t>(putVarint(out, value) - ctx->buffer);
        return 0;
    }
    if (const std::int32_t status = writeKey(ctx, field, varint)) return status;
    return writeVarint(ctx, value);
}

std::int32_t picoproto_write_double_field(picoproto_ctx_s* ctx, std::uint64_t field, double value) {
    return picoproto_write_fixed64_field(ctx, field, convertHostDoubleToLittle(value));
}

std::uint64_t convertHostDoubleToLittle(double value) {
    return std::bit_cast<std::uint64_t>(value);
}

qlsdk::MessageContext qlsdk::compacted(MessageContext message) noexcept {
    if (message == nullptr || message->buffer != blockOf(message.get())->firstBuffer()) return message;
    const std::uint64_t bytes = std::max(message->length, kShortBytes);
    const std::size_t nameBytes = message->name != nullptr ? std::strlen(message->name) + 1 : 0;
    auto* block = orDie<Block>(std::malloc(sizeof(Block) + bytes + std::min(nameBytes, kInlineNameBytes)));
    MessageContext small(begin(block, bytes, message->name));
    std::memcpy(small->buffer, message->buffer, bytes);
    small->length = message->length;
    return small;
}
