#include "QLSDKCoreKit/values/internal/JsonWriter.h"

#include <charconv>
#include <cmath>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "QLSDKCoreKit/values/Value.h"
#include "QLSDKCoreKit/values/internal/Hex.h"
#include "QLSDKCoreKit/values/internal/Nesting.h"
#include "QLSDKCoreKit/values/internal/Unicode.h"

namespace qlsdk::platform {

namespace {

// JSON shares nothing, so a small value that shares its parts could become a text without end.
constexpr std::size_t kMaximumBytes = std::size_t{16} << 20;

// Appends values to one text. Every function is false once something cannot be written.
class Serializer {
  public:
    bool append(const Value& value) {
        if (text_.size() > kMaximumBytes) return false;
        switch (value.kind()) {
            case Value::Kind::null:
                text_ += "null";
                return true;
            case Value::Kind::boolean:
                text_ += value.boolValue() ? "true" : "false";
                return true;
            case Value::Kind::integer:
                appendNumber(value.longValue());
                return true;
            case Value::Kind::unsignedInteger:
                appendNumber(static_cast<std::uint64_t>(value.longValue()));
                return true;
            case Value::Kind::real:
                return appendReal(value.doubleValue());
            case Value::Kind::string:
                return appendString(*value.string());
            case Value::Kind::array:
                return appendArray(*value.array());
            case Value::Kind::dictionary:
                return appendDictionary(*value.dictionary());
            case Value::Kind::data:
            case Value::Kind::date:
                break;
        }
        return false;
    }

    [[nodiscard]] std::string takeText() { return std::move(text_); }

  private:
    template <typename Number>
    void appendNumber(Number number) {
        char digits[32];
        text_.append(digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr);
    }

    bool appendReal(double real) {
        if (!std::isfinite(real)) return false;
        const std::size_t start = text_.size();
        appendNumber(real);
        // A real stays a real when it is read back.
        if (text_.find_first_of(".e", start) == std::string::npos) text_ += ".0";
        return true;
    }

    bool appendString(std::string_view string) {
        if (!isValidUtf8(string)) return false;
        text_ += '"';
        for (const char character : string) appendCharacter(character);
        text_ += '"';
        return true;
    }

    void appendCharacter(char character) {
        static constexpr std::string_view kEscaped = "\"\\\b\f\n\r\t";
        static constexpr std::string_view kNames = "\"\\bfnrt";
        const auto byte = static_cast<std::uint8_t>(character);
        const std::size_t place = kEscaped.find(character);
        if (place != std::string_view::npos) {
            text_ += '\\';
            text_ += kNames[place];
        } else if (byte < 0x20) {
            text_ += "\\u00";
            appendHex(text_, byte, kLowerHex);
        } else {
            text_ += character;
        }
    }

    bool appendArray(const Array& array) {
        const NestingScope level(depth_);
        if (level.tooDeep()) return false;
        char separator = '[';
        for (const Value& element : array) {
            text_ += std::exchange(separator, ',');
            if (!append(element)) return false;
        }
        text_ += array.empty() ? "[]" : "]";
        return true;
    }

    bool appendDictionary(const Dictionary& dictionary) {
        const NestingScope level(depth_);
        if (level.tooDeep()) return false;
        char separator = '{';
        for (const auto& [key, element] : dictionary) {
            text_ += std::exchange(separator, ',');
            if (!appendString(key)) return false;
            text_ += ':';
            if (!append(element)) return false;
        }
        text_ += dictionary.empty() ? "{}" : "}";
        return true;
    }

    std::string text_;
    std::size_t depth_ = 0;
};

}  // namespace

std::optional<std::string> serializeJson(const Value& value) noexcept try {
    Serializer serializer;
    if (!serializer.append(value)) return std::nullopt;
    return serializer.takeText();
} catch (...) {
    // Out of memory: there is no text for the caller.
    return std::nullopt;
}

}  // namespace qlsdk::platform
