// regex.cpp - the glue between the component's strings and GNU regex.
#include "transforms/regex.h"

#include <algorithm>
#include <climits>
#include <vector>

#include "platform/codepage.h"

namespace kp::transforms {

namespace {

// Saturating arithmetic of the estimate: nothing above kCap matters.
constexpr uint64_t kCap = kRegexSizeLimit + 1;
uint64_t add(uint64_t a, uint64_t b) {
    return std::min(kCap, a + b);
}
uint64_t times(uint64_t a, uint64_t b) {
    return std::min(kCap, a * std::min(kCap, b));
}

// An optional copy of a bounded repetition ("a{1,9}": one copy and eight
// optional ones) costs the engine far more than a plain one: they nest, and
// its state sets grow with the square of their count (a{1,1000} compiles to
// 15 MB, a{1,4000} to 190 MB, a{4000} to 10 MB).  They weigh this much more.
constexpr uint64_t kOptionalWeight = 8;

// Reads an interval "{m}", "{m,}", "{,n}" or "{m,n}" at p[i] (the "{").
// Returns false when the text is no interval (the engine then refuses the
// pattern or reads a "{"); else the weight of the copies it makes of its
// operand, counted in operands.
bool interval_weight(std::string_view p, std::size_t& i, uint64_t& weight) {
    std::size_t j = i + 1;
    auto number = [&](uint64_t& v) {
        bool any = false;
        v = 0;
        while (j < p.size() && p[j] >= '0' && p[j] <= '9') {
            v = std::min<uint64_t>(v * 10 + static_cast<uint64_t>(p[j] - '0'), kCap);
            ++j;
            any = true;
        }
        return any;
    };
    uint64_t low = 0, high = 0;
    const bool has_low = number(low);
    bool has_high = false, comma = false;
    if (j < p.size() && p[j] == ',') {
        comma = true;
        ++j;
        has_high = number(high);
    }
    if (j >= p.size() || p[j] != '}' || (!has_low && !has_high)) return false;
    i = j;
    // {m,n}: m copies and n - m optional ones; {m,}: m copies and a star.
    const uint64_t optional = has_high && high > low ? high - low : comma && !has_high ? 1 : 0;
    weight = std::max<uint64_t>(add(low, times(optional, kOptionalWeight)), 1);
    return true;
}

// Skips a bracket expression starting at p[i] (the "["); i ends on its "]"
// or at the end of an unterminated one.
void skip_bracket(std::string_view p, std::size_t& i) {
    std::size_t j = i + 1;
    if (j < p.size() && p[j] == '^') ++j;
    if (j < p.size() && p[j] == ']') ++j;
    while (j < p.size() && p[j] != ']') {
        if (p[j] == '[' && j + 1 < p.size() && (p[j + 1] == ':' || p[j + 1] == '.' || p[j + 1] == '=')) {
            const char close = p[j + 1];
            std::size_t k = j + 2;
            while (k + 1 < p.size() && !(p[k] == close && p[k + 1] == ']'))
                ++k;
            j = k + 2;
            continue;
        }
        ++j;
    }
    i = std::min(j, p.size());
}

} // namespace

// The engine builds one node a character, bracket or operator and copies the
// operand of a bounded repetition once a bound (and of "+" twice), nested
// copies multiplying ("a*++++++++++++" is 4096 stars, nested): the estimate
// follows that with the syntax bits 0x2B244
// ("(", ")", "|" and "{" unescaped, an unmatched ")" ordinary).
uint64_t regex_expanded_size(std::string_view p) {
    struct Level {
        uint64_t branches = 0; // closed alternatives of this group
        uint64_t current = 0;  // the alternative being read
        uint64_t last = 0;     // the last operand of `current`
    };
    std::vector<Level> open(1);
    auto operand = [&](uint64_t cost) {
        Level& l = open.back();
        l.current = add(l.current, cost);
        l.last = cost;
    };
    auto repeat = [&](uint64_t copies) {
        Level& l = open.back();
        const uint64_t grown = add(times(l.last, copies), 1);
        l.current = add(l.current - std::min(l.current, l.last), grown);
        l.last = grown;
    };
    for (std::size_t i = 0; i < p.size(); ++i) {
        switch (p[i]) {
        case '\\':
            if (i + 1 < p.size()) ++i;
            operand(1);
            break;
        case '[':
            skip_bracket(p, i);
            operand(1);
            break;
        case '(':
            open.emplace_back();
            break;
        case ')':
            if (open.size() > 1) {
                const Level done = open.back();
                open.pop_back();
                operand(add(add(done.branches, done.current), 2));
            } else {
                operand(1);
            }
            break;
        case '|': {
            Level& l = open.back();
            l.branches = add(add(l.branches, l.current), 1);
            l.current = 0;
            l.last = 0;
            break;
        }
        case '*':
        case '?':
            repeat(1);
            break;
        case '+':
            // The engine writes "x+" as "xx*": a copy and an optional one.
            repeat(1 + kOptionalWeight);
            break;
        case '{': {
            uint64_t weight = 0;
            if (interval_weight(p, i, weight))
                repeat(weight);
            else
                operand(1);
            break;
        }
        default:
            operand(1);
            break;
        }
    }
    // Groups left open make the pattern invalid; their content still counts.
    uint64_t total = 0;
    for (const Level& l : open)
        total = add(total, add(l.branches, l.current));
    return total;
}

WholeMatch::WholeMatch() = default;
WholeMatch::~WholeMatch() = default;

bool WholeMatch::compile(std::u16string_view pattern) {
    std::string bytes = platform::encode_1252(pattern);
    if (regex_expanded_size(bytes) > kRegexSizeLimit) return false;
    return engine_.compile(bytes, kRegexSyntax);
}

bool WholeMatch::match(std::u16string_view subject) {
    if (subject.size() > static_cast<std::size_t>(INT_MAX)) return false;
    const std::string bytes = platform::encode_1252(subject);
    const long n = engine_.match(bytes);
    return n >= 0 && static_cast<std::size_t>(n) >= bytes.size();
}

bool WholeMatch::group(std::size_t i, std::size_t* start, std::size_t* end) const {
    return engine_.group(i, start, end);
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
    if (!m.match(text)) return false;
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
