#include "QLSDKCoreKit/values/internal/Checksum.h"

#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <nmmintrin.h>
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
__attribute__((target("sse4.2"))) Polynomial divideByWords(Polynomial remainder, DataView bytes) noexcept {
    std::uint64_t wide = remainder;
    for (; bytes.size() >= sizeof(std::uint64_t); bytes = bytes.subspan(sizeof(std::uint64_t))) {
        std::uint64_t word;
        std::memcpy(&word, bytes.data(), sizeof word);
        wide = _mm_crc32_u64(wide, word);
    }
    return divideByBytes(static_cast<Polynomial>(wide), bytes);
}

Polynomial divide(Polynomial remainder, DataView bytes) noexcept {
    static const bool hasInstruction = __builtin_cpu_supports("sse4.2") != 0;
    return hasInstruction ? divideByWords(remainder, bytes) : divideByBytes(remainder, bytes);
}
#else
Polynomial divide(Polynomial remainder, DataView bytes) noexcept {
    return divideByBytes(remainder, bytes);
}
#endif

}  // namespace

std::uint32_t crc32c(std::uint32_t checksum, DataView more) noexcept {
    return ~divide(~checksum, more);
}

std::uint32_t joinedCrc32c(std::uint32_t left, std::uint32_t right, std::size_t rightLength) noexcept {
    for (std::size_t digit = 0; rightLength != 0 && digit < kDigits; ++digit, rightLength >>= 4) {
        const std::size_t d = rightLength & 15;
        if (d != 0) left = times(kByLength[digit][d], left);
    }
    return left ^ right;
}

}  // namespace qlsdk::platform
