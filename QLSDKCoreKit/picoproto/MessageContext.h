#pragma once

#include <memory>
#include <string>

#include "QLSDKCoreKit/picoproto/picoproto.h"
#include "QLSDKCoreKit/platform/Data.h"
#include "QLSDKCoreKit/platform/Export.h"

namespace qlsdk {

struct MessageContextDeleter {
    void operator()(picoproto_ctx_s* ctx) const noexcept { picoproto_free(ctx); }
};

/// Owns a writer context.
using MessageContext = std::unique_ptr<picoproto_ctx_s, MessageContextDeleter>;

/// The bytes written so far, borrowed until the next write.
[[nodiscard]] inline DataView encodedBytes(const picoproto_ctx_s& ctx) noexcept {
    return {ctx.buffer, static_cast<std::size_t>(ctx.length)};
}

/// `message` in no more memory than its bytes need, for one that is complete and has to wait; writing may
/// still go on. A null one, and one that outgrew its first 1024 bytes, come back as they are.
[[nodiscard]] QLSDK_EXPORT MessageContext compacted(MessageContext message) noexcept;

/// A "Timestamp" message for a point in time in seconds since 1970: field 1 the whole seconds, cut toward
/// zero, field 2 the rest in nanoseconds, cut toward zero to 32 bits. Times out of range saturate.
[[nodiscard]] QLSDK_EXPORT MessageContext timestampMessage(double secondsSince1970);

}  // namespace qlsdk
