// pictures.cpp - the regional-settings engine behind "UseSystemMask": dates
// and times written and read with the pictures of the regional settings.
#include "datetime/pictures.h"

#include "datetime/masks.h"
#include "datetime/text.h"

namespace kp::datetime {

using text::append_int;
using text::century_of;
using text::is_digit;
using text::lower_ascii;
using text::read_digits;
using text::starts_with_ci;
using Digits = text::Digits;

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
