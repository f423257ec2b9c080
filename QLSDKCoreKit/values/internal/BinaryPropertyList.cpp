#include "QLSDKCoreKit/values/internal/BinaryPropertyList.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/values/internal/BinaryPropertyListReader.h"
#include "QLSDKCoreKit/values/internal/BinaryPropertyListWriter.h"
#include "QLSDKCoreKit/values/internal/Nesting.h"
#include "QLSDKCoreKit/values/internal/Utf8.h"

namespace qlsdk::platform {

namespace {

using Kind = BinaryObject::Kind;

class Parser {
  public:
    Parser(const BinaryPropertyListReader& reader, DataView bytes) : reader_(reader), budget_(bytes.size()) {}

    // The value of an object; absent once anything is wrong.
    std::optional<Value> valueOf(std::uint64_t number) {
        const auto known = values_.find(number);
        // An entry without a value is an object still open: it contains itself.
        if (known != values_.end()) return known->second;
        const auto object = reader_.object(number);
        if (!object || !budget_.spend(object->cost())) return std::nullopt;
        values_.emplace(number, std::nullopt);
        std::optional<Value> value = decode(*object);
        if (value) values_[number] = value;
        return value;
    }

  private:
    std::optional<Value> decode(const BinaryObject& object) {
        switch (object.kind) {
            case Kind::boolean:
                return Value(object.number != 0);
            case Kind::integer:
                return Value(static_cast<std::int64_t>(object.number));
            case Kind::unsignedInteger:
                return Value(object.number);
            case Kind::real:
                return Value(object.real);
            case Kind::date:
                return Value(Date{object.real + kSecondsFrom1970To2001});
            case Kind::data:
                return Value(Data(object.bytes.begin(), object.bytes.end()));
            case Kind::ascii:
            case Kind::utf16:
                return decodeText(object);
            case Kind::array:
                return decodeArray(object);
            case Kind::dictionary:
                return decodeDictionary(object);
            case Kind::null:
            case Kind::uid:
                break;
        }
        return std::nullopt;
    }

    static std::optional<Value> decodeText(const BinaryObject& object) {
        std::optional<std::string> text = decodedText(object);
        if (!text) return std::nullopt;
        return Value(*std::move(text));
    }

    std::optional<Value> decodeArray(const BinaryObject& object) {
        const NestingScope level(depth_);
        if (level.tooDeep()) return std::nullopt;
        Array array;
        array.reserve(static_cast<std::size_t>(object.count));
        for (std::uint64_t i = 0; i < object.count; ++i) {
            std::optional<Value> element = valueOf(reader_.reference(object, i));
            if (!element) return std::nullopt;
            array.push_back(*std::move(element));
        }
        return Value(std::move(array));
    }

    std::optional<Value> decodeDictionary(const BinaryObject& object) {
        const NestingScope level(depth_);
        if (level.tooDeep()) return std::nullopt;
        Dictionary dictionary;
        for (std::uint64_t i = 0; i < object.count; ++i) {
            const std::optional<Value> key = valueOf(reader_.reference(object, i));
            const std::string* name = key ? key->string() : nullptr;
            if (name == nullptr || !budget_.spend(name->size())) return std::nullopt;
            std::optional<Value> element = valueOf(reader_.reference(object, object.count + i));
            if (!element) return std::nullopt;
            dictionary.set(*name, *std::move(element));
        }
        return Value(std::move(dictionary));
    }

    const BinaryPropertyListReader& reader_;
    DecodingBudget budget_;
    std::unordered_map<std::uint64_t, std::optional<Value>> values_;
    std::size_t depth_ = 0;
};

class Serializer {
  public:
    using Node = BinaryPropertyListWriter::Node;

    explicit Serializer(BinaryPropertyListWriter::Widths widths) : writer_(widths) {}

    // Absent once anything cannot be written.
    std::optional<Node> nodeOf(const Value& value) {
        switch (value.kind()) {
            case Value::Kind::boolean:
                return begin(1) ? std::optional(writer_.addBoolean(value.boolValue())) : std::nullopt;
            case Value::Kind::integer:
                return begin(8) ? std::optional(writer_.addInteger(value.longValue())) : std::nullopt;
            case Value::Kind::real:
                return realNode(value.doubleValue());
            case Value::Kind::date:
                return dateNode(value.date()->secondsSince1970 - kSecondsFrom1970To2001);
            case Value::Kind::string:
                return textNode(*value.string());
            case Value::Kind::data:
                return begin(value.data()->size()) ? std::optional(writer_.addData(*value.data()))
                                                   : std::nullopt;
            case Value::Kind::array:
                return arrayNode(*value.array());
            case Value::Kind::dictionary:
                return dictionaryNode(*value.dictionary());
            case Value::Kind::null:
            case Value::Kind::unsignedInteger:
                break;
        }
        return std::nullopt;
    }

    // The file, whose top object is what was added last; empty when the widths do not do.
    [[nodiscard]] Data finish() {
        writer_.setOffset(0, latest_);
        return writer_.finish();
    }

  private:
    // With its places in the table and in what holds it.
    static constexpr std::size_t kObjectBytes = 32;

    // A value may share its parts, which the file does not: little memory could become a file without end.
    bool begin(std::size_t bytes) noexcept {
        latest_ = writer_.objects().size();
        const std::size_t cost = kObjectBytes + bytes;
        if (cost > left_) return false;
        left_ -= cost;
        return true;
    }

    std::optional<Node> realNode(double number) {
        if (!std::isfinite(number) || !begin(8)) return std::nullopt;
        return writer_.addReal(number);
    }

    std::optional<Node> dateNode(double secondsSince2001) {
        if (!std::isfinite(secondsSince2001) || !begin(8)) return std::nullopt;
        return writer_.addDate(secondsSince2001);
    }

    std::optional<Node> textNode(const std::string& text) {
        if (!isValidUtf8(text) || !begin(text.size())) return std::nullopt;
        return writer_.addText(text);
    }

    std::optional<Node> arrayNode(const Array& array) {
        const NestingScope level(depth_);
        if (level.tooDeep()) return std::nullopt;
        std::vector<Node> elements;
        elements.reserve(array.size());
        for (const Value& element : array) {
            const std::optional<Node> node = nodeOf(element);
            if (!node) return std::nullopt;
            elements.push_back(*node);
        }
        if (!begin(elements.size())) return std::nullopt;
        return writer_.addArray(elements);
    }

    std::optional<Node> dictionaryNode(const Dictionary& dictionary) {
        const NestingScope level(depth_);
        if (level.tooDeep()) return std::nullopt;
        std::vector<BinaryPropertyListWriter::Field> fields;
        fields.reserve(dictionary.size());
        for (const auto& [key, element] : dictionary) {
            const std::optional<Node> name = textNode(key);
            const std::optional<Node> node = name ? nodeOf(element) : std::nullopt;
            if (!node) return std::nullopt;
            fields.push_back({*name, *node});
        }
        if (!begin(fields.size())) return std::nullopt;
        return writer_.addDictionary(fields);
    }

    BinaryPropertyListWriter writer_;
    std::size_t latest_ = 0;
    std::size_t left_ = std::size_t{16} << 20;
    std::size_t depth_ = 0;
};

}  // namespace

bool isBinaryPropertyList(DataView bytes) noexcept {
    constexpr std::string_view kMagic = "bplist";
    return bytes.size() >= kMagic.size() && std::equal(kMagic.begin(), kMagic.end(), bytes.begin());
}

std::optional<Value> parseBinaryPropertyList(DataView bytes) {
    const auto reader = BinaryPropertyListReader::open(bytes);
    if (!reader) return std::nullopt;
    return Parser(*reader, bytes).valueOf(reader->topObject());
}

std::optional<Data> serializeBinaryPropertyList(const Value& value) {
    for (const BinaryPropertyListWriter::Widths widths : BinaryPropertyListWriter::kWidths) {
        Serializer serializer(widths);
        if (!serializer.nodeOf(value)) return std::nullopt;
        Data file = serializer.finish();
        if (!file.empty()) return file;
    }
    return std::nullopt;
}

}  // namespace qlsdk::platform
