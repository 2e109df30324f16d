// Calendar arithmetic, validation, the functions without masks, the clock, and bad input.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <tuple>
#include <vector>

#include "datetime/calendar.h"
#include "datetime/masks.h"
#include "datetime/now.h"
#include "platform/win32_error.h"
#include "support/error_record.h"
#include "support/xorshift.h"

namespace kp::datetime {
namespace {

using kp::test::Err;

TEST(DayNumber, KnownDaysImpossibleDatesAndTheReform) {
    EXPECT_EQ(day_number(1900, 1, 1), 36525);
    for (const auto& [y, m, d] : {std::array{-1, 1, 1}, {2023, 2, 29}, {2023, 13, 1}, {2023, 4, 0}})
        EXPECT_FALSE(day_number(y, m, d)) << y << "-" << m << "-" << d;
    // Only the first four days of January to November are corrected: 4 and 5 March 1500 are not adjacent.
    EXPECT_NE(*day_number(1500, 3, 5) - *day_number(1500, 3, 4), 1);
    EXPECT_EQ(*day_number(1500, 12, 5) - *day_number(1500, 12, 4), 1);
    EXPECT_TRUE(is_leap(1500) && !is_leap(1900) && is_leap(2000));
}

// Every date of years 1-9999: the 32-bit path against the general one, and from 1583 on against the
// C library's proleptic Gregorian calendar (day number, weekday, date back).
TEST(DayNumber, FourDigitYearsMatchTheValidDatePathAndTheCLibrary) {
    std::tm start{};
    start.tm_year = 1583 - 1900;
    start.tm_mday = 1;
    const time_t t0 = timegm(&start);
    const int32_t first = *day_number(1583, 1, 1);
    int failures = 0;
    for (int32_t y = 1; y <= 9999 && failures < 5; ++y)
        for (int32_t m = 1; m <= 12; ++m)
            for (int32_t d = 1; d <= month_length(y, m); ++d) {
                const Date date{y, m, d};
                const auto n = day_number(y, m, d);
                bool ok = n && valid_day_number(date) == *n && valid_weekday(date) == weekday(*n);
                if (ok && y >= 1583) {
                    const time_t t = t0 + static_cast<time_t>(*n - first) * 86400;
                    std::tm tm{};
                    gmtime_r(&t, &tm);
                    const auto back = date_of(*n);
                    ok = tm.tm_year + 1900 == y && tm.tm_mon + 1 == m && tm.tm_mday == d && back &&
                         back->year == y && back->month == m && back->day == d &&
                         weekday(*n) == (tm.tm_wday == 0 ? 7 : tm.tm_wday);
                }
                if (!ok) {
                    ADD_FAILURE() << y << "-" << m << "-" << d;
                    ++failures;
                }
            }
}

// Day numbers over the 32-bit range: a date of as many year digits as needed from 1 January of year 0
// (80132 below); IntegerToDay keeps the sign of C's remainder.  Cases: year -1; year 0; the last negative
// remainder; remainder 0; an estimate a year short; 32900 wrapping to a 16-bit Julian year.
TEST(DayNumber, WholeRangeToDatesAndWeekdays) {
    // clang-format off
    const struct { int32_t n; const char16_t* date; int32_t day; } cases[] = {
        {INT32_MIN, u"", 7}, {-1661267722, u"", 7}, {-657414, u"", 7}, {-657413, u"00000101", -6},
        {-657072, u"00001207", -1}, {-657071, u"00001208", 7}, {0, u"17991231", 2}, {1, u"18000101", 3},
        {-292179, u"10000101", 3}, {-652893, u"00120519", 6}, {73049, u"20000101", 6}, {2958465, u"99000101", 1},
        {6937804, u"207950123", 1}, {11359102, u"329000229", 1}, {527858757, u"14470280310", 1},
        {INT32_MAX, u"58814100711", 3}};
    // clang-format on
    for (const auto& c : cases) {
        Err e;
        std::u16string date(c.date);
        EXPECT_EQ(integer_to_date(c.n, u"", e.err), date) << c.n;
        EXPECT_EQ(integer_to_day(c.n), c.day) << c.n;
        const int32_t week = integer_week_number(c.n, e.err);
        EXPECT_EQ(e.id(), date.empty() ? kErrDayNumber : 0u) << c.n;
        EXPECT_TRUE(date.empty() ? week == -1 : week >= 0 && week <= 54) << c.n;
        // The part selectors cut the same text: the year is what precedes the month and day.
        const std::size_t y = date.empty() ? 0 : date.size() - 4;
        EXPECT_EQ(integer_to_date(c.n, u"A", e.err), date.substr(0, y));
        EXPECT_EQ(integer_to_date(c.n, u"m", e.err), date.substr(y, date.empty() ? 0 : 2));
        EXPECT_EQ(integer_to_date(c.n, u"j", e.err), date.substr(date.empty() ? 0 : y + 2));
    }
}

// Past the four-digit years the date of n has day number n (where the 16-bit leap rule agrees), a week, a
// day.
TEST(DayNumber, LargeAndSixtyFourBitDayNumbers) {
    kp::test::XorShift g;
    Err e;
    int failures = 0;
    for (int i = 0; i < 200000 && failures < 5; ++i) {
        int32_t n = static_cast<int32_t>(2958465 + g.next() % (uint64_t{INT32_MAX} - 2958465 + 1));
        auto d = date_of(n);
        const int32_t week = integer_week_number(n, e.err), day = integer_to_day(n);
        if (!d || d->year < 9900 || week < 0 || week > 54 || day < 1 || day > 7) {
            ADD_FAILURE() << n;
            ++failures;
            continue;
        }
        if (d->day > month_length(d->year, d->month)) continue; // a wrapped leap rule's extra day
        if (day_number(d->year, d->month, d->day) != n) {
            ADD_FAILURE() << n << " -> " << d->year << "-" << d->month << "-" << d->day;
            ++failures;
        }
    }
    // 64-bit day numbers end with the year 2147483646; beyond, and at the ends of int64_t, no date.
    for (int64_t n : {INT64_MAX, INT64_MAX - 657071, int64_t{1} << 50, INT64_MIN, INT64_MIN + 1})
        EXPECT_FALSE(date_of(n)) << n;
    auto far = date_of(784351000000);
    ASSERT_TRUE(far);
    EXPECT_GT(far->year, 2147480000);
    EXPECT_TRUE(e.clean());
}

TEST(Validation, DatesAndTimesRecordTheirIdentifiers) {
    // clang-format off
    const std::pair<const char16_t*, uint32_t> cases[] = {
        {u"2024010", kErrDateLength}, {u"202401011", kErrDateLength}, {u"", kErrDateLength},
        {u"2024a101", kErrDateDigit}, {u"2024\xD800\x31\x30\x31", kErrDateDigit}, {u"00000101", kErrYearZero},
        {u"15820805", kErrReformGap}, {u"15820814", kErrReformGap}, {u"20241301", kErrMonth},
        {u"20240001", kErrMonth}, {u"20240132", kErrDay}, {u"20240431", kErrDay}, {u"20240100", kErrDay},
        {u"19000229", kErrFebruary29}, {u"20230229", kErrFebruary29}, {u"15820804", 0}, {u"15820815", 0},
        {u"15821010", 0}, {u"20000229", 0}, {u"15000229", 0}, {u"99991231", 0}};
    // clang-format on
    for (const auto& [date, id] : cases) {
        Err e;
        Date d;
        EXPECT_EQ(parse_date(date, d, &e.err), id == 0)
            << std::string(date, date + std::char_traits<char16_t>::length(date));
        EXPECT_EQ(std::pair(e.id(), e.rec.severity), std::pair(id, id ? 2 : 1));
        EXPECT_EQ(date_valid(date), id == 0);
    }
    // clang-format off
    const std::pair<const char16_t*, uint32_t> time_cases[] = {
        {u"126000", kErrMinutes}, {u"00006000", kErrSeconds}, {u"24000000", kErrHours},
        {u"99996099", kErrSeconds}, {u"99590000", kErrHours}, {u"12:30", kErrTimeDigit},
        {u"1230000x", kErrTimeDigit}};
    // clang-format on
    for (const auto& [time, id] : time_cases) {
        Err e2;
        Time t;
        EXPECT_FALSE(parse_time(time, t, &e2.err) || time_valid(time));
        EXPECT_EQ(e2.id(), id);
    }
    Err e2;
    EXPECT_EQ(time_to_integer(u"1230", e2.err), 4500000);
    EXPECT_EQ(time_to_integer(u"", e2.err), 0);
    EXPECT_EQ(time_to_integer(u"23595999123456", e2.err), 8639999); // only the first eight count
    EXPECT_TRUE(e2.clean());
    EXPECT_EQ(time_to_integer(u"2400", e2.err), -1);
    EXPECT_EQ(e2.id(), kErrHours);
}

TEST(IntegerConversions, TimesDatesAndDayNumbers) {
    Err e;
    EXPECT_EQ(integer_to_time(9000000, e.err), u"25000000");
    EXPECT_EQ(integer_to_time(4512345, e.err), u"12320345");
    EXPECT_EQ(integer_to_time(INT32_MAX, e.err), u"5965135647");
    const std::pair<const char16_t*, const char16_t*> cases[] = {{u"Année", u"2024"}, {u"y", u"2024"},
                                                                 {u"jour", u"07"},    {u"D", u"07"},
                                                                 {u"mois", u"03"},    {u"x", u"20240307"}};
    for (const auto& [part, text] : cases)
        EXPECT_EQ(integer_to_date(*day_number(2024, 3, 7), part, e.err), text);
    EXPECT_EQ(date_to_integer(u"20000101", false, e.err), 73049);
    EXPECT_EQ(date_to_integer(u"20241231", true, e.err), 366);
    EXPECT_EQ(date_to_integer(u"20230301", true, e.err), 60);
    EXPECT_TRUE(e.clean());
    Err e2, e3;
    EXPECT_EQ(integer_to_time(-1, e2.err), u"");
    EXPECT_EQ(date_to_integer(u"2023031", false, e3.err), -1);
    EXPECT_EQ(std::pair(e2.id(), e3.id()), (std::pair<uint32_t, uint32_t>(kErrNegativeTime, kErrDateLength)));
}

// 2021 begins on a Friday (1-3 January in week 0), 2024 on a Monday (its last days in week 53), 2020 on a
// Wednesday (week 1).
TEST(Calendar, WeekNumbersDifferencesAndAges) {
    Err e;
    const std::pair<const char16_t*, int32_t> cases[] = {
        {u"20210101", 0},  {u"20210103", 0}, {u"20210104", 1}, {u"20240101", 1},
        {u"20241230", 53}, {u"20200101", 1}, {u"20200106", 2}};
    for (const auto& [date, week] : cases)
        EXPECT_EQ(date_week_number(date, e.err), week) << week;
    EXPECT_EQ(integer_week_number(*day_number(2021, 1, 2), e.err), 0);
    EXPECT_TRUE(e.clean());
    EXPECT_EQ(date_week_number(u"2021010", e.err), -1);
    EXPECT_EQ(e.id(), kErrDateLength);
    EXPECT_EQ(integer_week_number(-800000, e.err), -1);
    EXPECT_EQ(e.id(), kErrDayNumber);
    Err e2;
    EXPECT_EQ(date_difference(u"20240101", u"20241231", e2.err), 365);
    EXPECT_EQ(date_difference(u"20241231", u"20240101", e2.err), -365);
    EXPECT_EQ(time_difference(u"1230", u"1200", e2.err), -180000);
    // clang-format off
    const std::tuple<const char16_t*, const char16_t*, const char16_t*> differences[] = {
        {u"2024010112000000", u"2024010112000000", u"+000000000000000"}, {u"2024010", u"20240101", u""},
        {u"2024010212000000", u"20240101", u"-000000112000000"}, {u"2024010125000000", u"20240101", u""},
        {u"20240101", u"2025010101020304", u"+000036601020304"}};
    // clang-format on
    for (const auto& [a, b, difference] : differences) {
        Err d;
        EXPECT_EQ(date_time_difference(a, b, d.err), difference);
        EXPECT_EQ(d.id(), *difference ? 0u : uint32_t{kErrDateDifference});
    }
    EXPECT_TRUE(e2.clean());
    Err e3;
    EXPECT_EQ(date_difference(u"20240101", u"20240230", e2.err) + time_difference(u"1260", u"1200", e3.err),
              -2);
    EXPECT_EQ(std::pair(e2.id(), e3.id()),
              (std::pair<uint32_t, uint32_t>(kErrDateDifference, kErrTimeDifference)));
    // December lends 31 days.
    // clang-format off
    const std::tuple<const char16_t*, const char16_t*, const char16_t*> ages[] = {
        {u"19800615", u"20240615", u"00440000"}, {u"19800615", u"20240614", u"00431130"}, {u"20240311", u"20240310", u""},
        {u"20230115", u"20240110", u"00001126"}, {u"20230129", u"20240301", u"00010101"}, {u"2024031", u"20240310", u""},
        {u"20240110", u"20240310", u"00000200"}, {u"20240310", u"20240310", u"00000000"}, {u"20240310", u"20240230", u""}};
    // clang-format on
    for (const auto& [birth, today, result] : ages)
        EXPECT_EQ(age(birth, today), result);
}

// Easter against Gauss's algorithm with Lichtenberg's corrections, and on a Sunday.
TEST(Easter, EveryYearFrom1583To9999) {
    for (int32_t y = 1583; y <= 9999; ++y) {
        int32_t k = y / 100, m = 15 + (3 * k + 3) / 4 - (8 * k + 13) / 25, s = 2 - (3 * k + 3) / 4;
        int32_t a = y % 19, d = (19 * a + m) % 30, r = (d + a / 11) / 29;
        int32_t og = 21 + d - r, sz = 7 - (y + y / 4 + s) % 7, oe = 7 - (og - sz) % 7;
        int32_t os = og + oe; // day of March, may run into April
        int32_t month = os > 31 ? 4 : 3, day = os > 31 ? os - 31 : os;
        ASSERT_EQ(easter(y), format_date(y, month, day)) << y;
        ASSERT_EQ(weekday(*day_number(y, month, day)), 7) << y;
    }
    for (int32_t year : {1582, 10000, INT32_MIN})
        EXPECT_EQ(easter(year), u"");
    const std::pair<const char16_t*, const char16_t*> texts[] = {
        {u"2024", u"20240331"}, {u"20241231", u"20240331"}, {u"1582", u""}, {u"abcd", u""}, {u"", u""}};
    for (const auto& [text, date] : texts)
        EXPECT_EQ(easter(text), date);
}

// Central European rules written out, so no zone files are needed.
class TimeZone : public ::testing::Test {
  protected:
    const bool had_ = std::getenv("TZ") != nullptr;
    const std::string saved_ = had_ ? std::getenv("TZ") : "";
    void SetUp() override { setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1), tzset(); }
    void TearDown() override { (had_ ? setenv("TZ", saved_.c_str(), 1) : unsetenv("TZ")), tzset(); }
};

TEST_F(TimeZone, UtcToLocalFollowsDaylightSavingAndFailuresRecord80051) {
    Err e;
    // The spring change happens at 01:00 UTC.
    // clang-format off
    const std::pair<const char16_t*, const char16_t*> cases[] = {
        {u"2024011512000000", u"2024011513000000"}, {u"2024070112000042", u"2024070114000042"},
        {u"2024033100590000", u"2024033101590000"}, {u"2024033101000000", u"2024033103000000"},
        {u"20241231233000", u"2025010100300000"}};
    // clang-format on
    for (const auto& [utc, local] : cases) {
        EXPECT_EQ(date_time_utc_to_local(utc, e.err), local);
        EXPECT_EQ(std::u16string_view(utc).size() == 16 ? date_time_local_to_utc(local, e.err) : utc, utc);
    }
    EXPECT_TRUE(e.clean());
    EXPECT_EQ(date_time_utc_to_local(u"99991231235959", e.err), u""); // past the last day a date string holds
    EXPECT_EQ(e.id(), kErrTimeZone);
    for (const char16_t* bad :
         {u"", u"2024011", u"2024013112000000x", u"2024023012000000", u"15000101", u"2024011525000000"}) {
        Err e, e2;
        EXPECT_EQ(date_time_utc_to_local(bad, e.err) + date_time_local_to_utc(bad, e2.err), u"");
        EXPECT_EQ(std::pair(e.id(), e2.id()), (std::pair<uint32_t, uint32_t>(kErrTimeZone, kErrTimeZone)));
    }
}

// Current date and time, the smoothed hundredths and setting the clock, over a clock the test drives.
class FakeClock : public platform::Clock {
  public:
    platform::SystemTime now{2024, 2, 29, 13, 5, 42, 378, 4};
    uint32_t tick = 1000;
    bool refuse = false;
    mutable int writes = 0;
    mutable platform::SystemTime written{};

    platform::SystemTime local_time() const override { return now; }
    uint32_t tick_ms() const override { return tick; }
    bool set_local_time(const platform::SystemTime& t, uint32_t* error) const override {
        return refuse ? (*error = platform::kErrorPrivilegeNotHeld, false) : (++writes, written = t, true);
    }
};

TEST(CurrentTime, PlainAndSmoothedReadings) {
    FakeClock c;
    Smoother s;
    EXPECT_EQ(date_sys(c), u"20240229");
    EXPECT_EQ(time_sys(c, false, s), u"13054237");
    FakeClock c2;
    Smoother s2;
    c2.now.milliseconds = 0;
    EXPECT_EQ(time_sys(c2, true, s2), u"13054200");
    c2.tick += 456; // the clock still reads the same second
    EXPECT_EQ(time_sys(c2, true, s2), u"13054245");
    c2.tick += 1000;
    c2.now.second = 43;
    EXPECT_EQ(time_sys(c2, true, s2), u"13054345");
    Smoother s3;
    const int64_t base = 3600000;
    EXPECT_EQ(s3.next(base, 0xFFFFFF00u), base);
    EXPECT_EQ(s3.next(base, 0x100u), base + 512); // the tick wraps around 2^32 without a jump
    // More than two seconds of drift: the clock's reading wins.
    EXPECT_EQ(s3.next(base + 10000, 0x200u), base + 10000);
    EXPECT_EQ(s3.next(base + 10000, 0x200u + 2000), base + 12000);
    Smoother late; // past midnight: taken again from the clock
    EXPECT_EQ(late.next(86399000, 0), 86399000);
    EXPECT_EQ(late.next(86399000, 1500), 86399000);
}

TEST(SetClock, FieldsInvalidValuesAndRefusal) {
    FakeClock c;
    Err e;
    const auto& w = c.written;
    auto fields = [&] {
        return std::vector<int>{w.year, w.month, w.day, w.hour, w.minute, w.second, w.milliseconds};
    };
    EXPECT_TRUE(set_date_sys(u"20231225", c, e.err));
    EXPECT_EQ(fields(), (std::vector<int>{2023, 12, 25, 13, 5, 42, 378}));
    EXPECT_TRUE(set_time_sys(u"07080999", c, e.err));
    EXPECT_EQ(fields(), (std::vector<int>{2024, 2, 29, 7, 8, 9, 99})); // hundredths written unscaled
    EXPECT_EQ(e.rec.severity, 1);
    FakeClock c2;
    Err i1, i2, i3;
    EXPECT_FALSE(set_date_sys(u"20230229", c2, i1.err) || set_time_sys(u"2500", c2, i2.err) ||
                 set_date_sys(u"", c2, i3.err));
    EXPECT_EQ(std::tuple(i1.id(), i2.id(), i3.id()),
              (std::tuple<uint32_t, uint32_t, uint32_t>(kErrFebruary29, kErrHours, kErrDateLength)));
    c2.refuse = true; // a refusal records the system error
    Err r1, r2;
    EXPECT_FALSE(set_date_sys(u"20231225", c2, r1.err) || set_time_sys(u"1200", c2, r2.err));
    EXPECT_EQ(r1.rec.severity, 2);
    EXPECT_EQ(
        std::pair(r1.rec.system_code, r2.rec.system_code),
        (std::pair<uint32_t, uint32_t>(platform::kErrorPrivilegeNotHeld, platform::kErrorPrivilegeNotHeld)));
    EXPECT_NE(std::u16string(r1.rec.message, r1.rec.message_length).find(u" (1314)"), std::u16string::npos);
    EXPECT_EQ(c2.writes, 0);
}

// Inputs of any length and content: every function gives its failure value or a well-formed result.
TEST(BadInput, RandomTextGivesFailureValuesOrWellFormedResults) {
    kp::test::XorShift g;
    auto text = [&] {
        static const char16_t pool[] = u"0123456789JDMAYjdmayHSCLP+-/: x\xD800\xDC00\xFFFF\x00E9";
        std::u16string s(g.next() % 4 == 0 ? g.next() % 300 : g.next() % 20, u' ');
        for (auto& c : s)
            c = pool[g.next() % (sizeof(pool) / sizeof(pool[0]) - 1)];
        return s;
    };
    const kp_regional_settings rs{};
    for (int i = 0; i < 20000; ++i) {
        const std::u16string a = text(), b = text();
        std::u16string_view mask = b;
        Err e;
        const int32_t dn = date_to_integer(a, false, e.err), t = time_to_integer(a, e.err);
        const int32_t wd = date_to_day(a, e.err);
        EXPECT_TRUE(dn == -1 || date_valid(a));
        EXPECT_TRUE(t == -1 || (t >= 0 && t < 8640000));
        EXPECT_TRUE(wd == -1 || (wd >= 1 && wd <= 7));
        EXPECT_GE(date_week_number(a, e.err), -1);
        const std::pair<std::u16string, std::size_t> results[] = {{date_time_difference(a, b, e.err), 16},
                                                                  {age(a, b), 8},
                                                                  {easter(a), 8},
                                                                  {string_to_date(a, &mask, rs), 8}};
        for (const auto& [r, size] : results)
            EXPECT_TRUE(r.empty() || r.size() == size);
    }
}

} // namespace
} // namespace kp::datetime
