#include <gtest/gtest.h>

#include "test_util.h"
#include "transforms/encodings.h"

namespace kp::transforms {
namespace {

TEST(UrlEncode, EscapeSetJudgedByLowByte) {
    EXPECT_EQ(url_encode(u"a b"), u"a%20b");
    EXPECT_EQ(url_encode(u"100%"), u"100%25");
    EXPECT_EQ(url_encode(u"+"), u"%2B");
    EXPECT_EQ(url_encode(u""), u"");
    EXPECT_EQ(url_encode(u"\u20AC"), u"%AC");    // the high byte is dropped
    EXPECT_EQ(url_encode(u"\u0141"), u"\u0141"); // low byte 0x41 is a letter: copied whole
    EXPECT_EQ(url_encode(u"az09@!#$&'()*,-./:;=?_"), u"az09@!#$&'()*,-./:;=?_");
    EXPECT_EQ(url_encode(u"\"<>[\\]^`{}~\x7F\xE9"), u"%22%3C%3E%5B%5C%5D%5E%60%7B%7D%7E%7F%E9");
}

TEST(UrlDecode, EscapesPlusEuroAndQuirks) {
    EXPECT_EQ(url_decode(u"a+b%41"), u"a bA");
    EXPECT_EQ(url_decode(u"%e9"), std::u16string(1, u'\x09')); // lower-case e counts 0
    EXPECT_EQ(url_decode(u"%a0"), std::u16string(1, u'\xA0')); // but "a" counts 10
    EXPECT_EQ(url_decode(u"ab%4"), u"ab");                     // stops before a short escape
    EXPECT_EQ(url_decode(u"%26%238364%3B"), u"\u20AC");
    EXPECT_EQ(url_decode(u"x%26%238364%3By"), u"x\u20ACy");
    EXPECT_EQ(url_decode(u"%26"), u"&");
    EXPECT_EQ(url_decode(u"%%41"), u"A");                              // "%" inside an escape is skipped
    EXPECT_EQ(url_decode(u"%G0"), std::u16string(1, char16_t(0x100))); // G counts 16
    EXPECT_EQ(url_decode(u""), u"");
    EXPECT_EQ(url_decode(std::u16string(u"ab\0cd", 5)), u"ab");
    EXPECT_EQ(url_decode(url_encode(u"a b+c%d<e>")), u"a b+c%d<e>");
}

TEST(Base64Family, SingleByteAndPadding) {
    const std::vector<uint8_t> zero = {0};
    EXPECT_EQ(make_encoder(kEncodeQrt)->encode(zero), u"AA");
    EXPECT_EQ(make_encoder(kEncodeBase64)->encode(zero), u"AA==");
    const std::vector<uint8_t> two = {0xFB, 0xFF};
    EXPECT_EQ(make_encoder(kEncodeQrt)->encode(two), u"+/8");
    EXPECT_EQ(make_encoder(kEncodeBase64)->encode(two), u"+/8=");
    EXPECT_EQ(make_encoder(kEncodeBase64)->decode(u"AA=="), zero);
    EXPECT_EQ(make_encoder(kEncodeQrt)->decode(u"AA"), zero);
    EXPECT_EQ(make_encoder(0), nullptr);
    EXPECT_EQ(make_encoder(4), nullptr);
}

TEST(Base64Family, LineBreakAfterEveryTwentiethGroup) {
    for (int number : {kEncodeQrt, kEncodeBase64}) {
        auto enc = make_encoder(number);
        const auto sixty = enc->encode(test::random_bytes(60, 2));
        ASSERT_EQ(sixty.size(), 82u);
        EXPECT_EQ(sixty.substr(80), u"\r\n");
        const auto more = enc->encode(test::random_bytes(121, 2));
        EXPECT_EQ(more.substr(80, 2), u"\r\n");
        EXPECT_EQ(more.substr(162, 2), u"\r\n");
        EXPECT_EQ(more.size(), 164u + (number == kEncodeQrt ? 2 : 4));
    }
}

TEST(Base64Family, ForeignCharactersReadAs63) {
    // "*" is outside the alphabet: reads as "/" (63).
    EXPECT_EQ(make_encoder(kEncodeQrt)->decode(u"****"), make_encoder(kEncodeQrt)->decode(u"////"));
    EXPECT_EQ(make_encoder(kEncodeQrt)->decode(u"AB\r\nCD"), make_encoder(kEncodeQrt)->decode(u"ABCD"));
    EXPECT_TRUE(make_encoder(kEncodeBase64)->decode(u"A").empty());
}

TEST(UuEncode, FramingOfShortAndLongTexts) {
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
}

TEST(UuEncode, LengthCharacterIsDecodedAsData) {
    auto uu = make_encoder(kEncodeUu);
    for (std::size_t n : {0u, 1u, 2u, 3u, 44u, 45u}) {
        const auto data = test::random_bytes(n, 8);
        EXPECT_EQ(uu->decode(uu->encode(data)), data) << n;
    }
    const auto data = test::random_bytes(46, 8);
    EXPECT_NE(uu->decode(uu->encode(data)), data);
    EXPECT_TRUE(uu->decode(u"begin 0666 uu\r\n").empty());
    EXPECT_TRUE(uu->decode(u"").empty());
}

TEST(Encoders, RoundTripAllSizes) {
    for (int number : {kEncodeQrt, kEncodeBase64}) {
        auto enc = make_encoder(number);
        for (std::size_t n : test::round_trip_sizes()) {
            const auto data = test::random_bytes(n, static_cast<uint32_t>(n));
            ASSERT_EQ(enc->decode(enc->encode(data)), data) << number << " " << n;
        }
    }
}

TEST(Encoders, ArbitraryTextNeverOverruns) {
    const auto noise = test::random_bytes(5000, 12);
    std::u16string text;
    for (std::size_t i = 0; i + 1 < noise.size(); i += 2)
        text.push_back(static_cast<char16_t>(noise[i] | noise[i + 1] << 8));
    for (int number : {kEncodeQrt, kEncodeBase64, kEncodeUu}) {
        auto enc = make_encoder(number);
        EXPECT_EQ(enc->decode(text).size(), enc->decode(text, nullptr));
    }
}

} // namespace
} // namespace kp::transforms
