#pragma once

#include <cstddef>

#include <nlohmann/json_fwd.hpp>

#include "QLSDKCoreKit/values/Data.h"

namespace google::protobuf {
class Descriptor;
}

namespace quillkit {

/// More fields are not listed.
inline constexpr std::size_t kWireTreeCeiling = 5000;

/// The fields of an encoded message in their order on the wire, each with the bytes that it takes: "name"
/// (the number when the schema does not know it), "type", "start", "end", and "value" as text or, for a
/// message, "fields". Bytes that cannot be read, or are too many, stand at the end of their list as a field
/// without a value. The list is what a reader of the bytes sees, whether or not the message as a whole
/// decodes.
[[nodiscard]] nlohmann::ordered_json wireTree(const google::protobuf::Descriptor& message,
                                              qlsdk::DataView bytes);

}  // namespace quillkit
