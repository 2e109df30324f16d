// regex.h - whole-string regular-expression matching over the C library's
// GNU regex engine (platform::Regex).
//
// Patterns and subjects are converted to code page 1252 (one byte a UTF-16
// unit, so offsets in the bytes are offsets in the UTF-16 text; characters
// without a 1252 byte become "?").  The engine runs with the syntax bits
// 0x2B244 and under the "C" locale of the calling thread, so every byte is
// one character and the bracket classes ("alpha", "upper", ...) know only
// ASCII letters: accented letters are not letters for them.
//
// Stacked repetition operators are read as the one repetition they amount
// to before compiling ("a+*" as "a*"; see collapse_repetitions).
//
// A match counts only when it covers the whole subject, whatever anchors the
// pattern has.  The compiled pattern and the registers live for one call.
//
// The engine expands bounded repetitions when it compiles, nested bounds
// multiplying ("((((a{1,255}){1,255}){1,255}){1,255})", 38 bytes, would take
// gigabytes and many seconds): a pattern whose expanded size is estimated
// above kRegexSizeLimit nodes is refused before compiling, as a pattern that
// does not compile.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "component/error.h"
#include "platform/regex.h"

namespace kp::transforms {

constexpr unsigned long kRegexSyntax = 0x2B244;
// Largest expanded size compiled, in the engine's nodes (see above): a
// literal of 16384 characters, a{1,2000} (50 MB, 0.06 s to compile).
constexpr uint64_t kRegexSizeLimit = 1u << 14;
// Patterns estimated above this size compile and match in a child process
// (platform::IsolatedRegex), each step stopped after kRegexStepLimit: the
// estimate is a model of the engine's costs, not a bound, and those are the
// patterns whose costs it could underrate ("(){795,}", 8 bytes, estimated
// 9,559, compiles in 1.5 s).  A step that overruns refuses the pattern as
// one that does not compile (80500).  Where no child can be started (a
// sandbox without fork), they compile in the process as the others do.
constexpr uint64_t kRegexIsolateAbove = 1u << 11;
constexpr std::chrono::milliseconds kRegexStepLimit{1000};

constexpr uint32_t kErrPatternInvalid = 80500;
constexpr uint32_t kErrTooManyGroups = 80501;
constexpr uint32_t kErrGroupMissing = 80502;

// One compiled pattern and, after a match, its registers.
class WholeMatch {
  public:
    WholeMatch();
    ~WholeMatch();
    WholeMatch(const WholeMatch&) = delete;
    WholeMatch& operator=(const WholeMatch&) = delete;

    // False when the pattern does not compile.
    bool compile(std::u16string_view pattern);
    // True when the compiled pattern matches the whole of `subject`.
    bool match(std::u16string_view subject);
    // True when the pattern was refused for overrunning kRegexStepLimit in
    // its match (its compile overrunning makes compile() false).
    bool overran() const { return isolated_ && isolated_->overran(); }
    // Start and end (UTF-16 offsets) of group i of the last match; false
    // when the group took no part in it or does not exist.
    bool group(std::size_t i, std::size_t* start, std::size_t* end) const;

  private:
    platform::Regex engine_;
    std::optional<platform::IsolatedRegex> isolated_;
};

// The estimated number of nodes the engine builds for `pattern` (code page
// 1252 bytes), saturated at kRegexSizeLimit + 1.
uint64_t regex_expanded_size(std::string_view pattern);

// The pattern (code page 1252 bytes) with each run of stacked repetition
// operators ("a**", "x+?{2}") written as the one repetition it amounts to,
// where the counts form one interval; everything else as it is.  The engine
// compiles this form (see regex_repetitions.cpp).
std::string collapse_repetitions(std::string_view pattern);

// The reading of an interval at p[i] (its "{") as the engine reads one:
// "{m}", "{m,}", "{,n}", "{m,n}", and "{,}" from 0 on; nothing for any other
// text.  Its numbers saturate at kIntervalNumberCap, `end` is its "}".  The
// counts are not checked against each other nor against the engine's
// largest ("{5,2}" and "{99999}" are read; the engine refuses them).
constexpr uint64_t kIntervalNumberCap = uint64_t{1} << 40;
struct IntervalText {
    uint64_t low = 0;
    uint64_t high = 0;   // meaningful when bounded
    bool bounded = true; // false for "{m,}"
    std::size_t end = 0;
};
std::optional<IntervalText> read_interval_text(std::string_view p, std::size_t i);

// The index of the "]" that ends the bracket expression at p[i] (its "["),
// or nothing when the engine finds no end to it.
std::optional<std::size_t> bracket_end(std::string_view p, std::size_t i);

// Receives the text of group `index` (1-based) for variable `index`; false
// when the runtime refuses the assignment.
using AssignGroup = std::function<bool(std::size_t index, std::u16string_view text)>;

// MatchRegularExpression: true when `pattern` matches the whole of `text`;
// the groups 1..variables go to the variables through `assign`.  Errors
// 80500 (pattern does not compile, with its detail line), 80502 (a variable
// has no group), 80501 (more groups matched than variables).
bool match_regular_expression(std::u16string_view text, std::u16string_view pattern, std::size_t variables,
                              const AssignGroup& assign, CXError& err);

// Records error 80500 with its detail line (shared with fReadLine's pattern form).
void report_invalid_pattern(CXError& err);

} // namespace kp::transforms
