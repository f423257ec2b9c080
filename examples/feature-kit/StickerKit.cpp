#include "StickerKit.h"

#include <stdexcept>
#include <utility>

#include <QLSDKCoreKit/picoproto/MessageContext.h>

namespace {

using namespace qlsdk;

constexpr QLSDKKitType kKitType = QLSDKKitTypeSharing;
constexpr std::uint64_t kEventsInABatch = 5;

// Anything in the kit's own code or data: its address says which bundle, and so which version, is meant.
const char kInThisKit = 0;

constexpr std::uint64_t kEventsField = 1;

// Null for what a damaged archive may hold among the events.
picoproto_ctx_s* messageOf(const platform::ArchivedObject& element) {
    const auto wrapper = eventWrapperOf(element);
    return wrapper != nullptr && wrapper->event() != nullptr ? wrapper->event()->ctx() : nullptr;
}

// Puts the queued events into the body of one upload.
class BatchWriter final : public AnalyticsEventsQueueDelegate {
  public:
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) override {
        const MessageContext batch(picoproto_new("StickerBatch"));
        if (batch == nullptr) throw std::bad_alloc();
        for (const platform::ArchivedObject& element : events) {
            picoproto_ctx_s* event = messageOf(element);
            if (event == nullptr) continue;
            if (picoproto_write_embedded_message_field(batch.get(), kEventsField, event, 0) != 0) {
                throw std::length_error("half a batch");  // Fails the upload; its events get another try.
            }
        }
        const DataView bytes = encodedBytes(*batch);
        return Data(bytes.begin(), bytes.end());
    }

    // One message holds 128 KiB; the queue sends what is beyond it with further requests.
    std::size_t recordsThatFit(AnalyticsEventsQueue&, const EventList& events) override {
        std::uint64_t bytes = 0;
        std::size_t count = 0;
        for (auto element = events.rbegin(); element != events.rend(); ++element, ++count) {
            const picoproto_ctx_s* event = messageOf(*element);
            if (event != nullptr) bytes += embeddedMessageBytes(kEventsField, *event);
            if (bytes > PICOPROTO_MAX_LENGTH) break;
        }
        return count;
    }
};

}  // namespace

StickerKit& StickerKit::shared() {
    // Leaked on purpose: other threads may still use it while the process ends.
    static StickerKit& kit = *new StickerKit;
    return kit;
}

StickerKit::StickerKit()
    : delegate_(std::make_shared<BatchWriter>()),
      queue_(AnalyticsEventsQueue::create("/v1/stickers/events", std::make_shared<QLPayloadProvider>(),
                                          "sticker-kit.plist", kEventsInABatch, delegate_)) {
    QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({kKitType, version()});
}

std::string StickerKit::version() {
    const char* version = QLKitVersionForClass(&kInThisKit);
    return version != nullptr ? version : "";
}

void StickerKit::stickerSent(const std::string& pack) {
    MessageContext base = QuillKitEvents::kitEventBaseWithKitType(kKitType, &kInThisKit);
    MessageContext sent(picoproto_new("StickerSent"));
    if (!isComplete(base) || !isComplete(sent)) return;  // Memory is short; telemetry is best effort.
    writeMessageField(sent, 1, std::move(base));
    writeUtf8Field(sent, 2, pack);
    auto event = QuillKitEvents::serverEventWithServerEventData(std::move(sent));
    // Without a context it could not be written whole: the name is too long, or memory short.
    if (event->ctx() != nullptr) queue_->pushEvent(std::move(event));
}
