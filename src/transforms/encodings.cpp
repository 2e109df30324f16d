// encodings.cpp - URL escapes and the three byte-to-text encoders.
#include "transforms/encodings.h"

#include <algorithm>
#include <array>
#include <cstring>

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

// Encoders over the Base64 alphabet: 3 bytes give 4 characters, a last
// group of 1 or 2 bytes gives 2 or 3, and a CR LF follows every
// `groups_per_line`-th complete group.
class Base64Family final : public TextEncoder {
  public:
    explicit Base64Family(bool padded) : padded_(padded) {}
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
        // Two characters at a time from 12 bits, a line at a time.
        for (std::size_t g = 0; g < full;) {
            const std::size_t line_end = per_line ? std::min(full, (g / per_line + 1) * per_line) : full;
            for (; g < line_end; ++g, p += 3) {
                const uint32_t v =
                    static_cast<uint32_t>(p[0]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[2];
                std::memcpy(out, &kPairs[v >> 12], 4);
                std::memcpy(out + 2, &kPairs[v & 0xFFF], 4);
                out += 4;
            }
            if (per_line && g % per_line == 0) {
                *out++ = u'\r';
                *out++ = u'\n';
            }
        }
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
        // Characters that count, and the padding of the last group.
        std::size_t chars = 0;
        for (char16_t c : text)
            if (!is_line_break(c)) ++chars;
        std::size_t pad = 0;
        if (padded_ && chars % 4 == 0 && chars > 0) {
            std::size_t seen = 0;
            for (auto it = text.rbegin(); it != text.rend() && seen < 2; ++it) {
                if (is_line_break(*it)) continue;
                if (*it != u'=') break;
                ++pad, ++seen;
            }
        }
        const std::size_t tail = chars % 4;
        const std::size_t count = chars / 4 * 3 + (tail >= 2 ? tail - 1 : 0) - pad;
        if (!out) return count;
        uint8_t v[4];
        std::size_t k = 0, written = 0;
        auto put = [&](uint8_t b) {
            if (written < count) out[written++] = b;
        };
        for (char16_t c : text) {
            if (is_line_break(c)) continue;
            v[k++] = from_char(c);
            if (k == 4) {
                put(static_cast<uint8_t>((v[0] << 2) | (v[1] >> 4)));
                put(static_cast<uint8_t>((v[1] << 4) | (v[2] >> 2)));
                put(static_cast<uint8_t>((v[2] << 6) | v[3]));
                k = 0;
            }
        }
        if (k >= 2) put(static_cast<uint8_t>((v[0] << 2) | (v[1] >> 4)));
        if (k >= 3) put(static_cast<uint8_t>((v[1] << 4) | (v[2] >> 2)));
        return written;
    }

  private:
    bool padded_;
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
    switch (number) {
    case kEncodeQrt:
        return std::make_unique<Base64Family>(false);
    case kEncodeBase64:
        return std::make_unique<Base64Family>(true);
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
