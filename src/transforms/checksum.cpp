// checksum.cpp - CRC-16 and CRC-32.
#include "transforms/checksum.h"

#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kp::transforms {
namespace {

// Slicing-by-16 tables: row 0 is the classic byte table, row k gives the
// contribution of a byte followed by k zero bytes.
constexpr std::array<std::array<uint32_t, 256>, 16> make_crc32_tables() {
    std::array<std::array<uint32_t, 256>, 16> t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k)
            c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
        t[0][i] = c;
    }
    for (uint32_t i = 0; i < 256; ++i)
        for (int k = 1; k < 16; ++k)
            t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF];
    return t;
}
constexpr auto kCrc32 = make_crc32_tables();

constexpr std::array<uint16_t, 256> make_crc16_table() {
    std::array<uint16_t, 256> t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i << 8;
        for (int k = 0; k < 8; ++k)
            c = (c & 0x8000) ? (c << 1) ^ 0x1021 : c << 1;
        t[i] = static_cast<uint16_t>(c);
    }
    return t;
}
constexpr auto kCrc16 = make_crc16_table();

inline uint32_t load32(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4); // the tables assume a little-endian host (x86-64)
    return v;
}

#if defined(__x86_64__)
// Carry-less multiplication folding (PCLMULQDQ) over 64-byte strides, then
// 16-byte strides, then a Barrett reduction of the last 128 bits.  Works on
// the register (not inverted) and on a multiple of 16 bytes, at least 64.
// The constants are x^(k) mod P for the reflected polynomial: 4 x 128 bits
// (k1, k2), 128 bits (k3, k4), 64 bits (k5), then P and its quotient.
#define KP_CLMUL __attribute__((target("pclmul,sse4.1")))
KP_CLMUL inline __m128i load128(const uint8_t* q) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
}
KP_CLMUL inline __m128i fold128(__m128i x, __m128i k, __m128i next) {
    const __m128i lo = _mm_clmulepi64_si128(x, k, 0x00);
    const __m128i hi = _mm_clmulepi64_si128(x, k, 0x11);
    return _mm_xor_si128(_mm_xor_si128(hi, lo), next);
}

KP_CLMUL uint32_t crc32_fold(const uint8_t* p, std::size_t n, uint32_t crc) {
    const __m128i k1k2 = _mm_set_epi64x(0x01c6e41596, 0x0154442bd4);
    const __m128i k3k4 = _mm_set_epi64x(0x00ccaa009e, 0x01751997d0);
    const __m128i k5 = _mm_set_epi64x(0, 0x0163cd6124);
    const __m128i poly = _mm_set_epi64x(0x01f7011641, 0x01db710641);
    const __m128i mask32 = _mm_setr_epi32(-1, 0, -1, 0);

    __m128i x1 = _mm_xor_si128(load128(p), _mm_cvtsi32_si128(static_cast<int>(crc)));
    __m128i x2 = load128(p + 16), x3 = load128(p + 32), x4 = load128(p + 48);
    p += 64;
    n -= 64;
    while (n >= 64) {
        x1 = fold128(x1, k1k2, load128(p));
        x2 = fold128(x2, k1k2, load128(p + 16));
        x3 = fold128(x3, k1k2, load128(p + 32));
        x4 = fold128(x4, k1k2, load128(p + 48));
        p += 64;
        n -= 64;
    }
    x1 = fold128(x1, k3k4, x2);
    x1 = fold128(x1, k3k4, x3);
    x1 = fold128(x1, k3k4, x4);
    while (n >= 16) {
        x1 = fold128(x1, k3k4, load128(p));
        p += 16;
        n -= 16;
    }
    // 128 -> 64 bits.
    __m128i x2b = _mm_clmulepi64_si128(x1, k3k4, 0x10);
    x1 = _mm_xor_si128(_mm_srli_si128(x1, 8), x2b);
    x2b = _mm_srli_si128(x1, 4);
    x1 = _mm_and_si128(x1, mask32);
    x1 = _mm_clmulepi64_si128(x1, k5, 0x00);
    x1 = _mm_xor_si128(x1, x2b);
    // Barrett reduction to 32 bits.
    x2b = _mm_and_si128(x1, mask32);
    x2b = _mm_clmulepi64_si128(x2b, poly, 0x10);
    x2b = _mm_and_si128(x2b, mask32);
    x2b = _mm_clmulepi64_si128(x2b, poly, 0x00);
    x1 = _mm_xor_si128(x1, x2b);
    return static_cast<uint32_t>(_mm_extract_epi32(x1, 1));
}

bool has_pclmul() {
    static const bool yes = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
    return yes;
}
#endif

} // namespace

uint32_t crc32(std::span<const uint8_t> data, uint32_t previous) {
    uint32_t c = ~previous;
    const uint8_t* p = data.data();
    std::size_t n = data.size();
    const auto& t = kCrc32;
#if defined(__x86_64__)
    if (n >= 64 && has_pclmul()) {
        const std::size_t whole = n & ~std::size_t{15};
        c = crc32_fold(p, whole, c);
        p += whole;
        n -= whole;
    }
#endif
    while (n >= 16) {
        uint32_t a = load32(p) ^ c, b = load32(p + 4), d = load32(p + 8), e = load32(p + 12);
        c = t[15][a & 0xFF] ^ t[14][(a >> 8) & 0xFF] ^ t[13][(a >> 16) & 0xFF] ^ t[12][a >> 24] ^
            t[11][b & 0xFF] ^ t[10][(b >> 8) & 0xFF] ^ t[9][(b >> 16) & 0xFF] ^ t[8][b >> 24] ^
            t[7][d & 0xFF] ^ t[6][(d >> 8) & 0xFF] ^ t[5][(d >> 16) & 0xFF] ^ t[4][d >> 24] ^ t[3][e & 0xFF] ^
            t[2][(e >> 8) & 0xFF] ^ t[1][(e >> 16) & 0xFF] ^ t[0][e >> 24];
        p += 16;
        n -= 16;
    }
    while (n--)
        c = (c >> 8) ^ t[0][(c ^ *p++) & 0xFF];
    return ~c;
}

uint16_t crc16(std::u16string_view text) {
    uint32_t r = 0;
    for (char16_t u : text)
        r = ((u & 0xFFu) ^ kCrc16[(r >> 8) & 0xFF] ^ (r << 8)) & 0xFFFF;
    // The terminator and the units after it are zero: (characters + 2) of them.
    for (std::size_t i = 0; i < text.size() + 2; ++i)
        r = (kCrc16[(r >> 8) & 0xFF] ^ (r << 8)) & 0xFFFF;
    return static_cast<uint16_t>(r);
}

} // namespace kp::transforms
