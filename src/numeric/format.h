// format.h - numbers as text through a C-style conversion (NumToString),
// and the least and greatest of several reals (Min, Max).
//
// A format holds at most one conversion:
//   "%" [flags] [width] ["." precision] type
//   flags      "-" left-justify, "+" sign always, " " a space for a positive
//              sign, "0" zero padding, "," integer digits grouped by three
//              with ","; a flag may repeat
//   width      digits, at most 2000
//   precision  digits after ".", at most 2000 ("." alone is 0)
//   type       d integer, u unsigned, x X hexadecimal, o octal, e E
//              exponent, f fixed, g G shortest
// The text around the conversion is kept and "%%" is a "%".  Nothing else
// is a format: any other type letter ("n", "i", "s", "p", "a", "c" ...),
// a length modifier ("l", "h", "I64" ...), "*", "#", a "%" at the end, a
// second conversion, a width or precision over 2000, or "," with x, X or o
// (those digits are not grouped by three) make the format wrong: the result
// is the empty string and error 80001 is recorded with the position of the
// fault.  A format is never handed to the C library as written: the
// conversion is rebuilt from what was read.
//
// A format without a conversion (the empty format, or text and "%%" only)
// gives the value in its default text, alone: integers in decimal, reals
// in the shortest text that reads back as the same real ("0.1", "1e+20",
// "inf", "nan"), currency values exactly, without trailing zeros ("2.5",
// "-3").  The decimal separator is always ".".
//
// Values: 4-byte and 8-byte integers, reals and currency values (booleans
// count as the integers 0 and 1).
//   - Integer conversions of a 4-byte integer work on its 32 bits, of any
//     other value on 64 bits: "%u" and "%x" of -1 give "4294967295" and
//     "ffffffff" for a 4-byte integer, 64-bit digits otherwise.  A real is
//     truncated toward zero first; a real that is not finite or outside
//     the 64-bit range is refused (error 80205, empty string).  A currency
//     value gives its integer part (truncated toward zero).
//   - Real conversions of integers convert them to reals first; of a
//     currency value they work on its exact decimal digits, never through a
//     real, and round half away from zero.
//   - Grouping applies to the integer digits of d, u, e, E, f, g and G;
//     with "0" the padding zeros are grouped too, and a group separator is
//     never the first character ("%0,8d" of 1234 gives "0,001,234").
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "component/error.h"
#include "kp120/vm.h"
#include "numeric/money.h"

namespace kp::numeric {

constexpr uint32_t kErrNumberFormat = 80001; // with the position of the fault
constexpr uint32_t kErrNotNumeric = 80205;
constexpr int kMaxFormatWidth = 2000;

struct NumberValue {
    enum class Kind { Int32, Int64, Real, Currency } kind = Kind::Int32;
    int64_t i = 0;
    double d = 0;
    Money m;
    static NumberValue int32(int32_t v) { return {Kind::Int32, v, 0, Money()}; }
    static NumberValue int64(int64_t v) { return {Kind::Int64, v, 0, Money()}; }
    static NumberValue real(double v) { return {Kind::Real, 0, v, Money()}; }
    static NumberValue currency(Money v) { return {Kind::Currency, 0, 0, v}; }
};

// What a format holds once read.
struct NumberFormat {
    bool has_conversion = false;
    bool left = false, plus = false, space = false, zero = false, group = false;
    int width = 0;      // 0: none
    int precision = -1; // -1: none
    char type = 0;
    std::u16string_view before, after; // the text around, "%%" not yet undone
};

// Reads a format; false (and the position of the fault, 1-based) when the
// format is wrong.
bool parse_number_format(std::u16string_view format, NumberFormat& out, std::size_t* fault = nullptr);

// NumToString.  Wrong formats and values give the empty string and an error.
std::u16string num_to_string(const NumberValue& value, std::u16string_view format, CXError& e);
// The same for a variant argument: strings and other types are converted
// to a real through the VM first; what does not convert records 80205.
std::u16string num_to_string(const kp_variant* value, std::u16string_view format, CXError& e);

// Min and Max of the values given.  A NaN takes no part unless every value
// is NaN (the result is then NaN); among equal values the first wins (so
// Min(0, -0) is 0).  No value gives 0.
double min_of(std::span<const double> values);
double max_of(std::span<const double> values);

} // namespace kp::numeric
