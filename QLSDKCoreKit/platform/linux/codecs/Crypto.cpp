#include "QLSDKCoreKit/platform/Crypto.h"

#include <atomic>
#include <climits>
#include <memory>
#include <utility>

#include <openssl/err.h>
#include <openssl/evp.h>

#include "QLSDKCoreKit/platform/internal/ThreadEnd.h"
#include "QLSDKCoreKit/platform/linux/codecs/OpenSsl.h"
#include "QLSDKCoreKit/platform/linux/threads/WorkGate.h"

namespace qlsdk::platform {

namespace {

struct ContextFree {
    void operator()(EVP_CIPHER_CTX* context) const noexcept { EVP_CIPHER_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_CIPHER_CTX, ContextFree>;

enum class Direction { open = 0, seal = 1 };

// A failure leaves its reason in this thread's error queue, where the host's own use of OpenSSL would find
// it.
class ErrorScope {
  public:
    ErrorScope() noexcept { ERR_set_mark(); }
    ~ErrorScope() { ERR_pop_to_mark(); }
    ErrorScope(const ErrorScope&) = delete;
    ErrorScope& operator=(const ErrorScope&) = delete;
};

// OpenSSL counts in int; a block is left free for padding.
bool fitsInt(std::size_t size) noexcept {
    return size <= static_cast<std::size_t>(INT_MAX) - 16;
}

// Fetched once and kept: a fetch by name takes longer than sealing a token. One that failed is tried again.
const EVP_CIPHER* gcmCipher() noexcept {
    static constinit std::atomic<EVP_CIPHER*> kept{nullptr};
    EVP_CIPHER* cipher = kept.load(std::memory_order_acquire);
    if (cipher != nullptr) return cipher;
    EVP_CIPHER* const fetched = EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr);
    if (kept.compare_exchange_strong(cipher, fetched, std::memory_order_acq_rel)) return fetched;
    EVP_CIPHER_free(fetched);
    return cipher;
}

template <std::size_t Size>
std::optional<std::array<std::uint8_t, Size>> digest(const EVP_MD* (*algorithm)(), DataView bytes) noexcept {
    const WorkGate::LibraryUse use;
    if (!ensureOpenSsl()) return std::nullopt;
    const ErrorScope errors;
    std::array<std::uint8_t, Size> result{};
    unsigned int size = 0;
    const int status = EVP_Digest(bytes.data(), bytes.size(), result.data(), &size, algorithm(), nullptr);
    if (status != 1 || size != Size) return std::nullopt;
    return result;
}

std::optional<Data> aes256Cbc(Direction direction, DataView input, Aes256Key key,
                              const Block16& iv) noexcept {
    const WorkGate::LibraryUse use;
    if (!fitsInt(input.size()) || !ensureOpenSsl()) return std::nullopt;
    const ErrorScope errors;
    const Context context(EVP_CIPHER_CTX_new());
    if (context == nullptr) return std::nullopt;
    try {
        Data output(input.size() + iv.size());
        int moved = 0;
        int last = 0;
        const bool done = EVP_CipherInit_ex2(context.get(), EVP_aes_256_cbc(), key.data(), iv.data(),
                                             static_cast<int>(direction), nullptr) == 1 &&
                          EVP_CipherUpdate(context.get(), output.data(), &moved, input.data(),
                                           static_cast<int>(input.size())) == 1 &&
                          EVP_CipherFinal_ex(context.get(), output.data() + moved, &last) == 1;
        if (!done) return std::nullopt;
        output.resize(static_cast<std::size_t>(moved) + static_cast<std::size_t>(last));
        return output;
    } catch (...) {
        return std::nullopt;
    }
}

// This thread's context, kept between calls because making one takes as long as sealing a token.
constinit thread_local EVP_CIPHER_CTX* keptContext = nullptr;
constinit thread_local ThreadEnd contextEnd{.run = [] {
    const WorkGate::LibraryUse use;
    if (!isOpenSslTornDown()) EVP_CIPHER_CTX_free(std::exchange(keptContext, nullptr));
}};

/// The thread's context, or one for this call alone where it cannot be kept.
class ThreadContext {
  public:
    ThreadContext() noexcept {
        if (keptContext != nullptr) return;
        own_.reset(EVP_CIPHER_CTX_new());
        if (own_ != nullptr && atThreadEnd(contextEnd)) keptContext = own_.release();
    }
    /// Null without the memory for one.
    [[nodiscard]] EVP_CIPHER_CTX* get() const noexcept {
        return keptContext != nullptr ? keptContext : own_.get();
    }

  private:
    Context own_;
};

/// Sets the context up with cipher, nonce length, key and nonce; false on failure.
bool beginGcm(EVP_CIPHER_CTX* context, Direction direction, const Block16& nonce, Aes256Key key) noexcept {
    const int way = static_cast<int>(direction);
    const EVP_CIPHER* cipher = gcmCipher();
    return context != nullptr && cipher != nullptr &&
           EVP_CipherInit_ex2(context, cipher, nullptr, nullptr, way, nullptr) == 1 &&
           EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_IVLEN, static_cast<int>(nonce.size()), nullptr) ==
               1 &&
           EVP_CipherInit_ex2(context, nullptr, key.data(), nonce.data(), way, nullptr) == 1;
}

bool gcmUpdate(EVP_CIPHER_CTX* context, std::span<std::uint8_t> output, DataView input) noexcept {
    int moved = 0;
    // An update without bytes would be taken for the end of the message.
    return input.empty() || (EVP_CipherUpdate(context, output.data(), &moved, input.data(),
                                              static_cast<int>(input.size())) == 1 &&
                             static_cast<std::size_t>(moved) == input.size());
}

bool gcmFinal(EVP_CIPHER_CTX* context) noexcept {
    Block16 nothing{};
    int moved = 0;
    return EVP_CipherFinal_ex(context, nothing.data(), &moved) == 1 && moved == 0;
}

}  // namespace

std::optional<Block16> md5(DataView bytes) noexcept {
    return digest<16>(EVP_md5, bytes);
}

std::optional<std::array<std::uint8_t, 32>> sha256(DataView bytes) noexcept {
    return digest<32>(EVP_sha256, bytes);
}

std::optional<Data> aes256CbcEncrypt(DataView plain, Aes256Key key, const Block16& iv) noexcept {
    return aes256Cbc(Direction::seal, plain, key, iv);
}

std::optional<Data> aes256CbcDecrypt(DataView sealed, Aes256Key key, const Block16& iv) noexcept {
    return aes256Cbc(Direction::open, sealed, key, iv);
}

bool aes256GcmSeal(std::span<std::uint8_t> output, Block16& tag, const Block16& nonce, Aes256Key key,
                   DataView input) noexcept {
    const WorkGate::LibraryUse use;
    if (output.size() != input.size() || !fitsInt(input.size()) || !ensureOpenSsl()) return false;
    const ErrorScope errors;
    const ThreadContext kept;
    EVP_CIPHER_CTX* const context = kept.get();
    return beginGcm(context, Direction::seal, nonce, key) && gcmUpdate(context, output, input) &&
           gcmFinal(context) &&
           EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, static_cast<int>(tag.size()), tag.data()) == 1;
}

bool aes256GcmOpen(std::span<std::uint8_t> output, const Block16& tag, const Block16& nonce, Aes256Key key,
                   DataView input) noexcept {
    const WorkGate::LibraryUse use;
    if (output.size() != input.size() || !fitsInt(input.size()) || !ensureOpenSsl()) return false;
    const ErrorScope errors;
    const ThreadContext kept;
    EVP_CIPHER_CTX* const context = kept.get();
    // The control call takes a mutable pointer for both directions.
    Block16 expected = tag;
    return beginGcm(context, Direction::open, nonce, key) && gcmUpdate(context, output, input) &&
           EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_TAG, static_cast<int>(expected.size()),
                               expected.data()) == 1 &&
           gcmFinal(context);
}

}  // namespace qlsdk::platform
