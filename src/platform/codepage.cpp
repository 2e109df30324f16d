// codepage.cpp - code page 1252 tables, ICU for the other code pages, and
// WTF-8 for names handed to POSIX.
#include "platform/codepage.h"

#include <unicode/ucnv.h>

#include <memory>
#include <string>

namespace kp::platform {

namespace {
// 0x80-0x9F of Windows-1252; the undefined bytes keep their C1 control value.
constexpr char16_t kHigh[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
} // namespace

char16_t cp1252_to_unicode(uint8_t b) {
    return (b >= 0x80 && b < 0xA0) ? kHigh[b - 0x80] : char16_t(b);
}

uint8_t unicode_to_cp1252(char16_t ch, bool* ok) {
    if (ok) *ok = true;
    if (ch < 0x80 || (ch >= 0xA0 && ch <= 0xFF)) return static_cast<uint8_t>(ch);
    for (int i = 0; i < 32; ++i)
        if (kHigh[i] == ch) return static_cast<uint8_t>(0x80 + i);
    if (ok) *ok = false;
    return 0;
}

std::u16string decode_1252(std::span<const uint8_t> bytes) {
    std::u16string out;
    out.resize(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i)
        out[i] = cp1252_to_unicode(bytes[i]);
    return out;
}

std::string encode_1252(std::u16string_view text) {
    std::string out;
    out.resize(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool ok = false;
        uint8_t b = unicode_to_cp1252(text[i], &ok);
        out[i] = static_cast<char>(ok ? b : '?');
    }
    return out;
}

namespace {
struct ConverterCloser {
    void operator()(UConverter* c) const { ucnv_close(c); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

Converter open_codepage(uint32_t cp) {
    UErrorCode st = U_ZERO_ERROR;
    std::string name = cp == kCodePageUtf8 ? "UTF-8" : "windows-" + std::to_string(cp);
    UConverter* c = ucnv_open(name.c_str(), &st);
    if (U_FAILURE(st)) {
        st = U_ZERO_ERROR;
        c = ucnv_open(("cp" + std::to_string(cp)).c_str(), &st);
        if (U_FAILURE(st)) return nullptr;
    }
    return Converter(c);
}
} // namespace

bool decode(uint32_t cp, std::span<const uint8_t> bytes, std::u16string& out) {
    if (cp == kCodePage1252) {
        out = decode_1252(bytes);
        return true;
    }
    Converter c = open_codepage(cp);
    if (!c) return false;
    out.resize(bytes.size() * 2 + 2);
    UErrorCode st = U_ZERO_ERROR;
    int32_t n =
        ucnv_toUChars(c.get(), out.data(), static_cast<int32_t>(out.size()),
                      reinterpret_cast<const char*>(bytes.data()), static_cast<int32_t>(bytes.size()), &st);
    if (U_FAILURE(st)) return false;
    out.resize(n);
    return true;
}

bool encode(uint32_t cp, std::u16string_view text, std::string& out) {
    if (cp == kCodePage1252) {
        out = encode_1252(text);
        return true;
    }
    Converter c = open_codepage(cp);
    if (!c) return false;
    UErrorCode st = U_ZERO_ERROR;
    ucnv_setSubstChars(c.get(), "?", 1, &st);
    st = U_ZERO_ERROR;
    out.resize(text.size() * 4 + 4);
    int32_t n = ucnv_fromUChars(c.get(), out.data(), static_cast<int32_t>(out.size()), text.data(),
                                static_cast<int32_t>(text.size()), &st);
    if (U_FAILURE(st)) return false;
    out.resize(n);
    return true;
}

namespace {
// Whether s[i] and s[i + 1] are a surrogate pair (one character, four bytes
// of UTF-8); a lone surrogate is written as three bytes (WTF-8).
bool pair_at(std::u16string_view s, std::size_t i) {
    return s[i] >= 0xD800 && s[i] < 0xDC00 && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] < 0xE000;
}

// The bytes write_utf8 writes for `s`: the result is made at its size, not
// at three bytes a unit (a clipboard text of megabytes would keep that).
std::size_t utf8_length(std::u16string_view s) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < s.size(); ++i) {
        const char16_t c = s[i];
        if (c < 0x80) {
            n += 1;
        } else if (c < 0x800) {
            n += 2;
        } else if (pair_at(s, i)) {
            n += 4;
            ++i;
        } else {
            n += 3;
        }
    }
    return n;
}
} // namespace

char* write_utf8(std::u16string_view s, char* out) {
    for (std::size_t i = 0; i < s.size(); ++i) {
        uint32_t cp = s[i];
        if (pair_at(s, i)) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (s[i + 1] - 0xDC00);
            ++i;
        }
        if (cp < 0x80) {
            *out++ = static_cast<char>(cp);
        } else if (cp < 0x800) {
            *out++ = static_cast<char>(0xC0 | (cp >> 6));
            *out++ = static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) { // lone surrogates too (WTF-8)
            *out++ = static_cast<char>(0xE0 | (cp >> 12));
            *out++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            *out++ = static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            *out++ = static_cast<char>(0xF0 | (cp >> 18));
            *out++ = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            *out++ = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            *out++ = static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    return out;
}

std::string to_utf8(std::u16string_view s) {
    std::string out(utf8_length(s), '\0');
    write_utf8(s, out.data());
    return out;
}

std::u16string from_utf8(std::string_view s) {
    std::u16string out;
    out.reserve(s.size());
    std::size_t i = 0;
    while (i < s.size()) {
        uint8_t b = static_cast<uint8_t>(s[i]);
        uint32_t cp;
        int extra;
        if (b < 0x80) {
            cp = b;
            extra = 0;
        } else if ((b & 0xE0) == 0xC0 && b >= 0xC2) {
            cp = b & 0x1F;
            extra = 1;
        } else if ((b & 0xF0) == 0xE0) {
            cp = b & 0x0F;
            extra = 2;
        } else if ((b & 0xF8) == 0xF0 && b <= 0xF4) {
            cp = b & 0x07;
            extra = 3;
        } else {
            out += u'\uFFFD';
            ++i;
            continue;
        }
        if (i + extra >= s.size() + (extra == 0 ? 1 : 0) && extra > 0 && i + extra >= s.size()) {
            out += u'\uFFFD';
            ++i;
            continue;
        }
        bool ok = true;
        for (int k = 1; k <= extra; ++k) {
            uint8_t c = static_cast<uint8_t>(s[i + k]);
            if ((c & 0xC0) != 0x80) {
                ok = false;
                break;
            }
            cp = (cp << 6) | (c & 0x3F);
        }
        // Overlong forms and values past U+10FFFF are invalid.
        if (ok && ((extra == 2 && cp < 0x800) || (extra == 3 && (cp < 0x10000 || cp > 0x10FFFF)))) ok = false;
        if (!ok) {
            out += u'\uFFFD';
            ++i;
            continue;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out += static_cast<char16_t>(0xD800 + (cp >> 10));
            out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
            out += static_cast<char16_t>(cp);
        }
        i += extra + 1;
    }
    return out;
}

} // namespace kp::platform
