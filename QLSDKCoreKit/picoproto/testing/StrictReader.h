#pragma once

#include <string>
#include <string_view>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>

namespace qlsdk::testing {

/// Adds the file of `original`, and those it imports, as a server of the newer syntax would have written
/// them: their readers refuse texts that are no UTF-8.
inline const google::protobuf::FileDescriptor* strictFile(google::protobuf::DescriptorPool& pool,
                                                          const google::protobuf::FileDescriptor& original) {
    for (int i = 0; i < original.dependency_count(); ++i) {
        const auto* import = original.dependency(i);
        if (pool.FindFileByName(import->name()) == nullptr) strictFile(pool, *import);
    }
    google::protobuf::FileDescriptorProto description;
    original.CopyTo(&description);
    description.set_syntax("proto3");
    return pool.BuildFile(description);
}

/// Whether a strict reader takes `bytes` for a message of this type.
inline bool decodesStrictly(const google::protobuf::Descriptor& type, const std::string& bytes) {
    google::protobuf::DescriptorPool pool;
    const auto* file = strictFile(pool, *type.file());
    google::protobuf::DynamicMessageFactory factory(&pool);
    const std::unique_ptr<google::protobuf::Message> message(
        factory.GetPrototype(file->FindMessageTypeByName(type.name()))->New());
    return message->ParseFromString(bytes);
}

/// Texts that are no UTF-8, and what a strict reader shall get instead of each.
struct RepairedText {
    std::string_view raw;
    std::string_view repaired;
};
inline constexpr RepairedText kRepairedTexts[] = {
    {"plain", "plain"},
    {"na\xC3\xAFve \xF0\x9F\x98\x80", "na\xC3\xAFve \xF0\x9F\x98\x80"},
    {"\xFF", "\xEF\xBF\xBD"},
    {"cut\xE2\x82", "cut\xEF\xBF\xBD"},
    {"\xED\xA0\x80.", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD."},
    {"latin-\xFC-1", "latin-\xEF\xBF\xBD-1"},
};

}  // namespace qlsdk::testing
