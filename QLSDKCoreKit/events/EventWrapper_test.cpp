#include "QLSDKCoreKit/events/EventWrapper.h"

#include <array>

#include "QLSDKCoreKit/values/KeyedCoder.h"

namespace qlsdk {
namespace {

using platform::ArchivedObject;

constexpr std::array kClasses = {
    platform::ArchivableClass{EventWrapper::kClassName, EventWrapper::initWithCoder},
    platform::ArchivableClass{EncodablePicoproto::kClassName, EncodablePicoproto::initWithCoder}};

std::shared_ptr<EventWrapper> throughAnArchive(std::shared_ptr<platform::Archivable> record) {
    const Data bytes =
        platform::archiveRootObject(ArchivedObject(std::move(record)), platform::RootClass::dictionary);
    const auto root = platform::unarchiveRootObject(bytes, kClasses);
    return root ? eventWrapperOf(*root) : nullptr;
}

/// A record of an earlier writer, without a retry time, with something else in the event's place.
class Foreign final : public platform::Archivable {
  public:
    std::string_view archivedClassName() const noexcept override { return EventWrapper::kClassName; }
    void encodeWithCoder(platform::KeyedEncoder& encoder) const override {
        encoder.encodeInt64(7, "QLSDKEncodeSequenceId");
        encoder.encodeObject(Value("not an event"), "QLSDKEncodeEvent");
        encoder.encodeBool(true, "QLSDKEncodeRetry");
    }
};

TEST(EventWrapper, SurvivesAnArchiveBitForBit) {
    for (const std::uint64_t id : {std::uint64_t{1}, std::uint64_t{INT64_MAX} + 1, UINT64_MAX}) {
        const auto record =
            std::make_shared<EventWrapper>(id, std::make_shared<EncodablePicoproto>(picoproto_new("Event")));
        record->setIsRetry(true);
        record->setNumRetried(id);
        record->setNextRetryTimeMillis(-5);
        const auto restored = throughAnArchive(record);
        ASSERT_NE(restored, nullptr);
        EXPECT_EQ(restored->sequenceId(), id);
        ASSERT_NE(restored->event(), nullptr);
        EXPECT_STREQ(restored->event()->ctx()->name, "Event");
        EXPECT_TRUE(restored->isRetry());
        EXPECT_EQ(restored->numRetried(), id);
        EXPECT_EQ(restored->nextRetryTimeMillis(), -5);
    }
}

TEST(EventWrapper, ANullEventAndMissingKeysReadAsNothing) {
    const auto empty = throughAnArchive(std::make_shared<EventWrapper>(3, nullptr));
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->event(), nullptr);

    const auto foreign = throughAnArchive(std::make_shared<Foreign>());
    ASSERT_NE(foreign, nullptr);
    EXPECT_EQ(foreign->event(), nullptr);
    EXPECT_EQ(foreign->nextRetryTimeMillis(), 0) << "due at once";
    EXPECT_EQ(foreign->numRetried(), 0u);
}

TEST(EventWrapper, SomethingElseInTheEventsPlaceIsWrittenBack) {
    const auto foreign = throughAnArchive(std::make_shared<Foreign>());
    ASSERT_NE(foreign, nullptr);
    const Data again = platform::archiveRootObject(
        ArchivedObject(std::shared_ptr<platform::Archivable>(foreign)), platform::RootClass::dictionary);
    EXPECT_NE(textOf(again).find("not an event"), std::string::npos);
}

}  // namespace
}  // namespace qlsdk
