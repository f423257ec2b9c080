#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Contest.h"
#include "WireMessages.h"
#include <benchmark/benchmark.h>
#include <heartbeat_lite.pb.h>
#include <metrics_lite.pb.h>
#include <protozero/pbf_writer.hpp>
#include <wire/heartbeat.pb.h>
#include <wire/metrics.pb.h>

#include "QLSDKCoreKit/picoproto/picoproto.h"

namespace qlsdk::bench {
namespace {

namespace wire = quillkit::wire;
namespace lite = quillkit::lite;

constexpr HeartbeatFields kHeartbeat;
constexpr CounterFields kCounter;

Bytes writtenBytes(const picoproto_ctx_s* message) {
    return {message->buffer, message->length};
}

// Ours.

picoproto_ctx_s* oursTimestamp(std::int64_t seconds, std::int64_t nanos) {
    picoproto_ctx_s* timestamp = picoproto_new("Timestamp");
    picoproto_write_varint_field(timestamp, 1, static_cast<std::uint64_t>(seconds));
    picoproto_write_varint_field(timestamp, 2, static_cast<std::uint64_t>(nanos));
    return timestamp;
}

picoproto_ctx_s* oursHeartbeat(const HeartbeatFields& fields) {
    picoproto_ctx_s* info = picoproto_new("DeviceEnvironmentInfo");
    picoproto_write_varint_field(info, 1, 1);
    picoproto_write_string_field(info, 2, fields.systemVersion);
    picoproto_write_string_field(info, 3, fields.deviceModel);
    picoproto_write_string_field(info, 4, fields.architecture);
    picoproto_write_string_field(info, 5, fields.locale);
    picoproto_write_varint_field(info, 6, 0);
    picoproto_write_varint_field(info, 7, 0);
    picoproto_write_varint_field(info, 8, 1);
    picoproto_write_varint_field(info, 9, 0);
    picoproto_ctx_s* heartbeat = picoproto_new("Heartbeat");
    picoproto_write_string_field(heartbeat, 1, fields.clientId);
    picoproto_write_string_field(heartbeat, 2, fields.installationId);
    picoproto_write_varint_field(heartbeat, 3, fields.kitType);
    picoproto_write_string_field(heartbeat, 4, fields.kitVersion);
    picoproto_write_embedded_message_field(heartbeat, 5, info, 1);
    picoproto_write_embedded_message_field(heartbeat, 6, oursTimestamp(fields.seconds, fields.nanos), 1);
    return heartbeat;
}

// In the order of the field numbers, as the peers write.
picoproto_ctx_s* oursCounter(const CounterFields& fields) {
    picoproto_ctx_s* metric = picoproto_new("CounterMetric");
    picoproto_write_string_field(metric, 1, fields.name);
    picoproto_write_embedded_message_field(metric, 2, oursTimestamp(fields.seconds, fields.nanos), 1);
    picoproto_write_varint_field(metric, 3, static_cast<std::uint64_t>(fields.count));
    return metric;
}

struct FreeContext {
    void operator()(picoproto_ctx_s* message) const { picoproto_free(message); }
};
using Message = std::unique_ptr<picoproto_ctx_s, FreeContext>;

// protozero.

void protozeroHeartbeat(std::string& out, const HeartbeatFields& fields) {
    out.clear();
    protozero::pbf_writer heartbeat(out);
    heartbeat.add_string(1, fields.clientId);
    heartbeat.add_string(2, fields.installationId);
    heartbeat.add_uint32(3, fields.kitType);
    heartbeat.add_string(4, fields.kitVersion);
    {
        protozero::pbf_writer info(heartbeat, 5);
        info.add_uint64(1, 1);
        info.add_string(2, fields.systemVersion);
        info.add_string(3, fields.deviceModel);
        info.add_string(4, fields.architecture);
        info.add_string(5, fields.locale);
        info.add_bool(6, false);
        info.add_bool(7, false);
        info.add_uint64(8, 1);
        info.add_bool(9, false);
    }
    protozero::pbf_writer timestamp(heartbeat, 6);
    timestamp.add_int64(1, fields.seconds);
    timestamp.add_int64(2, fields.nanos);
}

void protozeroCounterFields(protozero::pbf_writer& metric, const CounterFields& fields) {
    metric.add_string(1, fields.name);
    {
        protozero::pbf_writer timestamp(metric, 2);
        timestamp.add_int64(1, fields.seconds);
        timestamp.add_int64(2, fields.nanos);
    }
    metric.add_int64(3, fields.count);
}

void protozeroCounter(std::string& out, const CounterFields& fields) {
    out.clear();
    protozero::pbf_writer metric(out);
    protozeroCounterFields(metric, fields);
}

// libprotobuf, full and lite, in one shape.

template <typename Heartbeat>
void fillHeartbeat(Heartbeat& heartbeat, const HeartbeatFields& fields) {
    heartbeat.set_client_id(fields.clientId);
    heartbeat.set_installation_id(fields.installationId);
    heartbeat.set_kit_type(fields.kitType);
    heartbeat.set_kit_version(fields.kitVersion);
    auto& info = *heartbeat.mutable_device_environment();
    info.set_constant_one(1);
    info.set_system_version(fields.systemVersion);
    info.set_device_model(fields.deviceModel);
    info.set_architecture(fields.architecture);
    info.set_locale(fields.locale);
    info.set_running_with_debugger(false);
    info.set_running_tests(false);
    info.set_constant_one_more(1);
    info.set_receipt_sandbox(false);
    auto& timestamp = *heartbeat.mutable_timestamp();
    timestamp.set_seconds(fields.seconds);
    timestamp.set_nanos(fields.nanos);
}

template <typename Counter>
void fillCounter(Counter& metric, const CounterFields& fields) {
    metric.set_name(fields.name);
    auto& timestamp = *metric.mutable_timestamp();
    timestamp.set_seconds(fields.seconds);
    timestamp.set_nanos(fields.nanos);
    metric.set_count(fields.count);
}

template <typename Message>
Bytes serialized(const Message& message, std::string& out) {
    message.SerializeToString(&out);
    return bytesOf(out);
}

using Reused = std::shared_ptr<std::string>;

// A message of its own each time, or one that is cleared and filled again.
template <typename Message, typename Fields>
void contestProtobuf(const std::string& name, Bytes expected, const Fields& fields,
                     void (*fill)(Message&, const Fields&)) {
    const auto out = std::make_shared<std::string>();
    contest(name + "-fresh", expected, [=] {
        Message message;
        fill(message, fields);
        return serialized(message, *out);
    });
    const auto message = std::make_shared<Message>();
    contest(name + "-reused", expected, [=] {
        message->Clear();
        fill(*message, fields);
        return serialized(*message, *out);
    });
}

template <typename Write>
void contestOurs(const std::string& name, Bytes expected, Write write) {
    const auto last = std::make_shared<Message>();
    contest(name, expected, [=] {
        last->reset();  // Before the next one is made, as in a host.
        last->reset(write());
        return writtenBytes(last->get());
    });
}

void addHeartbeat() {
    static std::string expected;
    wire::Heartbeat message;
    fillHeartbeat(message, kHeartbeat);
    message.SerializeToString(&expected);
    const Bytes bytes = bytesOf(expected);

    contestOurs("wire/heartbeat/ours", bytes, [] { return oursHeartbeat(kHeartbeat); });
    contest("wire/heartbeat/protozero", bytes, [out = std::make_shared<std::string>()] {
        protozeroHeartbeat(*out, kHeartbeat);
        return bytesOf(*out);
    });
    contestProtobuf<wire::Heartbeat, HeartbeatFields>("wire/heartbeat/protobuf", bytes, kHeartbeat,
                                                      fillHeartbeat);
    contestProtobuf<lite::Heartbeat, HeartbeatFields>("wire/heartbeat/protobuf-lite", bytes, kHeartbeat,
                                                      fillHeartbeat);
    contest("wire/heartbeat/nanopb", bytes, [buffer = std::array<std::uint8_t, 1024>()]() mutable {
        return Bytes(buffer.data(), nanopbHeartbeat(kHeartbeat, buffer.data(), buffer.size()));
    });
    contest("wire/heartbeat/memcpy", bytes, [buffer = std::array<std::uint8_t, 1024>()]() mutable {
        std::memcpy(buffer.data(), expected.data(), expected.size());
        benchmark::ClobberMemory();
        return Bytes(buffer.data(), expected.size());
    });
}

void addCounter() {
    static std::string expected;
    wire::CounterMetric message;
    fillCounter(message, kCounter);
    message.SerializeToString(&expected);
    const Bytes bytes = bytesOf(expected);

    contestOurs("wire/counter/ours", bytes, [] { return oursCounter(kCounter); });
    contest("wire/counter/protozero", bytes, [out = std::make_shared<std::string>()] {
        protozeroCounter(*out, kCounter);
        return bytesOf(*out);
    });
    contestProtobuf<wire::CounterMetric, CounterFields>("wire/counter/protobuf", bytes, kCounter,
                                                        fillCounter);
    contestProtobuf<lite::CounterMetric, CounterFields>("wire/counter/protobuf-lite", bytes, kCounter,
                                                        fillCounter);
    contest("wire/counter/nanopb", bytes, [buffer = std::array<std::uint8_t, 256>()]() mutable {
        return Bytes(buffer.data(), nanopbCounter(kCounter, buffer.data(), buffer.size()));
    });
    contest("wire/counter/memcpy", bytes, [buffer = std::array<std::uint8_t, 256>()]() mutable {
        std::memcpy(buffer.data(), expected.data(), expected.size());
        benchmark::ClobberMemory();
        return Bytes(buffer.data(), expected.size());
    });
}

// The finished counters of a thousand records become one message, as an upload does it.
void addBatch() {
    static std::string expected;
    static std::vector<Message> records;
    static std::vector<picoproto_ctx_s*> borrowed;
    static std::vector<std::string> texts;
    wire::Metrics message;
    for (int i = 0; i < kBatchSize; ++i) {
        fillCounter(*message.add_counters(), kCounter);
        records.emplace_back(oursCounter(kCounter));
        borrowed.push_back(records.back().get());
        const Bytes bytes = writtenBytes(borrowed.back());
        texts.emplace_back(bytes.begin(), bytes.end());
    }
    message.SerializeToString(&expected);
    const Bytes bytes = bytesOf(expected);

    contestOurs("wire/batch-1000/ours", bytes, [] {
        picoproto_ctx_s* batch = picoproto_new("Metrics");
        picoproto_write_repeated_embedded_message_field(batch, 1, borrowed.data(), borrowed.size(), 0);
        return batch;
    });
    contest("wire/batch-1000/protozero", bytes, [out = std::make_shared<std::string>()] {
        out->clear();
        protozero::pbf_writer batch(*out);
        for (const std::string& text : texts) batch.add_message(1, text);
        return bytesOf(*out);
    });
    contest("wire/batch-1000/protobuf-reused", bytes, [out = std::make_shared<std::string>()] {
        static wire::Metrics batch;
        batch.Clear();
        for (int i = 0; i < kBatchSize; ++i) fillCounter(*batch.add_counters(), kCounter);
        return serialized(batch, *out);
    });
    contest("wire/batch-1000/nanopb", bytes, [buffer = std::vector<std::uint8_t>(1 << 17)]() mutable {
        return Bytes(buffer.data(), nanopbBatch(kCounter, kBatchSize, buffer.data(), buffer.size()));
    });
}

// One long text, and the message at its ceiling.
void addLongTexts() {
    for (const std::size_t size : {std::size_t{64} << 10, std::size_t{PICOPROTO_MAX_LENGTH} - 4}) {
        const std::string name = size == std::size_t{64} << 10 ? "wire/text-64k/" : "wire/ceiling/";
        const auto text = std::make_shared<std::string>(size, 'q');
        wire::CounterMetric message;
        message.set_name(*text);
        const auto expected = std::make_shared<std::string>(message.SerializeAsString());
        const Bytes bytes = bytesOf(*expected);
        contestOurs(name + "ours", bytes, [text, expected] {
            picoproto_ctx_s* metric = picoproto_new("CounterMetric");
            picoproto_write_string_field(metric, 1, text->c_str());
            return metric;
        });
        contest(name + "protozero", bytes, [text, out = std::make_shared<std::string>()] {
            out->clear();
            protozero::pbf_writer metric(*out);
            metric.add_string(1, text->c_str());
            return bytesOf(*out);
        });
        contest(name + "memcpy", bytes, [expected, buffer = std::string(expected->size(), 0)]() mutable {
            std::memcpy(buffer.data(), expected->data(), expected->size());
            benchmark::ClobberMemory();
            return bytesOf(buffer);
        });
    }
}

}  // namespace

void addWireContests() {
    addHeartbeat();
    addCounter();
    addBatch();
    addLongTexts();
}

}  // namespace qlsdk::bench
