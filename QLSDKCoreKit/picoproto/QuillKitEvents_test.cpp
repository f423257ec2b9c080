#include "QLSDKCoreKit/picoproto/QuillKitEvents.h"

#include <stdexcept>
#include <string>
#include <utility>

#include <wire/kit_events.pb.h>

#include "QLSDKCoreKit/picoproto/MessageContext.h"
#include "QLSDKCoreKit/picoproto/testing/StrictReader.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

using platform::testing::FakePlatform;

const char addressInThisKit = 0;

TEST(QuillKitEvents, KitEventBaseCarriesTheKitAndItsHostInTheEstablishedOrder) {
    FakePlatform fakes;
    fakes.bundles->setKit(&addressInThisKit, {{"CFBundleVersion", "2.0.1"}});
    fakes.bundles->setLibrary({{"CFBundleVersion", "1.3.4"}});
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

class Broken final : public platform::Device, public platform::Locale {
  public:
    std::string model() override { return "model"; }
    std::string systemName() override { return "system"; }
    std::string systemVersion() override {
        if (failing) throw std::runtime_error("no version");
        return "1";
    }
    std::optional<std::string> languageCode() override { return "en"; }
    std::optional<std::string> countryCode() override { return "US"; }
    std::string identifier() override { throw std::runtime_error("no locale"); }

    bool failing = false;
};

TEST(QuillKitEvents, WhatAPlatformThrowsLeavesNoContextBehind) {
    // A leak shows under the address sanitizer.
    const FakePlatform fakes;
    platform::Platform broken = fakes.platform();
    const auto ports = std::make_shared<Broken>();
    broken.device = ports;
    broken.locale = ports;
    ASSERT_EQ(platform::install(broken), platform::InstallResult::installed);
    EXPECT_THROW((void)QuillKitEvents::kitEventBaseWithKitType(QLSDKKitTypeFeed), std::runtime_error);
    ports->failing = true;
    EXPECT_THROW(
        (void)QuillKitEvents::serverEventWithServerEventData(MessageContext(picoproto_new("Payload"))),
        std::runtime_error);
}

TEST(QuillKitEvents, AnEventThatIsNotWholeHasNoContextAndTextsDecodeStrictly) {
    FakePlatform fakes;
    fakes.bundles->setMain({{"QLSDKClientId", "c\xFC"}, {"CFBundleVersion", "\xC3(1)"}});
    fakes.locale->language = "\xF0\x9F";
    fakes.device->systemVersionText = "\xFF";
    ASSERT_TRUE(fakes.install());
    const MessageContext base(QuillKitEvents::kitEventBaseWithKitType(QLSDKKitTypeFeed, &addressInThisKit));
    ASSERT_NE(base, nullptr);
    EXPECT_TRUE(
        testing::decodesStrictly(*quillkit::wire::KitEventBase::descriptor(), textOf(encodedBytes(*base))));
    const auto event =
        QuillKitEvents::serverEventWithServerEventData(MessageContext(picoproto_new("Payload")));
    EXPECT_TRUE(testing::decodesStrictly(*quillkit::wire::ServerEvent::descriptor(),
                                         textOf(encodedBytes(*event->ctx()))));

    for (const std::size_t size : {131072 - 8, 131072}) {
        MessageContext payload(picoproto_new("Payload"));
        picoproto_write_string_field(payload.get(), 1, std::string(size, 'x').c_str());
        EXPECT_EQ(QuillKitEvents::serverEventWithServerEventData(std::move(payload))->ctx(), nullptr) << size;
    }
}

TEST(QuillKitEvents, ServerEventWrapsAndConsumesThePayload) {
    FakePlatform fakes;
    ASSERT_TRUE(fakes.install());

    const auto event =
        QuillKitEvents::serverEventWithServerEventData(MessageContext(picoproto_new("Payload")));
    EXPECT_STREQ(event->ctx()->name, "ServerEvent");
    EXPECT_EQ(textOf(encodedBytes(*event->ctx())), std::string("\xA2\x06\x00\x62\x03iOS\x6A\x04"
                                                               "12.2",
                                                               14));
    EXPECT_EQ(QuillKitEvents::serverEventWithServerEventData(nullptr)->ctx()->length, 14u);
}

}  // namespace
}  // namespace qlsdk
