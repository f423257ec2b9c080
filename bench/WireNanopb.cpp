#include <cstring>

#include "WireMessages.h"
#include <heartbeat.pb.h>
#include <metrics.pb.h>
#include <pb_encode.h>

namespace qlsdk::bench {

namespace {

bool writeText(pb_ostream_t* stream, const pb_field_t* field, void* const* text) {
    const auto* bytes = static_cast<const pb_byte_t*>(*text);
    return pb_encode_tag_for_field(stream, field) &&
           pb_encode_string(stream, bytes, std::strlen(static_cast<const char*>(*text)));
}

pb_callback_t textField(const char* text) {
    pb_callback_t field{};
    field.funcs.encode = writeText;
    field.arg = const_cast<char*>(text);
    return field;
}

quillkit_wire_Timestamp timestampOf(std::int64_t seconds, std::int64_t nanos) {
    return {.has_seconds = true, .seconds = seconds, .has_nanos = true, .nanos = nanos};
}

quillkit_wire_CounterMetric counterOf(const CounterFields& fields) {
    quillkit_wire_CounterMetric metric = quillkit_wire_CounterMetric_init_zero;
    metric.name = textField(fields.name);
    metric.has_timestamp = true;
    metric.timestamp = timestampOf(fields.seconds, fields.nanos);
    metric.has_count = true;
    metric.count = fields.count;
    return metric;
}

struct Batch {
    const CounterFields* fields;
    int count;
};

bool writeCounters(pb_ostream_t* stream, const pb_field_t* field, void* const* argument) {
    const auto& batch = *static_cast<const Batch*>(*argument);
    for (int i = 0; i < batch.count; ++i) {
        const quillkit_wire_CounterMetric metric = counterOf(*batch.fields);
        if (!pb_encode_tag_for_field(stream, field) ||
            !pb_encode_submessage(stream, quillkit_wire_CounterMetric_fields, &metric)) {
            return false;
        }
    }
    return true;
}

template <typename Message>
std::size_t written(const pb_msgdesc_t* description, const Message& message, std::uint8_t* out,
                    std::size_t capacity) {
    pb_ostream_t stream = pb_ostream_from_buffer(out, capacity);
    return pb_encode(&stream, description, &message) ? stream.bytes_written : 0;
}

}  // namespace

std::size_t nanopbHeartbeat(const HeartbeatFields& fields, std::uint8_t* out, std::size_t capacity) {
    quillkit_wire_Heartbeat heartbeat = quillkit_wire_Heartbeat_init_zero;
    heartbeat.client_id = textField(fields.clientId);
    heartbeat.installation_id = textField(fields.installationId);
    heartbeat.has_kit_type = true;
    heartbeat.kit_type = fields.kitType;
    heartbeat.kit_version = textField(fields.kitVersion);
    heartbeat.has_device_environment = true;
    quillkit_wire_DeviceEnvironmentInfo& environment = heartbeat.device_environment;
    environment.has_constant_one = true;
    environment.constant_one = 1;
    environment.system_version = textField(fields.systemVersion);
    environment.device_model = textField(fields.deviceModel);
    environment.architecture = textField(fields.architecture);
    environment.locale = textField(fields.locale);
    environment.has_running_with_debugger = true;
    environment.has_running_tests = true;
    environment.has_constant_one_more = true;
    environment.constant_one_more = 1;
    environment.has_receipt_sandbox = true;
    heartbeat.has_timestamp = true;
    heartbeat.timestamp = timestampOf(fields.seconds, fields.nanos);
    return written(quillkit_wire_Heartbeat_fields, heartbeat, out, capacity);
}

std::size_t nanopbCounter(const CounterFields& fields, std::uint8_t* out, std::size_t capacity) {
    return written(quillkit_wire_CounterMetric_fields, counterOf(fields), out, capacity);
}

std::size_t nanopbBatch(const CounterFields& fields, int count, std::uint8_t* out, std::size_t capacity) {
    Batch batch{&fields, count};
    quillkit_wire_Metrics metrics = quillkit_wire_Metrics_init_zero;
    metrics.counters.funcs.encode = writeCounters;
    metrics.counters.arg = &batch;
    return written(quillkit_wire_Metrics_fields, metrics, out, capacity);
}

}  // namespace qlsdk::bench
