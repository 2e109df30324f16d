// checksum.cpp - CRC-16 and CRC-32.
#include "transforms/checksum.h"

#include <array>
#include <cstring>

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

} // namespace

uint32_t crc32(std::span<const uint8_t> data, uint32_t previous) {
    uint32_t c = ~previous;
    const uint8_t* p = data.data();
    std::size_t n = data.size();
    const auto& t = kCrc32;
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
