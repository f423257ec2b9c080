#pragma once

#include <string_view>
#include <vector>

#include "QLSDKCoreKit/events/EventWrapper.h"
#include "QLSDKCoreKit/picoproto/MessageContext.h"
#include "QLSDKCoreKit/platform/Data.h"

namespace qlsdk {

/// Writer contexts borrowed from the records of a batch, in the batch's order.
using BatchContexts = std::vector<picoproto_ctx_s*>;

/// The contexts of every record that has one.
[[nodiscard]] BatchContexts contextsOf(const EventList& events);

/// Those among them whose message has exactly this name.
[[nodiscard]] BatchContexts contextsNamed(const EventList& events, std::string_view messageName);

/// Writes each context as one occurrence of the field; none leaves the message as it is. The contexts stay
/// their records'.
void writeRepeated(picoproto_ctx_s* message, std::uint64_t field, const BatchContexts& contexts);

/// A copy of the bytes written so far.
[[nodiscard]] Data bodyOf(const MessageContext& message);

}  // namespace qlsdk
