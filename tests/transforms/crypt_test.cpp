#include <gtest/gtest.h>

#include <tuple>

#include "platform/codepage.h"
#include "test_util.h"
#include "transforms/cipher.h"
#include "transforms/compression.h"
#include "transforms/crypt.h"
#include "transforms/encodings.h"

namespace kp::transforms {
namespace {

using test::ErrorBox;
using test::text_of;

// Bytes without zero units, so that a string compression keeps them whole.
std::vector<uint8_t> nonzero_bytes(std::size_t n, uint32_t seed) {
    auto v = test::random_bytes(n, seed);
    for (auto& b : v)
        if (b == 0) b = 1;
    return v;
}

TEST(Crypt, ErrorsAnsiTextUnitsAndZeroUnits) {
    // clang-format off
    struct Case { int32_t mode; int32_t encoding; const char16_t* password; uint32_t id; } cases[] = {
        {4, 0, u"pw", kErrCipherMode}, {0x30001, 0, u"pw", kErrCompressionMode},
        {1, 0, u"", kErrEmptyPassword}, {2 | kCryptAnsi, 0, u"", kErrEmptyPassword},
        {3 | kCryptAnsi, 0, u"", kErrEmptyPassword}, {1, 7, u"pw", kErrCreateObject}};
    // clang-format on
    for (const auto& c : cases) {
        ErrorBox e, u;
        EXPECT_TRUE(
            crypt(std::vector<uint8_t>{1, 2, 3}, false, c.password, c.mode, c.encoding, e.err).empty());
        const auto r = uncrypt(u"AAAA", c.password, c.mode, c.encoding, u.err);
        EXPECT_TRUE(r.is_string && r.text.empty());
        EXPECT_EQ(std::tuple(e.err.id(), e.err.severity(), u.err.id()), std::tuple(c.id, 2, c.id)) << c.mode;
    }
    ErrorBox e;
    // Empty password with cryptAnsi: cryptFast with the all-zero key.
    EXPECT_EQ(crypt(std::vector<uint8_t>{0x10}, false, u"", 1 | kCryptAnsi, 0, e.err),
              std::vector<uint8_t>{0xDB});
    ScrambleCipher probe;
    probe.set_password(u"pw");
    const uint8_t expected = static_cast<uint8_t>((0x10 + 203) ^ ScrambleCipher::fold(probe.key()));
    EXPECT_EQ(crypt(std::vector<uint8_t>{0x10}, false, u"pw", 1 | kCryptAnsi, 0, e.err),
              std::vector<uint8_t>{expected});
    // An odd buffer keeps its length with cryptAnsi and is padded without.
    const auto odd = test::random_bytes(13, 3);
    EXPECT_EQ(crypt(odd, false, u"pw", 1 | kCryptAnsi, 0, e.err).size(), 13u);
    EXPECT_EQ(crypt(odd, false, u"pw", 1, 0, e.err).size(), 14u);
    // A string with cryptAnsi is enciphered as its 1252 bytes.
    const auto c =
        crypt(std::vector<uint8_t>{0xE9, 0, 't', 0, 0xAC, 0x20}, true, u"pw", 1 | kCryptAnsi, 0, e.err);
    EXPECT_EQ(c.size(), 3u);
    const auto back = uncrypt_bytes(c, u"pw", 1 | kCryptAnsi, 0, e.err);
    EXPECT_TRUE(back.is_string && back.text == u"\u00E9t\u20AC");
    const auto data = test::random_bytes(30, 5);
    const auto raw = crypt(data, false, u"pw", 2, 0, e.err);
    EXPECT_EQ(text_of(crypt(data, false, u"pw", 2, kEncodeQrt, e.err)),
              make_encoder(kEncodeQrt)->encode(raw));
    // The default of Uncrypt's handler is QRT; a plain string comes back as a string.
    const auto plain = uncrypt(u"hello", u"", 0, 0, e.err);
    EXPECT_TRUE(plain.is_string && plain.text == u"hello");
    // Compressed as a string, the data ends at its first zero unit.
    const auto c3 =
        crypt(std::vector<uint8_t>{'a', 0, 'b', 0, 0, 0, 'c', 0}, false, u"pw", 1 | 0x10000, 0, e.err);
    EXPECT_EQ(uncrypt_bytes(c3, u"pw", 1 | 0x10000, 0, e.err).bytes, (std::vector<uint8_t>{'a', 0, 'b', 0}));
    EXPECT_FALSE(e.err.failed());
}

TEST(Crypt, RoundTripsEveryModeCompressionAndEncoding) {
    auto round_trip = [](const std::vector<uint8_t>& data, const char16_t* pw, int32_t mode,
                         int32_t encoding) {
        ErrorBox e;
        const auto c = crypt(data, false, pw, mode, encoding, e.err);
        const auto r = encoding == kEncodeNone ? uncrypt_bytes(c, pw, mode, 0, e.err)
                                               : uncrypt(text_of(c), pw, mode, encoding, e.err);
        EXPECT_FALSE(e.err.failed()) << mode << " " << encoding;
        return r;
    };
    for (std::size_t n : test::round_trip_sizes()) {
        for (uint32_t cipher = 0; cipher <= 3; ++cipher) {
            for (uint32_t comp = 0; comp <= 2; ++comp) {
                for (int32_t encoding : {kEncodeNone, kEncodeQrt, kEncodeBase64, kEncodeUu}) {
                    if (encoding == kEncodeUu && (n > 21 || comp != 0))
                        continue;                           // uu reads back 45 bytes at most
                    if (cipher == 0 && comp == 0) continue; // a plain string, checked above
                    const auto data =
                        comp ? nonzero_bytes(n, static_cast<uint32_t>(n)) : test::random_bytes(n, 17);
                    const int32_t mode = static_cast<int32_t>(cipher | comp << 16);
                    const auto r = round_trip(data, u"m\u00F6t de passe", mode, encoding);
                    ASSERT_FALSE(r.is_string);
                    // Without cryptAnsi an odd count comes back with its zero pad.
                    auto expected = data;
                    if (n & 1) expected.push_back(0);
                    ASSERT_EQ(r.bytes, expected) << n << " mode " << mode << " encoding " << encoding;
                    // cryptAnsi over the raw bytes: no padding, a string back.
                    const auto ra = round_trip(data, u"pw", mode | kCryptAnsi, encoding);
                    ASSERT_TRUE(ra.is_string);
                    const std::string back = platform::encode_1252(ra.text);
                    ASSERT_EQ(std::vector<uint8_t>(back.begin(), back.end()), data)
                        << n << " ansi mode " << mode;
                }
            }
        }
    }
}

TEST(Uncrypt, WrongPasswordAndArbitraryInput) {
    ErrorBox e;
    const auto data = test::random_bytes(100, 6);
    for (int32_t mode : {1, 2, 3}) {
        const auto c = crypt(data, false, u"right", mode, kEncodeBase64, e.err);
        const auto r = uncrypt(text_of(c), u"wrong", mode, kEncodeBase64, e.err);
        EXPECT_FALSE(e.err.failed());
        EXPECT_EQ(r.bytes.size(), data.size());
        EXPECT_NE(r.bytes, data);
    }
    // Forged texts decode to something or nothing, never out of bounds.
    const auto noise = test::random_bytes(3000, 21);
    for (int32_t mode : {1, 2, 3, 0x10001, 0x20002, 0x10000, 0x20000, 1 | kCryptAnsi | 0x10000})
        for (int32_t encoding : {0, 1, 2, 3}) {
            ErrorBox e2;
            (void)uncrypt_bytes(noise, u"pw", mode, encoding, e2.err);
            EXPECT_TRUE(!e2.err.failed() || e2.err.id() == kErrCompressionMode);
        }
}

} // namespace
} // namespace kp::transforms
