#include "QLSDKCoreKit/picoproto/EncodablePicoproto.h"

#include <array>
#include <string>

#include "QLSDKCoreKit/picoproto/MessageContext.h"
#include "QLSDKCoreKit/values/KeyedCoder.h"

namespace qlsdk {
namespace {

using platform::ArchivedObject;

constexpr std::array kClasses = {
    platform::ArchivableClass{EncodablePicoproto::kClassName, EncodablePicoproto::initWithCoder}};

/// A record of the same class with whatever data and length a damaged archive may hold.
class Damaged final : public platform::Archivable {
  public:
    Damaged(Data data, std::int64_t length) : data_(std::move(data)), length_(length) {}
    std::string_view archivedClassName() const noexcept override { return EncodablePicoproto::kClassName; }
    void encodeWithCoder(platform::KeyedEncoder& encoder) const override {
        encoder.encodeBytes(data_, "QLSDKPicoProtoData");
        encoder.encodeInt64(length_, "QLSDKPicoProtoDataLength");
    }

  private:
    Data data_;
    std::int64_t length_;
};

std::shared_ptr<EncodablePicoproto> throughAnArchive(std::shared_ptr<platform::Archivable> record) {
    const Data bytes =
        platform::archiveRootObject(ArchivedObject(std::move(record)), platform::RootClass::dictionary);
    const auto root = platform::unarchiveRootObject(bytes, kClasses);
    return root ? std::dynamic_pointer_cast<EncodablePicoproto>(root->record()) : nullptr;
}

TEST(EncodablePicoproto, SurvivesAnArchiveWithBytesLengthAndName) {
    const std::string every(131072, '\xAA');
    for (const std::string& content : {std::string(), std::string("\0\x01\xFF", 3), every}) {
        for (const char* name : {static_cast<const char*>(nullptr), "Heartbeat",
                                 "Stra\xC3\x9F"
                                 "e"}) {
            const auto bytes = bytesOf(content);
            const auto restored = throughAnArchive(std::make_shared<EncodablePicoproto>(
                picoproto_new_from_bytes(name, bytes.data(), bytes.size())));
            ASSERT_NE(restored, nullptr);
            EXPECT_EQ(textOf(encodedBytes(*restored->ctx())), content);
            EXPECT_STREQ(restored->ctx()->name, name);
        }
    }
}

TEST(EncodablePicoproto, ALengthThatDisagreesNeverReadsPastTheData) {
    struct Case {
        std::size_t data;
        std::int64_t length;
        std::uint64_t restored;
    };
    for (const Case& c : {Case{4, 2, 2}, Case{4, 4, 4}, Case{4, 4000, 4}, Case{4, -1, 4}, Case{0, 9, 0},
                          Case{131073, 131073, 0}, Case{200000, 131072, 131072}}) {
        const auto restored = throughAnArchive(std::make_shared<Damaged>(Data(c.data, 'x'), c.length));
        ASSERT_NE(restored, nullptr);
        EXPECT_EQ(restored->ctx()->length, c.restored) << c.data << " bytes said to be " << c.length;
    }
}

TEST(EncodablePicoproto, AnObjectWithoutAContextArchivesAsAnEmptyMessage) {
    const auto restored = throughAnArchive(std::make_shared<EncodablePicoproto>(MessageContext()));
    ASSERT_NE(restored, nullptr);
    EXPECT_EQ(restored->ctx()->length, 0u);
    EXPECT_EQ(restored->ctx()->name, nullptr);
}

TEST(EncodablePicoproto, ReplacingTheContextLeavesTheEarlierOneToTheCaller) {
    const auto message = std::make_shared<EncodablePicoproto>(picoproto_new("first"));
    const MessageContext earlier(message->ctx());
    message->setCtx(picoproto_new("second"));
    EXPECT_STREQ(earlier->name, "first");
    EXPECT_TRUE(EncodablePicoproto::supportsSecureCoding());
}

}  // namespace
}  // namespace qlsdk
