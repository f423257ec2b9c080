#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "QLSDKCoreKit/events/EventWrapper.h"
#include "QLSDKCoreKit/picoproto/MessageContext.h"
#include "QLSDKCoreKit/values/Data.h"

namespace qlsdk {

/// Writer contexts borrowed from the records of a batch, in the batch's order.
using BatchContexts = std::vector<picoproto_ctx_s*>;

/// The record's context, borrowed from it; null for an element that is no record, or one without an event or
/// a context.
[[nodiscard]] picoproto_ctx_s* contextOf(const platform::ArchivedObject& element);

/// The contexts of every record that has one.
[[nodiscard]] BatchContexts contextsOf(const EventList& events);

/// Those among them whose message has exactly this name.
[[nodiscard]] BatchContexts contextsNamed(const EventList& events, std::string_view messageName);

/// The field of the batch's message that a record's message is written into; 0 when it is left out.
using FieldOf = std::uint64_t (*)(const picoproto_ctx_s& message);

/// How many of the records, from the last on, fit into one message.
[[nodiscard]] std::size_t countThatFits(const EventList& events, FieldOf fieldOf);

/// Writes each context as one occurrence of the field; none leaves the message as it is. The contexts stay
/// their records'. Throws std::length_error when not all of it could be written.
void writeRepeated(picoproto_ctx_s* message, std::uint64_t field, const BatchContexts& contexts);

/// A copy of the bytes written so far. Throws std::bad_alloc for a null message.
[[nodiscard]] Data bodyOf(const MessageContext& message);

}  // namespace qlsdk
