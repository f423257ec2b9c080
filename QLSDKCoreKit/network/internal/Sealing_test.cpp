#include "QLSDKCoreKit/network/internal/Sealing.h"

#include <memory>

#include <openssl/evp.h>

namespace qlsdk {
namespace {

/// The same message under another library's calls: authenticated decryption that checks the tag.
bool opensWithEvp(const Data& sealed, platform::Block16 tag, const platform::Block16& nonce, Data& plain) {
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                                  EVP_CIPHER_CTX_free);
    int length = 0;
    plain.resize(sealed.size());
    return EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) == 1 &&
           EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_IVLEN, 16, nullptr) == 1 &&
           EVP_DecryptInit_ex(context.get(), nullptr, nullptr, sealingKey().data(), nonce.data()) == 1 &&
           EVP_DecryptUpdate(context.get(), plain.data(), &length, sealed.data(),
                             static_cast<int>(sealed.size())) == 1 &&
           EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, 16, tag.data()) == 1 &&
           EVP_DecryptFinal_ex(context.get(), plain.data() + length, &length) == 1;
}

TEST(Sealing, IsAuthenticatedEncryptionAsLongAsItsInput) {
    const Data input = dataOf("com.example.app:1700000000000\3\3\3");
    const platform::Block16 nonce = {1, 2, 3};
    Data output(input.size());
    platform::Block16 tag{};
    ASSERT_EQ(sealPayload(output, tag, nonce, sealingKey(), 0, input, 0), 2);
    Data plain;
    EXPECT_TRUE(opensWithEvp(output, tag, nonce, plain));
    EXPECT_EQ(plain, input);
    EXPECT_NE(sealPayload(std::span(output).first(3), tag, nonce, sealingKey(), 0, input, 0), 2);
}

}  // namespace
}  // namespace qlsdk
