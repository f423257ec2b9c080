#include "QLSDKCoreKit/events/EventWrapper.h"

#include <utility>

#include "QLSDKCoreKit/values/KeyedCoder.h"

namespace qlsdk {

namespace {

constexpr std::string_view kSequenceIdKey = "QLSDKEncodeSequenceId";
constexpr std::string_view kEventKey = "QLSDKEncodeEvent";
constexpr std::string_view kRetryKey = "QLSDKEncodeRetry";
constexpr std::string_view kNumRetriedKey = "QLSDKEncodeNumRetried";
// On purpose: this key alone begins with a "k"; records on disk would lose their retry times without it.
constexpr std::string_view kNextRetryTimeMillisKey = "kQLSDKEncodeNextRetryTimeMillis";

platform::ArchivedObject objectOf(std::shared_ptr<EncodablePicoproto> event) {
    return std::shared_ptr<platform::Archivable>(std::move(event));
}

}  // namespace

EventWrapper::EventWrapper(std::uint64_t sequenceId, std::shared_ptr<EncodablePicoproto> event)
    : sequenceId_(sequenceId), event_(objectOf(std::move(event))) {}

std::shared_ptr<platform::Archivable> EventWrapper::initWithCoder(platform::KeyedDecoder& decoder) {
    auto record = std::make_shared<EventWrapper>(0, nullptr);
    // The unsigned fields take the bit pattern of the signed ones in the archive.
    record->sequenceId_ = static_cast<std::uint64_t>(decoder.decodeInt64(kSequenceIdKey));
    record->event_ = decoder.decodeObject(kEventKey);
    record->isFromArchive_ = true;
    record->isRetry_ = decoder.decodeBool(kRetryKey);
    record->numRetried_ = static_cast<std::uint64_t>(decoder.decodeInt64(kNumRetriedKey));
    record->nextRetryTimeMillis_ = decoder.decodeInt64(kNextRetryTimeMillisKey);
    return record;
}

std::shared_ptr<EncodablePicoproto> EventWrapper::event() const {
    return std::dynamic_pointer_cast<EncodablePicoproto>(event_.record());
}

void EventWrapper::setEvent(std::shared_ptr<EncodablePicoproto> event) {
    event_ = objectOf(std::move(event));
}

void EventWrapper::encodeWithCoder(platform::KeyedEncoder& encoder) const {
    encoder.encodeInt64(static_cast<std::int64_t>(sequenceId_), kSequenceIdKey);
    encoder.encodeObject(event_, kEventKey);
    encoder.encodeBool(isRetry_, kRetryKey);
    encoder.encodeInt64(static_cast<std::int64_t>(numRetried_), kNumRetriedKey);
    encoder.encodeInt64(nextRetryTimeMillis_, kNextRetryTimeMillisKey);
}

std::shared_ptr<EventWrapper> eventWrapperOf(const platform::ArchivedObject& element) {
    return std::dynamic_pointer_cast<EventWrapper>(element.record());
}

}  // namespace qlsdk
