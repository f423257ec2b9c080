// Prints vectors.json: tokens and bodies with what a receiver must make of them. Sealed by the library's own
// routine under fixed keys, nonces and times, so that every run prints the same.

#include <cstdint>
#include <functional>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>
#include <wire/heartbeat.pb.h>
#include <wire/metrics.pb.h>

#include "QLSDKCoreKit/network/QLSDKPayload.h"
#include "QLSDKCoreKit/network/TokenOpener.h"
#include "QLSDKCoreKit/network/internal/Sealing.h"
#include "QLSDKCoreKit/platform/Crypto.h"
#include "QLSDKCoreKit/values/Data.h"

using namespace qlsdk;
using nlohmann::ordered_json;

namespace {

constexpr std::int64_t kNowMillis = 1'795'385'225'380;
constexpr std::int64_t kWindowMillis = 300'000;
constexpr std::size_t kNonceDigits = 32;
constexpr std::size_t kNonce = 3;
constexpr std::size_t kTag = kNonce + kNonceDigits + 1;
constexpr std::size_t kSealed = kTag + kNonceDigits + 1;

TokenKey keyOf(std::uint8_t first) {
    TokenKey key{};
    for (std::size_t i = 0; i < key.size(); ++i) key[i] = static_cast<std::uint8_t>(first + 7 * i);
    return key;
}

const TokenKey kNew = keyOf(0x10);
const TokenKey kOld = keyOf(0x51);
const TokenKey kStrange = keyOf(0x92);

std::string hex(DataView bytes) {
    return QLSDKPayload::convertDataToHexString(bytes);
}

/// A token around any bytes, under a nonce of its own.
std::string sealedBytes(platform::Aes256Key key, const std::string& padded) {
    static std::uint8_t count = 0;
    platform::Block16 nonce{};
    nonce.fill(++count);
    platform::Block16 tag{};
    Data output(padded.size());
    if (sealPayload(output, tag, nonce, key, 0, dataOf(padded), 0) != kSealingSuccess) std::abort();
    return "v2:" + hex(nonce) + ":" + hex(tag) + ":" + hex(output);
}

std::string sealed(platform::Aes256Key key, const std::string& text) {
    const auto length = static_cast<std::uint32_t>(text.size());
    const std::uint32_t padding = QLSDKPayload::getPaddedLength(length, 4) - length;
    return sealedBytes(key, text + std::string(padding, static_cast<char>(padding)));
}

std::string textOf(const std::string& app, std::int64_t createdMillis) {
    return app + ":" + std::to_string(createdMillis);
}

ordered_json goodTokens(ordered_json& apps) {
    const std::vector<std::string> names{
        "com.example.app", "com.example.a",      "com.example.ab",  "com.example.abc",     "com.example.abcd",
        "(null)",          "com:example:colons", "com.exämple.app", std::string(200, 'a'), "a"};
    const std::vector<std::int64_t> ages{0, 1, kWindowMillis, -kWindowMillis, 59'999};
    ordered_json tokens = ordered_json::array();
    for (std::size_t i = 0; i < 2 * names.size(); ++i) {
        const std::string& app = names[i / 2];
        const std::int64_t created = kNowMillis - ages[i % ages.size()];
        const bool isNew = i % 2 == 0;
        tokens.push_back({{"token", sealed(isNew ? kNew : kOld, textOf(app, created))},
                          {"outcome", "valid"},
                          {"key", isNew ? "new" : "old"},
                          {"app", app},
                          {"createdMillis", created}});
        if (isNew) apps.push_back(app);
    }
    return tokens;
}

ordered_json badTokens() {
    const std::string good = sealed(kNew, textOf("com.example.app", kNowMillis));
    const std::string nonce = good.substr(kNonce, kNonceDigits);
    const std::string tag = good.substr(kTag, kNonceDigits);
    const std::string bytes = good.substr(kSealed);
    const auto changed = [&good](std::size_t place, std::string_view with) {
        return std::string(good).replace(place, with.size(), with);
    };
    const auto flipped = [&](std::size_t place) { return changed(place, good[place] == '0' ? "1" : "0"); };
    const auto with = [](const std::string& text) { return sealed(kNew, text); };
    const std::string now = std::to_string(kNowMillis);

    ordered_json tokens = ordered_json::array();
    const auto add = [&tokens](const char* outcome, const char* reason, const std::string& token) {
        tokens.push_back({{"token", token}, {"outcome", outcome}, {"reason", reason}});
    };
    add("version", "empty", "");
    add("version", "an older version", "v1" + good.substr(2));
    add("version", "a newer version", "v3" + good.substr(2));
    add("version", "a capital V", "V" + good.substr(1));
    add("version", "no version", good.substr(kNonce));
    add("version", "a space in front", " " + good);
    add("length", "what is sent when the sealing fails", "v2:(null)");
    add("length", "no parts", "v2:::");
    add("length", "a short nonce", "v2:" + nonce.substr(2) + ":" + tag + ":" + bytes);
    add("length", "a long nonce", "v2:" + nonce + "00:" + tag + ":" + bytes);
    add("length", "a short tag", "v2:" + nonce + ":" + tag.substr(2) + ":" + bytes);
    add("length", "no sealed text", good.substr(0, kSealed - 1));
    add("length", "cut by a digit", good.substr(0, good.size() - 1));
    add("length", "cut by a byte", good.substr(0, good.size() - 2));
    add("length", "a part too many", good + ":");
    add("length", "a sealed text of 4,100 bytes", good.substr(0, kSealed) + std::string(8200, 'A'));
    add("digits", "lower case in the nonce", changed(kNonce, "ab"));
    add("digits", "lower case in the tag", changed(kTag, "ab"));
    add("digits", "lower case in the sealed text", changed(kSealed, "ab"));
    add("digits", "a letter that is no digit", changed(kTag, "G"));
    add("digits", "no ASCII", changed(kSealed, "é"));
    add("key", "a wrong key", sealed(kStrange, textOf("com.example.app", kNowMillis)));
    add("key", "a changed nonce", flipped(kNonce));
    add("key", "a changed tag", flipped(kTag));
    add("key", "a changed sealed text", flipped(kSealed));
    add("key", "cut by a block", good.substr(0, good.size() - 8));
    add("key", "nonce and tag swapped", "v2:" + tag + ":" + nonce + ":" + bytes);
    add("developmentKey", "the development key",
        sealed(developmentSealingKey(), textOf("com.example.app", kNowMillis)));
    add("content", "padding of 0", sealedBytes(kNew, "com.example.app:1" + std::string(3, '\0')));
    add("content", "padding of 5", sealedBytes(kNew, "com.example.app:123" + std::string(5, '\5')));
    add("content", "padding that differs", sealedBytes(kNew, "com.example.app:1\2\3\3"));
    add("content", "nothing but padding", with(""));
    add("content", "no colon", with("com.example.app"));
    add("content", "no time", with("com.example.app:"));
    add("content", "a time with a sign of plus", with("com.example.app:+" + now));
    add("content", "a time beyond 64 bits", with("com.example.app:9223372036854775808"));
    add("app", "bundle mismatch", with("com.example.other:" + now));
    add("app", "bundle mismatch by case", with("com.example.App:" + now));
    add("tooOld", "a millisecond too old", with(textOf("com.example.app", kNowMillis - kWindowMillis - 1)));
    add("tooOld", "the least time", with("com.example.app:-9223372036854775808"));
    add("fromTheFuture", "a millisecond too early",
        with(textOf("com.example.app", kNowMillis + kWindowMillis + 1)));
    return tokens;
}

quillkit::wire::HearbeatBatch heartbeat(const std::string& client) {
    quillkit::wire::HearbeatBatch batch;
    auto& each = *batch.add_heartbeats();
    each.set_client_id(client);
    each.set_installation_id("1808ACCE-5D01-478E-B735-0F3271F1397E");
    each.set_kit_type(3);
    each.set_kit_version("2.1");
    each.mutable_device_environment()->set_locale("en-US");
    each.mutable_timestamp()->set_seconds(1795385225);
    each.mutable_timestamp()->set_nanos(260233163);
    return batch;
}

template <typename Metric>
void fill(Metric& metric, const std::string& name) {
    metric.set_name(name);
    metric.mutable_timestamp()->set_seconds(1795385225);
    metric.mutable_timestamp()->set_nanos(0);
}

std::string counter(std::int64_t count) {
    quillkit::wire::Metrics metrics;
    fill(*metrics.add_counters(), "photos.sent");
    metrics.mutable_counters(0)->set_count(count);
    return metrics.SerializeAsString();
}

std::string timer(std::int64_t latencyMillis) {
    quillkit::wire::Metrics metrics;
    fill(*metrics.add_timers(), "upload");
    metrics.mutable_timers(0)->set_latency_millis(latencyMillis);
    return metrics.SerializeAsString();
}

ordered_json bodies() {
    const std::string heartbeats = "/v1/sdk/heartbeat";
    const std::string metrics = "/v1/sdk/metrics/operational";
    const std::string one = heartbeat("abc").SerializeAsString();
    const std::string unknown("\xA2\x1F\x03new\xA8\x1F\x07", 9);
    const std::string invalid = std::string(one).replace(one.find("abc"), 2, "\xC3\x28");
    const std::string nul = heartbeat(std::string("a\0b", 3)).SerializeAsString();
    std::string padded = one;
    while (padded.size() < 128)
        padded = heartbeat(std::string(3 + 128 - one.size(), 'c')).SerializeAsString();

    ordered_json result = ordered_json::array();
    const auto add = [&result](const std::string& path, const char* name, const std::string& piece, int times,
                               const char* outcome, int records) {
        result.push_back({{"path", path},
                          {"name", name},
                          {"piece", platform::base64Encode(bytesOf(piece))},
                          {"times", times},
                          {"outcome", outcome},
                          {"records", records}});
    };
    add(heartbeats, "one heartbeat", one, 1, "accepted", 1);
    add(heartbeats, "three heartbeats", one, 3, "accepted", 3);
    add(heartbeats, "empty", "", 1, "accepted", 0);
    add(heartbeats, "cut by a byte", one.substr(0, one.size() - 1), 1, "malformed", 0);
    add(heartbeats, "cut after the first tag", one.substr(0, 1), 1, "malformed", 0);
    add(heartbeats, "no message", "{\"query\":\"\"}", 1, "malformed", 0);
    add(heartbeats, "131,072 bytes", padded, 1024, "accepted", 1024);
    add(heartbeats, "more than 131,072 bytes", padded, 1025, "tooLarge", 0);
    add(heartbeats, "unknown fields", one + unknown, 1, "accepted", 1);
    add(heartbeats, "a text that is no UTF-8", invalid, 1, "malformed", 0);
    add(heartbeats, "a text with a zero byte", nul, 1, "malformed", 0);
    add(metrics, "a counter", counter(5), 1, "accepted", 1);
    add(metrics, "a negative latency", timer(-1), 1, "accepted", 1);
    add(metrics, "both kinds interleaved", counter(5) + timer(110) + counter(-4) + timer(300), 1, "accepted",
        4);
    add(metrics, "empty", "", 1, "accepted", 0);
    add(metrics, "cut within a timer", counter(5) + timer(110).substr(0, 5), 1, "malformed", 0);
    return result;
}

}  // namespace

int main() {
    ordered_json apps = ordered_json::array();
    ordered_json tokens = goodTokens(apps);
    for (ordered_json& bad : badTokens()) tokens.push_back(std::move(bad));
    const ordered_json vectors{{"keys", {{"new", hex(kNew)}, {"old", hex(kOld)}}},
                               {"developmentKey", hex(developmentSealingKey())},
                               {"apps", apps},
                               {"nowMillis", kNowMillis},
                               {"oldestMillis", kWindowMillis},
                               {"aheadMillis", kWindowMillis},
                               {"tokens", tokens},
                               {"bodies", bodies()}};
    std::cout << vectors.dump(1) << "\n";
    return std::cout.flush() ? 0 : 1;
}
