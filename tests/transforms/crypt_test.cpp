// The ciphers (RC5 vectors, key digest, scramble, CBC) and Crypt/Uncrypt over every mode.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "platform/codepage.h"
#include "test_util.h"
#include "transforms/bytes.h"
#include "transforms/cipher.h"
#include "transforms/compression.h"
#include "transforms/crypt.h"
#include "transforms/encodings.h"

namespace kp::transforms {
namespace {

using test::ErrorBox;
using test::text_of;

std::vector<uint8_t> hex(const char* s) {
    std::vector<uint8_t> v;
    for (; s[0] && s[1]; s += 2)
        v.push_back(static_cast<uint8_t>(std::stoi(std::string(s, 2), nullptr, 16)));
    return v;
}
Key16 key_of(const std::vector<uint8_t>& v) {
    Key16 k{};
    std::copy(v.begin(), v.end(), k.begin());
    return k;
}
constexpr uint32_t kSha1Start[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};

// Published RC5-32/12/16 vectors (A first); each plain text is the previous cipher text.
TEST(Rc5, PublishedVectors) {
    const char* keys[] = {"00000000000000000000000000000000", "915F4619BE41B2516355A50110A9CE91",
                          "783348E75AEB0F2FD7B169BB8DC16787", "DC49DB1375A5584F6485B413B5F12BAF",
                          "5269F149D41BA0152497574D7F153125"};
    const char* texts[] = {"0000000000000000", "21A5DBEE154B8F6D", "F7C013AC5B2B8952",
                           "2F42B3B70369FC92", "65C178B284D197CC", "EB44E415DA319824"};
    for (int k = 0; k < 5; ++k) {
        const auto s = rc5_expand(key_of(hex(keys[k])), 12);
        const auto p = hex(texts[k]), c = hex(texts[k + 1]);
        uint32_t a = get_u32(&p[0]), b = get_u32(&p[4]);
        rc5_encrypt_words(a, b, s.data(), 12);
        EXPECT_EQ(std::pair(a, b), std::pair(get_u32(&c[0]), get_u32(&c[4]))) << keys[k];
        rc5_decrypt_words(a, b, s.data(), 12);
        EXPECT_EQ(std::pair(a, b), std::pair(get_u32(&p[0]), get_u32(&p[4])));
    }
}

// With SHA-1's schedule and word order the compression function is SHA-1's.
TEST(KeyDigest, CompressionFunctionAndPadding) {
    auto sha1_one_block = [](const std::string& msg) {
        uint8_t block[64] = {};
        std::memcpy(block, msg.data(), msg.size());
        block[msg.size()] = 0x80;
        block[63] = static_cast<uint8_t>(msg.size() * 8);
        block[62] = static_cast<uint8_t>((msg.size() * 8) >> 8);
        std::vector<uint32_t> h(kSha1Start, kSha1Start + 5);
        digest_compress(h.data(), block, true);
        return h;
    };
    EXPECT_EQ(sha1_one_block("abc"),
              (std::vector<uint32_t>{0xA9993E36, 0x4706816A, 0xBA3E2571, 0x7850C26C, 0x9CD0D89D}));
    EXPECT_EQ(sha1_one_block(""),
              (std::vector<uint32_t>{0xDA39A3EE, 0x5E6B4B0D, 0x3255BFEF, 0x95601890, 0xAFD80709}));
    // The key: four digest words of the password, 0x01 if it fits, zeros, the length last.
    auto expected = [](std::size_t n, std::size_t blocks, bool marker) {
        std::vector<uint8_t> m(n, 'p');
        m.resize(64 * blocks, 0);
        if (marker) m[n] = 1;
        m[m.size() - 4] = static_cast<uint8_t>(n);
        uint32_t h[5];
        std::copy(kSha1Start, kSha1Start + 5, h);
        for (std::size_t off = 0; off < m.size(); off += 64)
            digest_compress(h, &m[off]);
        Key16 k;
        for (int i = 0; i < 4; ++i)
            put_u32(&k[4 * i], h[i]);
        return k;
    };
    EXPECT_EQ(rc5_key_digest(std::vector<uint8_t>(3, 'p')), expected(3, 1, true));
    EXPECT_EQ(rc5_key_digest(std::vector<uint8_t>(60, 'p')),
              expected(60, 1, false)); // length over the marker
    EXPECT_EQ(rc5_key_digest(std::vector<uint8_t>(61, 'p')), expected(61, 2, true));
}

TEST(Scramble, RulesPasswordsAndFactory) {
    std::vector<uint8_t> three = {1, 2, 3};
    ScrambleCipher::scramble(three, Key16{});
    // d0 = 3 + 1; middle d1 = (4 + 2) + 17; d2 = 23 + 4 + 3; d0 = 4 + 30.
    EXPECT_EQ(three, (std::vector<uint8_t>{34, 23, 30}));
    // Words 0x10001, 2, 0, 0xFF: s = 0x10102; (s + (s >> 16)) & 0xFFFF = 0x0103.
    EXPECT_EQ(ScrambleCipher::fold(key_of({1, 0, 1, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0xFF})), 0x03);
    ScrambleCipher a, b, c;
    EXPECT_TRUE(a.set_password(u""));
    EXPECT_EQ(a.key(), Key16{}); // an empty password leaves the zero key
    b.set_password(u"secret");
    c.set_password(u"secreu");
    EXPECT_NE(b.key(), c.key());
    // Passwords are taken in code page 1252 ("é" is 0xE9, a negative remainder for the first byte).
    a.set_password(u"\u00E9t\u00E9");
    Key16 k2{};
    b.derive(std::vector<uint8_t>{0xE9, 't', 0xE9}, k2);
    EXPECT_EQ(a.key(), k2);
    EXPECT_TRUE(make_cipher(0) == nullptr && make_cipher(4) == nullptr);
    EXPECT_NE(dynamic_cast<ScrambleCipher*>(make_cipher(1).get()), nullptr);
    EXPECT_EQ(dynamic_cast<Rc5CbcCipher*>(make_cipher(2).get())->rounds(), 8);
    EXPECT_EQ(dynamic_cast<Rc5CbcCipher*>(make_cipher(3).get())->rounds(), 16);
}

TEST(Rc5Cbc, BlocksTailChainingAndInverse) {
    for (int rounds : {8, 16}) {
        Rc5CbcCipher c(rounds);
        ASSERT_TRUE(c.set_password(u"pw"));
        const auto data = test::random_bytes(13, 1);
        // The first block alone, one bit changed in the tail, at its start, in byte 0 of the block.
        auto full = data, head = std::vector<uint8_t>(data.begin(), data.begin() + 8);
        auto other = data, again = data, shifted = data;
        other[12] ^= 0x40, again[8] ^= 1, shifted[0] ^= 0x80;
        for (auto* v : {&full, &head, &other, &again, &shifted})
            c.encrypt(*v);
        EXPECT_TRUE(std::equal(head.begin(), head.end(), full.begin()));         // one CBC block ...
        EXPECT_TRUE(std::equal(full.begin(), full.begin() + 12, other.begin())); // ... and a byte-wise tail
        EXPECT_NE(full[12], other[12]);
        EXPECT_NE(again[8], full[8]);
        EXPECT_FALSE(std::equal(again.begin() + 9, again.end(), full.begin() + 9));
        EXPECT_NE(shifted[8], full[8]); // the first tail byte is chained on byte 0 of the block
        c.decrypt(full);
        EXPECT_EQ(full, data);
    }
    Rc5CbcCipher c2(8);
    c2.set_password(u"another password");
    // A changed first block changes every later block.
    auto a = test::random_bytes(32, 4), b = a;
    b[0] ^= 1;
    c2.encrypt(a);
    c2.encrypt(b);
    for (int blk = 0; blk < 4; ++blk)
        EXPECT_NE(get_u32(&a[8 * blk]), get_u32(&b[8 * blk]));
    // The per-call key replaces the object's key.
    Key16 k{};
    Rc5CbcCipher d(8);
    d.set_key(k);
    auto p = test::random_bytes(20, 2), q = p;
    d.encrypt(p);
    c2.encrypt(q, &k);
    EXPECT_EQ(p, q);
}

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
    // Sizes at the edges of the LZW minimum input, the Base64 groups and lines and the file chunks.
    for (std::size_t n : {0u, 1u, 2u, 19u, 20u, 21u, 63u, 64u, 65u, 4095u, 64000u, 64001u, 1u << 20}) {
        for (uint32_t cipher = 0; cipher <= 3; ++cipher) {
            for (uint32_t comp = 0; comp <= 2; ++comp) {
                for (int32_t encoding : {kEncodeNone, kEncodeQrt, kEncodeBase64, kEncodeUu}) {
                    if (encoding == kEncodeUu && (n > 21 || comp != 0))
                        continue;                           // uu reads back 45 bytes at most
                    if (cipher == 0 && comp == 0) continue; // a plain string, checked above
                    const auto data =
                        comp ? nonzero_bytes(n, static_cast<uint32_t>(n)) : test::random_bytes(n, 17);
                    const int32_t mode = static_cast<int32_t>(cipher | comp << 16);
                    // Without cryptAnsi an odd count comes back with its zero pad.
                    const auto r = round_trip(data, u"m\u00F6t de passe", mode, encoding);
                    auto expected = data;
                    if (n & 1) expected.push_back(0);
                    ASSERT_TRUE(!r.is_string && r.bytes == expected)
                        << n << " mode " << mode << " encoding " << encoding;
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

} // namespace
} // namespace kp::transforms
