#include "QLSDKCoreKit/events/internal/BatchContexts.h"

namespace qlsdk {

BatchContexts contextsOf(const EventList& events) {
    BatchContexts contexts;
    for (const platform::ArchivedObject& element : events) {
        const auto record = eventWrapperOf(element);
        const auto event = record != nullptr ? record->event() : nullptr;
        if (event != nullptr && event->ctx() != nullptr) contexts.push_back(event->ctx());
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

void writeRepeated(picoproto_ctx_s* message, std::uint64_t field, const BatchContexts& contexts) {
    picoproto_write_repeated_embedded_message_field(message, field, contexts.data(), contexts.size(), 0);
}

Data bodyOf(const MessageContext& message) {
    const DataView bytes = encodedBytes(*message);
    return Data(bytes.begin(), bytes.end());
}

}  // namespace qlsdk
