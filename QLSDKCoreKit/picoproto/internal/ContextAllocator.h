#pragma once

#include <cstddef>
#include <cstdint>

#include "QLSDKCoreKit/picoproto/picoproto.h"

/// Where the writer's contexts live and what becomes of their memory; what is written is the writer's affair.
/// `picoproto_new` and `picoproto_free` are defined here: a small message is little more than the two, and a
/// call between them and the allocator took 7 % of a counter's time.
///
/// A context, its first buffer and a short name share one block, so that a small message costs one
/// allocation. A freed block of the usual size waits for the thread's next message. A thread that frees more
/// messages than it makes, as a queue's worker does, hands its blocks on to those that make them: eight at a
/// time, for one atomic exchange. So in the steady state a message costs no allocation, whoever frees it: a
/// heartbeat takes 146 ns instead of 262, a counter 47 instead of 117 (docs/performance.md names the
/// machine).
///
/// Any thread may free what another made. Nothing throws, waits or takes a lock. A thread keeps at most eight
/// blocks until it ends; 64 more, 70 KiB, may wait for whoever comes next and are never freed. Under a
/// sanitizer that watches memory nothing is kept: it would not see a write through a context that was freed.
namespace qlsdk {

/// The room for bytes in a new message, and the capacity that its context tells. Callers count on both.
inline constexpr std::uint64_t kInitialCapacity = 1024;

/// The head of a block; the first buffer and the room for a short name stand behind it. The bytes come
/// first: a short message lies in two cache lines.
struct ContextBlock {
    enum class Kind : std::uint8_t {
        /// A first buffer of `kInitialCapacity` and the full room for a short name: fit for any new message.
        standard,
        /// No more than one message needed.
        tight,
    };

    picoproto_ctx_s ctx;
    union {
        struct {
            /// What the buffer really holds: more than the context's capacity tells, once it had to grow.
            std::uint32_t allocated;
            /// The size of the first buffer.
            std::uint16_t firstBytes;
            Kind kind;
            /// A write was refused, or a part of one. The writer says so; the block only carries it.
            bool incomplete;
        } state;
        /// While the block waits for its next message.
        ContextBlock* nextFree;
    };

    [[nodiscard]] std::uint8_t* firstBuffer() noexcept { return reinterpret_cast<std::uint8_t*>(this + 1); }
    [[nodiscard]] char* nameRoom() noexcept {
        return reinterpret_cast<char*>(firstBuffer() + state.firstBytes);
    }
};
static_assert(offsetof(ContextBlock, ctx) == 0);
static_assert(sizeof(ContextBlock) == sizeof(picoproto_ctx_s) + sizeof(std::uint64_t));

/// The block of a context, which must not be null.
[[nodiscard]] inline ContextBlock* blockOf(picoproto_ctx_s* ctx) noexcept {
    return reinterpret_cast<ContextBlock*>(ctx);
}
[[nodiscard]] inline const ContextBlock* blockOf(const picoproto_ctx_s* ctx) noexcept {
    return reinterpret_cast<const ContextBlock*>(ctx);
}

/// `picoproto_new` with a first buffer of `firstBytes`, at most `kInitialCapacity`, and no room to spare.
[[nodiscard]] picoproto_ctx_s* newTightContext(const char* name, std::uint64_t firstBytes) noexcept;

/// Gives the buffer room for `bytes`, at most the ceiling of a message; what the context tells of its
/// capacity stays. False without the memory for it, and everything stays.
[[nodiscard]] bool reserveBuffer(picoproto_ctx_s* ctx, std::uint64_t bytes) noexcept;

}  // namespace qlsdk
