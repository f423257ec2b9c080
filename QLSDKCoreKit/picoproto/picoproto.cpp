#include "QLSDKCoreKit/picoproto/picoproto.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/picoproto/MessageContext.h"
#include "QLSDKCoreKit/picoproto/internal/ContextAllocator.h"
#include "QLSDKCoreKit/values/Value.h"
#include "QLSDKCoreKit/values/internal/Utf8.h"

namespace {

using qlsdk::blockOf;
using qlsdk::ContextBlock;
using qlsdk::kInitialCapacity;
using qlsdk::reserveBuffer;

// What the capacity that a context tells grows by beyond the need; callers count on the number.
constexpr std::uint64_t kSpareBytes = 1024;
// 64 bits in groups of seven.
constexpr std::uint64_t kMaxVarintBytes = 10;
// A timestamp, a counter with its name: what most children are.
constexpr std::uint64_t kShortBytes = 48;
// From a new message's buffer to the ceiling in four steps.
constexpr std::uint64_t kGrowth = 4;
// A key of one byte and a length of one.
constexpr std::uint64_t kUsualPrefixBytes = 2;
// Eight short children are written in some 25 ns, about as long as a line takes to come from the third cache.
constexpr std::uint64_t kAhead = 8;

enum WireType : std::uint64_t { varint = 0, fixed64 = 1, lengthDelimited = 2, fixed32 = 5 };

/// The capacity grows by little more than what is needed, as it always has; the buffer behind it grows by
/// factors, so that many appends cost few copies. It never tells of more than there is.
bool grow(picoproto_ctx_s* ctx, std::uint64_t requested) noexcept {
    const std::uint64_t capacity = std::min<std::uint64_t>(requested, PICOPROTO_MAX_LENGTH);
    const std::uint64_t allocated = blockOf(ctx)->state.allocated;
    if (capacity > allocated && !reserveBuffer(ctx, std::max(capacity, kGrowth * allocated)) &&
        !reserveBuffer(ctx, capacity)) {
        return false;
    }
    ctx->capacity = capacity;
    return true;
}

std::int32_t refuse(picoproto_ctx_s* ctx) noexcept {
    blockOf(ctx)->state.incomplete = true;
    return PICOPROTO_MESSAGE_TOO_LONG;
}

/// After a refusal: whether it was for want of memory. At the ceiling, the capacity has grown as far as it
/// may before anything is refused.
bool ranOutOfMemory(const picoproto_ctx_s* ctx) noexcept {
    return ctx->capacity < PICOPROTO_MAX_LENGTH;
}

std::int32_t append(picoproto_ctx_s* ctx, const void* bytes, std::uint64_t count) noexcept {
    if (count > ctx->capacity - ctx->length) {
        // A count past the ceiling is refused whatever it is exactly, so it may be cut before it is added.
        const std::uint64_t needed = ctx->length + std::min<std::uint64_t>(count, PICOPROTO_MAX_LENGTH + 1);
        if (!grow(ctx, needed + kSpareBytes) || needed > PICOPROTO_MAX_LENGTH) return refuse(ctx);
    }
    if (count > 0) std::memcpy(ctx->buffer + ctx->length, bytes, static_cast<std::size_t>(count));
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

/// Asks for the two cache lines of a short child; of a null one, for two that nobody reads, which is cheaper
/// than looking. By address, because a null context has no members to point at.
void prefetch(const picoproto_ctx_s* child) noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(child);
    __builtin_prefetch(reinterpret_cast<const void*>(address));
    __builtin_prefetch(reinterpret_cast<const void*>(address + sizeof(ContextBlock) + kShortBytes - 1));
}

/// Writes children whose key takes one byte at once, as long as they are short and the buffer has room, and
/// returns how many. Children lie far from each other; the ones behind are fetched while these are written.
std::uint64_t writeShortChildren(picoproto_ctx_s* ctx, std::uint8_t key, picoproto_ctx_s* const* children,
                                 std::uint64_t count) noexcept {
    const std::uint64_t allocated = blockOf(ctx)->state.allocated;
    // Up to here a child fits into the capacity, and its fixed count into the buffer.
    const auto limitOf = [allocated](std::uint64_t capacity) {
        return std::min(capacity, allocated - std::min(allocated, kShortBytes));
    };
    std::uint8_t* const buffer = ctx->buffer;
    std::uint64_t position = ctx->length;
    std::uint64_t limit = limitOf(ctx->capacity);
    std::uint64_t i = 0;
    for (; i < count; ++i) {
        if (i + kAhead < count) prefetch(children[i + kAhead]);
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

/// Children of one kind are of much the same size, so the first one tells how much room they all take. What
/// is not to be had now may be when it is needed.
void reserveForChildren(picoproto_ctx_s* ctx, const picoproto_ctx_s* first, std::uint64_t count) noexcept {
    const std::uint64_t each = kUsualPrefixBytes + (first != nullptr ? first->length : 0);
    const std::uint64_t most = PICOPROTO_MAX_LENGTH / each;
    (void)reserveBuffer(ctx, ctx->length + std::min(count, most + 1) * each + kSpareBytes);
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
    // On purpose: a length refused at the ceiling goes unreported; the status is that of the child's bytes.
    const std::int32_t status = writeVarint(ctx, length);
    if (status != 0 && ranOutOfMemory(ctx)) return status;
    return append(ctx, child != nullptr ? child->buffer : nullptr, length);
}

std::int32_t writeText(picoproto_ctx_s* ctx, std::uint64_t field, std::string_view text) noexcept {
    if (ctx == nullptr) return PICOPROTO_MESSAGE_TOO_LONG;
    const std::uint64_t length = text.size();
    if (hasRoom(ctx, 2 * kMaxVarintBytes) && ctx->capacity - ctx->length - 2 * kMaxVarintBytes >= length) {
        std::uint8_t* out = putVarint(ctx->buffer + ctx->length, field * 8 + lengthDelimited);
        out = putVarint(out, length);
        if (length != 0) std::memcpy(out, text.data(), text.size());
        ctx->length = static_cast<std::uint64_t>(out - ctx->buffer) + length;
        return 0;
    }
    if (const std::int32_t status = writeKey(ctx, field, lengthDelimited)) return status;
    if (const std::int32_t status = writeVarint(ctx, length)) return status;
    return append(ctx, text.data(), length);
}

template <std::size_t count>
std::int32_t writeFixed(picoproto_ctx_s* ctx, std::uint64_t field, WireType type,
                        std::uint64_t value) noexcept {
    if (ctx == nullptr) return PICOPROTO_MESSAGE_TOO_LONG;
    if (const std::int32_t status = writeKey(ctx, field, type)) return status;
    std::uint8_t bytes[count];
    for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
    // On purpose: the two fixed-size fields swallow the status of a body that is refused at the ceiling.
    const std::int32_t status = append(ctx, bytes, count);
    return status != 0 && ranOutOfMemory(ctx) ? status : 0;
}

}  // namespace

picoproto_ctx_s* picoproto_new_from_bytes(const char* name, const std::uint8_t* bytes, std::uint64_t count) {
    picoproto_ctx_s* ctx = picoproto_new(name);
    if (ctx == nullptr || bytes == nullptr || append(ctx, bytes, count) == 0 || !ranOutOfMemory(ctx)) {
        return ctx;
    }
    picoproto_free(ctx);
    return nullptr;
}

std::int32_t picoproto_write_string_field(picoproto_ctx_s* ctx, std::uint64_t field, const char* text) {
    return writeText(ctx, field, {text, text != nullptr ? std::strlen(text) : 0});
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
    MessageContext small(newTightContext(message->name, bytes));
    if (small == nullptr) return message;
    std::memcpy(small->buffer, message->buffer, static_cast<std::size_t>(bytes));
    small->length = message->length;
    blockOf(small.get())->state.incomplete = blockOf(message.get())->state.incomplete;
    return small;
}

bool qlsdk::isComplete(const MessageContext& message) noexcept {
    return message != nullptr && !blockOf(message.get())->state.incomplete;
}

std::int32_t qlsdk::writeUtf8Field(const MessageContext& message, std::uint64_t field,
                                   std::string_view text) {
    text = text.substr(0, text.find('\0'));
    if (platform::isValidUtf8(text)) return writeText(message.get(), field, text);
    return writeText(message.get(), field, platform::repairedUtf8(text));
}

qlsdk::MessageContext qlsdk::timestampMessage(double secondsSince1970) {
    const std::int64_t seconds = truncateToInt64(secondsSince1970);
    const double rest = secondsSince1970 - static_cast<double>(seconds);
    const std::int64_t nanos =
        std::clamp<std::int64_t>(truncateToInt64(rest * 1000000000.0), INT32_MIN, INT32_MAX);
    MessageContext message(picoproto_new("Timestamp"));
    picoproto_write_varint_field(message.get(), 1, static_cast<std::uint64_t>(seconds));
    picoproto_write_varint_field(message.get(), 2, static_cast<std::uint64_t>(nanos));
    return message;
}
