#include "QLSDKCoreKit/picoproto/EncodablePicoproto.h"

#include <algorithm>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "QLSDKCoreKit/values/KeyedCoder.h"

namespace qlsdk {

namespace {

constexpr std::string_view kDataKey = "QLSDKPicoProtoData";
constexpr std::string_view kDataLengthKey = "QLSDKPicoProtoDataLength";
constexpr std::string_view kNameKey = "QLSDKPicoProtoName";

std::optional<std::string_view> nameOf(const MessageContext& ctx) noexcept {
    if (ctx == nullptr || ctx->name == nullptr) return std::nullopt;
    return ctx->name;
}

}  // namespace

std::shared_ptr<platform::Archivable> EncodablePicoproto::initWithCoder(platform::KeyedDecoder& decoder) {
    const std::optional<std::string> name = decoder.decodeText(kNameKey);
    const DataView data = decoder.decodeBytes(kDataKey).value_or(DataView());
    // The stored length is taken at its word, but never past the data that is really there.
    const auto length =
        std::min<std::uint64_t>(static_cast<std::uint64_t>(decoder.decodeInt64(kDataLengthKey)), data.size());
    MessageContext ctx(picoproto_new_from_bytes(name ? name->c_str() : nullptr, data.data(), length));
    // A record that came back without its event would cost another one its place in a batch.
    if (ctx == nullptr) throw std::bad_alloc();
    return std::make_shared<EncodablePicoproto>(std::move(ctx));
}

void EncodablePicoproto::encodeWithCoder(platform::KeyedEncoder& encoder) const {
    const DataView bytes = ctx_ != nullptr ? encodedBytes(*ctx_) : DataView();
    encoder.encodeBytes(bytes, kDataKey);
    encoder.encodeInt64(static_cast<std::int64_t>(bytes.size()), kDataLengthKey);
    encoder.encodeText(nameOf(ctx_), kNameKey);
}

}  // namespace qlsdk
