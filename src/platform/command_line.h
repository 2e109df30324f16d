// command_line.h - the device's rules for turning an argument string into
// separate arguments, so that a program started on the host receives the
// arguments it would receive on the device.
//
// Arguments are separated by blanks (space or tab) outside double quotes.
// A double quote opens or closes a quoted part (the quote itself is not
// kept); inside a quoted part, two double quotes in a row give one literal
// quote and the part goes on.  Backslashes are literal, except before a
// double quote: 2n backslashes and a quote give n backslashes and the quote
// opens or closes a quoted part; 2n+1 backslashes and a quote give n
// backslashes and a literal quote.  A quoted part that is empty ("") is an
// empty argument; an unbalanced quote runs to the end of the string.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kp::platform {

std::vector<std::u16string> split_arguments(std::u16string_view arguments);

} // namespace kp::platform
