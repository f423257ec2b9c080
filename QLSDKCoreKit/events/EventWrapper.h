#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/picoproto/EncodablePicoproto.h"
#include "QLSDKCoreKit/values/KeyedArchive.h"

namespace qlsdk {

/// One queued record: an encoded event, the number that the queue gave it and the state of its one retry.
///
/// In an archive it is a record with the keys "QLSDKEncodeSequenceId", "QLSDKEncodeEvent",
/// "QLSDKEncodeRetry", "QLSDKEncodeNumRetried" and "kQLSDKEncodeNextRetryTimeMillis". Not synchronised: the
/// queue owns it. The setters are the queue's; others only read.
class QLSDK_EXPORT EventWrapper final : public platform::Archivable {
  public:
    static constexpr std::string_view kClassName = "EventWrapper";

    /// A first attempt. The event may be null.
    EventWrapper(std::uint64_t sequenceId, std::shared_ptr<EncodablePicoproto> event);

    /// Reads the record form; a missing key is 0, false or null.
    [[nodiscard]] static std::shared_ptr<platform::Archivable> initWithCoder(platform::KeyedDecoder& decoder);
    [[nodiscard]] static bool supportsSecureCoding() noexcept { return true; }

    /// 1 for the first event that a queue ever took.
    [[nodiscard]] std::uint64_t sequenceId() const noexcept { return sequenceId_; }
    /// Null when there is none, or when an archive holds something else in its place.
    [[nodiscard]] std::shared_ptr<EncodablePicoproto> event() const;
    /// True once an upload of this record has failed and it was kept for its single retry.
    [[nodiscard]] bool isRetry() const noexcept { return isRetry_; }
    /// Any value but 0 means that the retry is spent.
    [[nodiscard]] std::uint64_t numRetried() const noexcept { return numRetried_; }
    /// Earliest time of the retry in milliseconds since 1970; 0 is no earliest time.
    [[nodiscard]] std::int64_t nextRetryTimeMillis() const noexcept { return nextRetryTimeMillis_; }

    /// Whether it was read from an archive: the record of an earlier process.
    [[nodiscard]] bool isFromArchive() const noexcept { return isFromArchive_; }

    void setSequenceId(std::uint64_t sequenceId) noexcept { sequenceId_ = sequenceId; }
    void setEvent(std::shared_ptr<EncodablePicoproto> event);
    void setIsRetry(bool isRetry) noexcept { isRetry_ = isRetry; }
    void setNumRetried(std::uint64_t numRetried) noexcept { numRetried_ = numRetried; }
    void setNextRetryTimeMillis(std::int64_t millis) noexcept { nextRetryTimeMillis_ = millis; }

    [[nodiscard]] std::string_view archivedClassName() const noexcept override { return kClassName; }
    void encodeWithCoder(platform::KeyedEncoder& encoder) const override;

  private:
    std::uint64_t sequenceId_;
    /// Whatever an archive held under the key, so that writing it again loses nothing.
    platform::ArchivedObject event_;
    bool isRetry_ = false;
    bool isFromArchive_ = false;
    std::uint64_t numRetried_ = 0;
    std::int64_t nextRetryTimeMillis_ = 0;
};

/// A queue's list. Elements are records, and whatever else an archive listed among them.
using EventList = std::vector<platform::ArchivedObject>;

/// The record in a list element; null when the element is something else.
[[nodiscard]] QLSDK_EXPORT std::shared_ptr<EventWrapper> eventWrapperOf(
    const platform::ArchivedObject& element);

}  // namespace qlsdk
