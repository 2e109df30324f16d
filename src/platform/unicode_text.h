// unicode_text.h - Unicode character properties and case mapping of UTF-16
// text, for the families that compare or key text without regard to case.
// The implementation (unicode_text_icu.cpp) uses ICU's root locale, so the
// results never depend on the process's locale.
#pragma once

#include <string>
#include <string_view>

namespace kp::platform {

// The full upper-case mapping of `s` (a result may be longer, "ß" gives
// "SS"); `s` itself when the mapping fails.
std::u16string to_upper(std::u16string_view s);
// The simple upper-case mapping of one UTF-16 unit (the unit itself when it
// has none in one unit).
char16_t to_upper(char16_t c);
// The simple case folding of one UTF-16 unit.
char16_t fold_case(char16_t c);
// Whether the unit is a letter or a digit.
bool is_alphanumeric(char16_t c);

} // namespace kp::platform
