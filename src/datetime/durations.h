// durations.h - durations (signed milliseconds) as text and back: the fixed
// forms "DDHHMMSSLLL" and "DDHHMMSSCC", and masks of localised letters.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kp::datetime {

// Duration string forms.
enum DurationForm : int32_t { kDurationMilli = 0, kDurationCenti = 1 };

// Localised token letters of duration masks (at most four characters each).
struct DurationLetters {
    std::u16string day = u"J", hour = u"H", minute = u"M", second = u"S", milli = u"L";
};

// DurationToString with a form (any value but 1 is the millisecond form).
std::u16string duration_to_string(int64_t ms, int32_t form);
// DurationToString with a mask of localised letters.
std::u16string duration_to_string(int64_t ms, std::u16string_view mask, const DurationLetters& letters);
// StringToDuration with a form; 0 for input too short or not numeric.
int64_t string_to_duration(std::u16string_view input, int32_t form);
// StringToDuration with a mask: reads the fields the mask names.
int64_t string_to_duration(std::u16string_view input, std::u16string_view mask,
                           const DurationLetters& letters);

} // namespace kp::datetime
