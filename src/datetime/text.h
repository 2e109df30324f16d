// text.h - small UTF-16 text helpers of the date and time family: decimal
// printing with zero padding (the "%0Nd" forms) and digit tests.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kp::datetime::text {

inline bool is_digit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

// Appends v in decimal, zero-padded to `width` digits ("%0*lld").
inline void append_int(std::u16string& out, int64_t v, int width = 0) {
    char16_t buf[48];
    char16_t* end = buf + sizeof(buf) / sizeof(buf[0]);
    char16_t* p = end;
    bool neg = v < 0;
    uint64_t u = neg ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
    do {
        *--p = static_cast<char16_t>(u'0' + u % 10);
        u /= 10;
    } while (u);
    if (width > 24) width = 24;
    int pad = width - static_cast<int>(end - p) - (neg ? 1 : 0);
    while (pad-- > 0)
        *--p = u'0';
    if (neg) *--p = u'-';
    out.append(p, static_cast<size_t>(end - p));
}

inline std::u16string int_text(int64_t v, int width = 0) {
    std::u16string s;
    append_int(s, v, width);
    return s;
}

// Value of exactly `n` digits at s[pos]; -1 when one is not a digit or the
// text is too short.
inline int32_t digits(std::u16string_view s, size_t pos, size_t n) {
    if (pos > s.size() || s.size() - pos < n) return -1;
    int32_t v = 0;
    for (size_t i = 0; i < n; ++i) {
        char16_t c = s[pos + i];
        if (!is_digit(c)) return -1;
        v = v * 10 + (c - u'0');
    }
    return v;
}

inline char16_t to_lower_ascii(char16_t c) {
    return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
}

} // namespace kp::datetime::text
