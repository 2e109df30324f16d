// durations.cpp - durations as text and back: the fixed forms and the masks
// of localised letters.
#include "datetime/durations.h"

#include <limits>

#include "datetime/calendar.h"
#include "datetime/text.h"

namespace kp::datetime {

using text::append_int;
using text::int_text;
using text::is_digit;
using text::read_digits;
using text::replace_all;
using Digits = text::Digits;

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

} // namespace kp::datetime
