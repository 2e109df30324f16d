// The URL, Base64 and uu encodings, the checksums and the phonetic code.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "test_util.h"
#include "transforms/checksum.h"
#include "transforms/encodings.h"
#include "transforms/phonetic.h"

namespace kp::transforms {
namespace {

TEST(UrlEncode, EscapeSetJudgedByLowByteAndDecodeQuirks) {
    // clang-format off
    const std::pair<std::u16string, std::u16string> encode[] = {
        {u"a b", u"a%20b"}, {u"100%", u"100%25"}, {u"+", u"%2B"}, {u"", u""},
        {u"\u20AC", u"%AC"},       // the high byte is dropped
        {u"\u0141", u"\u0141"},    // low byte 0x41 is a letter: copied whole
        {u"az09@!#$&'()*,-./:;=?_", u"az09@!#$&'()*,-./:;=?_"},
        {u"\"<>[\\]^`{}~\x7F\xE9", u"%22%3C%3E%5B%5C%5D%5E%60%7B%7D%7E%7F%E9"}};
    const std::pair<std::u16string, std::u16string> decode[] = {
        {u"a+b%41", u"a bA"}, {u"%26%238364%3B", u"\u20AC"}, {u"x%26%238364%3By", u"x\u20ACy"},
        {u"%26", u"&"},
        {u"%e9", std::u16string(1, u'\x09')},          // lower-case e counts 0
        {u"%a0", std::u16string(1, u'\xA0')},          // but "a" counts 10
        {u"ab%4", u"ab"},                              // stops before a short escape
        {u"%%41", u"A"},                               // "%" inside an escape is skipped
        {u"%G0", std::u16string(1, char16_t(0x100))},  // G counts 16
        {u"", u""}, {std::u16string(u"ab\0cd", 5), u"ab"}, {url_encode(u"a b+c%d<e>"), u"a b+c%d<e>"}};
    // clang-format on
    for (const auto& [in, out] : encode)
        EXPECT_EQ(url_encode(in), out);
    for (const auto& [in, out] : decode)
        EXPECT_EQ(url_decode(in), out);
}

TEST(Base64Family, SingleBytePaddingAndLineBreaks) {
    const std::tuple<int, std::vector<uint8_t>, std::u16string> cases[] = {
        {kEncodeQrt, {0}, u"AA"},
        {kEncodeBase64, {0}, u"AA=="},
        {kEncodeQrt, {0xFB, 0xFF}, u"+/8"},
        {kEncodeBase64, {0xFB, 0xFF}, u"+/8="}};
    for (const auto& [number, bytes, text] : cases) {
        EXPECT_EQ(make_encoder(number)->encode(bytes), text);
        EXPECT_EQ(make_encoder(number)->decode(text), bytes);
    }
    EXPECT_TRUE(make_encoder(0) == nullptr && make_encoder(4) == nullptr);
    for (int number : {kEncodeQrt, kEncodeBase64}) {
        auto enc = make_encoder(number);
        const auto sixty = enc->encode(test::random_bytes(60, 2));
        ASSERT_EQ(sixty.size(), 82u);
        EXPECT_EQ(sixty.substr(80), u"\r\n");
        const auto more = enc->encode(test::random_bytes(121, 2));
        EXPECT_EQ(more.substr(80, 2) + more.substr(162, 2), u"\r\n\r\n");
        EXPECT_EQ(more.size(), 164u + (number == kEncodeQrt ? 2 : 4));
    }
}

// The decoding rule plainly: skip line breaks, drop trailing "=" of whole groups, write the bytes.
std::vector<uint8_t> reference_decode(std::u16string_view text, bool padded) {
    constexpr std::u16string_view alphabet =
        u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+";
    auto value = [&](char16_t c) -> uint32_t {
        return alphabet.find(c) != alphabet.npos ? alphabet.find(c) : padded && c == u'=' ? 0 : 63;
    };
    std::u16string chars;
    for (char16_t c : text)
        if (c != u'\r' && c != u'\n') chars.push_back(c);
    std::size_t pad = 0;
    if (padded && !chars.empty() && chars.size() % 4 == 0)
        while (pad < 2 && chars[chars.size() - 1 - pad] == u'=')
            ++pad;
    std::vector<uint8_t> out;
    uint32_t bits = 0;
    for (std::size_t i = 0; i < chars.size(); ++i) {
        bits = bits << 6 | value(chars[i]);
        if (i % 4 == 1) out.push_back(static_cast<uint8_t>(bits >> 4));
        if (i % 4 == 2) out.push_back(static_cast<uint8_t>(bits >> 2));
        if (i % 4 == 3) out.push_back(static_cast<uint8_t>(bits));
    }
    out.erase(out.end() - static_cast<std::ptrdiff_t>(pad), out.end());
    return out;
}

// Each vector level against the portable code and the rule: lengths, every character in every
// lane, line breaks and "=" at every position.
TEST(Base64Family, VectorCodeAgreesWithPortable) {
    std::vector<Base64Simd> levels = {Base64Simd::None};
    if (base64_simd_available() >= Base64Simd::Ssse3) levels.push_back(Base64Simd::Ssse3);
    if (base64_simd_available() >= Base64Simd::Avx2) levels.push_back(Base64Simd::Avx2);
    for (int number : {kEncodeQrt, kEncodeBase64}) {
        const auto plain = make_encoder(number, Base64Simd::None);
        for (Base64Simd level : levels) {
            const auto fast = make_encoder(number, level);
            auto same_decode = [&](const std::u16string& text) {
                const auto expected = reference_decode(text, number == kEncodeBase64);
                ASSERT_EQ(expected, plain->decode(text)) << number;
                ASSERT_EQ(expected, fast->decode(text)) << number << " " << int(level);
                ASSERT_EQ(plain->decode(text, nullptr), fast->decode(text, nullptr));
            };
            for (std::size_t n = 0; n < 400; ++n) {
                const auto data = test::random_bytes(n, static_cast<uint32_t>(n));
                const auto text = plain->encode(data);
                ASSERT_EQ(text, fast->encode(data)) << number << " " << n;
                same_decode(text);
            }
            const auto big = test::random_bytes(100003, 5);
            ASSERT_EQ(plain->encode(big), fast->encode(big));
            // Each character in each lane of a block.
            for (uint32_t c = 0; c < 0x10000; ++c) {
                std::u16string text(64, u'Q');
                text[c % 64] = static_cast<char16_t>(c);
                same_decode(text);
            }
            // Line breaks and padding at every position of a text.
            const auto base = plain->encode(test::random_bytes(200, 9));
            for (std::size_t at = 0; at <= base.size(); ++at)
                for (std::u16string_view insert : {u"\r\n", u"\n", u"\r", u"=", u"==", u"\u0141"}) {
                    std::u16string text = base;
                    text.insert(at, insert);
                    same_decode(text);
                    same_decode(text.substr(0, at + 1));
                }
        }
    }
}

TEST(UuEncode, FramingLengthCharacterAndArbitraryText) {
    auto uu = make_encoder(kEncodeUu);
    EXPECT_EQ(uu->encode(std::vector<uint8_t>{}), u"begin 0666 uu\r\n\r\nend\r\n");
    EXPECT_EQ(uu->encode(std::vector<uint8_t>{0}), u"begin 0666 uu\r\n  \r\nend\r\n");
    const auto text45 = uu->encode(std::vector<uint8_t>(45, 0x41)); // no value 63 in it
    EXPECT_EQ(text45.find(u'_'), std::u16string::npos);
    EXPECT_EQ(text45.size(), 15u + 60 + 7);
    const auto text136 = uu->encode(std::vector<uint8_t>(136, 0x41));
    EXPECT_EQ(text136[15], u'_');
    EXPECT_EQ(text136.substr(16 + 180, 2), u"\r\n"); // after the 45th group
    EXPECT_EQ(text136.substr(198, 2), u"00");        // one-byte tail, no "_" (1 byte left)
    EXPECT_EQ(text136.substr(200), u"\r\nend\r\n");
    for (std::size_t n : {0u, 1u, 2u, 3u, 44u, 45u, 46u}) { // 45 bytes at most read back
        const auto data = test::random_bytes(n, 8);
        EXPECT_EQ(uu->decode(uu->encode(data)) == data, n <= 45) << n;
    }
    EXPECT_TRUE(uu->decode(u"begin 0666 uu\r\n").empty() && uu->decode(u"").empty());
    const std::u16string text = test::text_of(test::random_bytes(5000, 12));
    for (int number : {kEncodeQrt, kEncodeBase64, kEncodeUu}) {
        auto enc = make_encoder(number);
        EXPECT_EQ(enc->decode(text).size(), enc->decode(text, nullptr));
    }
}

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
}

TEST(Phonetic, WordsSpacesAndEndRules) {
    // clang-format off
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"Dupont", u"DUPO"}, {u"Dupond", u"DUPO"}, {u"Martin", u"MARTIN"}, {u"Chapeau", u"KAPO"},
        {u"Philippe", u"FILIP"}, {u"Pierre", u"PIER"}, {u"Renaud", u"RENO"}, {u"Reno", u"RENO"},
        {u"Gauthier", u"GOTI"}, {u"", u""}, {u"    ", u""}, {u"  Martin  ", u"MARTIN"},
        {u"Jean-Pierre", u"JEA PIER"}, {u"Jean Pierre", u"JEA PIER"}, {u"Loi", u"LOA"}, {u"Maire", u"MER"},
        {u"chat", u"KA"},        // CH becomes K, never CH or SH
        {u"Chose", u"KOS"},      // final E goes after the final-S rule ran
        {u"Bordeaux", u"BORDO"}, // final X after U, EAU
        {u"Dumas", u"DUMA"},     // final S
        {u"Quentin", u"KATIN"},  // QU, EN before a consonant
        {u"Lambert", u"LABERT"}, // M before B after a vowel, then AN; T after R stays
        {u"Rollet", u"ROL"},     // final T after a vowel, final E, doubles
        {u"Camp", u"KAP"},       // P after M stays; M to N, then AN to A
        {u"Trop", u"TRO"},       // final P after O
        {u"Nez", u"N"},          // final EZ, then final E
        {u"Maison", u"MEZO"},    // S between vowels, ON at the end, AI
        {u"AHHA", u"AHA"},       // the H pass moves on after a deletion
        {u"R2D2", u"R2D2"}, {u"A11..B", u"A1.B"}};
    // clang-format on
    for (const auto& [in, out] : cases)
        EXPECT_EQ(phonetic(in), out) << std::u16string_view(in).size();
    EXPECT_EQ(phonetic(u"éçàÈ"), phonetic(u"ECAE"));
    EXPECT_EQ(phonetic(u"Cœur"), phonetic(u"CEUR"));
    for (const char16_t* s : {u"Zoé", u"x", u"Hh", u"EUUU", u"AUAU", u"QQQUUU", u"---"})
        EXPECT_LE(phonetic(s).size(), std::u16string_view(s).size()) << std::u16string_view(s).size();
}

} // namespace
} // namespace kp::transforms
