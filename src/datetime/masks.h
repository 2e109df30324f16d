// masks.h - formatting and parsing of dates, times and durations by masks,
// and the day and month names.
//
// Date and time masks use the tokens JJJJ/DDDD (full day name), JJJ/DDD
// (abbreviated), JJ/DD (day), MMMM, MMM, MM (month), AAAA/YYYY and AA/YY
// (year), AP, HH, MM, SS, CC (time); every other character is literal.  The
// mask "UseSystemMask" selects the regional short-date and time formats.
// Names and formats come from the VM's regional settings, passed in.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "component/error.h"
#include "datetime/calendar.h"
#include "kp120/vm.h"

namespace kp::datetime {

inline constexpr std::u16string_view kSystemMask = u"UseSystemMask";

// Duration string forms.
enum DurationForm : int32_t { kDurationMilli = 0, kDurationCenti = 1 };

// Localised token letters of duration masks (at most four characters each).
struct DurationLetters {
    std::u16string day = u"J", hour = u"H", minute = u"M", second = u"S", milli = u"L";
};

// Name abbreviation: three characters, four for names starting with "jui",
// and "." when something was cut.
std::u16string abbreviate(std::u16string_view name);
// Full names (weekday 1 = Monday; month 1 = January); "" out of range.
std::u16string_view day_name(const kp_regional_settings& rs, int32_t weekday);
std::u16string_view month_name(const kp_regional_settings& rs, int32_t month);

// Replaces every occurrence of `token` (or, when absent, of its lower-case
// spelling) by `value`; true when found.
bool replace_token(std::u16string& s, std::u16string_view token, std::u16string_view value);

// DateToString.  `mask` null: the default "JJ/MM/AAAA" form.
std::u16string date_to_string(std::u16string_view date, const std::u16string_view* mask,
                              const kp_regional_settings& rs, CXError& err);
// TimeToString.  `mask` null: "HH:MM:SS:CC".
std::u16string time_to_string(std::u16string_view time, const std::u16string_view* mask,
                              const kp_regional_settings& rs, CXError& err);
// StringToDate.  `mask` null: "JJ/MM/AAAA".  "" when a field is missing.
std::u16string string_to_date(std::u16string_view input, const std::u16string_view* mask,
                              const kp_regional_settings& rs);

// DurationToString with a form (any value but 1 is the millisecond form).
std::u16string duration_to_string(int64_t ms, int32_t form);
// DurationToString with a mask of localised letters.
std::u16string duration_to_string(int64_t ms, std::u16string_view mask, const DurationLetters& letters);
// StringToDuration with a form; 0 for input too short or not numeric.
int64_t string_to_duration(std::u16string_view input, int32_t form);
// StringToDuration with a mask: reads the fields the mask names.
int64_t string_to_duration(std::u16string_view input, std::u16string_view mask,
                           const DurationLetters& letters);

// Day and month names of the name functions.
std::u16string integer_to_day_in_alpha(int32_t n, const kp_regional_settings& rs, CXError& err);
std::u16string integer_to_month_in_alpha(int32_t n, const kp_regional_settings& rs, CXError& err);
std::u16string date_to_day_in_alpha(std::u16string_view date, const kp_regional_settings& rs, CXError& err);
std::u16string date_to_month_in_alpha(std::u16string_view date, const kp_regional_settings& rs, CXError& err);

// The regional-settings engine behind "UseSystemMask": pictures made of
// d dd ddd dddd, M MM MMM MMMM, y yy yyyy, h hh H HH, m mm, s ss, t tt and
// quoted literals.
std::u16string format_date_picture(const Date& d, std::u16string_view picture,
                                   const kp_regional_settings& rs);
std::u16string format_time_picture(const Time& t, std::u16string_view picture);
// Reads a date written with a picture: numbers of one or two digits (four
// for the full year), month names or abbreviations, day names skipped,
// separators not compared.  "" when a field is missing.
std::u16string parse_date_picture(std::u16string_view input, std::u16string_view picture,
                                  const kp_regional_settings& rs);

} // namespace kp::datetime
