// numbers.h - parity, the numeric test and sizes as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "component/error.h"
#include "kp120/vm.h"

namespace kp::numeric {

// n is even when it equals itself rounded toward zero to an even number.
inline bool is_even(int32_t n) {
    return n % 2 == 0;
}
inline bool is_odd(int32_t n) {
    return !is_even(n);
}

// The number of characters the device C runtime's wcstod consumes at the
// start of `text`: leading white space, an optional sign, decimal digits
// with an optional "." and fraction, and an optional exponent ("e" or "E",
// an optional sign, digits).  0 when no number starts there (the white space
// then does not count).
std::size_t wcstod_length(std::u16string_view text);

// IsNumeric of a string: texts of 100 characters or more are not numeric;
// otherwise `to_real` gives the VM's conversion of the text (false when the
// VM cannot convert it).  A non-zero real is numeric; a zero one only when
// wcstod reads at least one character of the text ("0", "0.0").
template <typename ToReal> bool is_numeric_text(std::u16string_view text, ToReal&& to_real) {
    if (text.size() >= 100) return false;
    double value = 0;
    if (!to_real(value)) return false;
    if (value != 0) return true;
    return wcstod_length(text) > 0;
}

// IsNumeric of any value: numeric types are numeric, strings follow
// is_numeric_text through the VM's conversion to a real, other types are not.
bool is_numeric(const kp_variant* value);

// The type codes counted as numeric: the integer, currency and real codes
// of the VM (0x02 to 0x0D); 0x01, the boolean, is not numeric.
constexpr bool is_numeric_type(uint16_t type) {
    return type >= 0x02 && type <= 0x0D;
}

// Unit constants of LengthToString (0 = automatic).
enum SizeUnit : int32_t { kSizeAuto = 0, kSizeB = 1, kSizeKB = 2, kSizeMB = 3, kSizeGB = 4, kSizeTB = 5 };

// LengthToString with the unit names ("bytes;kilobytes;...", five names
// separated by ";") and the decimal separator given.  Error 81507 and ""
// for a unit outside 0..5.
std::u16string length_to_string(int64_t size, int32_t unit, std::u16string_view unit_names, char16_t decimal,
                                CXError& err);
// The same with the VM's unit names (the regional replacement list, else
// message 25202) and the regional decimal separator.
std::u16string length_to_string(int64_t size, int32_t unit, CXError& err);

} // namespace kp::numeric
