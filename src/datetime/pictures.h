// pictures.h - the regional-settings engine behind "UseSystemMask": dates
// and times written and read with the pictures of the VM's regional
// settings.
#pragma once

#include <string>
#include <string_view>

#include "datetime/calendar.h"
#include "kp120/vm.h"

namespace kp::datetime {

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
