#include <array>
#include <memory>
#include <string>

#include "BenchHost.h"
#include "Contest.h"
#include <curl/curl.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/network/QLSDKPayload.h"

namespace qlsdk::bench {
namespace {

// As a first version is written: two draws from the random source, a fresh context, digits by a stream of
// calls.
std::string naiveToken(const std::array<std::uint8_t, 32>& key) {
    std::array<std::uint8_t, 16> probe{};
    std::array<std::uint8_t, 16> nonce{};
    std::array<std::uint8_t, 16> tag{};
    std::array<std::uint8_t, 48> sealed{};
    const std::array<std::uint8_t, 48> plain{};
    RAND_bytes(probe.data(), static_cast<int>(probe.size()));
    RAND_bytes(nonce.data(), static_cast<int>(nonce.size()));
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    int moved = 0;
    EVP_EncryptInit_ex(context, EVP_aes_256_gcm(), nullptr, nullptr, nullptr);
    EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(nonce.size()), nullptr);
    EVP_EncryptInit_ex(context, nullptr, nullptr, key.data(), nonce.data());
    EVP_EncryptUpdate(context, sealed.data(), &moved, plain.data(), static_cast<int>(plain.size()));
    EVP_EncryptFinal_ex(context, sealed.data() + moved, &moved);
    EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_GET_TAG, static_cast<int>(tag.size()), tag.data());
    EVP_CIPHER_CTX_free(context);
    std::string token = "v2:";
    const auto append = [&token](const auto& bytes) {
        char digits[3];
        for (const std::uint8_t byte : bytes) {
            std::snprintf(digits, sizeof digits, "%02X", byte);
            token += digits;
        }
    };
    append(nonce);
    token += ':';
    append(tag);
    token += ':';
    append(sealed);
    return token;
}

// The sealing alone, without the text around it: what is left when nothing is made twice.
void sealOnly(EVP_CIPHER_CTX* context, const std::array<std::uint8_t, 32>& key) {
    static std::array<std::uint8_t, 16> nonce{};
    std::array<std::uint8_t, 48> sealed{};
    std::array<std::uint8_t, 16> tag{};
    ++nonce[0];
    int moved = 0;
    EVP_EncryptInit_ex(context, nullptr, nullptr, key.data(), nonce.data());
    EVP_EncryptUpdate(context, sealed.data(), &moved, sealed.data(), static_cast<int>(sealed.size()));
    EVP_EncryptFinal_ex(context, sealed.data() + moved, &moved);
    EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_GET_TAG, static_cast<int>(tag.size()), tag.data());
    benchmark::DoNotOptimize(tag);
}

void addToken() {
    static constexpr std::array<std::uint8_t, 32> key{1, 2, 3};
    benchmark::RegisterBenchmark("token/whole/ours", [](benchmark::State& state) {
        installAcceptingPlatform();
        require(QLSDKPayload::serializePayload({}).value_or("").starts_with("v2:"), "no token");
        for (auto _ : state) benchmark::DoNotOptimize(QLSDKPayload::serializePayload({}));
    });
    benchmark::RegisterBenchmark("token/whole/naive", [](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(naiveToken(key));
    });
    benchmark::RegisterBenchmark("token/whole/limit", [](benchmark::State& state) {
        EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
        EVP_EncryptInit_ex(context, EVP_aes_256_gcm(), nullptr, nullptr, nullptr);
        EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_SET_IVLEN, 16, nullptr);
        for (auto _ : state) sealOnly(context, key);
        EVP_CIPHER_CTX_free(context);
    });
}

const Data& sampleBytes() {
    static const Data& bytes = *[] {
        auto* made = new Data(1024);
        std::uint32_t state = 1;
        for (std::uint8_t& byte : *made)
            byte = static_cast<std::uint8_t>((state = state * 1664525 + 1013904223) >> 24);
        return made;
    }();
    return bytes;
}

void addBase64() {
    const Data& bytes = sampleBytes();
    std::string expected((bytes.size() + 2) / 3 * 4 + 1, '\0');
    expected.resize(static_cast<std::size_t>(EVP_EncodeBlock(
        reinterpret_cast<unsigned char*>(expected.data()), bytes.data(), static_cast<int>(bytes.size()))));
    contest("base64/encode-1k/ours", bytesOf(expected), [&bytes, text = std::make_shared<std::string>()] {
        *text = ql_base64EncodedString(bytes);
        return bytesOf(*text);
    });
    contest("base64/encode-1k/openssl", bytesOf(expected),
            [&bytes, text = std::make_shared<std::string>(2000, '\0')] {
                const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text->data()), bytes.data(),
                                                 static_cast<int>(bytes.size()));
                return bytesOf(*text).first(static_cast<std::size_t>(size));
            });
}

void addHex() {
    const Data& bytes = sampleBytes();
    std::string expected;
    for (const std::uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        expected += digits;
    }
    contest("hex/encode-1k/ours", bytesOf(expected), [&bytes, text = std::make_shared<std::string>()] {
        *text = QLSDKPayload::convertDataToHexString(bytes);
        return bytesOf(*text);
    });
    contest("hex/encode-1k/openssl", bytesOf(expected),
            [&bytes, text = std::make_shared<std::string>(2049, '\0')] {
                std::size_t size = 0;
                OPENSSL_buf2hexstr_ex(text->data(), text->size(), &size, bytes.data(), bytes.size(), '\0');
                return bytesOf(*text).first(size - 1);
            });
}

void addUrl() {
    const std::string metadata = "eyJ2ZXJzaW9uIjoiNC4yIiwic291cmNlIjoiZmVlZCJ9";
    const std::string base = "quillo://camera/1";
    const std::string expected = base + "?link=client%207&metadata=" + metadata;
    contest("url/query/ours", bytesOf(expected), [base, metadata, text = std::make_shared<std::string>()] {
        *text = buildWithBaseUrlString(base, Dictionary{{"link", "client 7"}, {"metadata", metadata}})
                    ->absoluteString();
        return bytesOf(*text);
    });
    contest("url/query/libcurl", bytesOf(expected), [base, metadata, text = std::make_shared<std::string>()] {
        *text = base + "?";
        const auto append = [&text](const char* name, const std::string& value, const char* before) {
            char* escapedName = curl_easy_escape(nullptr, name, 0);
            char* escapedValue = curl_easy_escape(nullptr, value.data(), static_cast<int>(value.size()));
            *text += before;
            *text += escapedName;
            *text += '=';
            *text += escapedValue;
            curl_free(escapedName);
            curl_free(escapedValue);
        };
        append("link", "client 7", "");
        append("metadata", metadata, "&");
        return bytesOf(*text);
    });
}

}  // namespace

void addCodecContests() {
    addToken();
    addBase64();
    addHex();
    addUrl();
}

}  // namespace qlsdk::bench
