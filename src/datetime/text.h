// text.h - small UTF-16 text helpers of the date and time family: decimal
// printing with zero padding (the "%0Nd" forms), digit reading, ASCII case
// folding and the token replacement of masks.
#pragma once

#include <cstddef>
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

inline std::u16string lower_ascii(std::u16string_view s) {
    std::u16string out(s);
    for (auto& c : out)
        c = to_lower_ascii(c);
    return out;
}

inline bool starts_with_ci(std::u16string_view s, size_t pos, std::u16string_view token) {
    if (pos > s.size() || s.size() - pos < token.size()) return false;
    for (size_t i = 0; i < token.size(); ++i)
        if (to_lower_ascii(s[pos + i]) != to_lower_ascii(token[i])) return false;
    return true;
}

// Replaces every occurrence of `what` from `from` on; true when one was there.
inline bool replace_all_from(std::u16string& s, std::u16string_view what, std::u16string_view value,
                             size_t from) {
    if (what.empty()) return false;
    size_t pos = s.find(what.data(), from, what.size());
    if (pos == std::u16string::npos) return false;
    // One pass into a new text: replacing in place moves the tail once per
    // occurrence, which is quadratic on long masks.
    std::u16string out;
    out.reserve(s.size());
    size_t done = 0;
    do {
        out.append(s, done, pos - done);
        out.append(value);
        done = pos + what.size();
        pos = s.find(what.data(), done, what.size());
    } while (pos != std::u16string::npos);
    out.append(s, done, std::u16string::npos);
    s = std::move(out);
    return true;
}

inline bool replace_all(std::u16string& s, std::u16string_view what, std::u16string_view value) {
    return replace_all_from(s, what, value, 0);
}

// Leading decimal digits at s[i], at most `max` of them.
struct Digits {
    int64_t value = 0;
    size_t count = 0;
};
inline Digits read_digits(std::u16string_view s, size_t i, size_t max) {
    Digits d;
    while (i + d.count < s.size() && d.count < max && is_digit(s[i + d.count])) {
        d.value = d.value * 10 + (s[i + d.count] - u'0');
        ++d.count;
    }
    return d;
}

// "19" when the two-digit year exceeds 50, else "20".
inline std::u16string_view century_of(int64_t two_digits) {
    return two_digits > 50 ? u"19" : u"20";
}

} // namespace kp::datetime::text
