// masks.h - formatting and parsing of dates and times by masks, and the day
// and month names.
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

// Day and month names of the name functions.
std::u16string integer_to_day_in_alpha(int32_t n, const kp_regional_settings& rs, CXError& err);
std::u16string integer_to_month_in_alpha(int32_t n, const kp_regional_settings& rs, CXError& err);
std::u16string date_to_day_in_alpha(std::u16string_view date, const kp_regional_settings& rs, CXError& err);
std::u16string date_to_month_in_alpha(std::u16string_view date, const kp_regional_settings& rs, CXError& err);

} // namespace kp::datetime
