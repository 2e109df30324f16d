// regional.cpp - regional settings of the reference host, built from ICU's
// locale data: fr_FR for French, en_US for English.  Day and month names are
// the locale's full names as used inside dates; the short date and time
// patterns are rewritten into the device's picture notation (see
// kp_regional_settings in kp120/vm.h).
#include <memory>
#include <string>

#include <unicode/datefmt.h>
#include <unicode/dcfmtsym.h>
#include <unicode/dtfmtsym.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/unistr.h>

#include "services.h"

namespace kp::host {

namespace {

struct Regional {
    std::u16string days[7], months[12], short_date, time_format;
    kp_regional_settings settings{};

    void publish() {
        for (int i = 0; i < 7; ++i)
            settings.day_names[i] = days[i].c_str();
        for (int i = 0; i < 12; ++i)
            settings.month_names[i] = months[i].c_str();
        settings.short_date = short_date.c_str();
        settings.time_format = time_format.c_str();
        settings.size_units = nullptr;
    }
};

std::u16string to_u16(const icu::UnicodeString& s) {
    return std::u16string(reinterpret_cast<const char16_t*>(s.getBuffer()), static_cast<size_t>(s.length()));
}

// A date or time pattern of the locale in picture notation.  Quoted text is
// kept; fields the picture has no letter for (era, time zone...) are left
// out; the narrow and no-break spaces of recent locale data become spaces.
std::u16string to_picture(const std::u16string& p) {
    std::u16string out;
    size_t i = 0;
    while (i < p.size()) {
        char16_t c = p[i];
        if (c == u'\'') {
            size_t j = i + 1;
            while (j < p.size()) {
                if (p[j] == u'\'') {
                    if (j + 1 < p.size() && p[j + 1] == u'\'') {
                        j += 2;
                        continue;
                    }
                    break;
                }
                ++j;
            }
            out.append(p, i, std::min(j + 1, p.size()) - i);
            i = j + 1;
            continue;
        }
        bool letter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
        if (!letter) {
            out.push_back(c == u'\u202F' || c == u'\u00A0' ? u' ' : c);
            ++i;
            continue;
        }
        size_t n = 0;
        while (i + n < p.size() && p[i + n] == c)
            ++n;
        i += n;
        switch (c) {
        case u'd':
            out += n == 1 ? u"d" : u"dd";
            break;
        case u'M':
        case u'L':
            out += n == 1 ? u"M" : n == 2 ? u"MM" : n == 3 ? u"MMM" : u"MMMM";
            break;
        case u'y':
        case u'u':
            out += n == 2 ? u"yy" : u"yyyy";
            break;
        case u'E':
        case u'c':
        case u'e':
            out += n >= 4 ? u"dddd" : u"ddd";
            break;
        case u'h':
        case u'K':
            out += n == 1 ? u"h" : u"hh";
            break;
        case u'H':
        case u'k':
            out += n == 1 ? u"H" : u"HH";
            break;
        case u'm':
            out += n == 1 ? u"m" : u"mm";
            break;
        case u's':
            out += n == 1 ? u"s" : u"ss";
            break;
        case u'a':
        case u'b':
        case u'B':
            out += u"tt";
            break;
        default:
            // No picture letter: drop the field and a separator left dangling.
            while (!out.empty() && (out.back() == u' ' || out.back() == u','))
                out.pop_back();
            break;
        }
    }
    while (!out.empty() && out.back() == u' ')
        out.pop_back();
    return out;
}

std::u16string pattern_of(icu::DateFormat* f) {
    icu::UnicodeString p;
    if (auto* s = dynamic_cast<icu::SimpleDateFormat*>(f)) s->toPattern(p);
    return to_u16(p);
}

// Fixed data for a host without ICU locale data.
void fallback(Regional& r, bool french) {
    static const char16_t* const kDaysFr[7] = {u"lundi",    u"mardi",  u"mercredi", u"jeudi",
                                               u"vendredi", u"samedi", u"dimanche"};
    static const char16_t* const kDaysEn[7] = {u"Monday", u"Tuesday",  u"Wednesday", u"Thursday",
                                               u"Friday", u"Saturday", u"Sunday"};
    static const char16_t* const kMonthsFr[12] = {u"janvier",   u"février", u"mars",     u"avril",
                                                  u"mai",       u"juin",    u"juillet",  u"août",
                                                  u"septembre", u"octobre", u"novembre", u"décembre"};
    static const char16_t* const kMonthsEn[12] = {u"January",   u"February", u"March",    u"April",
                                                  u"May",       u"June",     u"July",     u"August",
                                                  u"September", u"October",  u"November", u"December"};
    for (int i = 0; i < 7; ++i)
        if (r.days[i].empty()) r.days[i] = french ? kDaysFr[i] : kDaysEn[i];
    for (int i = 0; i < 12; ++i)
        if (r.months[i].empty()) r.months[i] = french ? kMonthsFr[i] : kMonthsEn[i];
    if (r.short_date.empty()) r.short_date = french ? u"dd/MM/yyyy" : u"M/d/yyyy";
    if (r.time_format.empty()) r.time_format = french ? u"HH:mm" : u"h:mm tt";
    if (!r.settings.decimal_separator) r.settings.decimal_separator = french ? u',' : u'.';
}

std::unique_ptr<Regional> build(bool french) {
    auto r = std::make_unique<Regional>();
    icu::Locale loc = french ? icu::Locale("fr", "FR") : icu::Locale("en", "US");
    UErrorCode status = U_ZERO_ERROR;
    icu::DateFormatSymbols symbols(loc, status);
    if (U_SUCCESS(status)) {
        int32_t count = 0;
        // ICU's weekdays run from Sunday at index 1; the settings start on Monday.
        const icu::UnicodeString* days = symbols.getWeekdays(count);
        if (days && count >= 8)
            for (int i = 0; i < 7; ++i)
                r->days[i] = to_u16(days[i == 6 ? 1 : i + 2]);
        const icu::UnicodeString* months = symbols.getMonths(count);
        if (months && count >= 12)
            for (int i = 0; i < 12; ++i)
                r->months[i] = to_u16(months[i]);
    }
    std::unique_ptr<icu::DateFormat> date(icu::DateFormat::createDateInstance(icu::DateFormat::kShort, loc));
    if (date) r->short_date = to_picture(pattern_of(date.get()));
    std::unique_ptr<icu::DateFormat> time(icu::DateFormat::createTimeInstance(icu::DateFormat::kShort, loc));
    if (time) r->time_format = to_picture(pattern_of(time.get()));
    status = U_ZERO_ERROR;
    icu::DecimalFormatSymbols numbers(loc, status);
    if (U_SUCCESS(status)) {
        icu::UnicodeString sep = numbers.getSymbol(icu::DecimalFormatSymbols::kDecimalSeparatorSymbol);
        if (sep.length() > 0) r->settings.decimal_separator = static_cast<char16_t>(sep.charAt(0));
    }
    fallback(*r, french);
    r->publish();
    return r;
}

} // namespace

const kp_regional_settings* regional_settings(int32_t language) {
    static const std::unique_ptr<Regional> french = build(true);
    static const std::unique_ptr<Regional> english = build(false);
    return language == 0 ? &french->settings : &english->settings;
}

} // namespace kp::host
