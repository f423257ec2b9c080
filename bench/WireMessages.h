#pragma once

#include <cstdint>
#include <string>

// What every writer of the group "wire" writes, each with its own calls.

namespace qlsdk::bench {

struct HeartbeatFields {
    const char* clientId = "5f0c3a52-client";
    const char* installationId = "0E984725-C51C-4BF4-9960-E1C80E27ABA0";
    std::uint32_t kitType = 3;
    const char* kitVersion = "1.3.4";
    const char* systemVersion = "12.2";
    const char* deviceModel = "Standard PC (Q35 + ICH9, 2009)";
    const char* architecture = "x86_64";
    const char* locale = "en_US";
    std::int64_t seconds = 1'700'000'000;
    std::int64_t nanos = 123'456'789;
};

struct CounterFields {
    const char* name = "app.started.cold.now";
    std::int64_t count = 1;
    std::int64_t seconds = 1'700'000'000;
    std::int64_t nanos = 123'456'789;
};

inline constexpr int kBatchSize = 1000;

/// nanopb's C stands by itself, because its generated headers and those of libprotobuf share their names.
/// Returns the size of the message, 0 on failure.
std::size_t nanopbHeartbeat(const HeartbeatFields& fields, std::uint8_t* out, std::size_t capacity);
std::size_t nanopbCounter(const CounterFields& fields, std::uint8_t* out, std::size_t capacity);
std::size_t nanopbBatch(const CounterFields& fields, int count, std::uint8_t* out, std::size_t capacity);

}  // namespace qlsdk::bench
