#include "tools/inspect/MessageJson.h"

#include <vector>

#include "tools/inspect/Hex.h"
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>
#include <nlohmann/json.hpp>

namespace quillkit {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;
using nlohmann::ordered_json;

ordered_json textOrHex(const FieldDescriptor& field, const std::string& content) {
    return field.type() == FieldDescriptor::TYPE_BYTES ? hexOf(qlsdk::bytesOf(content)) : content;
}

ordered_json elementOf(const Message& message, const FieldDescriptor* field, int index) {
    const Reflection* reflection = message.GetReflection();
    return jsonOf(reflection->GetRepeatedMessage(message, field, index));
}

ordered_json valueOf(const Message& message, const FieldDescriptor* field) {
    const Reflection* reflection = message.GetReflection();
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32:
            return reflection->GetUInt32(message, field);
        case FieldDescriptor::CPPTYPE_UINT64:
            return reflection->GetUInt64(message, field);
        case FieldDescriptor::CPPTYPE_INT64:
            return reflection->GetInt64(message, field);
        case FieldDescriptor::CPPTYPE_BOOL:
            return reflection->GetBool(message, field);
        case FieldDescriptor::CPPTYPE_STRING:
            return textOrHex(*field, reflection->GetString(message, field));
        case FieldDescriptor::CPPTYPE_MESSAGE:
            return jsonOf(reflection->GetMessage(message, field));
        default:
            // No message of the schema has a field of another type.
            return nullptr;
    }
}

}  // namespace

ordered_json jsonOf(const Message& message) {
    const Reflection* reflection = message.GetReflection();
    std::vector<const FieldDescriptor*> present;
    reflection->ListFields(message, &present);
    ordered_json object = ordered_json::object();
    for (const FieldDescriptor* field : present) {
        if (!field->is_repeated()) {
            object[field->json_name()] = valueOf(message, field);
            continue;
        }
        ordered_json list = ordered_json::array();
        for (int i = 0; i < reflection->FieldSize(message, field); ++i)
            list.push_back(elementOf(message, field, i));
        object[field->json_name()] = std::move(list);
    }
    if (!reflection->GetUnknownFields(message).empty()) {
        std::string unknown;
        google::protobuf::TextFormat::PrintUnknownFieldsToString(reflection->GetUnknownFields(message),
                                                                 &unknown);
        object["unknownFields"] = std::move(unknown);
    }
    return object;
}

}  // namespace quillkit
