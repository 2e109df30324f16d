// calendar.cpp - validation, day numbers, weeks, differences, Age, Easter
// and time-zone conversion of date-time strings.
#include "datetime/calendar.h"

#include <algorithm>
#include <cmath>

#include "datetime/text.h"
#include "platform/clock.h"

namespace kp::datetime {

using text::append_int;
using text::digits;
using text::is_digit;

namespace {

constexpr int32_t kMonthLength[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
constexpr int64_t kEpoch = kDayNumberEpoch;
constexpr int64_t kHundredthsPerDay = 8640000;

// The day-number formula on 64-bit integers, for estimates far outside the
// four-digit years.
// The 64-bit day numbers reach the years 0 to kMaxYear64: the year is an
// int32_t in a Date and in the leap rule, and no term of the formula then
// comes near the int64_t range.
constexpr int64_t kMaxYear64 = INT32_MAX - 1;

std::optional<int64_t> day_number64(int64_t y, int32_t m, int32_t d) {
    if (y < 0 || y > kMaxYear64 || m < 1 || m > 12 || d < 1) return std::nullopt;
    bool leap = is_leap(static_cast<int32_t>(y));
    if (d > kMonthLength[m - 1] + ((m == 2 && leap) ? 1 : 0)) return std::nullopt;
    return day_number_formula<int64_t>(y, m, d, leap);
}

} // namespace

int32_t month_length(int32_t year, int32_t month) {
    if (month < 1 || month > 12) return 0;
    return kMonthLength[month - 1] + ((month == 2 && is_leap(year)) ? 1 : 0);
}

std::u16string format_date(int32_t year, int32_t month, int32_t day) {
    std::u16string s;
    s.reserve(8);
    append_int(s, year, 4);
    append_int(s, month, 2);
    append_int(s, day, 2);
    return s;
}

std::u16string format_time(int32_t h, int32_t m, int32_t s, int32_t c) {
    std::u16string out;
    out.reserve(8);
    append_int(out, h, 2);
    append_int(out, m, 2);
    append_int(out, s, 2);
    append_int(out, c, 2);
    return out;
}

namespace {

// Records a validation failure; kept out of line so that the checks of a
// valid date stay short.  `value` is the message's insert when it has one.
[[gnu::cold, gnu::noinline]] bool date_failure(CXError* err, uint32_t id, int32_t value = -1) {
    if (err) {
        if (value < 0)
            err->fail(id);
        else
            err->fail(id, {value});
    }
    return false;
}

} // namespace

bool parse_date(std::u16string_view s, Date& out, CXError* err) {
    if (s.size() != 8) return date_failure(err, kErrDateLength);
    // All eight digits tested at once: the common case is a valid date.
    uint32_t v[8], bad = 0;
    for (size_t i = 0; i < 8; ++i) {
        v[i] = static_cast<uint32_t>(s[i]) - u'0';
        bad |= v[i] > 9 ? 1u : 0u;
    }
    if (bad) return date_failure(err, kErrDateDigit);
    int32_t y = static_cast<int32_t>(((v[0] * 10 + v[1]) * 10 + v[2]) * 10 + v[3]),
            m = static_cast<int32_t>(v[4] * 10 + v[5]), d = static_cast<int32_t>(v[6] * 10 + v[7]);
    if (y == 0) return date_failure(err, kErrYearZero);
    // The days that the reform removed, tested on August as the device does.
    if (y == 1582 && m == 8 && d >= 5 && d <= 14) return date_failure(err, kErrReformGap);
    if (m < 1 || m > 12) return date_failure(err, kErrMonth);
    int32_t max = m == 2 ? 29 : kMonthLength[m - 1];
    if (d < 1 || d > max) return date_failure(err, kErrDay, max);
    if (m == 2 && d == 29 && !is_leap(y)) return date_failure(err, kErrFebruary29, y);
    out = Date{y, m, d};
    return true;
}

bool parse_time(std::u16string_view s, Time& out, CXError* err) {
    for (char16_t c : s) {
        if (!is_digit(c)) {
            if (err) err->fail(kErrTimeDigit, {std::u16string(1, c)});
            return false;
        }
    }
    char16_t buf[8];
    for (size_t i = 0; i < 8; ++i)
        buf[i] = i < s.size() ? s[i] : u'0';
    std::u16string_view p(buf, 8);
    Time t{digits(p, 0, 2), digits(p, 2, 2), digits(p, 4, 2), digits(p, 6, 2)};
    // Checked from the seconds up.
    if (t.second >= 60) {
        if (err) err->fail(kErrSeconds);
        return false;
    }
    if (t.minute >= 60) {
        if (err) err->fail(kErrMinutes);
        return false;
    }
    if (t.hour >= 24) {
        if (err) err->fail(kErrHours);
        return false;
    }
    out = t;
    return true;
}

bool parse_date_time(std::u16string_view s, Date& date, Time& time) {
    if (s.size() < 8) return false;
    return parse_date(s.substr(0, 8), date, nullptr) && parse_time(s.substr(8), time, nullptr);
}

std::optional<int32_t> day_number(int32_t year, int32_t month, int32_t day) {
    auto n = day_number64(year, month, day);
    if (!n) return std::nullopt;
    return static_cast<int32_t>(*n);
}

std::optional<Date> date_of(int64_t n) {
    static const int64_t last = *day_number64(kMaxYear64, 12, 31);
    if (n > last) return std::nullopt;
    int64_t y = std::min((n + kEpoch) / 365, kMaxYear64);
    int64_t start = 0;
    for (;;) {
        auto jan1 = day_number64(y, 1, 1);
        if (!jan1) return std::nullopt;
        if (*jan1 <= n) {
            start = *jan1;
            break;
        }
        // No year is longer than 366 days, so stepping back by the whole
        // years of the excess never passes the year that stepping back one
        // at a time finds; far estimates (day numbers near 2^31 are
        // thousands of years short of theirs) take a few steps, not
        // thousands.
        y -= std::max<int64_t>(1, (*jan1 - n) / 366);
    }
    // Before about 1500 the estimate can fall a year short (1 January of
    // those years lies less than 365 days a year after the formula's
    // epoch); the remainder would then run past December, so the year is
    // carried forward while the next 1 January is not after n.
    for (;;) {
        auto next = day_number64(y + 1, 1, 1);
        if (!next || *next > n) break;
        ++y;
        start = *next;
    }
    int64_t rem = n - start + 1;
    int32_t year = static_cast<int32_t>(y);
    int32_t m = 1;
    while (m < 12 && rem > month_length(year, m))
        rem -= month_length(year, m++);
    return Date{year, m, static_cast<int32_t>(rem)};
}

int32_t weekday(int64_t n) {
    // Reduced before adding the epoch, so that no day number overflows.
    int64_t r = (n % 7 + kEpoch % 7) % 7;
    if (r < 0) r += 7;
    return r == 0 ? 7 : static_cast<int32_t>(r);
}

int32_t integer_to_day(int32_t n) {
    int64_t r = (static_cast<int64_t>(n) + kEpoch) % 7;
    return r == 0 ? 7 : static_cast<int32_t>(r);
}

int32_t week_number(int32_t n, const Date& d) {
    int64_t start = day_number64(d.year, 1, 1).value_or(n);
    int64_t w = weekday(start);
    int64_t nn = n;
    if (w <= 4) return static_cast<int32_t>((w - start + nn - 1) / 7 + 1);
    if (nn - start < 8 - w) return 0;
    return static_cast<int32_t>((nn - start + w - 8) / 7 + 1);
}

std::u16string integer_to_date(int32_t n, std::u16string_view part, CXError& err) {
    auto d = date_of(n);
    if (!d) {
        err.fail(kErrDayNumber, {n});
        return {};
    }
    std::u16string out;
    char16_t sel = part.empty() ? 0 : part[0];
    switch (sel) {
    case u'a':
    case u'A':
    case u'y':
    case u'Y':
        append_int(out, d->year, 4);
        return out;
    case u'j':
    case u'J':
    case u'd':
    case u'D':
        append_int(out, d->day, 2);
        return out;
    case u'm':
    case u'M':
        append_int(out, d->month, 2);
        return out;
    default:
        return format_date(d->year, d->month, d->day);
    }
}

std::u16string integer_to_time(int32_t v, CXError& err) {
    if (v < 0) {
        err.fail(kErrNegativeTime);
        return {};
    }
    int32_t h = v / 360000, r = v % 360000;
    return format_time(h, r / 6000, (r % 6000) / 100, r % 100);
}

int32_t time_to_integer(std::u16string_view t, CXError& err) {
    Time tm;
    if (!parse_time(t, tm, &err)) return -1;
    return time_to_hundredths(tm);
}

int32_t date_to_integer(std::u16string_view s, bool day_of_year, CXError& err) {
    Date d;
    if (!parse_date(s, d, &err)) return -1;
    auto n = day_number(d.year, d.month, d.day);
    if (!n) return -1;
    if (!day_of_year) return *n;
    auto jan1 = day_number(d.year, 1, 1);
    return *n - (*jan1 - 1);
}

int32_t date_week_number(std::u16string_view s, CXError& err) {
    Date d;
    if (!parse_date(s, d, &err)) return -1;
    auto n = day_number(d.year, d.month, d.day);
    if (!n) return -1;
    return week_number(*n, d);
}

int32_t integer_week_number(int32_t n, CXError& err) {
    auto d = date_of(n);
    if (!d) {
        err.fail(kErrDayNumber, {n});
        return -1;
    }
    return week_number(n, *d);
}

int32_t date_to_day(std::u16string_view s, CXError& err) {
    Date d;
    if (!parse_date(s, d, &err)) return -1;
    auto n = day_number(d.year, d.month, d.day);
    if (!n) return -1;
    return weekday(*n);
}

int32_t time_valid(std::u16string_view t) {
    Time tm;
    return parse_time(t, tm, nullptr) ? 1 : 0;
}

bool date_valid(std::u16string_view s) {
    Date d;
    return parse_date(s, d, nullptr);
}

int32_t date_difference(std::u16string_view d1, std::u16string_view d2, CXError& err) {
    Date a, b;
    if (!parse_date(d1, a, nullptr) || !parse_date(d2, b, nullptr)) {
        err.fail(kErrDateDifference);
        return -1;
    }
    auto n1 = day_number(a.year, a.month, a.day), n2 = day_number(b.year, b.month, b.day);
    if (!n1 || !n2) {
        err.fail(kErrDateDifference);
        return -1;
    }
    return *n2 - *n1;
}

int32_t time_difference(std::u16string_view t1, std::u16string_view t2, CXError& err) {
    Time a, b;
    if (!parse_time(t1, a, nullptr) || !parse_time(t2, b, nullptr)) {
        err.fail(kErrTimeDifference);
        return -1;
    }
    return time_to_hundredths(b) - time_to_hundredths(a);
}

std::u16string date_time_difference(std::u16string_view dt1, std::u16string_view dt2, CXError& err) {
    Date d1, d2;
    Time t1, t2;
    std::optional<int32_t> n1, n2;
    if (parse_date_time(dt1, d1, t1) && parse_date_time(dt2, d2, t2)) {
        n1 = day_number(d1.year, d1.month, d1.day);
        n2 = day_number(d2.year, d2.month, d2.day);
    }
    if (!n1 || !n2) {
        err.fail(kErrDateDifference);
        return {};
    }
    double v1 = static_cast<double>(*n1) * kHundredthsPerDay + time_to_hundredths(t1);
    double v2 = static_cast<double>(*n2) * kHundredthsPerDay + time_to_hundredths(t2);
    double diff = v2 - v1;
    std::u16string out(1, diff >= 0 ? u'+' : u'-');
    int64_t a = static_cast<int64_t>(std::fabs(diff));
    append_int(out, a / kHundredthsPerDay, 7);
    a %= kHundredthsPerDay;
    append_int(out, a / 360000, 2);
    a %= 360000;
    append_int(out, a / 6000, 2);
    a %= 6000;
    append_int(out, a / 100, 2);
    append_int(out, a % 100, 2);
    return out;
}

std::u16string age(std::u16string_view birth, std::u16string_view reference) {
    Date b, r;
    if (!parse_date(birth, b, nullptr) || !parse_date(reference, r, nullptr)) return {};
    if (r.year * 10000 + r.month * 100 + r.day < b.year * 10000 + b.month * 100 + b.day) return {};
    int32_t years = r.year - b.year;
    int32_t months = r.month - b.month;
    int32_t days;
    if (months < 0) {
        months += 12;
        --years;
    }
    if (r.day < b.day) {
        if (months == 0) {
            months = 12;
            --years;
        }
        --months;
        int32_t before = r.month == 1 ? 12 : r.month - 1;
        int32_t len = before == 2 ? month_length(r.year, 2) : kMonthLength[before - 1];
        days = r.day - b.day + len;
    } else {
        days = r.day - b.day;
    }
    if (years > 9999 || months >= 12 || days >= 31) return {};
    std::u16string out;
    append_int(out, years, 4);
    append_int(out, months, 2);
    append_int(out, days, 2);
    return out;
}

std::u16string easter(int32_t year) {
    if (year < 1583 || year > 9999) return {};
    // One whole Gregorian Easter cycle added: the date is the same.
    int64_t Y = static_cast<int64_t>(year) + 5700000;
    int64_t a = Y % 19, b = Y / 100, c = Y % 100, d = b / 4, e = b % 4, f = (b + 8) / 25, g = (b - f + 1) / 3;
    int64_t h = (19 * a + b - d - g + 15) % 30, i = c / 4, k = c % 4;
    int64_t l = (32 + 2 * e + 2 * i - h - k) % 7;
    int64_t m = (a + 11 * h + 22 * l) / 451;
    int64_t month = (h + l - 7 * m + 114) / 31, day = (h + l - 7 * m + 114) % 31 + 1;
    return format_date(year, static_cast<int32_t>(month), static_cast<int32_t>(day));
}

std::u16string easter(std::u16string_view year) {
    // The year is read like the C library's string-to-integer conversion of
    // the first four characters: optional blanks and sign, then digits.
    std::u16string_view s = year.substr(0, std::min<size_t>(4, year.size()));
    size_t i = 0;
    while (i < s.size() && (s[i] == u' ' || s[i] == u'\t'))
        ++i;
    bool neg = false;
    if (i < s.size() && (s[i] == u'+' || s[i] == u'-')) neg = s[i++] == u'-';
    int32_t v = 0;
    while (i < s.size() && is_digit(s[i]))
        v = v * 10 + (s[i++] - u'0');
    return easter(neg ? -v : v);
}

void set_system_time(platform::SystemTime& out, const Date& date, const Time& time) {
    out.year = date.year;
    out.month = date.month;
    out.day = date.day;
    out.hour = time.hour;
    out.minute = time.minute;
    out.second = time.second;
    out.milliseconds = time.hundredths * 10;
}

namespace {

std::u16string convert_zone(std::u16string_view dt, CXError& err, bool to_local) {
    Date d;
    Time t;
    platform::SystemTime in, out;
    if (parse_date_time(dt, d, t)) {
        set_system_time(in, d, t);
        bool ok = to_local ? platform::utc_to_local(in, out) : platform::local_to_utc(in, out);
        if (ok && out.year <= 9999) {
            std::u16string s = format_date(out.year, out.month, out.day);
            s += format_time(out.hour, out.minute, out.second, out.milliseconds / 10);
            return s;
        }
    }
    err.fail(kErrTimeZone);
    return {};
}

} // namespace

std::u16string date_time_utc_to_local(std::u16string_view dt, CXError& err) {
    return convert_zone(dt, err, true);
}
std::u16string date_time_local_to_utc(std::u16string_view dt, CXError& err) {
    return convert_zone(dt, err, false);
}

} // namespace kp::datetime
