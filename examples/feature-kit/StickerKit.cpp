#include "StickerKit.h"

#include <QLSDKCoreKit/picoproto/MessageContext.h>

namespace {

using namespace qlsdk;

constexpr QLSDKKitType kKitType = QLSDKKitTypeSharing;
constexpr std::uint64_t kEventsInABatch = 5;

// Anything in the kit's own code or data: its address says which bundle, and so which version, is meant.
const char kInThisKit = 0;

// Puts the queued events into the body of one upload.
class BatchWriter final : public AnalyticsEventsQueueDelegate {
  public:
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) override {
        const MessageContext batch(picoproto_new("StickerBatch"));
        for (const platform::ArchivedObject& element : events) {
            const auto wrapper = eventWrapperOf(element);
            if (wrapper == nullptr || wrapper->event() == nullptr) continue;  // From a damaged archive.
            picoproto_write_embedded_message_field(batch.get(), 1, wrapper->event()->ctx(), 0);
        }
        const DataView bytes = encodedBytes(*batch);
        return Data(bytes.begin(), bytes.end());
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
    picoproto_ctx_s* event = picoproto_new("StickerSent");
    picoproto_ctx_s* base = QuillKitEvents::kitEventBaseWithKitType(kKitType, &kInThisKit);
    picoproto_write_embedded_message_field(event, 1, base, 1);
    picoproto_write_string_field(event, 2, pack.c_str());
    queue_->pushEvent(QuillKitEvents::serverEventWithServerEventData(event));
}
