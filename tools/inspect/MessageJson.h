#pragma once

#include <nlohmann/json_fwd.hpp>

namespace google::protobuf {
class Message;
}

namespace quillkit {

/// A decoded message as JSON: the fields that are present under their names in lower camel case, integers as
/// numbers, bytes in hex. Fields that the schema does not know stand under "unknownFields" as text.
[[nodiscard]] nlohmann::ordered_json jsonOf(const google::protobuf::Message& message);

}  // namespace quillkit
