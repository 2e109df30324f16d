// regex_repetitions.cpp - reads stacked repetition operators ("a**", "x+*?",
// "(y)*{2,5}") as the one repetition they amount to, before the engine
// compiles the pattern.
//
// The engine builds one loop per operator, nested, and its compile and match
// times grow with the product of those loops when an anchor or an operand
// that matches empty sits among them ("(+*$)+*$)*", 10 bytes, never ends;
// "^" and 16 times "a***" takes minutes): one operator for the run costs
// nothing.  A run of counts A then B repeats its operand k times A for k in
// B; when those counts form one interval the run is written as that interval
// ("*" after anything is "*", "+*" and "?+" are "*", "++" is "+", "??" is
// "?", "+{3}" is "{3,}"), and when they leave a gap ("{2}?": none or two) the
// run stays as written.  The pattern matches the same strings; a group under
// such a run that can match empty reports the last iteration of the single
// repetition ("(a*)+*" on "a": 0 to 1, where the nested loops would report
// an empty last pass, 1 to 1).
//
// The reading follows the engine's syntax 0x2B244: "*", "+", "?" and "{" are
// plain characters where an operand is expected (at the start, after "(" or
// "|", and after an anchor, which takes no repetition), "^" is an anchor
// only there, "$" only at the end or before "|" or ")", a ")" (closing a
// group or unmatched, then a character) is an operand, and "\\" escapes one
// character.  A pattern the reading does
// not fully understand (an unterminated bracket, a malformed interval, a
// trailing "\\") is left as it is: the engine refuses those anyway.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "transforms/regex.h"

namespace kp::transforms {

namespace {

// The engine's largest repetition count (RE_DUP_MAX).
constexpr uint32_t kDupMax = 0x7fff;
constexpr uint32_t kUnbounded = UINT32_MAX;

// A repetition: from `low` to `high` copies of its operand.
struct Counts {
    uint32_t low = 0;
    uint32_t high = 0;
};

// Reads an interval at p[i] (the "{") into `out`; i ends on its "}".  False
// for anything the engine would not read as a valid interval.
bool read_interval(std::string_view p, std::size_t& i, Counts& out) {
    const auto text = read_interval_text(p, i);
    if (!text || text->low > kDupMax || (text->bounded && (text->high > kDupMax || text->low > text->high)))
        return false;
    out = {static_cast<uint32_t>(text->low), text->bounded ? static_cast<uint32_t>(text->high) : kUnbounded};
    i = text->end;
    return true;
}

// The counts of "a then b" when they form one interval: k times [a.low,
// a.high] for every k in [b.low, b.high] leaves no gap when consecutive k
// touch, which is hardest for the smallest k.
std::optional<Counts> compose(Counts a, Counts b) {
    auto product = [](uint32_t x, uint32_t y) -> uint64_t {
        if (x == 0 || y == 0) return 0;
        if (x == kUnbounded || y == kUnbounded) return kUnbounded;
        return uint64_t{x} * y;
    };
    if (b.high > b.low) {
        const uint64_t k = b.low == 0 ? 0 : b.low;
        // k copies reach up to k * a.high; k + 1 copies start at (k + 1) * a.low.
        const uint64_t reach = a.high == kUnbounded && k > 0 ? UINT64_MAX : k * a.high;
        if (reach != UINT64_MAX && (k + 1) * a.low > reach + 1) return std::nullopt;
    }
    const uint64_t low = product(a.low, b.low), high = product(a.high, b.high);
    if (low > kDupMax || (high > kDupMax && high != kUnbounded)) return std::nullopt;
    return Counts{static_cast<uint32_t>(low), static_cast<uint32_t>(high)};
}

void write(std::string& out, Counts c) {
    if (c.low == 0 && c.high == kUnbounded) return out.push_back('*');
    if (c.low == 1 && c.high == kUnbounded) return out.push_back('+');
    if (c.low == 0 && c.high == 1) return out.push_back('?');
    out += '{' + std::to_string(c.low);
    if (c.high == kUnbounded)
        out += ',';
    else if (c.high != c.low)
        out += ',' + std::to_string(c.high);
    out += '}';
}

// A run of repetitions reduced: each one is composed with the one before it
// while they form an interval (composition is associative, so the run may be
// reduced from either end).
class Run {
  public:
    void add(Counts c) {
        reps_.push_back(c);
        while (reps_.size() > 1) {
            const auto merged = compose(reps_[reps_.size() - 2], reps_.back());
            if (!merged) break;
            reps_.pop_back();
            reps_.back() = *merged;
        }
    }
    bool empty() const { return reps_.empty(); }
    void flush(std::string& out) {
        for (const Counts& c : reps_)
            write(out, c);
        reps_.clear();
    }

  private:
    std::vector<Counts> reps_;
};

} // namespace

std::string collapse_repetitions(std::string_view p) {
    std::string out;
    out.reserve(p.size());
    Run run;
    // Where an operand is expected, repetition characters are plain ones;
    // `caret_anchors` holds at the start and after "(" or "|".
    bool expect_operand = true, caret_anchors = true;
    auto operand = [&](std::string_view text) {
        run.flush(out);
        out += text;
        expect_operand = caret_anchors = false;
    };
    auto anchor = [&](std::string_view text) {
        run.flush(out);
        out += text;
        expect_operand = true;
        caret_anchors = false;
    };
    for (std::size_t i = 0; i < p.size(); ++i) {
        const char c = p[i];
        if (!expect_operand && (c == '*' || c == '+' || c == '?' || c == '{')) {
            Counts counts{c == '+' ? 1u : 0u, c == '?' ? 1u : kUnbounded};
            if (c == '{' && !read_interval(p, i, counts)) return std::string(p);
            run.add(counts);
            continue;
        }
        switch (c) {
        case '\\':
            if (i + 1 == p.size()) return std::string(p);
            ++i;
            if (std::string_view("bB<>`'").find(p[i]) != std::string_view::npos)
                anchor(p.substr(i - 1, 2));
            else
                operand(p.substr(i - 1, 2));
            break;
        case '^':
            if (caret_anchors)
                anchor(p.substr(i, 1));
            else
                operand(p.substr(i, 1));
            break;
        case '$':
            if (i + 1 == p.size() || p[i + 1] == '|' || p[i + 1] == ')')
                anchor(p.substr(i, 1));
            else
                operand(p.substr(i, 1));
            break;
        case '[': {
            const auto end = bracket_end(p, i);
            if (!end) return std::string(p);
            operand(p.substr(i, *end + 1 - i));
            i = *end;
            break;
        }
        case '(':
        case '|':
            run.flush(out);
            out += c;
            expect_operand = caret_anchors = true;
            break;
        default:
            operand(p.substr(i, 1));
            break;
        }
    }
    run.flush(out);
    return out;
}

} // namespace kp::transforms
