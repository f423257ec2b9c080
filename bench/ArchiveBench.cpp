#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "BenchHost.h"
#include "Contest.h"
#include <fcntl.h>
#include <plist/plist.h>
#include <stdio.h>
#include <unistd.h>

#include "QLSDKCoreKit/events/internal/StoredList.h"
#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/values/internal/KeyedListArchive.h"

namespace qlsdk::bench {
namespace {

using Records = std::vector<platform::ArchivedObject>;

Records recordsOf(std::int64_t count) {
    Records records;
    for (std::int64_t i = 1; i <= count; ++i) {
        records.emplace_back(std::shared_ptr<platform::Archivable>(
            std::make_shared<EventWrapper>(static_cast<std::uint64_t>(i), counterEvent())));
    }
    return records;
}

Data joined(std::span<const DataView> pieces) {
    Data file;
    for (const DataView piece : pieces) file.insert(file.end(), piece.begin(), piece.end());
    return file;
}

// All records from nothing; the archive's buffers are those of the list before, as in a queue.
std::span<const DataView> encodeOurs(const Records& records) {
    static auto& archive = *new platform::KeyedListArchive("unsent_events", "max_sequence_id");
    archive.clear();
    for (const auto& record : records) archive.pushFront(record);
    return archive.file(records.size());
}

// The same objects with libplist: one node for every object and every reference, then its serialiser.

plist_t uid(std::uint64_t number) {
    return plist_new_uid(number);
}

plist_t classRecord(std::initializer_list<const char*> chain) {
    plist_t names = plist_new_array();
    for (const char* name : chain) plist_array_append_item(names, plist_new_string(name));
    plist_t record = plist_new_dict();
    plist_dict_set_item(record, "$classname", plist_new_string(*chain.begin()));
    plist_dict_set_item(record, "$classes", names);
    return record;
}

plist_t listOf(std::initializer_list<std::uint64_t> uids) {
    plist_t list = plist_new_array();
    for (const std::uint64_t number : uids) plist_array_append_item(list, uid(number));
    return list;
}

void addRecord(plist_t objects, const platform::ArchivedObject& object) {
    const auto record = eventWrapperOf(object);
    const picoproto_ctx_s* message = record->event()->ctx();
    const std::uint64_t number = plist_array_get_size(objects);
    plist_t wrapper = plist_new_dict();
    plist_dict_set_item(wrapper, "QLSDKEncodeSequenceId", plist_new_uint(record->sequenceId()));
    plist_dict_set_item(wrapper, "QLSDKEncodeEvent", uid(number + 1));
    plist_dict_set_item(wrapper, "QLSDKEncodeRetry", plist_new_bool(record->isRetry()));
    plist_dict_set_item(wrapper, "QLSDKEncodeNumRetried", plist_new_uint(record->numRetried()));
    plist_dict_set_item(wrapper, "kQLSDKEncodeNextRetryTimeMillis", plist_new_uint(0));
    plist_dict_set_item(wrapper, "$class", uid(8));
    plist_t event = plist_new_dict();
    plist_dict_set_item(event, "QLSDKPicoProtoData", uid(number + 2));
    plist_dict_set_item(event, "QLSDKPicoProtoDataLength", plist_new_uint(message->length));
    plist_dict_set_item(event, "QLSDKPicoProtoName", uid(9));
    plist_dict_set_item(event, "$class", uid(10));
    plist_array_append_item(objects, wrapper);
    plist_array_append_item(objects, event);
    plist_array_append_item(objects,
                            plist_new_data(reinterpret_cast<const char*>(message->buffer), message->length));
}

Data encodeLibplist(const Records& records) {
    plist_t list = plist_new_array();
    for (std::uint64_t i = 0; i < records.size(); ++i)
        plist_array_append_item(list, uid(11 + 3 * (records.size() - 1 - i)));
    plist_t array = plist_new_dict();
    plist_dict_set_item(array, "NS.objects", list);
    plist_dict_set_item(array, "$class", uid(5));
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "NS.keys", listOf({2, 3}));
    plist_dict_set_item(root, "NS.objects", listOf({4, 6}));
    plist_dict_set_item(root, "$class", uid(7));

    plist_t objects = plist_new_array();
    for (plist_t object : {plist_new_string("$null"), root, plist_new_string("unsent_events"),
                           plist_new_string("max_sequence_id"), array, classRecord({"NSArray", "NSObject"}),
                           plist_new_uint(records.size()), classRecord({"NSDictionary", "NSObject"}),
                           classRecord({"EventWrapper", "NSObject"}), plist_new_string("CounterMetric"),
                           classRecord({"EncodablePicoproto", "NSObject"})}) {
        plist_array_append_item(objects, object);
    }
    for (const auto& record : records) addRecord(objects, record);
    plist_t top = plist_new_dict();
    plist_dict_set_item(top, "root", uid(1));
    plist_t file = plist_new_dict();
    plist_dict_set_item(file, "$version", plist_new_uint(100000));
    plist_dict_set_item(file, "$archiver", plist_new_string("NSKeyedArchiver"));
    plist_dict_set_item(file, "$top", top);
    plist_dict_set_item(file, "$objects", objects);

    char* bytes = nullptr;
    std::uint32_t size = 0;
    plist_to_bin(file, &bytes, &size);
    Data data(bytes, bytes + size);
    plist_to_bin_free(bytes);
    plist_free(file);
    return data;
}

// Both files say the same to our reader: how many records, and which bytes in the first and the last.
std::string summary(const Data& file) {
    const std::string path = home() + "/summary.plist";
    require(platform::replaceFile(path, file), "no file");
    const auto archive = readQueueArchive(path);
    require(archive.has_value(), "the archive does not decode");
    std::string text =
        std::to_string(archive->maxSequenceId) + " " + std::to_string(archive->unsentEvents.size());
    for (const auto& object : archive->unsentEvents) {
        const auto record = eventWrapperOf(object);
        const picoproto_ctx_s* message = record->event()->ctx();
        text += " " + std::to_string(record->sequenceId()) + message->name +
                std::string(reinterpret_cast<const char*>(message->buffer), message->length);
    }
    return text;
}

void addEncoding(std::int64_t count) {
    const std::string name = "archive/encode-" + std::to_string(count) + "/";
    const auto run = [count](auto encode) {
        return [=](benchmark::State& state) {
            const Records records = recordsOf(count);
            require(summary(joined(encodeOurs(records))) == summary(encodeLibplist(records)),
                    "the archives differ");
            for (auto _ : state) benchmark::DoNotOptimize(encode(records).data());
        };
    };
    benchmark::RegisterBenchmark((name + "ours").c_str(), run(encodeOurs));
    benchmark::RegisterBenchmark((name + "libplist").c_str(), run(encodeLibplist));
}

void addDecoding(std::int64_t count) {
    const std::string name = "archive/decode-" + std::to_string(count) + "/";
    benchmark::RegisterBenchmark((name + "ours").c_str(), [count](benchmark::State& state) {
        const std::string path = home() + "/decode.plist";
        require(platform::replaceFile(path, joined(encodeOurs(recordsOf(count)))), "no file");
        for (auto _ : state) benchmark::DoNotOptimize(readQueueArchive(path)->unsentEvents.size());
    });
    benchmark::RegisterBenchmark((name + "libplist").c_str(), [count](benchmark::State& state) {
        const Data file = joined(encodeOurs(recordsOf(count)));
        for (auto _ : state) {
            plist_t root = nullptr;
            plist_from_bin(reinterpret_cast<const char*>(file.data()),
                           static_cast<std::uint32_t>(file.size()), &root);
            benchmark::DoNotOptimize(root);
            plist_free(root);
        }
    });
}

// How often a list changes before it is made anew: often enough that a long list's encoding from nothing,
// which leaves the caches cold, is not what is measured.
std::int64_t changesOf(std::int64_t count) {
    return std::max<std::int64_t>(10, count / 10);
}

bool exchange(const std::string& path, const std::string& spare, DataView bytes) {
    const int file = ::open(spare.c_str(), O_WRONLY | O_CLOEXEC);
    const bool written = ::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    ::close(file);
    return written && ::renameat2(AT_FDCWD, spare.c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE) == 0;
}

// One change of a list that waits: the new record's bytes and the whole file, against as many bytes alone.
// Both make the file a record longer with each change, and start again untimed.
void addRewriting(std::int64_t count) {
    const std::string name = "archive/rewrite-" + std::to_string(count) + "/";
    benchmark::RegisterBenchmark((name + "ours").c_str(), [count](benchmark::State& state) {
        QueueFile file(home() + "/rewrite.plist");
        platform::KeyedListArchive archive(kQLSDKUnsentEventsKey, kQLSDKMaxSequenceIdKey);
        const Records records = recordsOf(count + changesOf(count));
        std::size_t next = records.size();
        for (auto _ : state) {
            if (next == records.size()) {
                state.PauseTiming();
                next = static_cast<std::size_t>(count);
                archive.clear();
                for (std::size_t i = 0; i < next; ++i) archive.pushFront(records[i]);
                require(file.write(archive.file(1)) && file.write(archive.file(2)), "no file");
                state.ResumeTiming();
            }
            archive.pushFront(records[next++]);
            benchmark::DoNotOptimize(file.write(archive.file(3)));
        }
        state.counters["bytes"] = static_cast<double>(joined(encodeOurs(records)).size());
    });
    benchmark::RegisterBenchmark((name + "exchange").c_str(), [count](benchmark::State& state) {
        const Data bytes = joined(encodeOurs(recordsOf(count + changesOf(count))));
        const std::size_t shortest = joined(encodeOurs(recordsOf(count))).size();
        const std::size_t step = (bytes.size() - shortest) / static_cast<std::size_t>(changesOf(count));
        const std::string path = home() + "/rewrite-raw.plist";
        const std::string spare = path + ".spare";
        require(platform::replaceFile(path, bytes) && platform::replaceFile(spare, bytes), "no file");
        std::size_t size = bytes.size();
        for (auto _ : state) {
            if (size + step > bytes.size()) {
                state.PauseTiming();
                size = shortest;
                const auto cut = static_cast<off_t>(size);
                require(::truncate(path.c_str(), cut) == 0 && ::truncate(spare.c_str(), cut) == 0, "no file");
                state.ResumeTiming();
            }
            size += step;
            benchmark::DoNotOptimize(exchange(path, spare, {bytes.data(), size}));
        }
        platform::removeFile(path);
    });
}

}  // namespace

void addArchiveContests() {
    for (const std::int64_t count : {10, 100, 1000, 20'000}) {
        addEncoding(count);
        addDecoding(count);
        addRewriting(count);
    }
}

}  // namespace qlsdk::bench
