// format.cpp - NumToString's conversions, Min and Max (rules in format.h).
#include "numeric/format.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "component/runtime.h"
#include "component/strings.h"
#include "component/variant.h"
#include "numeric/colour.h"
#include "numeric/int128.h"

namespace kp::numeric {

namespace {

bool is_digit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

bool conversion_type(char16_t c) {
    switch (c) {
    case u'd':
    case u'u':
    case u'x':
    case u'X':
    case u'o':
    case u'e':
    case u'E':
    case u'f':
    case u'g':
    case u'G':
        return true;
    default:
        return false;
    }
}

// Appends literal text, "%%" undone.
void append_literal(std::u16string& out, std::u16string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        out.push_back(text[i]);
        if (text[i] == u'%' && i + 1 < text.size() && text[i + 1] == u'%') ++i;
    }
}

void append_ascii(std::u16string& out, const char* s, std::size_t n) {
    const std::size_t at = out.size();
    out.resize(at + n);
    for (std::size_t i = 0; i < n; ++i)
        out[at + i] = static_cast<char16_t>(static_cast<unsigned char>(s[i]));
}

std::string decimal(uint128 v) {
    char buf[48];
    int n = 0;
    do {
        buf[n++] = static_cast<char>('0' + static_cast<int>(v % 10));
        v /= 10;
    } while (v);
    std::string s(static_cast<std::size_t>(n), '0');
    for (int i = 0; i < n; ++i)
        s[static_cast<std::size_t>(i)] = buf[n - 1 - i];
    return s;
}

uint128 pow10(int n) {
    uint128 r = 1;
    while (n-- > 0)
        r *= 10;
    return r;
}

// The sign a conversion writes in front of a value.
const char* sign_text(bool negative, const NumberFormat& f) {
    return negative ? "-" : f.plus ? "+" : f.space ? " " : "";
}

// Pads a converted number (sign first) to the width, as the C library does.
std::string pad(std::string s, const NumberFormat& f, bool zero_allowed) {
    if (f.width <= 0 || s.size() >= static_cast<std::size_t>(f.width)) return s;
    const std::size_t fill = static_cast<std::size_t>(f.width) - s.size();
    if (f.left) return s.append(fill, ' ');
    if (f.zero && zero_allowed) {
        const std::size_t sign = (!s.empty() && (s[0] == '-' || s[0] == '+' || s[0] == ' ')) ? 1 : 0;
        return s.insert(sign, fill, '0');
    }
    return s.insert(0, fill, ' ');
}

// Groups the integer digits of a converted number (no width applied yet)
// and pads it; with "0" the padding zeros are grouped too.
std::string group_and_pad(const std::string& s, const NumberFormat& f) {
    const std::size_t sign = (!s.empty() && (s[0] == '-' || s[0] == '+' || s[0] == ' ')) ? 1 : 0;
    std::size_t end = sign;
    while (end < s.size() && s[end] >= '0' && s[end] <= '9')
        ++end;
    if (end == sign) { // inf, nan
        NumberFormat spaces = f;
        spaces.zero = false;
        return pad(s, spaces, false);
    }
    std::string digits = s.substr(sign, end - sign);
    const std::string rest = s.substr(end);
    if (f.zero && !f.left && f.width > 0) {
        const long target = static_cast<long>(f.width) - static_cast<long>(sign + rest.size());
        long n = static_cast<long>(digits.size());
        while (n + (n - 1) / 3 < target)
            ++n;
        digits.insert(0, static_cast<std::size_t>(n) - digits.size(), '0');
    }
    std::string out = s.substr(0, sign);
    out.reserve(s.size() + digits.size() / 3 + 1);
    const std::size_t nd = digits.size();
    for (std::size_t i = 0; i < nd; ++i) {
        if (i && (nd - i) % 3 == 0) out.push_back(',');
        out.push_back(digits[i]);
    }
    out += rest;
    NumberFormat spaces = f;
    spaces.zero = false;
    return pad(std::move(out), spaces, false);
}

// The C conversion rebuilt from what was read: flags, width, precision,
// an optional length modifier and the type.  Grouping pads by itself, so
// its conversion carries neither width nor "0" nor "-".
void c_format(char* out, const NumberFormat& f, const char* length) {
    char* p = out;
    *p++ = '%';
    if (!f.group && f.left) *p++ = '-';
    if (f.plus) *p++ = '+';
    if (f.space) *p++ = ' ';
    if (!f.group && f.zero) *p++ = '0';
    if (!f.group && f.width > 0) p += std::snprintf(p, 8, "%d", f.width);
    if (f.precision >= 0) p += std::snprintf(p, 9, ".%d", f.precision);
    while (*length)
        *p++ = *length++;
    *p++ = static_cast<char>(f.type);
    *p = 0;
}

// ---- currency values, on their exact digits

// |m| with `prec` decimals, rounded half away from zero.
std::string money_fixed(uint128 a, int prec) {
    std::string s;
    if (prec >= 6) {
        std::string frac = decimal(a % 1000000);
        frac.insert(0, 6 - frac.size(), '0');
        s = decimal(a / 1000000);
        s += '.';
        s += frac;
        s.append(static_cast<std::size_t>(prec - 6), '0');
        return s;
    }
    const uint128 div = pow10(6 - prec);
    uint128 q = a / div;
    if ((a % div) * 2 >= div) q += 1;
    const uint128 unit = pow10(prec);
    s = decimal(q / unit);
    if (prec > 0) {
        std::string frac = decimal(q % unit);
        frac.insert(0, static_cast<std::size_t>(prec) - frac.size(), '0');
        s += '.';
        s += frac;
    }
    return s;
}

// |m| rounded to prec + 1 significant digits: the digits and the decimal
// exponent of the first one.
void money_significant(uint128 a, int prec, std::string& digits, int& exponent) {
    const std::size_t want = static_cast<std::size_t>(prec) + 1;
    if (a == 0) {
        digits.assign(want, '0');
        exponent = 0;
        return;
    }
    std::string d = decimal(a);
    exponent = static_cast<int>(d.size()) - 1 - 6;
    if (d.size() > want) {
        const bool up = d[want] >= '5';
        d.resize(want);
        if (up) {
            std::size_t i = want;
            while (i > 0 && d[i - 1] == '9')
                d[--i] = '0';
            if (i == 0) {
                d.insert(d.begin(), '1');
                d.resize(want);
                ++exponent;
            } else {
                ++d[i - 1];
            }
        }
    } else {
        d.append(want - d.size(), '0');
    }
    digits = std::move(d);
}

std::string exponent_form(const std::string& digits, int exponent, bool upper) {
    std::string s(1, digits[0]);
    if (digits.size() > 1) {
        s += '.';
        s.append(digits, 1, std::string::npos);
    }
    s += upper ? 'E' : 'e';
    s += exponent < 0 ? '-' : '+';
    const int e = exponent < 0 ? -exponent : exponent;
    if (e < 10) s += '0';
    s += std::to_string(e);
    return s;
}

void strip_zeros(std::string& s) {
    const std::size_t e = s.find_first_of("eE");
    std::string tail = e == std::string::npos ? std::string() : s.substr(e);
    std::string head = e == std::string::npos ? s : s.substr(0, e);
    if (head.find('.') != std::string::npos) {
        while (!head.empty() && head.back() == '0')
            head.pop_back();
        if (!head.empty() && head.back() == '.') head.pop_back();
    }
    s = head + tail;
}

std::string money_real_conversion(const Money& m, const NumberFormat& f) {
    const bool negative = m.negative();
    const uint128 a = negative ? static_cast<uint128>(-m.millionths()) : static_cast<uint128>(m.millionths());
    const bool upper = f.type == 'E' || f.type == 'G';
    std::string body;
    if (f.type == 'f') {
        body = money_fixed(a, f.precision < 0 ? 6 : f.precision);
    } else if (f.type == 'e' || f.type == 'E') {
        std::string digits;
        int exponent = 0;
        money_significant(a, f.precision < 0 ? 6 : f.precision, digits, exponent);
        body = exponent_form(digits, exponent, upper);
    } else {
        const int p = f.precision < 0 ? 6 : (f.precision == 0 ? 1 : f.precision);
        std::string digits;
        int x = 0;
        money_significant(a, p - 1, digits, x);
        if (p > x && x >= -4)
            body = money_fixed(a, p - 1 - x);
        else
            body = exponent_form(digits, x, upper);
        strip_zeros(body);
    }
    return sign_text(negative, f) + body;
}

std::string money_default(const Money& m) {
    std::string s = m.to_text();
    strip_zeros(s);
    return s;
}

std::string real_default(double d) {
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, d);
    return std::string(buf, r.ptr);
}

// ---- the usual conversions without the C library

// Pads `body` (sign first, `sign` characters of it) to the width into `out`,
// as the C library does; `zeros` tells whether "0" pads this conversion.
std::size_t place(char* out, const char* body, std::size_t n, std::size_t sign, const NumberFormat& f,
                  bool zeros) {
    const std::size_t width = f.width > 0 ? static_cast<std::size_t>(f.width) : 0;
    const std::size_t fill = width > n ? width - n : 0;
    char* p = out;
    if (fill && !f.left && !zeros) p = static_cast<char*>(std::memset(p, ' ', fill)) + fill;
    std::memcpy(p, body, sign);
    p += sign;
    if (fill && !f.left && zeros) p = static_cast<char*>(std::memset(p, '0', fill)) + fill;
    std::memcpy(p, body + sign, n - sign);
    p += n - sign;
    if (fill && f.left) p = static_cast<char*>(std::memset(p, ' ', fill)) + fill;
    return static_cast<std::size_t>(p - out);
}

// The text of an integer conversion of `s` (the value as the C library
// would get it: signed for "d", `u` otherwise).
std::size_t integer_text(char* out, int64_t s, uint64_t u, const NumberFormat& f) {
    char body[2048 + 24];
    std::size_t n = 0;
    uint64_t magnitude = u;
    if (f.type == 'd') {
        magnitude = s < 0 ? 0 - static_cast<uint64_t>(s) : static_cast<uint64_t>(s);
        const char* sign = sign_text(s < 0, f);
        while (*sign)
            body[n++] = *sign++;
    }
    const std::size_t sign = n;
    char digits[24];
    const int base = f.type == 'x' || f.type == 'X' ? 16 : f.type == 'o' ? 8 : 10;
    std::size_t nd =
        static_cast<std::size_t>(std::to_chars(digits, digits + sizeof digits, magnitude, base).ptr - digits);
    if (f.precision == 0 && magnitude == 0) nd = 0; // "%.0d" of 0 writes no digit
    if (f.type == 'X')
        for (std::size_t i = 0; i < nd; ++i)
            if (digits[i] >= 'a') digits[i] = static_cast<char>(digits[i] - 'a' + 'A');
    if (f.precision > 0 && static_cast<std::size_t>(f.precision) > nd) {
        const std::size_t z = static_cast<std::size_t>(f.precision) - nd;
        std::memset(body + n, '0', z);
        n += z;
    }
    std::memcpy(body + n, digits, nd);
    n += nd;
    return place(out, body, n, sign, f, f.zero && f.precision < 0);
}

// The text of a real conversion of a finite real, or 0 when the C library
// is left to do it.  std::to_chars with a precision gives the digits of
// printf's "%.*f", "%.*e" and "%.*g".
std::size_t real_text(char* out, double d, const NumberFormat& f) {
    char body[4400];
    std::size_t n = 0;
    if (!std::signbit(d)) {
        const char* sign = sign_text(false, f);
        while (*sign)
            body[n++] = *sign++;
    }
    const int precision = f.precision < 0 ? 6 : f.precision;
    const std::chars_format form = f.type == 'f'                    ? std::chars_format::fixed
                                   : f.type == 'e' || f.type == 'E' ? std::chars_format::scientific
                                                                    : std::chars_format::general;
    const auto r = std::to_chars(body + n, body + sizeof body, d, form, precision);
    if (r.ec != std::errc()) return 0;
    const std::size_t sign = body[0] == '-' || n ? 1 : 0;
    n = static_cast<std::size_t>(r.ptr - body);
    if (f.type == 'E' || f.type == 'G')
        for (std::size_t i = 0; i < n; ++i)
            if (body[i] == 'e') body[i] = 'E';
    return place(out, body, n, sign, f, f.zero);
}

// ---- the conversion itself; false: the value does not fit it

bool convert(const NumberValue& v, const NumberFormat& f, std::string& out) {
    char fmt[40];
    char buf[4600]; // sign, 309 integer digits, 2000 decimals or 2000 of width
    int n = -1;
    const char t = static_cast<char>(f.type);
    const bool integer_type = t == 'd' || t == 'u' || t == 'x' || t == 'X' || t == 'o';
    if (integer_type) {
        int64_t s = 0;
        switch (v.kind) {
        case NumberValue::Kind::Int32:
        case NumberValue::Kind::Int64:
            s = v.i;
            break;
        case NumberValue::Kind::Real:
            if (!std::isfinite(v.d) || v.d >= 9223372036854775808.0 || v.d < -9223372036854775808.0)
                return false;
            s = static_cast<int64_t>(v.d);
            break;
        case NumberValue::Kind::Currency:
            s = v.m.integer_part();
            break;
        }
        if (!f.group) {
            const uint64_t u =
                v.kind == NumberValue::Kind::Int32 ? static_cast<uint32_t>(s) : static_cast<uint64_t>(s);
            const std::size_t m = integer_text(buf, s, u, f);
            out.assign(buf, m);
            return true;
        }
        c_format(fmt, f, "ll");
        if (t == 'd') {
            n = std::snprintf(buf, sizeof buf, fmt, static_cast<long long>(s));
        } else {
            const unsigned long long u = v.kind == NumberValue::Kind::Int32
                                             ? static_cast<unsigned long long>(static_cast<uint32_t>(s))
                                             : static_cast<unsigned long long>(s);
            n = std::snprintf(buf, sizeof buf, fmt, u);
        }
    } else if (v.kind == NumberValue::Kind::Currency) {
        std::string body = money_real_conversion(v.m, f);
        out = f.group ? group_and_pad(body, f) : pad(std::move(body), f, true);
        return true;
    } else {
        const double d = v.kind == NumberValue::Kind::Real ? v.d : static_cast<double>(v.i);
        if (!f.group && std::isfinite(d)) {
            if (const std::size_t m = real_text(buf, d, f)) {
                out.assign(buf, m);
                return true;
            }
        }
        c_format(fmt, f, "");
        n = std::snprintf(buf, sizeof buf, fmt, d);
    }
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof buf) return false;
    out.assign(buf, static_cast<std::size_t>(n));
    if (f.group) out = group_and_pad(out, f);
    return true;
}

void bad_format(CXError& e, std::u16string_view format, std::size_t position) {
    e.fail(kErrNumberFormat);
    std::u16string shown(format.substr(0, 80));
    if (format.size() > 80) shown += u"\u2026";
    e.append_formatted(runtime::french() ? u"Le format numérique « %1 » n'est pas valide (caractère %2!u!)."
                                         : u"The number format \"%1\" is not valid (character %2!u!).",
                       {shown, static_cast<unsigned long long>(position)});
}

double pick(std::span<const double> values, bool want_min) {
    bool any = false;
    double best = 0;
    for (double x : values) {
        if (std::isnan(x)) continue;
        if (!any || (want_min ? x < best : x > best)) best = x;
        any = true;
    }
    if (!any) return values.empty() ? 0.0 : std::nan("");
    return best;
}

} // namespace

bool parse_number_format(std::u16string_view f, NumberFormat& out, std::size_t* fault) {
    out = NumberFormat();
    const std::size_t n = f.size();
    std::size_t conv_start = 0, conv_end = 0;
    auto bad = [&](std::size_t at) {
        if (fault) *fault = at + 1;
        return false;
    };
    std::size_t i = 0;
    while (i < n) {
        if (f[i] != u'%') {
            ++i;
            continue;
        }
        if (i + 1 < n && f[i + 1] == u'%') {
            i += 2;
            continue;
        }
        if (out.has_conversion) return bad(i);
        const std::size_t start = i++;
        for (; i < n; ++i) {
            const char16_t c = f[i];
            if (c == u'-')
                out.left = true;
            else if (c == u'+')
                out.plus = true;
            else if (c == u' ')
                out.space = true;
            else if (c == u'0')
                out.zero = true;
            else if (c == u',')
                out.group = true;
            else
                break;
        }
        for (; i < n && is_digit(f[i]); ++i) {
            out.width = out.width * 10 + (f[i] - u'0');
            if (out.width > kMaxFormatWidth) return bad(i);
        }
        if (i < n && f[i] == u'.') {
            out.precision = 0;
            for (++i; i < n && is_digit(f[i]); ++i) {
                out.precision = out.precision * 10 + (f[i] - u'0');
                if (out.precision > kMaxFormatWidth) return bad(i);
            }
        }
        if (i >= n) return bad(start);
        if (!conversion_type(f[i])) return bad(i);
        out.type = static_cast<char>(f[i]);
        if (out.group && (out.type == 'x' || out.type == 'X' || out.type == 'o')) return bad(i);
        out.has_conversion = true;
        conv_start = start;
        conv_end = ++i;
    }
    if (out.has_conversion) {
        out.before = f.substr(0, conv_start);
        out.after = f.substr(conv_end);
    } else {
        out.before = f;
    }
    return true;
}

std::u16string num_to_string(const NumberValue& v, std::u16string_view format, CXError& e) {
    // A display mask may carry a colour between "[" and "]": the first
    // bracketed name is taken out of the mask (the text has no colour), and
    // a fault is placed in the mask as the caller wrote it.
    std::u16string uncoloured;
    std::size_t open = std::u16string_view::npos, removed = 0;
    const std::u16string_view written = format;
    if (format.find(u'[') != std::u16string_view::npos) {
        uncoloured.assign(format);
        const std::size_t before = uncoloured.size();
        open = uncoloured.find(u'[');
        take_mask_colour(uncoloured);
        removed = before - uncoloured.size();
        format = uncoloured;
    }
    NumberFormat f;
    std::size_t fault = 0;
    if (!parse_number_format(format, f, &fault)) {
        if (removed && fault > open) fault += removed;
        bad_format(e, written, fault);
        return {};
    }
    std::string text;
    if (!f.has_conversion) {
        switch (v.kind) {
        case NumberValue::Kind::Int32:
        case NumberValue::Kind::Int64:
            text = std::to_string(v.i);
            break;
        case NumberValue::Kind::Real:
            text = real_default(v.d);
            break;
        case NumberValue::Kind::Currency:
            text = money_default(v.m);
            break;
        }
        std::u16string out;
        append_ascii(out, text.data(), text.size());
        return out;
    }
    if (!convert(v, f, text)) {
        e.fail(kErrNotNumeric);
        return {};
    }
    std::u16string out;
    out.reserve(f.before.size() + text.size() + f.after.size());
    append_literal(out, f.before);
    append_ascii(out, text.data(), text.size());
    append_literal(out, f.after);
    return out;
}

std::u16string num_to_string(const kp_variant* value, std::u16string_view format, CXError& e) {
    if (value) {
        switch (variant::type_of(value)) {
        case KP_T_BOOL:
            return num_to_string(NumberValue::int32(value->value.i32 != 0), format, e);
        case KP_T_INT:
            return num_to_string(NumberValue::int32(value->value.i32), format, e);
        case KP_T_INT64:
            return num_to_string(NumberValue::int64(value->value.i64), format, e);
        case KP_T_REAL:
            return num_to_string(NumberValue::real(value->value.real), format, e);
        case KP_T_CURRENCY:
            return num_to_string(NumberValue::currency(Money::from_bytes(value->value.currency)), format, e);
        default:
            break;
        }
        kp_variant copy;
        variant::init(&copy);
        const bool ok = variant::copy(&copy, value) == 0 && variant::convert(&copy, KP_T_REAL) < 100 &&
                        variant::type_of(&copy) == KP_T_REAL;
        const double d = copy.value.real;
        variant::destroy(&copy);
        if (ok) return num_to_string(NumberValue::real(d), format, e);
    }
    e.fail(kErrNotNumeric);
    return {};
}

double min_of(std::span<const double> values) {
    return pick(values, true);
}
double max_of(std::span<const double> values) {
    return pick(values, false);
}

} // namespace kp::numeric
