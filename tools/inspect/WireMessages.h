#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/values/Data.h"

namespace google::protobuf {
class Descriptor;
class Message;
}  // namespace google::protobuf

namespace quillkit {

/// The message of that name, decoded by the schema. Null when the schema has no such message or when the
/// bytes are no message at all. Fields that the schema does not know are kept.
[[nodiscard]] std::unique_ptr<google::protobuf::Message> decodeMessage(std::string_view name,
                                                                       qlsdk::DataView bytes);

/// What the schema says of the message of that name; null when it has no such message.
[[nodiscard]] const google::protobuf::Descriptor* descriptorNamed(std::string_view name);

/// The fields in the text format, one to a line; control characters are escaped.
[[nodiscard]] std::string fieldsOf(const google::protobuf::Message& message);

/// The same on one line.
[[nodiscard]] std::string fieldsOnOneLine(const google::protobuf::Message& message);

/// The fields of bytes without a schema: numbers instead of names. Empty text when the bytes are no message.
[[nodiscard]] std::string rawFieldsOf(qlsdk::DataView bytes);

}  // namespace quillkit
