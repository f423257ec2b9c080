#pragma once

#include <bit>
#include <cstdint>
#include <memory>
#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/picoproto/picoproto.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk {

struct MessageContextDeleter {
    void operator()(picoproto_ctx_s* ctx) const noexcept { picoproto_free(ctx); }
};

/// Owns a writer context. Null where there was no memory for one, which every function of the writer takes.
using MessageContext = std::unique_ptr<picoproto_ctx_s, MessageContextDeleter>;

/// The bytes written so far, borrowed until the next write.
[[nodiscard]] inline DataView encodedBytes(const picoproto_ctx_s& ctx) noexcept {
    return {ctx.buffer, static_cast<std::size_t>(ctx.length)};
}

/// True when all that was written into the message went in: false for a null one, and for good once a write
/// was refused, at the ceiling or for want of memory, whether or not its status told. A message that is
/// embedded is judged by itself.
[[nodiscard]] QLSDK_EXPORT bool isComplete(const MessageContext& message) noexcept;

/// `picoproto_write_string_field` for a text of unknown origin: up to its first NUL, and with U+FFFD in the
/// place of what is no UTF-8 (see `platform::repairedUtf8`), so that strict readers decode the message.
/// Allocates only to repair.
QLSDK_EXPORT std::int32_t writeUtf8Field(const MessageContext& message, std::uint64_t field,
                                         std::string_view text);

/// Writes `child` as one embedded message and frees it, also when the write is refused. A null child is an
/// empty message. Returns the writer's status.
inline std::int32_t writeMessageField(const MessageContext& message, std::uint64_t field,
                                      MessageContext child) noexcept {
    return picoproto_write_embedded_message_field(message.get(), field, child.get(), 0);
}

/// The bytes that `child` adds to a message as an embedded field, its key and its length included.
[[nodiscard]] constexpr std::uint64_t embeddedMessageBytes(std::uint64_t field,
                                                           const picoproto_ctx_s& child) noexcept {
    constexpr int kBitsOfAVarintByte = 7;
    const auto varintBytes = [](std::uint64_t value) {
        return static_cast<std::uint64_t>((std::bit_width(value | 1) + kBitsOfAVarintByte - 1) /
                                          kBitsOfAVarintByte);
    };
    return varintBytes(field * 8) + varintBytes(child.length) + child.length;
}

/// `message` in no more memory than its bytes need, for one that is complete and has to wait; writing may
/// still go on. A null one, one that outgrew its first 1024 bytes, and any where memory is short come back as
/// they are.
[[nodiscard]] QLSDK_EXPORT MessageContext compacted(MessageContext message) noexcept;

/// A "Timestamp" message for a point in time in seconds since 1970: field 1 the whole seconds, cut toward
/// zero, field 2 the rest in nanoseconds, cut toward zero to 32 bits. Times out of range saturate. Null
/// without the memory for it.
[[nodiscard]] QLSDK_EXPORT MessageContext timestampMessage(double secondsSince1970);

}  // namespace qlsdk
