#include "QLSDKCoreKit/values/testing/SampleRecord.h"

#include "QLSDKCoreKit/values/KeyedCoder.h"

namespace qlsdk::platform::testing {

namespace {

std::string renderNumber(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::boolean:
            return value.boolValue() ? "true" : "false";
        case Value::Kind::real:
            return "real " + describe(value);
        case Value::Kind::date:
            return "date " + describe(value);
        case Value::Kind::string:
            return '"' + *value.string() + '"';
        case Value::Kind::null:
            return "nil";
        default:
            return describe(value);
    }
}

}  // namespace

void SampleRecord::encodeWithCoder(KeyedEncoder& encoder) const {
    encoder.encodeInt64(number, "number");
    encoder.encodeObject(child, "child");
    encoder.encodeBool(flag, "flag");
    if (bytes) {
        encoder.encodeBytes(*bytes, "bytes");
    } else {
        encoder.encodeObject({}, "bytes");
    }
    encoder.encodeText(text, "text");
}

std::shared_ptr<Archivable> SampleRecord::initWithCoder(KeyedDecoder& decoder) {
    auto record = std::make_shared<SampleRecord>();
    record->number = decoder.decodeInt64("number");
    record->flag = decoder.decodeBool("flag");
    if (const auto bytes = decoder.decodeBytes("bytes")) record->bytes.emplace(bytes->begin(), bytes->end());
    record->text = decoder.decodeText("text");
    record->child = decoder.decodeObject("child");
    return record;
}

std::span<const ArchivableClass> sampleClasses() {
    static constexpr ArchivableClass kClasses[] = {{"Sample", SampleRecord::initWithCoder}};
    return kClasses;
}

std::string render(const ArchivedObject& object) {
    if (const auto record = std::dynamic_pointer_cast<SampleRecord>(object.record())) {
        return "Sample(" + std::to_string(record->number) + (record->flag ? " flag " : " ") +
               (record->bytes ? describe(*record->bytes) : "nil") + " " + describe(record->text) + " " +
               render(record->child) + ")";
    }
    std::string text;
    if (const auto list = object.list()) {
        for (const ArchivedObject& element : *list) text += (text.empty() ? "" : ", ") + render(element);
        return "[" + text + "]";
    }
    if (const auto entries = object.entries()) {
        for (const auto& [key, value] : *entries) {
            text += (text.empty() ? "" : ", ") + key + ": " + render(value);
        }
        return "{" + text + "}";
    }
    const Value value = object.value();
    return renderNumber(value);
}

}  // namespace qlsdk::platform::testing
