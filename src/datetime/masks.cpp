// masks.cpp - date and time masks and the day and month names.
#include "datetime/masks.h"

#include <limits>

#include "datetime/pictures.h"
#include "datetime/text.h"

namespace kp::datetime {

using text::append_int;
using text::century_of;
using text::int_text;
using text::is_digit;
using text::lower_ascii;
using text::read_digits;
using text::replace_all;
using text::replace_all_from;
using text::starts_with_ci;
using text::to_lower_ascii;
using Digits = text::Digits;

namespace {

// A mask being replaced, with the set of ASCII characters it may hold so
// that tokens whose first letter never occurred are not searched for.  The
// set only grows (inserted values are added), so it never hides a token.
struct MaskText {
    std::u16string s;
    uint64_t seen[2] = {0, 0};

    explicit MaskText(std::u16string_view mask) {
        s.reserve(mask.size() + 48);
        s.assign(mask);
        note(mask);
    }
    void note(std::u16string_view v) {
        for (char16_t c : v)
            if (c < 128) seen[c >> 6] |= uint64_t{1} << (c & 63);
    }
    bool has(char16_t c) const { return c < 128 && ((seen[c >> 6] >> (c & 63)) & 1); }
};

// Token replacement with the value produced only when the token is there.
template <class Make> bool replace_token_with(MaskText& t, std::u16string_view token, Make make) {
    if (t.has(token[0])) {
        size_t pos = t.s.find(token.data(), 0, token.size());
        if (pos != std::u16string::npos) {
            auto value = make();
            t.note(value);
            return replace_all_from(t.s, token, value, pos);
        }
    }
    char16_t low[8];
    if (token.size() > 8) return false;
    bool differs = false;
    for (size_t i = 0; i < token.size(); ++i) {
        low[i] = to_lower_ascii(token[i]);
        differs |= low[i] != token[i];
    }
    if (!differs || !t.has(low[0])) return false;
    std::u16string_view lowered(low, token.size());
    size_t pos = t.s.find(lowered.data(), 0, lowered.size());
    if (pos == std::u16string::npos) return false;
    auto value = make();
    t.note(value);
    return replace_all_from(t.s, lowered, value, pos);
}

bool replace_number(MaskText& t, std::u16string_view token, int64_t v, int width) {
    return replace_token_with(t, token, [&] { return int_text(v, width); });
}

// Characters an abbreviated name keeps: three, or four for names that
// begin with "jui" in any case, so that juin and juillet stay apart.
size_t abbreviation_keep(std::u16string_view name) {
    bool jui = name.size() >= 3 && to_lower_ascii(name[0]) == u'j' && to_lower_ascii(name[1]) == u'u' &&
               to_lower_ascii(name[2]) == u'i';
    return jui ? 4 : 3;
}

} // namespace

std::u16string abbreviate(std::u16string_view name) {
    size_t keep = abbreviation_keep(name);
    if (name.size() <= keep) return std::u16string(name);
    std::u16string out(name.substr(0, keep));
    out.push_back(u'.');
    return out;
}

std::u16string_view day_name(const kp_regional_settings& rs, int32_t weekday) {
    if (weekday < 1 || weekday > 7 || !rs.day_names[weekday - 1]) return {};
    return rs.day_names[weekday - 1];
}

std::u16string_view month_name(const kp_regional_settings& rs, int32_t month) {
    if (month < 1 || month > 12 || !rs.month_names[month - 1]) return {};
    return rs.month_names[month - 1];
}

bool replace_token(std::u16string& s, std::u16string_view token, std::u16string_view value) {
    MaskText t(s);
    bool found = replace_token_with(t, token, [&] { return value; });
    s = std::move(t.s);
    return found;
}

namespace {

// The letters of date tokens, either case: J D M A Y.
bool token_letter(char16_t c) {
    constexpr uint32_t kLetters =
        (1u << ('j' - 'a')) | (1u << ('d' - 'a')) | (1u << ('m' - 'a')) | (1u << 0) | (1u << ('y' - 'a'));
    char16_t l = c | 0x20;
    return l >= u'a' && l <= u'z' && ((kLetters >> (l - u'a')) & 1);
}

// Classes of the ASCII characters in a date mask: 0 literal, an upper-case
// token letter (its own code), or kLowerToken for j d m a y.
constexpr char16_t kLowerToken = 1;
struct MaskClasses {
    char16_t of[128] = {};
    constexpr MaskClasses() {
        for (char16_t c : {u'J', u'D', u'M', u'A', u'Y'}) {
            of[c] = c;
            of[c | 0x20] = kLowerToken;
        }
    }
};
constexpr MaskClasses kMaskClasses;

inline char16_t mask_class(char16_t c) {
    return c < 128 ? kMaskClasses.of[c] : 0;
}

// Two decimal digits of 0..99.
inline char16_t* put_two(char16_t* p, uint32_t v) {
    p[0] = static_cast<char16_t>(u'0' + v / 10);
    p[1] = static_cast<char16_t>(u'0' + v % 10);
    return p + 2;
}

// Writes a name of the regional settings (a null-terminated text, or null
// for none) or its abbreviation, reading it once: its length, the copy and
// the test that it holds no doubled token letter, which could form a token
// with the text around it.  Null when the name is longer than `max` or not
// plain: the mask then takes the general path.
char16_t* put_name(char16_t* p, const char16_t* name, size_t max, bool abbreviated) {
    if (!name) return p;
    char16_t* start = p;
    char16_t prev = 0;
    bool doubled = false;
    for (; *name; ++name) {
        if (static_cast<size_t>(p - start) == max) return nullptr;
        char16_t c = *name;
        doubled |= c == prev && token_letter(c);
        prev = c;
        *p++ = c;
    }
    if (doubled) return nullptr;
    if (abbreviated) {
        size_t keep = abbreviation_keep(std::u16string_view(start, static_cast<size_t>(p - start)));
        if (static_cast<size_t>(p - start) > keep) {
            p = start + keep;
            *p++ = u'.';
        }
    }
    return p;
}

// One pass over the mask for the common masks, whose result is the same as
// that of the successive replacements: upper-case runs of exactly a token's
// length, no lower-case token letter, one spelling of the day number and of
// the year, and names that cannot form tokens with what surrounds them.  The
// text is written while the mask is read; returns false (and leaves `out`
// alone) as soon as the mask turns out to need the general path.
bool date_mask_one_pass(const Date& d, int32_t wd, std::u16string_view mask, const kp_regional_settings& rs,
                        std::u16string& out) {
    // Written on the stack and copied once: the text is short.
    constexpr size_t kNameMax = 48, kMaskMax = 160, kRunMax = 16;
    if (mask.size() > kMaskMax) return false;
    char16_t buf[kMaskMax + kRunMax * (kNameMax + 1)];
    char16_t* p = buf;
    // A valid date has a weekday of 1..7 and a month of 1..12.
    const char16_t* day = rs.day_names[wd - 1];
    const char16_t* month = rs.month_names[d.month - 1];
    char16_t year_kind = 0, day_kind = 0;
    size_t year_len = 0, runs = 0;
    const char16_t* s = mask.data();
    const char16_t* end = s + mask.size();
    while (s < end) {
        char16_t c = *s, k = mask_class(c);
        if (k == 0) {
            *p++ = c;
            ++s;
            continue;
        }
        if (k == kLowerToken) return false;
        const char16_t* r = s + 1;
        while (r < end && *r == c)
            ++r;
        size_t n = static_cast<size_t>(r - s);
        if (n < 2 || n > 4 || ++runs > kRunMax) return false;
        if (n >= 3 && c != u'A' && c != u'Y') {
            // A name run needs plain text on both sides.
            if ((s > mask.data() && mask_class(s[-1])) || (r < end && mask_class(*r))) return false;
            p = put_name(p, c == u'M' ? month : day, kNameMax, n == 3);
            if (!p) return false;
        } else if (c == u'M') {
            p = put_two(p, static_cast<uint32_t>(d.month));
        } else if (c == u'J' || c == u'D') {
            if (day_kind && day_kind != c) return false;
            day_kind = c;
            p = put_two(p, static_cast<uint32_t>(d.day));
        } else {
            if (n == 3 || (year_kind && (year_kind != c || year_len != n))) return false;
            year_kind = c;
            year_len = n;
            uint32_t y = static_cast<uint32_t>(d.year);
            if (n == 4) p = put_two(p, y / 100 % 100);
            p = put_two(p, y % 100);
        }
        s = r;
    }
    // Built in place: cheaper than assigning into an empty string.
    out = std::u16string(buf, static_cast<size_t>(p - buf));
    return true;
}

} // namespace

std::u16string date_to_string(std::u16string_view date, const std::u16string_view* mask,
                              const kp_regional_settings& rs, CXError& err) {
    if (date.empty()) return {};
    Date d;
    if (!parse_date(date, d, &err)) return {};
    if (mask && *mask == kSystemMask)
        return format_date_picture(d, rs.short_date ? rs.short_date : u"dd/MM/yyyy", rs);
    if (!mask) {
        std::u16string out;
        out.reserve(10);
        append_int(out, d.day, 2);
        out.push_back(u'/');
        append_int(out, d.month, 2);
        out.push_back(u'/');
        append_int(out, d.year, 4);
        return out;
    }
    int32_t wd = valid_weekday(d);
    std::u16string quick;
    if (date_mask_one_pass(d, wd, *mask, rs, quick)) return quick;
    MaskText s(*mask);
    auto full_day = [&] { return day_name(rs, wd); };
    auto short_day = [&] { return abbreviate(day_name(rs, wd)); };
    replace_token_with(s, u"JJJJ", full_day);
    replace_token_with(s, u"DDDD", full_day);
    replace_token_with(s, u"JJJ", short_day);
    replace_token_with(s, u"DDD", short_day);
    if (!replace_number(s, u"JJ", d.day, 2)) replace_number(s, u"DD", d.day, 2);
    replace_token_with(s, u"MMMM", [&] { return month_name(rs, d.month); });
    replace_token_with(s, u"MMM", [&] { return abbreviate(month_name(rs, d.month)); });
    replace_number(s, u"MM", d.month, 2);
    if (!replace_number(s, u"AAAA", d.year, 4) && !replace_number(s, u"YYYY", d.year, 4) &&
        !replace_number(s, u"AA", d.year % 100, 2))
        replace_number(s, u"YY", d.year % 100, 2);
    return std::move(s.s);
}

std::u16string time_to_string(std::u16string_view time, const std::u16string_view* mask,
                              const kp_regional_settings& rs, CXError& err) {
    Time t;
    if (!parse_time(time, t, &err)) return {};
    if (mask && *mask == kSystemMask)
        return format_time_picture(t, rs.time_format ? rs.time_format : u"HH:mm:ss");
    if (!mask) {
        std::u16string out;
        out.reserve(11);
        append_int(out, t.hour, 2);
        out.push_back(u':');
        append_int(out, t.minute, 2);
        out.push_back(u':');
        append_int(out, t.second, 2);
        out.push_back(u':');
        append_int(out, t.hundredths, 2);
        return out;
    }
    MaskText s(*mask);
    int32_t h = t.hour;
    if (replace_token_with(s, u"AP", [&] { return std::u16string_view(h < 12 ? u"AM" : u"PM"); })) {
        // Noon keeps 12 and turns the whole text to PM; every other hour is
        // taken modulo 12, so midnight prints as 00.
        if (h == 12)
            replace_all(s.s, u"AM", u"PM");
        else
            h %= 12;
    }
    replace_number(s, u"HH", h, 2);
    replace_number(s, u"MM", t.minute, 2);
    replace_number(s, u"SS", t.second, 2);
    replace_number(s, u"CC", t.hundredths, 2);
    return std::move(s.s);
}

std::u16string string_to_date(std::u16string_view input, const std::u16string_view* mask_arg,
                              const kp_regional_settings& rs) {
    if (input.empty()) return {};
    std::u16string_view mask = mask_arg ? *mask_arg : std::u16string_view(u"JJ/MM/AAAA");
    if (mask == kSystemMask)
        return parse_date_picture(input, rs.short_date ? rs.short_date : u"dd/MM/yyyy", rs);
    std::u16string year, month, day;
    bool got_year = false, got_month = false, got_day = false;
    size_t m = 0, i = 0;
    auto avail = [&](size_t n) { return i <= input.size() && input.size() - i >= n; };
    while (m < mask.size()) {
        if ((starts_with_ci(mask, m, u"AAAA") || starts_with_ci(mask, m, u"YYYY")) && avail(4)) {
            year = input.substr(i, 4);
            got_year = true;
            m += 4;
            i += 4;
            continue;
        }
        if (starts_with_ci(mask, m, u"AA") || starts_with_ci(mask, m, u"YY")) {
            if (m + 2 < mask.size() && to_lower_ascii(mask[m + 2]) == u'a') {
                ++m;
                ++i;
                continue;
            }
            bool ok = avail(2);
            if (ok && !starts_with_ci(mask, m + 2, u"MM")) {
                // The rest of the input must read as a number of at most 99,
                // and a zero must really be written.
                size_t zeros = 0;
                while (i + zeros < input.size() && input[i + zeros] == u'0')
                    ++zeros;
                Digits n = read_digits(input, i + zeros, 3);
                ok = zeros + n.count > 0 && n.value <= 99;
            }
            if (ok) {
                Digits two = read_digits(input, i, 2);
                year = century_of(two.value);
                year += input.substr(i, 2);
                got_year = true;
                m += 2;
                i += 2;
                continue;
            }
        }
        if (starts_with_ci(mask, m, u"MM") && avail(2)) {
            month = input.substr(i, 2);
            got_month = true;
            m += 2;
            i += 2;
            continue;
        }
        if ((starts_with_ci(mask, m, u"JJ") || starts_with_ci(mask, m, u"DD")) && avail(2)) {
            day = input.substr(i, 2);
            got_day = true;
            m += 2;
            i += 2;
            continue;
        }
        // Any other mask character stands for one input character, whatever it is.
        ++m;
        if (i < input.size()) ++i;
    }
    if (!got_year || !got_month || !got_day) return {};
    return year + month + day;
}

// ---- Names ----

// The day of a day number that has a date, named as IntegerToDay numbers
// it: the days of year 0 before the formula's epoch, numbered -6..-1, have
// no name and give "" without an error.
std::u16string integer_to_day_in_alpha(int32_t n, const kp_regional_settings& rs, CXError& err) {
    if (!date_of(n)) {
        err.fail(kErrDayNumber, {n});
        return {};
    }
    return std::u16string(day_name(rs, integer_to_day(n)));
}

std::u16string integer_to_month_in_alpha(int32_t n, const kp_regional_settings& rs, CXError& err) {
    auto d = date_of(n);
    if (!d) {
        err.fail(kErrDayNumber, {n});
        return {};
    }
    return std::u16string(month_name(rs, d->month));
}

std::u16string date_to_day_in_alpha(std::u16string_view date, const kp_regional_settings& rs, CXError& err) {
    Date d;
    if (!parse_date(date, d, &err)) return {};
    return std::u16string(day_name(rs, weekday(*day_number(d.year, d.month, d.day))));
}

std::u16string date_to_month_in_alpha(std::u16string_view date, const kp_regional_settings& rs,
                                      CXError& err) {
    Date d;
    if (!parse_date(date, d, &err)) return {};
    return std::u16string(month_name(rs, d.month));
}

} // namespace kp::datetime
