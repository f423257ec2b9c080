#include "QLSDKCoreKit/platform/PropertyList.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <plist/plist.h>

#include "QLSDKCoreKit/platform/linux/codecs/NumberLocale.h"
#include "QLSDKCoreKit/platform/linux/codecs/PropertyListXml.h"
#include "QLSDKCoreKit/values/internal/BinaryPropertyList.h"
#include "QLSDKCoreKit/values/internal/BinaryPropertyListReader.h"
#include "QLSDKCoreKit/values/internal/Nesting.h"
#include "QLSDKCoreKit/values/internal/Unicode.h"

// libplist sees XML only: of a binary list it would copy shared objects without bound and cut texts at a NUL.

namespace qlsdk::platform {

namespace {

struct NodeDeleter {
    void operator()(void* node) const noexcept { plist_free(node); }
};
using OwnedNode = std::unique_ptr<void, NodeDeleter>;

struct Free {
    void operator()(void* memory) const noexcept { std::free(memory); }
};
template <typename T>
using Malloced = std::unique_ptr<T, Free>;

std::optional<Value> textValue(const char* text) {
    if (text == nullptr || !isValidUtf8(text)) return std::nullopt;
    return Value(text);
}

Value numberValue(plist_t node) {
    std::uint64_t number = 0;
    plist_get_uint_val(node, &number);
    // The library keeps the bits of a negative integer and does not tell it from a large one.
    return static_cast<std::int64_t>(number);
}

Value realValue(plist_t node) {
    double real = 0;
    plist_get_real_val(node, &real);
    return real;
}

Value booleanValue(plist_t node) {
    std::uint8_t boolean = 0;
    plist_get_bool_val(node, &boolean);
    return boolean != 0;
}

Value dateValue(plist_t node) {
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    return Date{kSecondsFrom1970To2001 + seconds + microseconds / 1e6};
}

Value dataValue(plist_t node) {
    std::uint64_t length = 0;
    const char* bytes = plist_get_data_ptr(node, &length);
    return Data(bytes, bytes + length);
}

class Converter {
  public:
    // The value of a node; absent once anything cannot be read.
    std::optional<Value> valueOf(plist_t node) {
        switch (plist_get_node_type(node)) {
            case PLIST_BOOLEAN:
                return booleanValue(node);
            case PLIST_UINT:
                return numberValue(node);
            case PLIST_REAL:
                return realValue(node);
            case PLIST_STRING:
                return textValue(plist_get_string_ptr(node, nullptr));
            case PLIST_DATE:
                return dateValue(node);
            case PLIST_DATA:
                return dataValue(node);
            case PLIST_ARRAY:
                return arrayValue(node);
            case PLIST_DICT:
                return dictionaryValue(node);
            default:
                return std::nullopt;
        }
    }

  private:
    std::optional<Value> arrayValue(plist_t node) {
        const NestingScope level(depth_);
        plist_array_iter position = nullptr;
        if (!level.tooDeep()) plist_array_new_iter(node, &position);
        const Malloced<void> owner(position);
        if (position == nullptr) return std::nullopt;
        Array array;
        for (;;) {
            plist_t child = nullptr;
            plist_array_next_item(node, position, &child);
            if (child == nullptr) return Value(std::move(array));
            std::optional<Value> element = valueOf(child);
            if (!element) return std::nullopt;
            array.push_back(*std::move(element));
        }
    }

    std::optional<Value> dictionaryValue(plist_t node) {
        const NestingScope level(depth_);
        plist_dict_iter position = nullptr;
        if (!level.tooDeep()) plist_dict_new_iter(node, &position);
        const Malloced<void> owner(position);
        if (position == nullptr) return std::nullopt;
        Dictionary dictionary;
        for (;;) {
            char* name = nullptr;
            plist_t child = nullptr;
            plist_dict_next_item(node, position, &name, &child);
            const Malloced<char> key(name);
            if (child == nullptr) return Value(std::move(dictionary));
            std::optional<Value> element = valueOf(child);
            if (key == nullptr || !isValidUtf8(key.get()) || !element) return std::nullopt;
            dictionary.set(key.get(), *std::move(element));
        }
    }

    std::size_t depth_ = 0;
};

std::optional<Value> parseXml(DataView bytes) {
    if (!isHarmlessXml(bytes)) return std::nullopt;
    const NumberLocale locale;
    plist_t root = nullptr;
    plist_from_xml(reinterpret_cast<const char*>(bytes.data()), static_cast<std::uint32_t>(bytes.size()),
                   &root);
    const OwnedNode owner(root);
    return root != nullptr ? Converter().valueOf(root) : std::nullopt;
}

}  // namespace

std::optional<Value> parsePropertyList(DataView bytes) noexcept try {
    return isBinaryPropertyList(bytes) ? parseBinaryPropertyList(bytes) : parseXml(bytes);
} catch (...) {
    // Out of memory: the list is as good as absent.
    return std::nullopt;
}

std::optional<Data> serializePropertyList(const Value& value) noexcept try {
    return serializeBinaryPropertyList(value);
} catch (...) {
    return std::nullopt;
}

}  // namespace qlsdk::platform
