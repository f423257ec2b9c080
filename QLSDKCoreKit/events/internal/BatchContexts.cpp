#include "QLSDKCoreKit/events/internal/BatchContexts.h"

#include <new>
#include <stdexcept>

namespace qlsdk {

picoproto_ctx_s* contextOf(const platform::ArchivedObject& element) {
    const auto record = eventWrapperOf(element);
    const auto event = record != nullptr ? record->event() : nullptr;
    return event != nullptr ? event->ctx() : nullptr;
}

BatchContexts contextsOf(const EventList& events) {
    BatchContexts contexts;
    for (const platform::ArchivedObject& element : events) {
        if (picoproto_ctx_s* context = contextOf(element)) contexts.push_back(context);
    }
    return contexts;
}

BatchContexts contextsNamed(const EventList& events, std::string_view messageName) {
    BatchContexts contexts = contextsOf(events);
    std::erase_if(contexts, [messageName](const picoproto_ctx_s* ctx) {
        return ctx->name == nullptr || ctx->name != messageName;
    });
    return contexts;
}

std::size_t countThatFits(const EventList& events, FieldOf fieldOf) {
    std::uint64_t bytes = 0;
    std::size_t count = 0;
    for (auto element = events.rbegin(); element != events.rend(); ++element, ++count) {
        const picoproto_ctx_s* message = contextOf(*element);
        const std::uint64_t field = message != nullptr ? fieldOf(*message) : 0;
        if (field != 0) bytes += embeddedMessageBytes(field, *message);
        if (bytes > PICOPROTO_MAX_LENGTH) break;
    }
    return count;
}

void writeRepeated(picoproto_ctx_s* message, std::uint64_t field, const BatchContexts& contexts) {
    if (picoproto_write_repeated_embedded_message_field(message, field, contexts.data(), contexts.size(),
                                                        0) != 0) {
        throw std::length_error("a batch that could not be written whole");
    }
}

Data bodyOf(const MessageContext& message) {
    if (message == nullptr) throw std::bad_alloc();
    const DataView bytes = encodedBytes(*message);
    return Data(bytes.begin(), bytes.end());
}

}  // namespace qlsdk
