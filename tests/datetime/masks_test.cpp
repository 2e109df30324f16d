// Date, time and duration masks, names and the regional pictures.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <tuple>

#include "datetime/durations.h"
#include "datetime/masks.h"
#include "datetime/pictures.h"
#include "support/error_record.h"

namespace kp::datetime {
namespace {

// clang-format off
const kp_regional_settings kFrench = {
    {u"lundi", u"mardi", u"mercredi", u"jeudi", u"vendredi", u"samedi", u"dimanche"},
    {u"janvier", u"février", u"mars", u"avril", u"mai", u"juin", u"juillet", u"août", u"septembre",
     u"octobre", u"novembre", u"décembre"}, u"dd/MM/yyyy", u"HH:mm", u',', nullptr};
const kp_regional_settings kEnglish = {
    {u"Monday", u"Tuesday", u"Wednesday", u"Thursday", u"Friday", u"Saturday", u"Sunday"},
    {u"January", u"February", u"March", u"April", u"May", u"June", u"July", u"August", u"September",
     u"October", u"November", u"December"}, u"M/d/yyyy", u"h:mm tt", u'.', nullptr};
// clang-format on
const kp_regional_settings kNoNames{};

using kp::test::Err;

struct Row { // a text, a mask and the result
    std::u16string_view in, mask, out;
    const kp_regional_settings* rs = &kFrench;
};
using SV = std::u16string_view;
using Conversion = std::u16string (*)(SV, SV, const kp_regional_settings&);
// clang-format off
const Conversion date_mask = [](SV in, SV mask, const kp_regional_settings& rs) { Err e; return date_to_string(in, &mask, rs, e.err); };
const Conversion time_mask = [](SV in, SV mask, const kp_regional_settings& rs) { Err e; return time_to_string(in, &mask, rs, e.err); };
const Conversion parse = [](SV in, SV mask, const kp_regional_settings& rs) { return string_to_date(in, &mask, rs); };
// clang-format on
void check(Conversion f, std::initializer_list<Row> rows) {
    for (const Row& r : rows)
        EXPECT_EQ(f(r.in, r.mask, *r.rs), r.out)
            << std::string(r.mask.begin(), r.mask.end()) << " " << std::string(r.in.begin(), r.in.end());
}

TEST(DateToString, AbbreviationsTokensDefaultFormAndInvalidDates) {
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"juin", u"juin"}, {u"juillet", u"juil."}, {u"Juillet", u"Juil."},
        {u"mai", u"mai"},   {u"février", u"fév."},  {u"Wednesday", u"Wed."},
        {u"", u""}};
    for (const auto& [name, abbreviation] : cases)
        EXPECT_EQ(abbreviate(name), abbreviation);
    // JJ found: DD stays literal; AAAA found: AA and YY too.  Every occurrence of the spelling is replaced.
    // clang-format off
    check(date_mask, {
        {u"20240105", u"JJ/MM/AA", u"05/01/24"}, {u"20240105", u"DD-MM-YYYY", u"05-01-2024"},
        {u"20240105", u"jj/mm/aaaa", u"05/01/2024"},
        {u"20240105", u"JJJJ JJ MMMM AAAA", u"vendredi 05 janvier 2024"},
        {u"20240105", u"DDDD DD MMMM YYYY", u"Friday 05 January 2024", &kEnglish},
        {u"20240105", u"JJJ JJ MMM", u"Fri. 05 Jan.", &kEnglish}, {u"20240605", u"MMM", u"juin"},
        {u"20240705", u"MMM", u"juil."}, {u"20240505", u"MMM", u"mai"},
        {u"20240105", u"JJ DD AAAA YY", u"05 DD 2024 YY"}, {u"20240105", u"JJ.JJ", u"05.05"},
        {u"20240105", u"Le JJ", u"Le 05"}, {u"20240105", u"", u""}, {u"19990105", u"AA", u"99"},
        {u"20240105", u"[JJJJ][JJJ][MMMM][MMM]", u"[][][][]", &kNoNames}});
    // clang-format on
    Err e;
    EXPECT_EQ(date_to_string(u"20240105", nullptr, kFrench, e.err), u"05/01/2024");
    EXPECT_EQ(date_to_string(u"", nullptr, kFrench, e.err), u"");
    EXPECT_TRUE(e.clean());
    std::u16string_view mask = u"JJ/MM/AAAA";
    EXPECT_EQ(date_to_string(u"20230229", &mask, kFrench, e.err), u"");
    EXPECT_EQ(e.rec.id, kErrFebruary29);
    Err e2;
    EXPECT_EQ(date_to_string(std::u16string(100000, u'9'), &mask, kFrench, e2.err), u"");
    EXPECT_EQ(e2.rec.id, kErrDateLength);
}

TEST(Masks, TimesAndParsedDates) {
    // clang-format off
    check(time_mask, {
        {u"00000000", u"HH:MM AP", u"00:00 AM"}, {u"12300000", u"HH:MM AP", u"12:30 PM"},
        {u"13000000", u"HH:MM AP", u"01:00 PM"}, {u"11595999", u"HH:MM:SS.CC AP", u"11:59:59.99 AM"},
        {u"12000000", u"AM HH AP", u"PM 12 PM"}, {u"1305", u"hh:mm ap", u"01:05 PM"},
        {u"1305", u"HH:mm", u"13:05"}, {u"13054217", u"HHhMM SS CC", u"13h05 42 17"}});
    // clang-format on
    Err e;
    EXPECT_EQ(time_to_string(u"12300000", nullptr, kFrench, e.err), u"12:30:00:00");
    EXPECT_EQ(time_to_string(u"", nullptr, kFrench, e.err), u"00:00:00:00");
    EXPECT_TRUE(e.clean());
    std::u16string_view mask = u"HH:MM";
    EXPECT_EQ(time_to_string(u"126000", &mask, kFrench, e.err), u"");
    EXPECT_EQ(e.rec.id, kErrMinutes);
    // Fields are copied as they stand; a two-digit year not reading as a number up to 99 is no year.
    const std::u16string big(50000, u'7'), surrogates(9, u'\xDC00');
    // clang-format off
    check(parse, {
        {u"010150", u"JJMMAA", u"20500101"}, {u"010151", u"JJMMAA", u"19510101"},
        {u"010100", u"JJMMAA", u"20000101"}, {u"2024/01/05", u"YYYY/MM/DD", u"20240105"},
        {u"2024/01/05", u"aaaa-mm-jj", u"20240105"}, {u"240105", u"AAMMJJ", u"20240105"},
        {u"ab/cd/efgh", u"JJ/MM/AAAA", u"efghcdab"}, {u"31/02/2023", u"JJ/MM/AAAA", u"20230231"},
        {u"05/01", u"JJ/MM/AAAA", u""}, {u"05/01/20", u"JJ/MM/AAAA", u""}, {u"0501", u"JJMM", u""},
        {u"05012024", u"", u""}, {u"0101xx", u"JJMMAA", u""}, {u"010150999", u"JJMMAA", u""},
        {big, u"JJMMAA", u""}, {big, u"JJ/MM/AAAA", u"77777777"}});
    // clang-format on
    for (std::u16string_view text : {u"05-01-2024", u"05.01.2024", u""})
        EXPECT_EQ(string_to_date(text, nullptr, kFrench), text.empty() ? u"" : u"20240105");
    EXPECT_EQ(parse(surrogates, u"JJMMAAAA", kFrench).size(), 8u);
}

TEST(Durations, FixedFormsAndMasks) {
    const int64_t min = std::numeric_limits<int64_t>::min(), max = std::numeric_limits<int64_t>::max();
    // The hundredths form prints the milliseconds.
    // clang-format off
    const struct { int64_t v; int32_t form; const char16_t* text; } out[] = {
        {-90061001, kDurationMilli, u"-1010101001"}, {90061001, 7, u"1010101001"},
        {0, kDurationMilli, u"0000000000"}, {5, kDurationCenti, u"000000005"},
        {150, kDurationCenti, u"0000000150"}, {min, kDurationMilli, u"-106751991167071255808"},
        {max, kDurationMilli, u"106751991167071255807"}};
    // Nine characters are too short, and eight after the sign.
    const struct { const char16_t* text; int32_t form; int64_t v; } in[] = {
        {u"-1010101001", kDurationMilli, -90061001}, {u"+1010101001", kDurationMilli, 90061001},
        {u"123000000000", kDurationMilli, 123 * 86400000LL}, {u"101010100", kDurationCenti, 90061000},
        {u"100000000", kDurationMilli, 0}, {u"-10000000", kDurationCenti, 0}, {u"", kDurationMilli, 0},
        {u"1x10101001", kDurationMilli, 0}, {u"99999999999999999999999000000000", kDurationMilli, 0},
        {u"106751991167071255807", kDurationMilli, max}, {u"106751991167071255808", kDurationMilli, 0}};
    // clang-format on
    for (const auto& c : out)
        EXPECT_EQ(duration_to_string(c.v, c.form), c.text) << c.v;
    for (const auto& c : in)
        EXPECT_EQ(string_to_duration(c.text, c.form), c.v) << c.v;
    // Round trips, and the masks over the extremes of the 64-bit range.
    DurationLetters l;
    for (int64_t v : {int64_t{0}, int64_t{1}, int64_t{-86399999}, int64_t{123456789012}, min + 1, max}) {
        EXPECT_EQ(string_to_duration(duration_to_string(v, kDurationMilli), kDurationMilli), v);
        EXPECT_FALSE(duration_to_string(v, u"+J HH MM SS LLL", l).empty());
    }
    EXPECT_FALSE(duration_to_string(min, u"+J HH MM SS LLL", l).empty());
    DurationLetters en{u"D", u"H", u"M", u"S", u"L"}, none{u"", u"", u"", u"", u""};
    // clang-format off
    const struct {
        int64_t v;
        const char16_t* mask;
        const DurationLetters* letters;
        const char16_t* text;
    } out2[] = {
        {90061234, u"J j HH:MM:SS.LLL", &l, u"1 j 01:01:01.234"},
        {90061234, u"HH:MM:SS.LL", &l, u"01:01:01.23"}, {90061234, u"SS.L", &l, u"01.2"},
        {-90061234, u"+J H M S", &l, u"-1 H M S"}, {90061234, u"+HH", &l, u"01"},
        {90061234, u"text", &l, u"text"}, {3 * 86400000LL, u"JJ", &l, u"33"},
        {90061234, u"D days HH:MM", &en, u"1 days 01:01"}, {90061234, u"J HH", &none, u"J HH"}};
    const struct { const char16_t *text, *mask; int64_t v; } in2[] = {
        {u"01:02:03", u"HH:MM:SS", 3723000},
        {u"2 j 01:02:03.456", u"J j HH:MM:SS.LLL", 2 * 86400000LL + 3723456}, {u"-01:00", u"HH:MM", -3600000},
        {u"x-01:00", u"X+HH:MM", -3600000}, {u"00:00.45", u"MM:SS.LL", 450}, {u"00:00.4", u"MM:SS.L", 400},
        {u"", u"HH:MM", 0}, {u"999999999999999999 j", u"J j", 0}};
    // clang-format on
    for (const auto& c : out2)
        EXPECT_EQ(duration_to_string(c.v, c.mask, *c.letters), c.text) << c.v;
    for (const auto& c : in2)
        EXPECT_EQ(string_to_duration(c.text, c.mask, l), c.v) << c.v;
    for (int64_t v : {int64_t{0}, int64_t{90061234}, int64_t{-5 * 86400000LL - 1}}) {
        std::u16string_view mask = u"+J HH:MM:SS.LLL";
        EXPECT_EQ(string_to_duration(duration_to_string(v, mask, l), mask, l), v);
    }
}

TEST(Names, DayAndMonthFunctions) {
    Err e;
    int32_t friday = date_to_integer(u"20240105", false, e.err); // a Friday
    // Past the four-digit years names follow the date; days of year 0 that IntegerToDay numbers below 1 have
    // none.
    // clang-format off
    const std::pair<std::u16string, const char16_t*> names[] = {
        {integer_to_day_in_alpha(friday, kFrench, e.err), u"vendredi"},
        {integer_to_day_in_alpha(friday + 3, kEnglish, e.err), u"Monday"},
        {integer_to_month_in_alpha(INT32_MAX, kEnglish, e.err), u"July"},
        {integer_to_day_in_alpha(INT32_MAX, kEnglish, e.err), u"Wednesday"},
        {integer_to_day_in_alpha(-657413, kEnglish, e.err), u""},
        {integer_to_day_in_alpha(-657071, kEnglish, e.err), u"Sunday"},
        {integer_to_month_in_alpha(friday, kEnglish, e.err), u"January"},
        {date_to_day_in_alpha(u"20240105", kEnglish, e.err), u"Friday"},
        {date_to_month_in_alpha(u"20240815", kFrench, e.err), u"août"}};
    // clang-format on
    for (const auto& [got, name] : names)
        EXPECT_EQ(got, name);
    EXPECT_TRUE(e.clean());
    Err e1, e2, e3;
    EXPECT_EQ(integer_to_month_in_alpha(-657414, kFrench, e1.err), u"");
    EXPECT_EQ(integer_to_day_in_alpha(INT32_MIN, kFrench, e2.err), u"");
    EXPECT_EQ(date_to_month_in_alpha(u"20241301", kFrench, e3.err), u"");
    EXPECT_EQ(std::tuple(e1.id(), e2.id(), e3.id()),
              (std::tuple<uint32_t, uint32_t, uint32_t>(kErrDayNumber, kErrDayNumber, kErrMonth)));
}

TEST(SystemMask, RegionalPicturesFormatAndParse) {
    // clang-format off
    check(date_mask, {
        {u"20240105", kSystemMask, u"1/5/2024", &kEnglish}, {u"20241225", kSystemMask, u"25/12/2024"}});
    check(time_mask, {
        {u"13054217", kSystemMask, u"1:05 PM", &kEnglish}, {u"00054217", kSystemMask, u"12:05 AM", &kEnglish},
        {u"13054217", kSystemMask, u"13:05"}});
    check(parse, {
        {u"1/5/2024", kSystemMask, u"20240105", &kEnglish},
        {u"12/25/24", kSystemMask, u"20241225", &kEnglish}, {u"25/12/2024", kSystemMask, u"20241225"},
        {u"25/12", kSystemMask, u""}, {u"", kSystemMask, u""}});
    // clang-format on
    Date d{2024, 7, 14};
    EXPECT_EQ(format_date_picture(d, u"dddd d MMMM 'de' yyyy", kFrench), u"dimanche 14 juillet de 2024");
    EXPECT_EQ(format_date_picture(d, u"ddd dd MMM yyyy HH", kFrench), u"dim. 14 juil. 2024 HH");
    EXPECT_EQ(parse_date_picture(u"14 juil. 2024", u"d MMM yyyy", kFrench), u"20240714");
    EXPECT_EQ(parse_date_picture(u"dimanche 14 JUILLET 2024", u"dddd d MMMM yyyy", kFrench), u"20240714");
    EXPECT_EQ(parse_date_picture(u"14 juin 2024", u"d MMMM yyyy", kFrench), u"20240614");
}

// The replacements one after the other: the reference the one-pass formatting must agree with on every mask.
std::u16string reference_date_mask(const Date& d, std::u16string s, const kp_regional_settings& rs) {
    int32_t wd = weekday(*day_number(d.year, d.month, d.day));
    std::u16string day(day_name(rs, wd)), month(month_name(rs, d.month));
    auto num = [](int v, int w) {
        std::string a = std::to_string(v);
        a.insert(0, std::max(0, w - static_cast<int>(a.size())), '0');
        return std::u16string(a.begin(), a.end());
    };
    replace_token(s, u"JJJJ", day);
    replace_token(s, u"DDDD", day);
    replace_token(s, u"JJJ", abbreviate(day));
    replace_token(s, u"DDD", abbreviate(day));
    if (!replace_token(s, u"JJ", num(d.day, 2))) replace_token(s, u"DD", num(d.day, 2));
    replace_token(s, u"MMMM", month);
    replace_token(s, u"MMM", abbreviate(month));
    replace_token(s, u"MM", num(d.month, 2));
    if (!replace_token(s, u"AAAA", num(d.year, 4)) && !replace_token(s, u"YYYY", num(d.year, 4)) &&
        !replace_token(s, u"AA", num(d.year % 100, 2)))
        replace_token(s, u"YY", num(d.year % 100, 2));
    return s;
}

TEST(DateToString, AnyMaskMatchesTheSuccessiveReplacements) {
    const char16_t alphabet[] = u"JJJDDDMMMAAAYYjdmay -/.xe";
    const size_t letters = sizeof(alphabet) / sizeof(alphabet[0]) - 1;
    kp_regional_settings odd = kEnglish;
    odd.day_names[4] = u"Fridd"; // a name with a doubled token letter
    odd.month_names[0] = u"Jaan";
    odd.month_names[6] = nullptr; // no name from the VM
    odd.month_names[11] = u"Decemberrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrr"; // overlong
    uint32_t seed = 12345;
    auto next = [&] {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) & 0x7FFF;
    };
    const std::u16string dates[] = {u"20240105", u"20240705", u"19991231", u"00010615"};
    int checked = 0;
    for (int round = 0; round < 20000; ++round) {
        std::u16string mask;
        size_t len = next() % 12;
        for (size_t k = 0; k < len; ++k)
            mask.push_back(alphabet[next() % letters]);
        if (round % 3 == 0) mask = std::u16string(u"JJJJ JJ MMMM AAAA").substr(0, next() % 18) + mask;
        for (const kp_regional_settings* rs :
             {&kFrench, &kEnglish, static_cast<const kp_regional_settings*>(&odd)}) {
            const std::u16string& date = dates[next() % 4];
            Date d;
            ASSERT_TRUE(parse_date(date, d, nullptr));
            std::u16string_view m = mask;
            Err e;
            ASSERT_EQ(date_to_string(date, &m, *rs, e.err), reference_date_mask(d, mask, *rs))
                << std::string(mask.begin(), mask.end());
            ++checked;
        }
    }
    EXPECT_EQ(checked, 60000);
}

} // namespace
} // namespace kp::datetime
