#include "QLSDKCoreKit/values/internal/Checksum.h"

#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <nmmintrin.h>
#include <wmmintrin.h>
#endif

namespace qlsdk::platform {

namespace {

/// A polynomial over the bits, lowest power in the highest bit; this one without its x^32.
using Polynomial = std::uint32_t;
constexpr Polynomial kCastagnoli = 0x82F63B78;
constexpr Polynomial kOne = 0x80000000;

constexpr Polynomial timesX(Polynomial p) noexcept {
    return (p & 1) != 0 ? (p >> 1) ^ kCastagnoli : p >> 1;
}

constexpr Polynomial times(Polynomial a, Polynomial b) noexcept {
    Polynomial product = 0;
    for (; a != 0; a <<= 1) {
        if ((a & kOne) != 0) product ^= b;
        b = timesX(b);
    }
    return product;
}

constexpr std::array<Polynomial, 256> kByByte = [] {
    std::array<Polynomial, 256> table{};
    for (Polynomial byte = 0; byte < table.size(); ++byte) {
        table[byte] = byte;
        for (int bit = 0; bit < 8; ++bit) table[byte] = timesX(table[byte]);
    }
    return table;
}();

constexpr std::size_t kDigits = 7;
/// x to the power of the bits of d * 16^n bytes, for each digit d of a length.
constexpr std::array<std::array<Polynomial, 16>, kDigits> kByLength = [] {
    std::array<std::array<Polynomial, 16>, kDigits> table{};
    Polynomial step = kOne >> 8;
    for (auto& digit : table) {
        digit[0] = kOne;
        for (std::size_t d = 1; d < 16; ++d) digit[d] = times(digit[d - 1], step);
        step = times(digit[15], step);
    }
    return table;
}();

Polynomial divideByBytes(Polynomial remainder, DataView bytes) noexcept {
    for (const std::uint8_t byte : bytes) remainder = (remainder >> 8) ^ kByByte[(remainder ^ byte) & 0xFF];
    return remainder;
}

#if defined(__x86_64__)
// The instruction multiplies what it divides by x^32 first.
constexpr auto kByLengthOverX32 = [] {
    auto table = kByLength;
    for (auto& digit : table) {
        for (Polynomial& power : digit) {
            for (int i = 0; i < 32; ++i) {
                power = (power & kOne) != 0 ? ((power ^ kCastagnoli) << 1) | 1 : power << 1;
            }
        }
    }
    return table;
}();

#define QLSDK_CRC_INSTRUCTIONS __attribute__((target("sse4.2,pclmul")))

bool hasInstructions() noexcept {
    static const bool has = __builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("pclmul");
    return has;
}

QLSDK_CRC_INSTRUCTIONS Polynomial divideByWords(Polynomial remainder, DataView bytes) noexcept {
    std::uint64_t wide = remainder;
    for (; bytes.size() >= sizeof(std::uint64_t); bytes = bytes.subspan(sizeof(std::uint64_t))) {
        std::uint64_t word;
        std::memcpy(&word, bytes.data(), sizeof word);
        wide = _mm_crc32_u64(wide, word);
    }
    return divideByBytes(static_cast<Polynomial>(wide), bytes);
}

QLSDK_CRC_INSTRUCTIONS Polynomial timesByWords(Polynomial overX32, Polynomial other) noexcept {
    const __m128i product = _mm_clmulepi64_si128(_mm_cvtsi32_si128(static_cast<int>(overX32)),
                                                 _mm_cvtsi32_si128(static_cast<int>(other)), 0);
    const auto bits = static_cast<std::uint64_t>(_mm_cvtsi128_si64(product));
    return static_cast<Polynomial>(_mm_crc32_u64(0, bits << 1));
}

#undef QLSDK_CRC_INSTRUCTIONS

Polynomial divide(Polynomial remainder, DataView bytes) noexcept {
    return hasInstructions() ? divideByWords(remainder, bytes) : divideByBytes(remainder, bytes);
}

Polynomial timesLength(Polynomial p, std::size_t digit, std::size_t d) noexcept {
    return hasInstructions() ? timesByWords(kByLengthOverX32[digit][d], p) : times(kByLength[digit][d], p);
}
#else
Polynomial divide(Polynomial remainder, DataView bytes) noexcept {
    return divideByBytes(remainder, bytes);
}

Polynomial timesLength(Polynomial p, std::size_t digit, std::size_t d) noexcept {
    return times(kByLength[digit][d], p);
}
#endif

}  // namespace

std::uint32_t crc32c(std::uint32_t checksum, DataView more) noexcept {
    return ~divide(~checksum, more);
}

std::uint32_t joinedCrc32c(std::uint32_t left, std::uint32_t right, std::size_t rightLength) noexcept {
    for (std::size_t digit = 0; rightLength != 0 && digit < kDigits; ++digit, rightLength >>= 4) {
        const std::size_t d = rightLength & 15;
        if (d != 0) left = timesLength(left, digit, d);
    }
    return left ^ right;
}

}  // namespace qlsdk::platform
