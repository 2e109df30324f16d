// masks.cpp - date, time and duration masks, names and the regional-settings
// engine of "UseSystemMask".
#include "datetime/masks.h"

#include <limits>

#include "datetime/text.h"

namespace kp::datetime {

using text::append_int;
using text::int_text;
using text::is_digit;
using text::to_lower_ascii;

namespace {

constexpr int64_t kMsPerDay = 86400000;

std::u16string lower_ascii(std::u16string_view s) {
    std::u16string out(s);
    for (auto& c : out)
        c = to_lower_ascii(c);
    return out;
}

bool starts_with_ci(std::u16string_view s, size_t pos, std::u16string_view token) {
    if (pos > s.size() || s.size() - pos < token.size()) return false;
    for (size_t i = 0; i < token.size(); ++i)
        if (to_lower_ascii(s[pos + i]) != to_lower_ascii(token[i])) return false;
    return true;
}

// Replaces every occurrence of `what` from `from` on; true when one was there.
bool replace_all_from(std::u16string& s, std::u16string_view what, std::u16string_view value, size_t from) {
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

bool replace_all(std::u16string& s, std::u16string_view what, std::u16string_view value) {
    return replace_all_from(s, what, value, 0);
}

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

// Leading decimal digits at s[i], at most `max` of them.
struct Digits {
    int64_t value = 0;
    size_t count = 0;
};
Digits read_digits(std::u16string_view s, size_t i, size_t max) {
    Digits d;
    while (i + d.count < s.size() && d.count < max && is_digit(s[i + d.count])) {
        d.value = d.value * 10 + (s[i + d.count] - u'0');
        ++d.count;
    }
    return d;
}

// Characters an abbreviated name keeps: three, or four for names that
// begin with "jui" in any case, so that juin and juillet stay apart.
size_t abbreviation_keep(std::u16string_view name) {
    bool jui = name.size() >= 3 && to_lower_ascii(name[0]) == u'j' && to_lower_ascii(name[1]) == u'u' &&
               to_lower_ascii(name[2]) == u'i';
    return jui ? 4 : 3;
}

// "19" when the two-digit year exceeds 50, else "20".
std::u16string_view century_of(int64_t two_digits) {
    return two_digits > 50 ? u"19" : u"20";
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

// ---- Durations ----

namespace {

struct DurationParts {
    bool negative = false;
    uint64_t days = 0;
    int32_t hours = 0, minutes = 0, seconds = 0, ms = 0;
};

DurationParts split(int64_t v) {
    DurationParts p;
    p.negative = v < 0;
    uint64_t u = p.negative ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
    p.days = u / kMsPerDay;
    uint64_t r = u % kMsPerDay;
    p.hours = static_cast<int32_t>(r / 3600000);
    p.minutes = static_cast<int32_t>(r % 3600000 / 60000);
    p.seconds = static_cast<int32_t>(r % 60000 / 1000);
    p.ms = static_cast<int32_t>(r % 1000);
    return p;
}

void append_uint(std::u16string& out, uint64_t v) {
    char16_t buf[24];
    int n = 0;
    do {
        buf[n++] = static_cast<char16_t>(u'0' + v % 10);
        v /= 10;
    } while (v);
    while (n)
        out.push_back(buf[--n]);
}

// Adds a field to a duration total; false on overflow.
bool add_field(int64_t& total, int64_t value, int64_t unit) {
    if (value < 0) return false;
    if (value > 0 && unit > std::numeric_limits<int64_t>::max() / value) return false;
    int64_t part = value * unit;
    if (total > std::numeric_limits<int64_t>::max() - part) return false;
    total += part;
    return true;
}

// Digits of the whole range, or -1 when one is not a digit or the value
// does not fit.
int64_t number(std::u16string_view s) {
    int64_t v = 0;
    for (char16_t c : s) {
        if (!is_digit(c)) return -1;
        if (v > (std::numeric_limits<int64_t>::max() - 9) / 10) return -1;
        v = v * 10 + (c - u'0');
    }
    return v;
}

} // namespace

std::u16string duration_to_string(int64_t ms, int32_t form) {
    DurationParts p = split(ms);
    std::u16string out;
    if (p.negative) out.push_back(u'-');
    append_uint(out, p.days);
    append_int(out, p.hours, 2);
    append_int(out, p.minutes, 2);
    append_int(out, p.seconds, 2);
    // The hundredths form still prints the milliseconds, on two digits at least.
    append_int(out, p.ms, form == kDurationCenti ? 2 : 3);
    return out;
}

std::u16string duration_to_string(int64_t ms, std::u16string_view mask, const DurationLetters& letters) {
    DurationParts p = split(ms);
    std::u16string s(mask);
    if (!letters.day.empty()) {
        std::u16string days;
        append_uint(days, p.days);
        replace_all(s, letters.day, days);
    }
    if (!letters.hour.empty()) replace_all(s, letters.hour + letters.hour, int_text(p.hours, 2));
    if (!letters.minute.empty()) replace_all(s, letters.minute + letters.minute, int_text(p.minutes, 2));
    if (!letters.second.empty()) replace_all(s, letters.second + letters.second, int_text(p.seconds, 2));
    if (!letters.milli.empty()) {
        std::u16string three = int_text(p.ms, 3);
        if (!replace_all(s, letters.milli + letters.milli + letters.milli, three) &&
            !replace_all(s, letters.milli + letters.milli, three.substr(0, 2)))
            replace_all(s, letters.milli, three.substr(0, 1));
    }
    replace_all(s, u"+", p.negative ? u"-" : u"");
    return s;
}

int64_t string_to_duration(std::u16string_view input, int32_t form) {
    bool negative = false;
    if (!input.empty() && (input[0] == u'-' || input[0] == u'+')) {
        negative = input[0] == u'-';
        input.remove_prefix(1);
    }
    bool centi = form == kDurationCenti;
    size_t last = centi ? 2 : 3; // width of the smallest field
    if (input.size() < last + 7) return 0;
    size_t n = input.size();
    int64_t small = number(input.substr(n - last));
    int64_t secs = number(input.substr(n - last - 2, 2));
    int64_t mins = number(input.substr(n - last - 4, 2));
    int64_t hours = number(input.substr(n - last - 6, 2));
    int64_t days = number(input.substr(0, n - last - 6));
    int64_t total = 0;
    if (!add_field(total, small, centi ? 10 : 1) || !add_field(total, secs, 1000) ||
        !add_field(total, mins, 60000) || !add_field(total, hours, 3600000) ||
        !add_field(total, days, kMsPerDay))
        return 0;
    return negative ? -total : total;
}

int64_t string_to_duration(std::u16string_view input, std::u16string_view mask,
                           const DurationLetters& letters) {
    bool negative = false;
    size_t i = 0;
    if (!input.empty() && (input[0] == u'-' || input[0] == u'+')) {
        negative = input[0] == u'-';
        i = 1;
    }
    auto starts = [&](size_t m, const std::u16string& token) {
        return !token.empty() && mask.substr(m, token.size()) == token;
    };
    const std::u16string hh = letters.hour + letters.hour, mm = letters.minute + letters.minute,
                         ss = letters.second + letters.second, ll = letters.milli + letters.milli,
                         lll = ll + letters.milli;
    int64_t days = 0, hours = 0, minutes = 0, seconds = 0, ms = 0;
    size_t m = 0;
    while (m < mask.size()) {
        auto field = [&](const std::u16string& token, size_t width, int64_t& out, int64_t scale) {
            Digits d = read_digits(input, i, width);
            out = d.value * scale;
            i += d.count;
            m += token.size();
        };
        if (!letters.milli.empty() && starts(m, lll)) {
            field(lll, 3, ms, 1);
        } else if (!letters.milli.empty() && starts(m, ll)) {
            field(ll, 2, ms, 10);
        } else if (!letters.hour.empty() && starts(m, hh)) {
            field(hh, 2, hours, 1);
        } else if (!letters.minute.empty() && starts(m, mm)) {
            field(mm, 2, minutes, 1);
        } else if (!letters.second.empty() && starts(m, ss)) {
            field(ss, 2, seconds, 1);
        } else if (starts(m, letters.day)) {
            // The day count has no fixed width: every digit there is read.
            Digits d = read_digits(input, i, 18);
            days = d.value;
            i += d.count;
            m += letters.day.size();
        } else if (starts(m, letters.milli)) {
            field(letters.milli, 1, ms, 100);
        } else if (mask[m] == u'+') {
            if (i < input.size() && (input[i] == u'-' || input[i] == u'+')) negative = input[i++] == u'-';
            ++m;
        } else {
            // Literal text of the mask stands for as many input characters.
            ++m;
            if (i < input.size()) ++i;
        }
    }
    int64_t total = 0;
    if (!add_field(total, ms, 1) || !add_field(total, seconds, 1000) || !add_field(total, minutes, 60000) ||
        !add_field(total, hours, 3600000) || !add_field(total, days, kMsPerDay))
        return 0;
    return negative ? -total : total;
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

// ---- Regional pictures ----

namespace {

struct PictureToken {
    char16_t letter = 0; // 0 for literal text
    size_t count = 0;
    std::u16string literal;
};

bool picture_letter(char16_t c) {
    return c == u'd' || c == u'M' || c == u'y' || c == u'h' || c == u'H' || c == u'm' || c == u's' ||
           c == u't';
}

template <class F> void each_picture_token(std::u16string_view p, F f) {
    size_t i = 0;
    while (i < p.size()) {
        PictureToken t;
        char16_t c = p[i];
        if (c == u'\'') {
            ++i;
            while (i < p.size()) {
                if (p[i] == u'\'') {
                    if (i + 1 < p.size() && p[i + 1] == u'\'') {
                        t.literal.push_back(u'\'');
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                t.literal.push_back(p[i++]);
            }
        } else if (picture_letter(c)) {
            t.letter = c;
            while (i < p.size() && p[i] == c) {
                ++t.count;
                ++i;
            }
        } else {
            t.literal.push_back(c);
            ++i;
        }
        f(t);
    }
}

void format_picture(std::u16string& out, const PictureToken& t, const Date* d, const Time* tm,
                    const kp_regional_settings* rs) {
    if (!t.letter) {
        out += t.literal;
        return;
    }
    int w = t.count >= 2 ? 2 : 0;
    switch (t.letter) {
    case u'd':
        if (!d) break;
        if (t.count <= 2) {
            append_int(out, d->day, w);
        } else {
            auto name = day_name(*rs, weekday(*day_number(d->year, d->month, d->day)));
            out += t.count == 3 ? abbreviate(name) : std::u16string(name);
        }
        return;
    case u'M':
        if (!d) break;
        if (t.count <= 2)
            append_int(out, d->month, w);
        else
            out += t.count == 3 ? abbreviate(month_name(*rs, d->month))
                                : std::u16string(month_name(*rs, d->month));
        return;
    case u'y':
        if (!d) break;
        if (t.count <= 2)
            append_int(out, d->year % 100, w);
        else
            append_int(out, d->year, 4);
        return;
    case u'h':
        if (!tm) break;
        append_int(out, tm->hour % 12 == 0 ? 12 : tm->hour % 12, w);
        return;
    case u'H':
        if (!tm) break;
        append_int(out, tm->hour, w);
        return;
    case u'm':
        if (!tm) break;
        append_int(out, tm->minute, w);
        return;
    case u's':
        if (!tm) break;
        append_int(out, tm->second, w);
        return;
    case u't':
        if (!tm) break;
        out += t.count == 1 ? (tm->hour < 12 ? u"A" : u"P") : (tm->hour < 12 ? u"AM" : u"PM");
        return;
    default:
        break;
    }
    out.append(t.count, t.letter); // a letter of the other kind of value stays as written
}

} // namespace

std::u16string format_date_picture(const Date& d, std::u16string_view picture,
                                   const kp_regional_settings& rs) {
    std::u16string out;
    each_picture_token(picture, [&](const PictureToken& t) { format_picture(out, t, &d, nullptr, &rs); });
    return out;
}

std::u16string format_time_picture(const Time& t, std::u16string_view picture) {
    std::u16string out;
    each_picture_token(picture,
                       [&](const PictureToken& tok) { format_picture(out, tok, nullptr, &t, nullptr); });
    return out;
}

std::u16string parse_date_picture(std::u16string_view input, std::u16string_view picture,
                                  const kp_regional_settings& rs) {
    int64_t year = -1, month = -1, day = -1;
    size_t i = 0;
    auto skip_letters = [&] {
        while (i < input.size() && !is_digit(input[i]) && input[i] != u' ' && input[i] != u'/' &&
               input[i] != u'.' && input[i] != u'-' && input[i] != u',')
            ++i;
    };
    each_picture_token(picture, [&](const PictureToken& t) {
        if (!t.letter) {
            // Separators are not compared: each stands for one non-digit.
            for (size_t k = 0; k < t.literal.size(); ++k)
                if (i < input.size() && !is_digit(input[i])) ++i;
            return;
        }
        switch (t.letter) {
        case u'd':
            if (t.count <= 2) {
                Digits n = read_digits(input, i, 2);
                if (n.count) day = n.value;
                i += n.count;
            } else {
                skip_letters();
            }
            break;
        case u'M':
            if (t.count <= 2) {
                Digits n = read_digits(input, i, 2);
                if (n.count) month = n.value;
                i += n.count;
            } else {
                // The longest name (or abbreviation) that matches.
                size_t best = 0;
                for (int32_t k = 1; k <= 12; ++k) {
                    std::u16string full = lower_ascii(month_name(rs, k));
                    std::u16string abbr = lower_ascii(abbreviate(month_name(rs, k)));
                    for (const auto& cand : {full, abbr}) {
                        if (!cand.empty() && cand.size() > best && starts_with_ci(input, i, cand)) {
                            best = cand.size();
                            month = k;
                        }
                    }
                }
                if (best)
                    i += best;
                else
                    skip_letters();
            }
            break;
        case u'y': {
            Digits n = read_digits(input, i, t.count <= 2 ? 2 : 4);
            if (n.count)
                year = n.count <= 2 ? (century_of(n.value) == u"19" ? 1900 : 2000) + n.value : n.value;
            i += n.count;
            break;
        }
        default: {
            Digits n = read_digits(input, i, 2);
            i += n.count;
            break;
        }
        }
    });
    if (year < 0 || month < 0 || day < 0) return {};
    return format_date(static_cast<int32_t>(year), static_cast<int32_t>(month), static_cast<int32_t>(day));
}

} // namespace kp::datetime
