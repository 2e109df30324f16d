// encodings.cpp - URL escapes and the three byte-to-text encoders.
#include "transforms/encodings.h"

#include <algorithm>
#include <array>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace kp::transforms {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<uint8_t, 256> make_reverse() {
    std::array<uint8_t, 256> r{};
    for (auto& v : r)
        v = 63; // outside the alphabet
    for (uint8_t i = 0; i < 64; ++i)
        r[static_cast<uint8_t>(kAlphabet[i])] = i;
    return r;
}
constexpr auto kReverse = make_reverse();

// The two characters of every 12-bit value, as two UTF-16 units in memory
// order (little-endian host).
constexpr std::array<uint32_t, 4096> make_pairs() {
    std::array<uint32_t, 4096> t{};
    for (uint32_t v = 0; v < 4096; ++v)
        t[v] = static_cast<uint32_t>(kAlphabet[v >> 6]) | static_cast<uint32_t>(kAlphabet[v & 63]) << 16;
    return t;
}
constexpr auto kPairs = make_pairs();

inline bool is_line_break(char16_t c) {
    return c == u'\r' || c == u'\n';
}

// ---- Base64 kernels.  The portable code runs everywhere; on x86 the SSSE3
// and AVX2 code (chosen at run time by what the processor has) gives the
// same characters and bytes, 16 or 32 at a time.

// Writes the 4 characters of each of `groups` complete groups.
void encode_groups_portable(const uint8_t* p, std::size_t groups, char16_t* out) {
    // Two characters at a time from 12 bits.
    for (std::size_t g = 0; g < groups; ++g, p += 3, out += 4) {
        const uint32_t v = static_cast<uint32_t>(p[0]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[2];
        std::memcpy(out, &kPairs[v >> 12], 4);
        std::memcpy(out + 2, &kPairs[v & 0xFFF], 4);
    }
}

#if defined(__x86_64__) || defined(__i386__)
#define KP_BASE64_X86 1

// 12 bytes (of 16 loaded) to the 16 alphabet values, one a byte.
__attribute__((target("ssse3"))) inline __m128i enc_values(__m128i in) {
    in = _mm_shuffle_epi8(in, _mm_set_epi8(10, 11, 9, 10, 7, 8, 6, 7, 4, 5, 3, 4, 1, 2, 0, 1));
    const __m128i t0 = _mm_and_si128(in, _mm_set1_epi32(0x0fc0fc00));
    const __m128i t1 = _mm_mulhi_epu16(t0, _mm_set1_epi32(0x04000040));
    const __m128i t2 = _mm_and_si128(in, _mm_set1_epi32(0x003f03f0));
    const __m128i t3 = _mm_mullo_epi16(t2, _mm_set1_epi32(0x01000010));
    return _mm_or_si128(t1, t3);
}
// Alphabet values to their characters: the offset of each value's range.
__attribute__((target("ssse3"))) inline __m128i enc_chars(__m128i v) {
    __m128i r = _mm_subs_epu8(v, _mm_set1_epi8(51));
    const __m128i less = _mm_cmpgt_epi8(_mm_set1_epi8(26), v);
    r = _mm_or_si128(r, _mm_and_si128(less, _mm_set1_epi8(13)));
    const __m128i shift =
        _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                      '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    return _mm_add_epi8(_mm_shuffle_epi8(shift, r), v);
}
__attribute__((target("ssse3"))) inline void store_units(char16_t* out, __m128i chars) {
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(chars, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(chars, zero));
}

// Groups of four while 16 bytes can be read before `end`; the groups done.
__attribute__((target("ssse3"))) std::size_t encode_groups_ssse3(const uint8_t* p, const uint8_t* end,
                                                                 std::size_t groups, char16_t* out) {
    std::size_t g = 0;
    for (; g + 4 <= groups && end - p >= 16; g += 4, p += 12, out += 16)
        store_units(out, enc_chars(enc_values(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)))));
    return g;
}

__attribute__((target("avx2"))) std::size_t encode_groups_avx2(const uint8_t* p, const uint8_t* end,
                                                               std::size_t groups, char16_t* out) {
    std::size_t g = 0;
    const __m256i split = _mm256_set_epi8(10, 11, 9, 10, 7, 8, 6, 7, 4, 5, 3, 4, 1, 2, 0, 1, 10, 11, 9, 10, 7,
                                          8, 6, 7, 4, 5, 3, 4, 1, 2, 0, 1);
    const __m256i shift = _mm256_setr_epi8(
        'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
        '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0, 'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
        '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    for (; g + 8 <= groups && end - p >= 28; g += 8, p += 24, out += 32) {
        const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 12));
        __m256i in = _mm256_shuffle_epi8(_mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1), split);
        const __m256i t1 = _mm256_mulhi_epu16(_mm256_and_si256(in, _mm256_set1_epi32(0x0fc0fc00)),
                                              _mm256_set1_epi32(0x04000040));
        const __m256i t3 = _mm256_mullo_epi16(_mm256_and_si256(in, _mm256_set1_epi32(0x003f03f0)),
                                              _mm256_set1_epi32(0x01000010));
        const __m256i v = _mm256_or_si256(t1, t3);
        __m256i r = _mm256_subs_epu8(v, _mm256_set1_epi8(51));
        r = _mm256_or_si256(
            r, _mm256_and_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(26), v), _mm256_set1_epi8(13)));
        const __m256i chars = _mm256_add_epi8(_mm256_shuffle_epi8(shift, r), v);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out),
                            _mm256_cvtepu8_epi16(_mm256_castsi256_si128(chars)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 16),
                            _mm256_cvtepu8_epi16(_mm256_extracti128_si256(chars, 1)));
    }
    if (g < groups) g += encode_groups_ssse3(p, end, groups - g, out);
    return g;
}

// 16 characters, already narrowed to bytes (anything above 255 reads as
// 255), to their values: outside the alphabet 63, and "=" 0 when `padded`.
__attribute__((target("ssse3"))) inline __m128i dec_values(__m128i c, bool padded) {
    const __m128i lut_lo = _mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13,
                                         0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
    const __m128i lut_hi = _mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10,
                                         0x10, 0x10, 0x10, 0x10, 0x10);
    const __m128i lut_roll = _mm_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
    const __m128i mask = _mm_set1_epi8(0x2f);
    const __m128i hi_n = _mm_and_si128(_mm_srli_epi32(c, 4), mask);
    const __m128i lo_n = _mm_and_si128(c, mask);
    const __m128i good = _mm_cmpeq_epi8(
        _mm_and_si128(_mm_shuffle_epi8(lut_lo, lo_n), _mm_shuffle_epi8(lut_hi, hi_n)), _mm_setzero_si128());
    const __m128i roll = _mm_shuffle_epi8(lut_roll, _mm_add_epi8(_mm_cmpeq_epi8(c, mask), hi_n));
    // `good` is set where the character is in the alphabet.
    __m128i v =
        _mm_or_si128(_mm_and_si128(good, _mm_add_epi8(c, roll)), _mm_andnot_si128(good, _mm_set1_epi8(63)));
    if (padded) v = _mm_andnot_si128(_mm_cmpeq_epi8(c, _mm_set1_epi8('=')), v);
    return v;
}
// 16 values to 12 bytes (the last four lanes zero).
__attribute__((target("ssse3"))) inline __m128i dec_pack(__m128i v) {
    const __m128i ab = _mm_maddubs_epi16(v, _mm_set1_epi32(0x01400140));
    const __m128i abc = _mm_madd_epi16(ab, _mm_set1_epi32(0x00011000));
    return _mm_shuffle_epi8(abc, _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
}
__attribute__((target("ssse3"))) inline bool narrow16(const char16_t* t, __m128i& c) {
    c = _mm_packus_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(t)),
                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(t + 8)));
    const __m128i breaks =
        _mm_or_si128(_mm_cmpeq_epi8(c, _mm_set1_epi8('\r')), _mm_cmpeq_epi8(c, _mm_set1_epi8('\n')));
    return _mm_movemask_epi8(breaks) == 0;
}

// Decodes whole blocks of 16 (32) characters without a line break among
// the first `chars` of `t`, writing exactly 12 (24) bytes a block; the
// characters and bytes done.
__attribute__((target("ssse3"))) void decode_run_ssse3(const char16_t* t, std::size_t chars, uint8_t* out,
                                                       bool padded, std::size_t& used, std::size_t& made) {
    std::size_t u = 0, m = 0;
    __m128i c;
    while (chars - u >= 16 && narrow16(t + u, c)) {
        const __m128i bytes = dec_pack(dec_values(c, padded));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + m), bytes);
        const uint32_t last = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(bytes, 8)));
        std::memcpy(out + m + 8, &last, 4);
        u += 16;
        m += 12;
    }
    used = u;
    made = m;
}

__attribute__((target("avx2"))) void decode_run_avx2(const char16_t* t, std::size_t chars, uint8_t* out,
                                                     bool padded, std::size_t& used, std::size_t& made) {
    const __m256i lut_lo = _mm256_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13,
                                            0x1A, 0x1B, 0x1B, 0x1B, 0x1A, 0x15, 0x11, 0x11, 0x11, 0x11, 0x11,
                                            0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
    const __m256i lut_hi = _mm256_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10,
                                            0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x01, 0x02, 0x04, 0x08,
                                            0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
    const __m256i lut_roll = _mm256_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16,
                                              19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
    const __m256i mask = _mm256_set1_epi8(0x2f);
    const __m256i cr = _mm256_set1_epi8('\r'), lf = _mm256_set1_epi8('\n'), eq = _mm256_set1_epi8('=');
    const __m256i sixty_three = _mm256_set1_epi8(63);
    const __m256i pack = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1, 2, 1, 0, 6,
                                          5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    const __m256i order = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7);
    std::size_t u = 0, m = 0;
    while (chars - u >= 32) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t + u));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(t + u + 16));
        const __m256i c = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
        const uint32_t breaks = static_cast<uint32_t>(
            _mm256_movemask_epi8(_mm256_or_si256(_mm256_cmpeq_epi8(c, cr), _mm256_cmpeq_epi8(c, lf))));
        if (breaks != 0) {
            // Line breaks between groups are skipped here; a block of 16
            // before them is done with the 16-character code.
            const unsigned first = static_cast<unsigned>(__builtin_ctz(breaks));
            if (first == 0) {
                while (u < chars && is_line_break(t[u]))
                    ++u;
                continue;
            }
            if (first < 16) break; // a break inside a group: the caller's code
            const __m128i half = dec_pack(dec_values(_mm256_castsi256_si128(c), padded));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out + m), half);
            const uint32_t rest = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(half, 8)));
            std::memcpy(out + m + 8, &rest, 4);
            u += 16;
            m += 12;
            continue;
        }
        const __m256i hi_n = _mm256_and_si256(_mm256_srli_epi32(c, 4), mask);
        const __m256i lo_n = _mm256_and_si256(c, mask);
        const __m256i good = _mm256_cmpeq_epi8(
            _mm256_and_si256(_mm256_shuffle_epi8(lut_lo, lo_n), _mm256_shuffle_epi8(lut_hi, hi_n)),
            _mm256_setzero_si256());
        const __m256i roll = _mm256_shuffle_epi8(lut_roll, _mm256_add_epi8(_mm256_cmpeq_epi8(c, mask), hi_n));
        __m256i v = _mm256_blendv_epi8(sixty_three, _mm256_add_epi8(c, roll), good);
        if (padded) v = _mm256_andnot_si256(_mm256_cmpeq_epi8(c, eq), v);
        const __m256i ab = _mm256_maddubs_epi16(v, _mm256_set1_epi32(0x01400140));
        const __m256i abc = _mm256_madd_epi16(ab, _mm256_set1_epi32(0x00011000));
        const __m256i bytes = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(abc, pack), order);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + m), _mm256_castsi256_si128(bytes));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + m + 16), _mm256_extracti128_si256(bytes, 1));
        u += 32;
        m += 24;
    }
    std::size_t u2 = 0, m2 = 0;
    decode_run_ssse3(t + u, chars - u, out + m, padded, u2, m2);
    used = u + u2;
    made = m + m2;
}

// The characters of `text` that are not line breaks.  Each 16-bit lane
// counts the breaks it sees (minus one a break), summed every 4096 blocks.
__attribute__((target("ssse3"))) std::size_t count_chars_ssse3(std::u16string_view text) {
    std::size_t i = 0, breaks = 0;
    const __m128i cr = _mm_set1_epi16('\r'), lf = _mm_set1_epi16('\n');
    while (i + 8 <= text.size()) {
        __m128i acc = _mm_setzero_si128();
        for (int k = 0; k < 4096 && i + 8 <= text.size(); ++k, i += 8) {
            const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + i));
            acc = _mm_add_epi16(acc, _mm_or_si128(_mm_cmpeq_epi16(c, cr), _mm_cmpeq_epi16(c, lf)));
        }
        // Lanes hold minus their counts (at most 4096 each).
        acc = _mm_sub_epi16(_mm_setzero_si128(), acc);
        acc = _mm_madd_epi16(acc, _mm_set1_epi16(1));
        alignas(16) uint32_t sums[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(sums), acc);
        breaks += std::size_t{sums[0]} + sums[1] + sums[2] + sums[3];
    }
    for (; i < text.size(); ++i)
        breaks += is_line_break(text[i]);
    return text.size() - breaks;
}
#endif

} // namespace

Base64Simd base64_simd_available() {
#ifdef KP_BASE64_X86
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2")) return Base64Simd::Avx2;
    if (__builtin_cpu_supports("ssse3")) return Base64Simd::Ssse3;
#endif
    return Base64Simd::None;
}

namespace {

// Encoders over the Base64 alphabet: 3 bytes give 4 characters, a last
// group of 1 or 2 bytes gives 2 or 3, and a CR LF follows every
// `groups_per_line`-th complete group.
class Base64Family final : public TextEncoder {
  public:
    Base64Family(bool padded, Base64Simd simd) : padded_(padded), simd_(simd) {}
    char16_t to_char(uint8_t v) const override { return static_cast<char16_t>(kAlphabet[v & 63]); }
    uint8_t from_char(char16_t c) const override {
        if (padded_ && c == u'=') return 0;
        return c < 256 ? kReverse[c] : 63;
    }
    std::size_t groups_per_line() const override { return 20; }

    std::size_t encode(std::span<const uint8_t> in, std::size_t per_line, char16_t* out) const override {
        const std::size_t full = in.size() / 3, rest = in.size() % 3;
        std::size_t count = full * 4 + (per_line ? full / per_line * 2 : 0);
        if (rest) count += padded_ ? 4 : rest + 1;
        if (!out) return count;
        const uint8_t* p = in.data();
        const uint8_t* const end = p + in.size();
        // A line at a time.
        for (std::size_t g = 0; g < full;) {
            const std::size_t line_end = per_line ? std::min(full, (g / per_line + 1) * per_line) : full;
            const std::size_t n = line_end - g;
            std::size_t done = 0;
#ifdef KP_BASE64_X86
            if (simd_ == Base64Simd::Avx2)
                done = encode_groups_avx2(p, end, n, out);
            else if (simd_ == Base64Simd::Ssse3)
                done = encode_groups_ssse3(p, end, n, out);
#endif
            encode_groups_portable(p + done * 3, n - done, out + done * 4);
            p += n * 3;
            out += n * 4;
            g = line_end;
            if (per_line && g % per_line == 0) {
                *out++ = u'\r';
                *out++ = u'\n';
            }
        }
        (void)end;
        if (rest) {
            const uint8_t b1 = rest > 1 ? p[1] : 0;
            *out++ = to_char(p[0] >> 2);
            *out++ = to_char(static_cast<uint8_t>((p[0] << 4) | (b1 >> 4)));
            if (rest > 1) *out++ = to_char(static_cast<uint8_t>(b1 << 2));
            if (padded_) {
                if (rest == 1) *out++ = u'=';
                *out++ = u'=';
            }
        }
        return count;
    }

    std::size_t decode(std::u16string_view text, uint8_t* out) const override {
        const std::size_t size = text.size();
        // The last character that counts, and the padding of the last group.
        std::size_t last = size;
        while (last > 0 && is_line_break(text[last - 1]))
            --last;
        std::size_t pad = 0;
        if (padded_) {
            std::size_t seen = 0;
            for (std::size_t j = last; j > 0 && seen < 2; --j) {
                if (is_line_break(text[j - 1])) continue;
                if (text[j - 1] != u'=') break;
                ++pad, ++seen;
            }
        }
        if (!out) {
            std::size_t chars = 0;
#ifdef KP_BASE64_X86
            if (simd_ != Base64Simd::None)
                chars = count_chars_ssse3(text);
            else
#endif
                for (char16_t c : text)
                    if (!is_line_break(c)) ++chars;
            if (chars % 4 != 0 || chars == 0) pad = 0;
            const std::size_t tail = chars % 4;
            return chars / 4 * 3 + (tail >= 2 ? tail - 1 : 0) - pad;
        }
        // Every complete group gives 3 bytes but the last one when the text
        // ends with it: "=" then takes its place (one byte for "==", two
        // for "=").  The count above gives the same total.
        uint8_t v[4];
        std::size_t k = 0, written = 0;
        for (std::size_t i = 0; i < size; ++i) {
#ifdef KP_BASE64_X86
            // Between groups, runs of whole blocks without line breaks go to
            // the vector code, short of the last character that counts.
            if (k == 0 && simd_ != Base64Simd::None && i + 1 < last) {
                std::size_t used = 0, made = 0;
                if (simd_ == Base64Simd::Avx2)
                    decode_run_avx2(text.data() + i, last - 1 - i, out + written, padded_, used, made);
                else
                    decode_run_ssse3(text.data() + i, last - 1 - i, out + written, padded_, used, made);
                i += used;
                written += made;
            }
#endif
            const char16_t c = text[i];
            if (is_line_break(c)) continue;
            v[k++] = from_char(c);
            if (k == 4) {
                const std::size_t keep = i + 1 == last ? 3 - pad : 3;
                const uint8_t bytes[3] = {static_cast<uint8_t>((v[0] << 2) | (v[1] >> 4)),
                                          static_cast<uint8_t>((v[1] << 4) | (v[2] >> 2)),
                                          static_cast<uint8_t>((v[2] << 6) | v[3])};
                for (std::size_t b = 0; b < keep; ++b)
                    out[written++] = bytes[b];
                k = 0;
            }
        }
        if (k >= 2) out[written++] = static_cast<uint8_t>((v[0] << 2) | (v[1] >> 4));
        if (k >= 3) out[written++] = static_cast<uint8_t>((v[1] << 4) | (v[2] >> 2));
        return written;
    }

  private:
    bool padded_;
    [[maybe_unused]] Base64Simd simd_; // unused where only the portable code exists
};

// The uu framing of this component: "begin 0666 uu\r\n", lines of 45 groups,
// a "_" length character only on a line that starts with more than 45 bytes
// left, characters = value + 32, and "\r\nend\r\n" written in full.
class UuEncoder final : public TextEncoder {
  public:
    static constexpr std::u16string_view kHeader = u"begin 0666 uu\r\n";
    static constexpr std::u16string_view kTrailer = u"\r\nend\r\n";

    char16_t to_char(uint8_t v) const override { return static_cast<char16_t>((v & 63) + 32); }
    uint8_t from_char(char16_t c) const override { return static_cast<uint8_t>((c - 32) & 0xFF); }
    std::size_t groups_per_line() const override { return 45; }

    std::size_t encode(std::span<const uint8_t> in, std::size_t per_line, char16_t* out) const override {
        if (per_line == 0) per_line = 45;
        const std::size_t n = in.size();
        const std::size_t full = n / 3, rest = n % 3;
        const std::size_t line_bytes = per_line * 3;
        std::size_t count =
            kHeader.size() + kTrailer.size() + full * 4 + (rest ? rest + 1 : 0) + full / per_line * 2;
        // Lines start at every multiple of line_bytes below n.
        for (std::size_t start = 0; start < n; start += line_bytes)
            if (n - start > 45) ++count;
        if (!out) return count;
        out = std::copy(kHeader.begin(), kHeader.end(), out);
        const uint8_t* p = in.data();
        for (std::size_t g = 0; g < full; ++g, p += 3) {
            if (g % per_line == 0 && n - g * 3 > 45) *out++ = u'_';
            *out++ = to_char(p[0] >> 2);
            *out++ = to_char(static_cast<uint8_t>((p[0] << 4) | (p[1] >> 4)));
            *out++ = to_char(static_cast<uint8_t>((p[1] << 2) | (p[2] >> 6)));
            *out++ = to_char(p[2]);
            if ((g + 1) % per_line == 0) {
                *out++ = u'\r';
                *out++ = u'\n';
            }
        }
        if (rest) {
            if (full % per_line == 0 && rest > 45) *out++ = u'_'; // never: a tail is shorter
            const uint8_t b1 = rest > 1 ? p[1] : 0;
            *out++ = to_char(p[0] >> 2);
            *out++ = to_char(static_cast<uint8_t>((p[0] << 4) | (b1 >> 4)));
            if (rest > 1) *out++ = to_char(static_cast<uint8_t>(b1 << 2));
        }
        std::copy(kTrailer.begin(), kTrailer.end(), out);
        return count;
    }

    // No check of the header, no test for the "_" length character: it is
    // decoded as data like any other character.
    std::size_t decode(std::u16string_view text, uint8_t* out) const override {
        if (text.size() < kHeader.size() + kTrailer.size()) return 0;
        const auto body = text.substr(kHeader.size(), text.size() - kHeader.size() - kTrailer.size());
        std::size_t chars = 0;
        for (char16_t c : body)
            if (!is_line_break(c)) ++chars;
        const std::size_t tail = chars % 4;
        const std::size_t count = chars / 4 * 3 + (tail >= 2 ? tail - 1 : 0);
        if (!out) return count;
        uint8_t v[4];
        std::size_t k = 0;
        uint8_t* o = out;
        for (char16_t c : body) {
            if (is_line_break(c)) continue;
            v[k++] = from_char(c);
            if (k == 4) {
                *o++ = static_cast<uint8_t>((v[0] << 2) | (v[1] >> 4));
                *o++ = static_cast<uint8_t>((v[1] << 4) | (v[2] >> 2));
                *o++ = static_cast<uint8_t>((v[2] << 6) | v[3]);
                k = 0;
            }
        }
        if (k >= 2) *o++ = static_cast<uint8_t>((v[0] << 2) | (v[1] >> 4));
        if (k >= 3) *o++ = static_cast<uint8_t>((v[1] << 4) | (v[2] >> 2));
        return static_cast<std::size_t>(o - out);
    }
};

// The escape set of URLEncode, by low byte.
constexpr std::array<bool, 256> make_escape_set() {
    std::array<bool, 256> e{};
    for (int b = 0; b <= 0x20; ++b)
        e[b] = true;
    for (int b : {0x22, 0x25, 0x2B, 0x3C, 0x3E, 0x5B, 0x5C, 0x5D, 0x5E, 0x60})
        e[b] = true;
    for (int b = 0x7B; b <= 0xFF; ++b)
        e[b] = true;
    return e;
}
constexpr auto kEscapeSet = make_escape_set();

} // namespace

std::u16string TextEncoder::encode(std::span<const uint8_t> in) const {
    std::u16string s(encode(in, groups_per_line(), nullptr), u'\0');
    encode(in, groups_per_line(), s.data());
    return s;
}

std::vector<uint8_t> TextEncoder::decode(std::u16string_view text) const {
    std::vector<uint8_t> v(decode(text, nullptr));
    v.resize(decode(text, v.data()));
    return v;
}

std::unique_ptr<TextEncoder> make_encoder(int32_t number) {
    return make_encoder(number, base64_simd_available());
}

std::unique_ptr<TextEncoder> make_encoder(int32_t number, Base64Simd simd) {
    switch (number) {
    case kEncodeQrt:
        return std::make_unique<Base64Family>(false, simd);
    case kEncodeBase64:
        return std::make_unique<Base64Family>(true, simd);
    case kEncodeUu:
        return std::make_unique<UuEncoder>();
    default:
        return nullptr;
    }
}

std::u16string url_encode(std::u16string_view text) {
    static constexpr char16_t kHex[] = u"0123456789ABCDEF";
    std::size_t n = 0;
    for (char16_t c : text)
        n += kEscapeSet[c & 0xFF] ? 3 : 1;
    std::u16string out;
    out.reserve(n);
    for (char16_t c : text) {
        const uint8_t b = static_cast<uint8_t>(c & 0xFF);
        if (kEscapeSet[b]) {
            out.push_back(u'%');
            out.push_back(kHex[b >> 4]);
            out.push_back(kHex[b & 15]);
        } else {
            out.push_back(c);
        }
    }
    return out;
}

// Within an escape, "0".."9" count 0..9 and "A".."Z" 10..35; of the lower
// case letters only "a" counts (10), the others and any other character add
// nothing.  Further "%" characters inside the escape are skipped.
std::u16string url_decode(std::u16string_view text) {
    static constexpr std::u16string_view kEuro = u"%26%238364%3B";
    // A zero unit ends the text.
    const std::size_t end = text.find(u'\0');
    if (end != std::u16string_view::npos) text = text.substr(0, end);
    std::u16string out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        const char16_t c = text[i];
        if (c != u'%') {
            out.push_back(c == u'+' ? u' ' : c);
            ++i;
            continue;
        }
        if (i + 1 < text.size() && text[i + 1] == u'2' && text.substr(i, kEuro.size()) == kEuro) {
            out.push_back(u'\u20AC');
            i += kEuro.size();
            continue;
        }
        if (text.size() - i - 1 < 2) break; // fewer than two characters follow: the rest is dropped
        ++i;
        uint32_t value = 0;
        int digits = 0;
        while (digits < 2) {
            if (i >= text.size()) return out; // the text ended inside the escape
            const char16_t d = text[i++];
            if (d == u'%') continue;
            value = (value << 4) & 0xFFFF;
            if (d >= u'0' && d <= u'9')
                value += d - u'0';
            else if (d >= u'A' && d <= u'Z')
                value += d - u'A' + 10;
            else if (d == u'a')
                value += 10;
            value &= 0xFFFF;
            ++digits;
        }
        out.push_back(static_cast<char16_t>(value));
    }
    return out;
}

} // namespace kp::transforms
