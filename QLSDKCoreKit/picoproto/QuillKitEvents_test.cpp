#include "QLSDKCoreKit/picoproto/QuillKitEvents.h"

#include <string>

#include <wire/kit_events.pb.h>

#include "QLSDKCoreKit/picoproto/MessageContext.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

using platform::testing::FakePlatform;

const char addressInThisKit = 0;

TEST(QuillKitEvents, KitEventBaseCarriesTheKitAndItsHostInTheEstablishedOrder) {
    FakePlatform fakes;
    fakes.bundles->setKit({{"CFBundleVersion", "2.0.1"}});
    fakes.clock->set(1700000000.9999);
    ASSERT_TRUE(fakes.install());

    const MessageContext base(
        QuillKitEvents::kitEventBaseWithKitType(QLSDKKitTypeSharing, &addressInThisKit));
    EXPECT_STREQ(base->name, "KitEventBase");
    const std::string bytes = textOf(encodedBytes(*base));
    EXPECT_TRUE(
        bytes.starts_with("\x30\x03\x3A\x05"
                          "2.0.1\x0A\x03"
                          "abc\x1A"))
        << "fields 6, 7, 1, 3, 2, 8";
    quillkit::wire::KitEventBase decoded;
    ASSERT_TRUE(decoded.ParseFromString(bytes));
    EXPECT_EQ(decoded.user_agent(), "QLSDK/(iPhone;iOS;12.2)");
    EXPECT_EQ(decoded.locale(), "en_US");
    EXPECT_EQ(decoded.client_timestamp_millis(), 1700000000999);
}

TEST(QuillKitEvents, AbsentTextsAreEmptyAndANegativeKitTypeTakesFiveBytes) {
    FakePlatform fakes;
    fakes.bundles->setMain({});
    ASSERT_TRUE(fakes.install());

    const MessageContext base(QuillKitEvents::kitEventBaseWithKitType(static_cast<QLSDKKitType>(-1)));
    EXPECT_TRUE(
        textOf(encodedBytes(*base)).starts_with(std::string("\x30\xFF\xFF\xFF\xFF\x0F\x3A\x00\x0A\x00", 10)));
}

TEST(QuillKitEvents, ServerEventWrapsAndConsumesThePayload) {
    FakePlatform fakes;
    ASSERT_TRUE(fakes.install());

    const auto event = QuillKitEvents::serverEventWithServerEventData(picoproto_new("Payload"));
    EXPECT_STREQ(event->ctx()->name, "ServerEvent");
    EXPECT_EQ(textOf(encodedBytes(*event->ctx())), std::string("\xA2\x06\x00\x62\x03iOS\x6A\x04"
                                                               "12.2",
                                                               14));
    EXPECT_EQ(QuillKitEvents::serverEventWithServerEventData(nullptr)->ctx()->length, 14u);
}

}  // namespace
}  // namespace qlsdk
