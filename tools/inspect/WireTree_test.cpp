#include "tools/inspect/WireTree.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <wire/heartbeat.pb.h>
#include <wire/metrics.pb.h>

namespace quillkit {
namespace {

using nlohmann::json;

json treeOf(const google::protobuf::Descriptor* descriptor, const std::string& bytes) {
    return json(wireTree(*descriptor, qlsdk::bytesOf(bytes)));
}

TEST(WireTree, GivesEachFieldItsBytes) {
    wire::HearbeatBatch batch;
    wire::Heartbeat& heartbeat = *batch.add_heartbeats();
    heartbeat.set_client_id("abc");
    heartbeat.set_kit_type(300);
    heartbeat.mutable_timestamp()->set_nanos(-1);
    heartbeat.mutable_device_environment()->set_running_tests(true);
    EXPECT_EQ(treeOf(wire::HearbeatBatch::descriptor(), batch.SerializeAsString()), json::parse(R"([
        {"name": "heartbeats", "type": "Heartbeat", "start": 0, "end": 27, "fields": [
            {"name": "clientId", "type": "string", "value": "abc", "start": 2, "end": 7},
            {"name": "kitType", "type": "uint32", "value": "300", "start": 7, "end": 10},
            {"name": "deviceEnvironment", "type": "DeviceEnvironmentInfo", "start": 10, "end": 14, "fields": [
                {"name": "runningTests", "type": "bool", "value": "true", "start": 12, "end": 14}]},
            {"name": "timestamp", "type": "Timestamp", "start": 14, "end": 27, "fields": [
                {"name": "nanos", "type": "int64", "value": "-1", "start": 16, "end": 27}]}]}])"));
}

TEST(WireTree, ReadsAsFarAsTheBytesGo) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "[]"},
        // Field 9, varint 7; field 10, two bytes; field 11, four; field 12, eight: in no schema.
        {std::string("\x48\x07\x52\x02\xff\x01\x5d\x01\0\0\0\x61\x02\0\0\0\0\0\0\0", 20),
         R"([{"name": "9", "type": "number", "value": "7", "start": 0, "end": 2},
             {"name": "10", "type": "bytes", "value": "ff01", "start": 2, "end": 6},
             {"name": "11", "type": "number", "value": "1", "start": 6, "end": 11},
             {"name": "12", "type": "number", "value": "2", "start": 11, "end": 20}])"},
        // A length beyond the end, a tag without a value, field 0, a group.
        {"\x0a\x05\x01", R"([{"name": "unreadable", "type": "", "start": 0, "end": 3}])"},
        {"\x48", R"([{"name": "unreadable", "type": "", "start": 0, "end": 1}])"},
        {std::string("\0\x01", 2), R"([{"name": "unreadable", "type": "", "start": 0, "end": 2}])"},
        {"\x0b\x0c", R"([{"name": "unreadable", "type": "", "start": 0, "end": 2}])"},
        {"\x0a\xff\xff\xff\xff\x0f", R"([{"name": "unreadable", "type": "", "start": 0, "end": 6}])"},
    };
    for (const auto& [bytes, tree] : cases) {
        EXPECT_EQ(treeOf(wire::Metrics::descriptor(), bytes), json::parse(tree)) << tree;
    }
}

TEST(WireTree, IsBounded) {
    std::string bytes;
    for (std::size_t i = 0; i < kWireTreeCeiling + 10; ++i) bytes += std::string("\x0a\0", 2);
    const json tree = treeOf(wire::Metrics::descriptor(), bytes);
    ASSERT_EQ(tree.size(), kWireTreeCeiling + 1);
    EXPECT_EQ(tree.back()["name"], "not listed");
    EXPECT_EQ(tree.back()["end"], bytes.size());
}

}  // namespace
}  // namespace quillkit
