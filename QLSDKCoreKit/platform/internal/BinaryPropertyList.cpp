#include "QLSDKCoreKit/platform/internal/BinaryPropertyList.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "QLSDKCoreKit/platform/internal/BinaryPropertyListReader.h"
#include "QLSDKCoreKit/platform/internal/Nesting.h"

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
        array.reserve(object.count);
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

}  // namespace qlsdk::platform
