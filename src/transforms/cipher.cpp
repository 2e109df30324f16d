// cipher.cpp - ScrambleCipher and Rc5CbcCipher.
#include "transforms/cipher.h"

#include <algorithm>
#include <bit>
#include <new>

#include "platform/codepage.h"
#include "transforms/bytes.h"

namespace kp::transforms {

// ---- common part ----------------------------------------------------------

bool Cipher::set_key(const Key16& key) {
    key_ = key;
    return true;
}

bool Cipher::set_key_prefix(std::span<const uint8_t> bytes) {
    Key16 k{};
    std::copy_n(bytes.begin(), std::min<std::size_t>(bytes.size(), k.size()), k.begin());
    return set_key(k);
}

bool Cipher::derive_key(std::u16string_view password, Key16& out) const {
    const std::string bytes = platform::encode_1252(password);
    if (bytes.empty()) return false;
    derive(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), out);
    return true;
}

std::unique_ptr<Cipher> make_cipher(int32_t mode) {
    switch (mode) {
    case kCryptFast:
        return std::make_unique<ScrambleCipher>();
    case kCryptSecure:
        return std::make_unique<Rc5CbcCipher>(8);
    case kCryptRc516:
        return std::make_unique<Rc5CbcCipher>(16);
    default:
        return nullptr;
    }
}

// ---- ScrambleCipher -------------------------------------------------------

uint8_t ScrambleCipher::fold(const Key16& key) {
    uint32_t s = get_u32(&key[0]) + get_u32(&key[4]) + get_u32(&key[8]) + get_u32(&key[12]);
    return static_cast<uint8_t>(((s + (s >> 16)) & 0xFFFF) & 0xFF);
}

// Every byte depends on those before it: byte i mixes the byte before it
// and its mirror m = n-1-i, and the mirror is mixed again with the result.
void ScrambleCipher::scramble(std::span<uint8_t> data, const Key16& k) {
    const std::size_t n = data.size();
    uint8_t* d = data.data();
    if (n == 0) return;
    if (n == 1) {
        d[0] = static_cast<uint8_t>((d[0] + 203) ^ fold(k));
        return;
    }
    d[0] = static_cast<uint8_t>((d[n - 1] + d[0]) ^ k[15]);
    std::size_t j = 0;
    for (std::size_t i = 1; i < n; ++i) {
        const std::size_t m = n - 1 - i;
        if (m != i) {
            const uint8_t x = static_cast<uint8_t>((d[i - 1] + d[m] + d[i]) ^ k[15 - j]);
            d[i] = x;
            d[m] = static_cast<uint8_t>((d[m] + x) ^ k[j]);
        } else {
            d[i] = static_cast<uint8_t>((d[i - 1] + d[i]) ^ k[15 - j]);
            d[i] = static_cast<uint8_t>((d[i] + 17) ^ k[j]);
        }
        j = (j + 1) & 15;
    }
}

void ScrambleCipher::unscramble(std::span<uint8_t> data, const Key16& k) {
    const std::size_t n = data.size();
    uint8_t* d = data.data();
    if (n == 0) return;
    if (n == 1) {
        d[0] = static_cast<uint8_t>((d[0] ^ fold(k)) + 53);
        return;
    }
    std::size_t j = (n - 2) & 15;
    for (std::size_t i = n - 1; i >= 1; --i) {
        const std::size_t m = n - 1 - i;
        if (m != i) {
            const uint8_t x = d[i];
            d[m] = static_cast<uint8_t>((d[m] ^ k[j]) - x);
            // d[i - 1] is the mirror just restored when m == i - 1.
            d[i] = static_cast<uint8_t>((x ^ k[15 - j]) - d[i - 1] - d[m]);
        } else {
            const uint8_t y = static_cast<uint8_t>((d[i] ^ k[j]) + 239);
            d[i] = static_cast<uint8_t>((y ^ k[15 - j]) - d[i - 1]);
        }
        j = (j + 15) & 15;
    }
    d[0] = static_cast<uint8_t>((d[0] ^ k[15]) - d[n - 1]);
}

bool ScrambleCipher::set_password(std::u16string_view password) {
    derive_key(password, key_);
    return true;
}

void ScrambleCipher::encrypt(std::span<uint8_t> data, const Key16* key) {
    scramble(data, key ? *key : key_);
}
void ScrambleCipher::decrypt(std::span<uint8_t> data, const Key16* key) {
    unscramble(data, key ? *key : key_);
}

void ScrambleCipher::derive(std::span<const uint8_t> password, Key16& out) const {
    const std::size_t len = password.size();
    if (len == 0) return;
    Key16 k = kInitialBlock;
    std::vector<uint8_t> t(password.begin(), password.end());
    // Remainder of a signed byte, truncating: 0x80..0xFF give a negative one.
    t[0] = static_cast<uint8_t>(static_cast<int8_t>(t[0]) % 29);
    for (std::size_t i = 0; i + 1 < len; ++i)
        t[i + 1] ^= t[i];
    scramble(t, k);
    const std::size_t n = std::max<std::size_t>(len, 16);
    std::size_t c = 0;
    for (std::size_t d = 0; d < n; ++d) {
        k[d & 15] = static_cast<uint8_t>((t[d % len] + k[(d + 1) & 15]) ^ (c & 0xFF));
        c += n;
    }
    out = k;
}

// ---- key digest -----------------------------------------------------------

void digest_compress(uint32_t state[5], const uint8_t block[64], bool sha1) {
    uint32_t w[80];
    for (int t = 0; t < 16; ++t) {
        const uint8_t* p = block + 4 * t;
        w[t] = sha1 ? (uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3]) : get_u32(p);
    }
    for (int t = 16; t < 80; ++t) {
        const uint32_t x = w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16];
        w[t] = sha1 ? std::rotl(x, 1) : x;
    }
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
    for (int t = 0; t < 80; ++t) {
        uint32_t f, k;
        if (t < 20) {
            f = (b & c) | (~b & d);
            k = 0x5A827999;
        } else if (t < 40) {
            f = b ^ c ^ d;
            k = 0x6ED9EBA1;
        } else if (t < 60) {
            f = (b & c) | (b & d) | (c & d);
            k = 0x8F1BBCDC;
        } else {
            f = b ^ c ^ d;
            k = 0xCA62C1D6;
        }
        const uint32_t temp = std::rotl(a, 5) + f + e + k + w[t];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = temp;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    state[4] += e;
}

Key16 rc5_key_digest(std::span<const uint8_t> password) {
    const std::size_t len = password.size();
    const std::size_t total = (len + 4 + 63) / 64 * 64;
    std::vector<uint8_t> m(total, 0);
    std::copy(password.begin(), password.end(), m.begin());
    m[len] = 0x01;
    put_u32(&m[total - 4], static_cast<uint32_t>(len)); // last: may cover the 0x01
    uint32_t h[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    for (std::size_t off = 0; off < total; off += 64)
        digest_compress(h, &m[off]);
    Key16 key;
    for (int i = 0; i < 4; ++i)
        put_u32(&key[4 * i], h[i]);
    return key;
}

// ---- RC5 ------------------------------------------------------------------

std::vector<uint32_t> rc5_expand(const Key16& key, int rounds) {
    const std::size_t t = 2 * static_cast<std::size_t>(rounds) + 2;
    std::vector<uint32_t> s(t);
    uint32_t l[4];
    for (int i = 0; i < 4; ++i)
        l[i] = get_u32(&key[4 * i]);
    s[0] = 0xB7E15163u;
    for (std::size_t i = 1; i < t; ++i)
        s[i] = s[i - 1] + 0x9E3779B9u;
    uint32_t a = 0, b = 0;
    std::size_t i = 0, j = 0;
    for (std::size_t k = 0; k < 3 * std::max<std::size_t>(t, 4); ++k) {
        a = s[i] = std::rotl(s[i] + a + b, 3);
        b = l[j] = std::rotl(l[j] + a + b, static_cast<int>((a + b) & 31));
        i = (i + 1) % t;
        j = (j + 1) % 4;
    }
    return s;
}

void rc5_encrypt_words(uint32_t& a, uint32_t& b, const uint32_t* s, int rounds) {
    a += s[0];
    b += s[1];
    for (int i = 1; i <= rounds; ++i) {
        a = std::rotl(a ^ b, static_cast<int>(b & 31)) + s[2 * i];
        b = std::rotl(b ^ a, static_cast<int>(a & 31)) + s[2 * i + 1];
    }
}

void rc5_decrypt_words(uint32_t& a, uint32_t& b, const uint32_t* s, int rounds) {
    for (int i = rounds; i >= 1; --i) {
        b = std::rotr(b - s[2 * i + 1], static_cast<int>(a & 31)) ^ a;
        a = std::rotr(a - s[2 * i], static_cast<int>(b & 31)) ^ b;
    }
    b -= s[1];
    a -= s[0];
}

namespace {
inline uint32_t rot4(uint32_t v, uint32_t n) {
    return ((v << n) | (v >> (4 - n))) & 15;
}
inline uint32_t rot4r(uint32_t v, uint32_t n) {
    return ((v >> n) | (v << (4 - n))) & 15;
}

uint8_t nibble_encrypt(uint8_t x, const uint32_t* s, int rounds) {
    uint32_t a = ((x >> 4) + s[0]) & 15, b = ((x & 15u) + s[1]) & 15;
    for (int i = 1; i <= rounds; ++i) {
        a = (rot4(a ^ b, b & 3) + s[2 * i]) & 15;
        b = (rot4(a ^ b, a & 3) + s[2 * i + 1]) & 15;
    }
    return static_cast<uint8_t>(a * 16 + b);
}

uint8_t nibble_decrypt(uint8_t y, const uint32_t* s, int rounds) {
    uint32_t a = y >> 4, b = y & 15u;
    for (int i = rounds; i >= 1; --i) {
        b = rot4r((b - s[2 * i + 1]) & 15, a & 3) ^ a;
        a = rot4r((a - s[2 * i]) & 15, b & 3) ^ b;
    }
    a = (a - s[0]) & 15;
    b = (b - s[1]) & 15;
    return static_cast<uint8_t>(a * 16 + b);
}
} // namespace

bool Rc5CbcCipher::set_key(const Key16& key) {
    try {
        s_ = rc5_expand(key, rounds_);
    } catch (const std::bad_alloc&) {
        s_.clear();
        return false;
    }
    key_ = key;
    return true;
}

bool Rc5CbcCipher::set_password(std::u16string_view password) {
    Key16 scratch{};
    derive_key(password, scratch);
    return set_key(scratch);
}

void Rc5CbcCipher::derive(std::span<const uint8_t> password, Key16& out) const {
    if (password.empty()) return;
    out = rc5_key_digest(password);
}

const uint32_t* Rc5CbcCipher::table(const Key16* key, std::vector<uint32_t>& scratch) const {
    if (key) {
        scratch = rc5_expand(*key, rounds_);
        return scratch.data();
    }
    if (s_.empty()) {
        scratch = rc5_expand(key_, rounds_);
        return scratch.data();
    }
    return s_.data();
}

void Rc5CbcCipher::encrypt(std::span<uint8_t> data, const Key16* key) {
    std::vector<uint32_t> scratch;
    const uint32_t* s = table(key, scratch);
    const std::size_t n = data.size(), blocks = n / 8;
    uint8_t* d = data.data();
    uint32_t p0 = 0, p1 = 0;
    for (std::size_t k = 0; k < blocks; ++k, d += 8) {
        uint32_t b = get_u32(d) ^ p0, a = get_u32(d + 4) ^ p1;
        rc5_encrypt_words(a, b, s, rounds_);
        put_u32(d, b);
        put_u32(d + 4, a);
        p0 = b;
        p1 = a;
    }
    uint8_t prev = blocks ? data[(blocks - 1) * 8] : 0;
    for (std::size_t k = blocks * 8; k < n; ++k) {
        data[k] = nibble_encrypt(static_cast<uint8_t>(data[k] ^ prev), s, rounds_);
        prev = data[k];
    }
}

void Rc5CbcCipher::decrypt(std::span<uint8_t> data, const Key16* key) {
    std::vector<uint32_t> scratch;
    const uint32_t* s = table(key, scratch);
    const std::size_t n = data.size(), blocks = n / 8;
    uint8_t* d = data.data();
    uint32_t p0 = 0, p1 = 0;
    for (std::size_t k = 0; k < blocks; ++k, d += 8) {
        const uint32_t c0 = get_u32(d), c1 = get_u32(d + 4);
        uint32_t b = c0, a = c1;
        rc5_decrypt_words(a, b, s, rounds_);
        put_u32(d, b ^ p0);
        put_u32(d + 4, a ^ p1);
        p0 = c0;
        p1 = c1;
    }
    uint8_t prev = blocks ? static_cast<uint8_t>(p0) : 0; // byte 0 of the last ciphertext block
    for (std::size_t k = blocks * 8; k < n; ++k) {
        const uint8_t c = data[k];
        data[k] = static_cast<uint8_t>(nibble_decrypt(c, s, rounds_) ^ prev);
        prev = c;
    }
}

} // namespace kp::transforms
