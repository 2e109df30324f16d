// regex_syntax.cpp - the readers of a pattern's bracket expressions and
// intervals, shared by the size estimate (regex.cpp) and the reading of
// stacked repetitions (regex_repetitions.cpp), so that both see the pattern
// as the engine does.
#include <algorithm>
#include <string>

#include "transforms/regex.h"

namespace kp::transforms {

std::optional<IntervalText> read_interval_text(std::string_view p, std::size_t i) {
    std::size_t j = i + 1;
    auto number = [&](uint64_t& v) {
        const std::size_t start = j;
        v = 0;
        for (; j < p.size() && p[j] >= '0' && p[j] <= '9'; ++j)
            v = std::min<uint64_t>(v * 10 + static_cast<uint64_t>(p[j] - '0'), kIntervalNumberCap);
        return j > start;
    };
    IntervalText out;
    const bool has_low = number(out.low);
    if (j < p.size() && p[j] == ',') {
        ++j;
        out.bounded = number(out.high);
    } else if (has_low) {
        out.high = out.low;
    } else {
        return std::nullopt; // "{}" or "{x"
    }
    if (j >= p.size() || p[j] != '}') return std::nullopt;
    out.end = j;
    return out;
}

std::optional<std::size_t> bracket_end(std::string_view p, std::size_t i) {
    std::size_t j = i + 1;
    if (j < p.size() && p[j] == '^') ++j;
    if (j < p.size() && p[j] == ']') ++j;
    while (j < p.size()) {
        if (p[j] == ']') return j;
        if (p[j] == '[' && j + 1 < p.size() && (p[j + 1] == ':' || p[j + 1] == '.' || p[j + 1] == '=')) {
            // A class, collating symbol or equivalence class: the engine
            // reads its name up to the same mark followed by "]".
            const std::size_t close = p.find(std::string{p[j + 1], ']'}, j + 2);
            if (close == std::string_view::npos) return std::nullopt;
            j = close + 2;
            continue;
        }
        ++j;
    }
    return std::nullopt;
}

} // namespace kp::transforms
