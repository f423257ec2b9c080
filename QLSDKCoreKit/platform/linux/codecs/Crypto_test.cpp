#include "QLSDKCoreKit/platform/Crypto.h"

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <numeric>

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qlsdk::platform {
namespace {

Data fromHex(std::string_view hex) {
    Data bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
    }
    return bytes;
}

template <std::size_t Size>
std::array<std::uint8_t, Size> counting(std::uint8_t first) {
    std::array<std::uint8_t, Size> bytes;
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

template <typename Bytes>
Data asData(const std::optional<Bytes>& bytes) {
    return bytes ? Data(bytes->begin(), bytes->end()) : Data{0xBA, 0xD0};
}

TEST(Crypto, DigestsAgreeWithTheStandards) {
    EXPECT_EQ(asData(md5({})), fromHex("d41d8cd98f00b204e9800998ecf8427e"));
    EXPECT_EQ(asData(md5(bytesOf("message digest"))), fromHex("f96b697d7cb7938d525a2f31aaf161d0"));
    EXPECT_EQ(asData(sha256(bytesOf("abc"))),
              fromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
}

TEST(Base64, AgreesWithRfc4648InBothDirections) {
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, text] : vectors) {
        EXPECT_EQ(base64Encode(bytesOf(plain)), text);
        EXPECT_EQ(base64Decode(text), dataOf(plain));
    }
    EXPECT_EQ(base64Encode(fromHex("fbff")), "+/8=");
}

TEST(Base64, RefusesEverythingThatIsNotStrict) {
    for (const char* text : {"Zg", "Zg=", "Zg===", "=", "====", "Z===", "Zg==Zg==", "Z=g=", " Zg==", "Zg==\n",
                             "Zm 9v", "Zm9v\n\n\n\n", "Zm-_", "Zm9\xC3", "-_8="}) {
        EXPECT_EQ(base64Decode(text), std::nullopt) << text;
    }
    EXPECT_EQ(base64Decode(std::string_view("Zm\0v", 4)), std::nullopt);
}

TEST(Base64, CarriesInputsLongerThanOnePiece) {
    Data bytes((std::size_t{3} << 20) * 2 + 1);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    const std::string text = base64Encode(bytes);
    EXPECT_EQ(text.size(), (bytes.size() + 2) / 3 * 4);
    EXPECT_EQ(text.find('\0'), std::string::npos);
    EXPECT_EQ(base64Decode(text), bytes);
}

// NIST SP 800-38A, F.2.5, with the block of padding that PKCS#7 adds.
TEST(Aes256Cbc, AgreesWithTheStandardAndChecksPadding) {
    const Data key = fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
    const Aes256Key keyView(key.data(), 32);
    const Block16 iv = counting<16>(0);
    const Data plain = fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51");
    const Data expected = fromHex("f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d");

    const std::optional<Data> sealed = aes256CbcEncrypt(plain, keyView, iv);
    ASSERT_TRUE(sealed);
    ASSERT_EQ(sealed->size(), 48U);
    EXPECT_EQ(Data(sealed->begin(), sealed->begin() + 32), expected);
    EXPECT_EQ(aes256CbcDecrypt(*sealed, keyView, iv), plain);
    EXPECT_EQ(aes256CbcDecrypt(expected, keyView, iv), std::nullopt) << "no padding at its end";
    EXPECT_EQ(aes256CbcDecrypt(DataView(*sealed).first(47), keyView, iv), std::nullopt);
    EXPECT_EQ(aes256CbcDecrypt({}, keyView, iv), std::nullopt);
    const std::optional<Data> nothing = aes256CbcEncrypt({}, keyView, iv);
    ASSERT_TRUE(nothing);
    EXPECT_EQ(nothing->size(), 16U);
    EXPECT_EQ(aes256CbcDecrypt(*nothing, keyView, iv), Data());
}

// The expected bytes come from another implementation of the mode (python3-cryptography).
TEST(Aes256Gcm, SealsWithALongNonceAsOthersDo) {
    const auto key = counting<32>(0x80);
    const Block16 nonce = counting<16>(0x10);
    const Data plain = dataOf("com.example.app:1700000000000\x03\x03\x03");
    Data sealed(plain.size());
    Block16 tag{};
    ASSERT_TRUE(aes256GcmSeal(sealed, tag, nonce, key, plain));
    EXPECT_EQ(sealed, fromHex("073521d707e5cfe4c39ace0daa25629154fecc31aa0d759046dd47b5f964fadf"));
    EXPECT_EQ(Data(tag.begin(), tag.end()), fromHex("6b8174d2d74a8411121dffce466e269c"));

    Block16 emptyTag{};
    ASSERT_TRUE(aes256GcmSeal({}, emptyTag, nonce, key, {}));
    EXPECT_EQ(Data(emptyTag.begin(), emptyTag.end()), fromHex("76cfcc5665b65b9577da2a7e7b8067ef"));

    Data opened(plain.size());
    ASSERT_TRUE(aes256GcmOpen(opened, tag, nonce, key, sealed));
    EXPECT_EQ(opened, plain);
    EXPECT_FALSE(aes256GcmSeal(std::span(sealed).first(3), tag, nonce, key, plain));
}

std::atomic<int> opensslMayAllocate{0};

void* reallocated(void* memory, std::size_t size, const char*, int) {
    return opensslMayAllocate-- > 0 ? std::realloc(memory, size) : nullptr;
}

// In the child of a fresh process, whose first use of OpenSSL it is; the parent has not used it.
bool outlivesAFirstUseWithSoManyAllocations(int succeeding) {
    const pid_t child = ::fork();
    if (child == 0) {
        opensslMayAllocate = succeeding;
        Data output(3);
        Block16 tag;
        (void)aes256GcmSeal(output, tag, counting<16>(1), counting<32>(1), bytesOf("abc"));
        opensslMayAllocate = INT_MAX;
        (void)aes256GcmSeal(output, tag, counting<16>(1), counting<32>(1), bytesOf("abc"));
        ::_exit(0);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child && status == 0;
}

TEST(CryptoDeathTest, AFirstUseWithoutMemoryEndsNoProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            if (CRYPTO_set_mem_functions([](std::size_t size, const char* file,
                                            int line) { return reallocated(nullptr, size, file, line); },
                                         reallocated,
                                         [](void* memory, const char*, int) { std::free(memory); }) != 1) {
                ::_exit(1);
            }
            for (int succeeding = 0; succeeding < 300; ++succeeding) {
                if (!outlivesAFirstUseWithSoManyAllocations(succeeding))
                    std::fprintf(stderr, "died of %d\n", succeeding);
            }
            ::_exit(0);
        },
        ::testing::ExitedWithCode(0), "^$");
}

TEST(Aes256Gcm, OpensNothingThatWasChanged) {
    const auto key = counting<32>(0);
    const Block16 nonce = counting<16>(0);
    const Data plain = dataOf("text");
    Data sealed(plain.size());
    Data opened(plain.size());
    Block16 tag{};
    ASSERT_TRUE(aes256GcmSeal(sealed, tag, nonce, key, plain));

    Block16 otherTag = tag;
    otherTag[15] ^= 1;
    Block16 otherNonce = nonce;
    otherNonce[0] ^= 1;
    Data otherSealed = sealed;
    otherSealed[0] ^= 1;
    EXPECT_FALSE(aes256GcmOpen(opened, otherTag, nonce, key, sealed));
    EXPECT_FALSE(aes256GcmOpen(opened, tag, otherNonce, key, sealed));
    EXPECT_FALSE(aes256GcmOpen(opened, tag, nonce, counting<32>(1), sealed));
    EXPECT_FALSE(aes256GcmOpen(opened, tag, nonce, key, otherSealed));
    // The context that the thread keeps must not remember the failures.
    EXPECT_TRUE(aes256GcmOpen(opened, tag, nonce, key, sealed));
}

}  // namespace
}  // namespace qlsdk::platform
