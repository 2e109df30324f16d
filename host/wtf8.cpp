// wtf8.cpp - the host's WTF-8 validation and conversion, and code page 1252.
#include "wtf8.h"

#include <cstdint>

namespace kp::host {

namespace {

// Decodes one code point at `i`; returns its length or 0 when the bytes
// there are not WTF-8.
size_t decode(std::string_view s, size_t i, char32_t& cp) {
    const auto b0 = static_cast<uint8_t>(s[i]);
    if (b0 < 0x80) {
        cp = b0;
        return 1;
    }
    size_t len;
    char32_t min;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        len = 2;
        cp = b0 & 0x1F;
        min = 0x80;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        len = 3;
        cp = b0 & 0x0F;
        min = 0x800;
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        len = 4;
        cp = b0 & 0x07;
        min = 0x10000;
    } else {
        return 0;
    }
    if (s.size() - i < len) return 0;
    for (size_t k = 1; k < len; ++k) {
        const auto b = static_cast<uint8_t>(s[i + k]);
        if ((b & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (b & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF) return 0;
    return len;
}

void append(std::u16string& out, char32_t cp) {
    if (cp >= 0x10000) {
        cp -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    } else {
        out.push_back(static_cast<char16_t>(cp));
    }
}

// Code page 1252 from 0x80 to 0x9F; the rest is Latin-1.
constexpr char16_t kCp1252High[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                      0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                      0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                      0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

// Reads `bytes` into `out` (when given): each byte that starts no valid
// sequence becomes U+FFFD when `substitute`, else the reading stops there.
// Returns the offset where it stopped, or npos at the end.
size_t read(std::string_view bytes, std::u16string* out, bool substitute) {
    char32_t cp;
    for (size_t i = 0; i < bytes.size();) {
        size_t n = decode(bytes, i, cp);
        if (n == 0) {
            if (!substitute) return i;
            cp = u'\uFFFD';
            n = 1;
        }
        i += n;
        if (out) append(*out, cp);
    }
    return std::string_view::npos;
}

} // namespace

size_t wtf8_invalid_at(std::string_view bytes) {
    return read(bytes, nullptr, false);
}

bool wtf8_to_utf16(std::string_view bytes, std::u16string& out) {
    out.clear();
    out.reserve(bytes.size());
    return read(bytes, &out, false) == std::string_view::npos;
}

std::u16string utf16(std::string_view bytes) {
    std::u16string out;
    out.reserve(bytes.size());
    read(bytes, &out, true);
    return out;
}

std::string utf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t cp = text[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        }
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    return out;
}

char16_t cp1252_char(unsigned char byte) {
    return byte >= 0x80 && byte < 0xA0 ? kCp1252High[byte - 0x80] : byte;
}

} // namespace kp::host
