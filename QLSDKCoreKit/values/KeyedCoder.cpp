#include "QLSDKCoreKit/values/KeyedCoder.h"

#include "QLSDKCoreKit/values/internal/KeyedArchiver.h"
#include "QLSDKCoreKit/values/internal/KeyedUnarchiver.h"

namespace qlsdk::platform {

void KeyedEncoder::encodeInt64(std::int64_t number, std::string_view key) {
    archiver_.addField(key, archiver_.integerNode(number));
}

void KeyedEncoder::encodeBool(bool boolean, std::string_view key) {
    archiver_.addField(key, archiver_.booleanNode(boolean));
}

void KeyedEncoder::encodeBytes(DataView bytes, std::string_view key) {
    archiver_.addField(key, archiver_.uidNode(archiver_.encodeBytes(bytes)));
}

void KeyedEncoder::encodeText(std::optional<std::string_view> text, std::string_view key) {
    archiver_.addField(key, archiver_.uidNode(text ? archiver_.encodeText(*text) : 0));
}

void KeyedEncoder::encodeObject(const ArchivedObject& object, std::string_view key) {
    archiver_.retain(object);
    archiver_.addField(key, archiver_.uidNode(archiver_.encode(object)));
}

std::int64_t KeyedDecoder::decodeInt64(std::string_view key) {
    return decodeObject(key).value().longValue();
}

bool KeyedDecoder::decodeBool(std::string_view key) {
    return decodeObject(key).value().boolValue();
}

std::optional<DataView> KeyedDecoder::decodeBytes(std::string_view key) {
    const auto content = unarchiver_.field(record_, key);
    auto bytes = content ? unarchiver_.bytesOf(*content) : std::nullopt;
    // Whoever asks is going to copy them.
    if (bytes && !unarchiver_.spend(bytes->size())) return std::nullopt;
    return bytes;
}

std::optional<std::string> KeyedDecoder::decodeText(std::string_view key) {
    const Value value = decodeObject(key).value();
    const std::string* text = value.string();
    if (text == nullptr || !unarchiver_.spend(text->size())) return std::nullopt;
    return *text;
}

ArchivedObject KeyedDecoder::decodeObject(std::string_view key) {
    const auto content = unarchiver_.field(record_, key);
    return content ? unarchiver_.resolve(*content) : ArchivedObject();
}

}  // namespace qlsdk::platform
