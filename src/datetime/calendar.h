// calendar.h - date, time, date-time and duration values and the calendar
// arithmetic on them.
//
// Encodings:
//   date       "AAAAMMJJ", eight digits;
//   time       "HHmmSSCC", shorter input padded with "0" on the right;
//   date-time  a date immediately followed by a time;
//   day number 1 January 1800 is day 1;
//   int time   hundredths of a second since midnight;
//   duration   signed 64-bit milliseconds.
//
// Validation functions take an optional error object: with one, a failure
// records its error identifier; with null, they are silent.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "component/error.h"

namespace kp::platform {
struct SystemTime;
} // namespace kp::platform

namespace kp::datetime {

// Error identifiers of the family.
enum ErrorId : uint32_t {
    kErrTimeZone = 80051,
    kErrNegativeTime = 80120,
    kErrDateLength = 80121,
    kErrDateDigit = 80122,
    kErrYearZero = 80123,
    kErrReformGap = 80124,
    kErrMonth = 80125,
    kErrDay = 80126,
    kErrFebruary29 = 80127,
    kErrTimeDigit = 80128,
    kErrSeconds = 80129,
    kErrMinutes = 80130,
    kErrHours = 80131,
    kErrDayNumber = 80132,
    kErrDateDifference = 80134,
    kErrTimeDifference = 80135,
};

struct Date {
    int32_t year = 0, month = 0, day = 0;
};

struct Time {
    int32_t hour = 0, minute = 0, second = 0, hundredths = 0;
};

// Days of a common year before the first of each month.
inline constexpr int32_t kDaysBeforeMonth[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
// Milliseconds in a day.
inline constexpr int64_t kMsPerDay = 86400000;
// Days between the epoch of the day-number formula and 1 January 1800.
inline constexpr int32_t kDayNumberEpoch = 657071;

// Leap year; before 1583 every fourth year (the Julian rule).  The year is
// read as the device's 16-bit signed value: every year of a date string
// fits, and the years past 32767 that day numbers reach wrap as they do
// there (a wrapped year below 1583 follows the Julian rule).
inline bool is_leap(int32_t year) {
    const int32_t y = static_cast<int16_t>(year);
    return y % 4 == 0 && (y < 1583 || y % 100 != 0 || y % 400 == 0);
}
// Days in a month of a year (February 28 or 29).
int32_t month_length(int32_t year, int32_t month);

// Validation of a date string; records 80121-80127 into err when non-null.
bool parse_date(std::u16string_view s, Date& out, CXError* err);
// Validation of a time string; records 80128-80131 into err when non-null.
bool parse_time(std::u16string_view s, Time& out, CXError* err);
// A date-time: at least eight characters, the date, then the time.
// Silent; a failure leaves `out` unspecified.
bool parse_date_time(std::u16string_view s, Date& date, Time& time);
// Sets the date and time fields of `out` (hundredths become milliseconds);
// its other fields stay.
void set_system_time(platform::SystemTime& out, const Date& date, const Time& time);

// Day number of a calendar date; nullopt for a negative year, a month out of
// 1..12 or a day out of the month.  Years before 1583 get the correction
// of the calendar reform on days 1-4 of January to November only.
std::optional<int32_t> day_number(int32_t year, int32_t month, int32_t day);
// Calendar date of a day number; nullopt when the search for its year meets
// a negative year (day numbers before 1 January of year 0, -657413) and for
// day numbers after 31 December of the year 2147483646.
// Past 31 December 9999 the year has more than four digits.  The year is
// estimated as (n + 657071) / 365 and stepped back while its 1 January lies
// after n, then forward while the next 1 January does not (an estimate a
// year short, before about 1500); the day of the year is walked through
// the month lengths.
std::optional<Date> date_of(int64_t n);
// 1 Monday .. 7 Sunday; day 1 is a Wednesday.  Total for every integer (the
// mathematical remainder), for the arithmetic on weeks.
int32_t weekday(int64_t n);
// IntegerToDay: (n + 657071) mod 7 with the remainder of C's division,
// which keeps the dividend's sign, 0 read as 7.  For the 342 days of year 0
// before the formula's epoch the result is -6..-1 (or 7); the sum is taken
// on 64 bits so that no day number overflows.
int32_t integer_to_day(int32_t n);
// The day-number formula on a month and day already checked, with the
// year's leap flag given.  T is uint32_t for the years 1..9999 of a date
// string (cheaper division, the result read back as int32_t) and int64_t
// for estimates far outside them.  The reform correction applies to the
// first four days of January to November of the years before 1583,
// literally so.
template <class T> T day_number_formula(T y, int32_t m, int32_t d, bool leap) {
    T k = 0;
    if (y < 1583 && m < 12 && d < 5) {
        int64_t c = (static_cast<int64_t>(y) - 1500) / 100;
        k = static_cast<T>(c / 4 - c + 10); // 10..22
    }
    T y1 = y - 1;
    return y1 * 365 + y1 / 4 - y1 / 100 + y1 / 400 + static_cast<T>(kDaysBeforeMonth[m - 1] + d) +
           static_cast<T>(m >= 3 && leap ? 1 : 0) + k - static_cast<T>(kDayNumberEpoch);
}

// Day number and weekday of a date that parse_date accepted (year 1..9999,
// month and day in range): the values of day_number and weekday, for the
// formatting paths that run on every call.
inline int32_t valid_day_number(const Date& d) {
    return static_cast<int32_t>(
        day_number_formula<uint32_t>(static_cast<uint32_t>(d.year), d.month, d.day, is_leap(d.year)));
}
inline int32_t valid_weekday(const Date& d) {
    // Day 1 is a Wednesday; every valid date lies after the formula's epoch.
    uint32_t r = static_cast<uint32_t>(valid_day_number(d) + kDayNumberEpoch) % 7;
    return r == 0 ? 7 : static_cast<int32_t>(r);
}
// Week number of a valid day number: days before the first Monday of a year
// that starts on Friday to Sunday are in week 0; no wrap at the year's end.
int32_t week_number(int32_t n, const Date& d);

inline int32_t time_to_hundredths(const Time& t) {
    return ((t.hour * 60 + t.minute) * 60 + t.second) * 100 + t.hundredths;
}

// "%04d%02d%02d" / "%02d%02d%02d%02d" as UTF-16.
std::u16string format_date(int32_t year, int32_t month, int32_t day);
std::u16string format_time(int32_t h, int32_t m, int32_t s, int32_t c);

// ---- Language functions (pure parts) ----

// IntegerToDate; `part` selects the year, day or month by its first letter.
std::u16string integer_to_date(int32_t n, std::u16string_view part, CXError& err);
// IntegerToTime: 80120 and "" for a negative value; hours not reduced.
std::u16string integer_to_time(int32_t v, CXError& err);
// TimeToInteger: -1 and the validation error on failure.
int32_t time_to_integer(std::u16string_view t, CXError& err);
// DateToInteger: the day number, or the day of the year; -1 on failure.
int32_t date_to_integer(std::u16string_view d, bool day_of_year, CXError& err);
// WeekNumber / DateToWeekNumber: -1 on an invalid date.
int32_t date_week_number(std::u16string_view d, CXError& err);
// IntegerToWeekNumber: 80132 and -1 for a day number without a date.
int32_t integer_week_number(int32_t n, CXError& err);
// DateToDay: 1..7, -1 on an invalid date.
int32_t date_to_day(std::u16string_view d, CXError& err);
// TimeValid: 1 or 0, silent.
int32_t time_valid(std::u16string_view t);
bool date_valid(std::u16string_view d);

int32_t date_difference(std::u16string_view d1, std::u16string_view d2, CXError& err);
int32_t time_difference(std::u16string_view t1, std::u16string_view t2, CXError& err);
std::u16string date_time_difference(std::u16string_view dt1, std::u16string_view dt2, CXError& err);

// Age in years, months and days ("%04d%02d%02d"); "" on any invalid input
// or a reference date before the birth date.
std::u16string age(std::u16string_view birth, std::u16string_view reference);
// Easter Sunday of a year 1583..9999, "" outside.
std::u16string easter(int32_t year);
// The string form: the year is the number in the first four characters.
std::u16string easter(std::u16string_view year);

// DateTimeUTCToLocal / DateTimeLocalToUTC: 80051 and "" on failure.
std::u16string date_time_utc_to_local(std::u16string_view dt, CXError& err);
std::u16string date_time_local_to_utc(std::u16string_view dt, CXError& err);

} // namespace kp::datetime
