#include <gtest/gtest.h>

#include <cstring>

#include "test_util.h"
#include "transforms/checksum.h"

namespace kp::transforms {
namespace {

std::span<const uint8_t> ascii(const char* s) {
    return {reinterpret_cast<const uint8_t*>(s), std::strlen(s)};
}

// Bit-at-a-time CRC-32, independent of the sliced tables.
uint32_t crc32_bitwise(std::span<const uint8_t> d) {
    uint32_t c = 0xFFFFFFFFu;
    for (uint8_t b : d) {
        c ^= b;
        for (int k = 0; k < 8; ++k)
            c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
    }
    return ~c;
}

TEST(Crc32, KnownAnswersEveryAlignmentAndContinuation) {
    EXPECT_EQ(crc32(ascii("123456789")), 0xCBF43926u);
    EXPECT_EQ(crc32(ascii("The quick brown fox jumps over the lazy dog")), 0x414FA339u);
    EXPECT_EQ(crc32({}), 0u);
    EXPECT_EQ(crc32({}, 0x12345678u), 0x12345678u);
    const auto data = test::random_bytes(4133, 7);
    for (std::size_t n :
         {1u, 15u, 16u, 17u, 31u, 33u, 63u, 64u, 65u, 79u, 80u, 127u, 128u, 129u, 255u, 1000u, 4133u}) {
        const auto s = std::span<const uint8_t>(data).subspan(0, n);
        ASSERT_EQ(crc32(s), crc32_bitwise(s)) << n;
        for (std::size_t cut : {std::size_t{0}, n / 3, n - 1, n}) {
            const uint32_t first = crc32(s.subspan(0, cut));
            EXPECT_EQ(crc32(s.subspan(cut), first), crc32(s)) << n << " cut " << cut;
        }
    }
}

TEST(Crc16, LookupBeforeByteFormOverStringAndTerminator) {
    // 0xDC05 for "123456789": not the usual CRC-16/XMODEM (0x31C3).
    const std::pair<const char16_t*, uint16_t> cases[] = {
        {u"", 0}, {u"A", 0x3EFD}, {u"Hello", 0x50DD}, {u"123456789", 0xDC05}};
    for (const auto& [text, crc] : cases)
        EXPECT_EQ(crc16(text), crc) << crc;
    EXPECT_EQ(crc16(u"\u0141"), crc16(u"A")); // only the low byte of a unit counts
    EXPECT_NE(crc16(u"AB"), crc16(u"BA"));
}

} // namespace
} // namespace kp::transforms
