// wildcard.h - the device's file-name patterns: "*" matches any run of
// characters, "?" exactly one, every other character itself without regard
// to case (simple Unicode case folding of each UTF-16 unit).
//
// As on the device, a pattern that ends with ".*" also matches a name that
// has no dot at all ("*.*" matches every name, "a.*" matches "a").
//
// The match never backtracks: the pattern is cut at its stars into
// segments; the first must start the name, the last must end it, and each
// one between is found at its leftmost place after the one before (the
// leftmost place leaves the most room for what follows, so it is never
// wrong).  A pattern such as "*a*a*a*...b" therefore costs a walk over the
// name per segment at most, never an exponential search.
#pragma once

#include <string>
#include <string_view>

namespace kp::platform {

bool wildcard_match(std::u16string_view pattern, std::u16string_view name);

// True when the text holds "*" or "?".
bool has_wildcards(std::u16string_view text);

// A pattern folded once, for matching many names against it.
class WildcardPattern {
  public:
    explicit WildcardPattern(std::u16string_view pattern);
    bool matches(std::u16string_view name) const;

  private:
    bool match_folded(std::u16string_view name, bool without_dot_star) const;
    std::u16string folded_;
    bool dot_star_ = false;
    bool all_ = false; // "*" or "*.*": every name matches
};

} // namespace kp::platform
