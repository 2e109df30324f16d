// regex.cpp - the glue between the component's strings and GNU regex.
#include "transforms/regex.h"

#include <algorithm>
#include <climits>
#include <vector>

#include "platform/codepage.h"

namespace kp::transforms {

namespace {

// Saturating arithmetic of the estimate: nothing far above the limits matters.
constexpr uint64_t kCap = uint64_t{1} << 40;
uint64_t add(uint64_t a, uint64_t b) {
    return std::min(kCap, a + b);
}
uint64_t times(uint64_t a, uint64_t b) {
    return b != 0 && a > kCap / b ? kCap : std::min(kCap, a * b);
}

// An optional copy of a bounded repetition ("a{1,9}": one copy and eight
// optional ones) costs the engine far more than a plain one: they nest, and
// its state sets grow with the square of their count (a{1,1000} compiles to
// 15 MB, a{1,4000} to 190 MB, a{4000} to 10 MB).  They weigh this much more.
constexpr uint64_t kOptionalWeight = 8;

// The engine computes, for every node that can be passed without reading a
// character (a "?", "*" or optional copy, a group's ends, an alternation),
// the set of nodes reachable that way, and its time grows with the sizes of
// those sets more than with the count of nodes: a run of optional items
// reaches every later one ("(o?)" 4000 times, 16000 nodes, takes 4.5 s to
// compile), a repetition reaches the passable nodes of its operand ("o" and
// 2000 "*": 5.8 s), a "+" over an operand that can match empty chains its two
// copies ("o", 20 "?" and "+++": 0.16 s in 24 bytes), and sets that reach
// into a loop go round it ("s" and 74 "?" before a "\x05" with 20 "?" and
// "++": 0.2 s, each half alone none).  The estimate counts
// that work beside the nodes, one node for kWorkPerNode units.
constexpr uint64_t kWorkPerNode = 64;
constexpr uint64_t kNestedWork = 64;

// What the estimate knows of one operand: its nodes, how many of them can be
// passed without reading, the work of their sets, and whether the whole
// operand can match empty.
struct Item {
    uint64_t size = 0;
    uint64_t passable = 0;
    uint64_t work = 0;
    bool empty_match = false;
    bool loops = false;   // holds a "*", "+" or "{m,}"
    uint32_t layers = 0;  // nested repetitions copying an operand that can match empty
    bool anchors = false; // holds "^", "$" or a "\\b"-like anchor
    uint32_t stack = 0;   // repetition operators applied one on the other ("a***": 3)
    uint64_t factor = 1;  // how much the operand multiplies a run after an anchor
    uint64_t chained = 1; // the product of copies of such a run, paid when a loop wraps them
};

// After an anchor, the engine's sets are made again for each way through
// the operands that follow it and can match empty, and an operand under
// stacked repetitions ("a***") offers about as many ways as it has
// operators: the work multiplies from one operand to the next ("^" and 16
// times "a***": 58 s; 12 times: 0.7 s; without the anchor, none).  An
// operand weighs s + s * s / 8 for s stacked operators (measured: 2 for 2,
// 3 for 3, 4.6 for 4, 8.5 for 6, 14 for 9), a group the product of what it
// holds, and each step of the run costs its product times kConstrainedWork.
constexpr uint64_t kConstrainedWork = 16;
// Copies of an operand that holds an anchor chain their runs into one
// another, each copy weighing the square of the operand's factor, and a
// loop around them goes through the chain again and again ("(\\b**){,5}*":
// 0.16 s, "(\\b**){,9}*": hangs; without the loop, none).
constexpr uint64_t stack_factor(uint32_t stack) {
    return stack < 2 ? 1 : stack + uint64_t{stack} * stack / 8;
}

// An anchor matches empty and is passed without reading.
constexpr Item kAnchor{1, 1, 0, true, false, 0, true};

// An interval "{m}", "{m,}", "{,n}" or "{m,n}" as the estimate weighs it.
struct Interval {
    uint64_t weight = 1; // copies of the operand, counted in operands
    uint64_t copies = 1; // copies the engine makes
    bool optional = false;
    bool unbounded = false; // "{m,}"
};

// The interval at p[i] (the "{") as the estimate weighs it; i ends on its
// "}".  False when the text is no interval (the engine then refuses the
// pattern or reads a "{").
bool read_interval(std::string_view p, std::size_t& i, Interval& out) {
    const auto text = read_interval_text(p, i);
    if (!text) return false;
    i = text->end;
    // {m,n}: m copies and n - m optional ones; {m,}: m copies and a star.
    const uint64_t optional = !text->bounded ? 1 : text->high > text->low ? text->high - text->low : 0;
    out.weight = std::max<uint64_t>(add(text->low, times(optional, kOptionalWeight)), 1);
    out.copies = std::max<uint64_t>(add(text->low, optional), 1);
    out.optional = text->low == 0;
    out.unbounded = !text->bounded;
    return true;
}

// The estimate over the pattern read so far: one level a group open.
class Estimate {
  public:
    void read(std::string_view p);
    uint64_t result();

  private:
    struct Level {
        Item branches;            // closed alternatives of this group
        Item current;             // the alternative being read
        Item last;                // the last operand of `current`
        Item before;              // `current` without `last`
        uint64_t run = 0;         // passable nodes of the operands ending `current` that match empty
        uint64_t run_before = 0;  // the same before `last`
        uint64_t constrained = 0; // the product of the run after an anchor (0: none)
        uint64_t constrained_before = 0;
        uint64_t solid = 0; // operands of `current` that cannot match empty
        uint64_t alternatives = 0;
    };

    // Appends `x` to the alternative `l.current`, after the run `l.run`.
    static void append(Level& l, const Item& x) {
        l.current.size = add(l.current.size, x.size);
        l.current.passable = add(l.current.passable, x.passable);
        l.current.work = add(l.current.work, x.work);
        l.current.loops = l.current.loops || x.loops;
        l.current.layers = std::max(l.current.layers, x.layers);
        l.current.anchors = l.current.anchors || x.anchors;
        l.current.chained = std::max(l.current.chained, x.chained);
        if (x.empty_match) {
            l.current.factor = times(l.current.factor, x.factor);
            if (x.anchors && l.constrained == 0) l.constrained = 1;
            if (l.constrained) {
                l.constrained = times(l.constrained, x.factor);
                l.current.work = add(l.current.work, times(l.constrained, kConstrainedWork));
            }
            // The run's sets reach into `x`, and through its loops again.
            const uint64_t reach = times(l.run, std::max<uint64_t>(x.passable, 1));
            l.current.work =
                add(l.current.work, x.loops ? times(reach, std::max(x.passable, kNestedWork)) : reach);
            // An anchor is tested from every node of the run before it
            // ("\\b" 67 times: 3.8 s).
            if (x.anchors) l.current.work = add(l.current.work, times(times(l.run, l.run), kNestedWork));
            l.run = add(l.run, x.passable);
        } else {
            l.run = 0;
            l.constrained = 0;
            ++l.solid;
        }
    }

    void operand(const Item& x) {
        Level& l = open_.back();
        l.before = l.current;
        l.run_before = l.run;
        l.constrained_before = l.constrained;
        append(l, x);
        l.last = x;
    }

    void repeat(uint64_t weight, uint64_t copies, bool optional, bool loops);
    void close_group();
    void alternation();

    static void close_alternative(Level& l) {
        l.branches.size = add(l.branches.size, l.current.size);
        l.branches.passable = add(l.branches.passable, l.current.passable);
        l.branches.work = add(l.branches.work, l.current.work);
        l.branches.empty_match = l.branches.empty_match || l.solid == 0;
        l.branches.loops = l.branches.loops || l.current.loops;
        l.branches.layers = std::max(l.branches.layers, l.current.layers);
        l.branches.anchors = l.branches.anchors || l.current.anchors;
        l.branches.factor = std::max(l.branches.factor, l.current.factor);
        l.branches.chained = std::max(l.branches.chained, l.current.chained);
    }

    std::vector<Level> open_ = std::vector<Level>(1);
    uint32_t layers_ = 0;
};

// Replaces the last operand by its repetition: `copies` copies, passable
// when `optional`.
void Estimate::repeat(uint64_t weight, uint64_t copies, bool optional, bool loops) {
    Level& l = open_.back();
    const Item& x = l.last;
    Item r;
    r.size = add(times(x.size, weight), 1);
    r.passable = times(add(x.passable, 1), copies);
    r.empty_match = optional || x.empty_match;
    r.loops = loops || x.loops;
    r.anchors = x.anchors;
    r.stack = x.stack + 1;
    r.factor = std::max(x.factor, stack_factor(r.stack));
    r.chained = x.chained;
    if (x.anchors && copies > 1 && x.factor > 1) {
        uint64_t chain = 1;
        for (uint64_t k = 0; k < copies && chain < kCap; ++k)
            chain = times(chain, times(x.factor, x.factor));
        r.chained = std::max(r.chained, chain);
    }
    // Copies of an operand that can match empty, holding more than one
    // passable node, nested in one another grow without bound in the
    // engine ("z???{,5}?+{2}", 15 bytes: over 30 s): a second such
    // layer is refused whatever its size.
    r.layers = x.layers + (copies > 1 && x.empty_match && x.passable > 1 ? 1 : 0);
    layers_ = std::max(layers_, r.layers);
    r.work = add(times(x.work, copies), times(times(x.passable, copies), kNestedWork));
    // Copies of an operand that can match empty follow one another: each
    // one's sets reach into the next, and from three copies on through
    // every one between (an operand of 33 nested "?" takes 0.6 s as
    // "{3,}" and none as "{2,}").
    if (x.empty_match && copies > 1) {
        uint64_t chained = times(times(times(x.passable, x.passable), copies - 1), kNestedWork);
        if (copies > 2) chained = times(chained, x.passable);
        r.work = add(r.work, chained);
    }
    // Repetitions stacked on an anchor cost the engine the fourth power of
    // their count ("\\`" and 60 "*": 0.18 s, 124: 4.9 s); each one adds its
    // step of that.
    if (x.anchors) {
        auto fourth = [](uint64_t n) { return times(times(n, n), times(n, n)); };
        r.work = add(r.work, (fourth(r.stack) - fourth(x.stack)) / 16);
    }
    if (loops && r.chained > 1) r.work = add(r.work, times(times(r.chained, kConstrainedWork), kNestedWork));
    // Copies of an anchor cost the engine the cube of their count
    // ("(^){2,155}", 10 bytes: 0.9 s).
    if (x.anchors && copies > 1)
        r.work = add(r.work, times(times(times(copies, copies), copies), kNestedWork));
    if (!x.empty_match) --l.solid;
    l.current = l.before;
    l.run = l.run_before;
    l.constrained = l.constrained_before;
    append(l, r);
    l.last = r;
}

// A ")" closes the open group into one operand; unmatched, it is a plain
// character.
void Estimate::close_group() {
    if (open_.size() == 1) return operand({1, 0, 0, false});
    Level done = open_.back();
    open_.pop_back();
    close_alternative(done);
    operand({add(done.branches.size, 2), add(done.branches.passable, 2), done.branches.work,
             done.branches.empty_match, done.branches.loops, done.branches.layers, done.branches.anchors, 0,
             done.branches.factor, done.branches.chained});
}

// Alternatives nest one in the next: each alternation reaches every
// earlier one.
void Estimate::alternation() {
    Level& l = open_.back();
    close_alternative(l);
    ++l.alternatives;
    l.branches.size = add(l.branches.size, 1);
    l.branches.passable = add(l.branches.passable, 1);
    l.branches.work = add(l.branches.work, l.alternatives);
    l.current = l.before = l.last = Item{};
    l.run = l.run_before = l.solid = 0;
    l.constrained = l.constrained_before = 0;
}

void Estimate::read(std::string_view p) {
    for (std::size_t i = 0; i < p.size(); ++i) {
        switch (p[i]) {
        case '\\':
            if (i + 1 < p.size()) ++i;
            if (std::string_view("bB<>`'").find(p[i]) != std::string_view::npos && i > 0 && p[i - 1] == '\\')
                operand(kAnchor);
            else
                operand({1, 0, 0, false});
            break;
        case '^':
        case '$':
            operand(kAnchor);
            break;
        case '[':
            i = bracket_end(p, i).value_or(p.size()); // unterminated: the rest
            operand({1, 0, 0, false});
            break;
        case '(':
            open_.emplace_back();
            break;
        case ')':
            close_group();
            break;
        case '|':
            alternation();
            break;
        case '*':
            repeat(1, 1, true, true);
            break;
        case '?':
            repeat(1, 1, true, false);
            break;
        case '+':
            // The engine writes "x+" as "xx*": a copy and an optional one.
            repeat(1 + kOptionalWeight, 2, false, true);
            break;
        case '{': {
            Interval interval;
            if (read_interval(p, i, interval))
                repeat(interval.weight, interval.copies, interval.optional, interval.unbounded);
            else
                operand({1, 0, 0, false});
            break;
        }
        default:
            operand({1, 0, 0, false});
            break;
        }
    }
}

uint64_t Estimate::result() {
    // Groups left open make the pattern invalid; their content still counts.
    uint64_t size = 0, work = 0;
    for (Level& l : open_) {
        close_alternative(l);
        size = add(size, l.branches.size);
        work = add(work, l.branches.work);
    }
    if (layers_ > 1) return kRegexSizeLimit + 1;
    return std::min(add(size, work / kWorkPerNode), kRegexSizeLimit + 1);
}

} // namespace

// The engine builds one node a character, bracket or operator and copies the
// operand of a bounded repetition once a bound (and of "+" twice), nested
// copies multiplying ("a*++++++++++++" is 4096 stars, nested): the estimate
// follows that with the syntax bits 0x2B244
// ("(", ")", "|" and "{" unescaped, an unmatched ")" ordinary), and adds the
// work of the sets of nodes passable without reading (see kWorkPerNode).
uint64_t regex_expanded_size(std::string_view p) {
    Estimate e;
    e.read(p);
    return e.result();
}

WholeMatch::WholeMatch() = default;
WholeMatch::~WholeMatch() = default;

bool WholeMatch::compile(std::u16string_view pattern) {
    const std::string bytes = collapse_repetitions(platform::encode_1252(pattern));
    const uint64_t size = regex_expanded_size(bytes);
    if (size > kRegexSizeLimit) return false;
    if (size > kRegexIsolateAbove) {
        isolated_.emplace(kRegexStepLimit);
        if (isolated_->compile(bytes, kRegexSyntax)) return true;
        if (isolated_->started()) return false;
        isolated_.reset();
    }
    return engine_.compile(bytes, kRegexSyntax);
}

bool WholeMatch::match(std::u16string_view subject) {
    if (subject.size() > static_cast<std::size_t>(INT_MAX)) return false;
    const std::string bytes = platform::encode_1252(subject);
    const long n = isolated_ ? isolated_->match(bytes) : engine_.match(bytes);
    return n >= 0 && static_cast<std::size_t>(n) >= bytes.size();
}

bool WholeMatch::group(std::size_t i, std::size_t* start, std::size_t* end) const {
    return isolated_ ? isolated_->group(i, start, end) : engine_.group(i, start, end);
}

void report_invalid_pattern(CXError& err) {
    err.fail(kErrPatternInvalid);
    err.append_formatted(u"Valeur de retour d'analyse du format : %1!d!", {-1});
}

bool match_regular_expression(std::u16string_view text, std::u16string_view pattern, std::size_t variables,
                              const AssignGroup& assign, CXError& err) {
    WholeMatch m;
    if (!m.compile(pattern)) {
        report_invalid_pattern(err);
        return false;
    }
    if (!m.match(text)) {
        if (m.overran()) report_invalid_pattern(err);
        return false;
    }
    if (variables == 0) return true;
    bool ok = true;
    for (std::size_t i = 1; i <= variables; ++i) {
        std::size_t start = 0, end = 0;
        if (!m.group(i, &start, &end) || end > text.size()) {
            err.fail(kErrGroupMissing);
            return false;
        }
        if (assign && !assign(i, text.substr(start, end - start))) ok = false;
    }
    if (m.group(variables + 1, nullptr, nullptr)) {
        err.fail(kErrTooManyGroups);
        return false;
    }
    return ok;
}

} // namespace kp::transforms
