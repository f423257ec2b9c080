#include "tools/inspect/WireTree.h"

#include <string>

#include "tools/inspect/Hex.h"
#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>
#include <nlohmann/json.hpp>

namespace quillkit {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;
using nlohmann::ordered_json;

// Enough to read; the bytes themselves are shown beside it.
constexpr std::size_t kValueCeiling = 2000;

std::string numberText(const FieldDescriptor* field, std::uint64_t number) {
    if (field == nullptr) return std::to_string(number);
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_BOOL:
            return number != 0 ? "true" : "false";
        case FieldDescriptor::CPPTYPE_INT64:
            return std::to_string(static_cast<std::int64_t>(number));
        case FieldDescriptor::CPPTYPE_UINT32:
            return std::to_string(static_cast<std::uint32_t>(number));
        default:
            return std::to_string(number);
    }
}

std::string contentText(const FieldDescriptor* field, qlsdk::DataView content) {
    const bool isText = field != nullptr && field->type() == FieldDescriptor::TYPE_STRING;
    const qlsdk::DataView shown = content.first(std::min(content.size(), kValueCeiling));
    return (isText ? qlsdk::textOf(shown) : hexOf(shown)) + (shown.size() < content.size() ? "..." : "");
}

/// One walk over a message and the messages in it. Their depth is the schema's, so that it is bounded.
class Walk {
  public:
    ordered_json fieldsOf(const Descriptor& message, qlsdk::DataView bytes, std::size_t base) {
        ordered_json fields = ordered_json::array();
        CodedInputStream input(bytes.data(), static_cast<int>(bytes.size()));
        std::size_t start = 0;
        while (start < bytes.size()) {
            ordered_json field = left_ == 0 ? ordered_json() : nextField(message, input, bytes, base);
            const bool isLast = field.is_null();
            if (isLast) field = {{"name", left_ == 0 ? "not listed" : "unreadable"}, {"type", ""}};
            field["start"] = base + start;
            start = isLast ? bytes.size() : static_cast<std::size_t>(input.CurrentPosition());
            field["end"] = base + start;
            fields.push_back(std::move(field));
        }
        return fields;
    }

  private:
    /// Null when the bytes are no field.
    ordered_json nextField(const Descriptor& message, CodedInputStream& input, qlsdk::DataView bytes,
                           std::size_t base) {
        const std::uint32_t tag = input.ReadTag();
        const int number = WireFormatLite::GetTagFieldNumber(tag);
        if (number == 0) return nullptr;
        --left_;
        const FieldDescriptor* field = message.FindFieldByNumber(number);
        ordered_json node{{"name", field == nullptr ? std::to_string(number) : field->json_name()}};
        std::uint64_t value = 0;
        std::uint32_t value32 = 0;
        switch (WireFormatLite::GetTagWireType(tag)) {
            case WireFormatLite::WIRETYPE_VARINT:
                if (!input.ReadVarint64(&value)) return nullptr;
                break;
            case WireFormatLite::WIRETYPE_FIXED64:
                if (!input.ReadLittleEndian64(&value)) return nullptr;
                break;
            case WireFormatLite::WIRETYPE_FIXED32:
                if (!input.ReadLittleEndian32(&value32)) return nullptr;
                value = value32;
                break;
            case WireFormatLite::WIRETYPE_LENGTH_DELIMITED:
                return addContent(field, input, bytes, base, node) ? node : ordered_json();
            default:
                // Groups are in no message of the schema.
                return nullptr;
        }
        node["type"] = field == nullptr ? "number" : field->type_name();
        node["value"] = numberText(field, value);
        return node;
    }

    bool addContent(const FieldDescriptor* field, CodedInputStream& input, qlsdk::DataView bytes,
                    std::size_t base, ordered_json& node) {
        std::uint32_t length = 0;
        if (!input.ReadVarint32(&length)) return false;
        const auto start = static_cast<std::size_t>(input.CurrentPosition());
        if (length > bytes.size() - start) return false;
        const qlsdk::DataView content = bytes.subspan(start, length);
        (void)input.Skip(static_cast<int>(length));
        if (field != nullptr && field->cpp_type() == FieldDescriptor::CPPTYPE_MESSAGE) {
            node["type"] = field->message_type()->name();
            node["fields"] = fieldsOf(*field->message_type(), content, base + start);
        } else {
            node["type"] = field == nullptr ? "bytes" : field->type_name();
            node["value"] = contentText(field, content);
        }
        return true;
    }

    std::size_t left_ = kWireTreeCeiling;
};

}  // namespace

ordered_json wireTree(const Descriptor& message, qlsdk::DataView bytes) {
    return Walk().fieldsOf(message, bytes, 0);
}

}  // namespace quillkit
