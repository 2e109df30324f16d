// ratio.h - the line each benchmark prints for each of its ratios to a
// peer; tools/bench.sh gathers them into the table that ends `make bench`
// and into build/bench.json:
//   RATIO|what|ours|peer|ratio|op|target
// `ours` and `peer` are the figures as measured (with their units), `ratio`
// is read against the target in the direction `op` gives (">=": at least,
// "<=": at most).  A peer missing on the machine gives "-" as the ratio and
// says so in place of its figure.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

namespace kp::bench {

inline std::string figure(const char* format, ...) {
    char buf[128];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buf, sizeof buf, format, args);
    va_end(args);
    return buf;
}

// ratio <= 0: the peer is missing (`peer` says why).
inline void report_ratio(const std::string& what, const std::string& ours, const std::string& peer,
                         double ratio, const char* op, double target) {
    if (ratio > 0)
        std::printf("RATIO|%s|%s|%s|%.3f|%s|%g\n", what.c_str(), ours.c_str(), peer.c_str(), ratio, op,
                    target);
    else
        std::printf("RATIO|%s|%s|%s|-|%s|%g\n", what.c_str(), ours.c_str(), peer.c_str(), op, target);
    std::fflush(stdout);
}

} // namespace kp::bench
