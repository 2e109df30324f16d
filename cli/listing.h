// listing.h - `kp120 functions`, `kp120 constants` and `kp120 describe`.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "host.h"

namespace kp::cli {

// True when `name` matches `pattern`, ignoring case: `*` and `?` are
// wildcards; a pattern without wildcards matches any name that contains it.
// An empty pattern matches every name.
bool name_matches(std::string_view pattern, std::string_view name);

// One line a matching function: identifier, French name, English name,
// number of overloads and "provided", "partial" (some overloads have no
// handler) or "not provided".  Returns the number of lines.
int list_functions(const kp::host::Host& host, std::string_view pattern, std::FILE* out);

// One line a matching constant: French name, English name, value (an
// integer, a quoted string, or "(not provided)").
int list_constants(const kp::host::Host& host, std::string_view pattern, std::FILE* out);

// The reference entry of the function named `name` (case and accents
// ignored): family, purpose, each overload with its parameters' names and
// types, the failure value and the error identifiers it may record; or the
// value of the constant.  False when there is no such name.
bool describe(const kp::host::Host& host, std::string_view name, std::FILE* out);

// "unknown function or constant 'X'; did you mean A, B or C?" and a line end:
// the nearest names, ignoring case and accents.
std::string unknown_name_text(const kp::host::Host& host, std::string_view name);

// One line a documented function whose family contains `family` (case and
// accents ignored): French name, English name, purpose.  Returns the count.
int list_family(const kp::host::Host& host, std::string_view family, std::FILE* out);

} // namespace kp::cli
