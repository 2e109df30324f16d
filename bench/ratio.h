// ratio.h - the line each benchmark prints for each measure it takes beside
// a peer; tools/bench.sh gathers them into the table that ends `make bench`
// and into build/bench.json:
//   RATIO|what|ours|peer|ratio|value|op|target|unit
// `ours` and `peer` are the figures as measured, with their units; `ratio`
// compares ours with the peer (its sense is in `what`); the measure is met
// when `value` op `target` holds (op ">=" or "<="), where `value` is the
// ratio itself when `unit` is empty, else a figure of ours in that unit.  A
// peer missing on the machine gives "-" as the ratio and says so in place
// of its figure.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <string>

namespace kp::bench {

inline std::string figure(const char* format, ...) {
    char buf[160];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buf, sizeof buf, format, args);
    va_end(args);
    return buf;
}

// Each side's fastest of `rounds` runs taken alternately: the peer's time
// over ours, so that a ratio above 1 means faster than the peer (0 when a
// side fails).  `settle`, when given, runs untimed before every run, so
// that each side starts from the same state (no output of the other side
// left to remove, no dirty pages of it left to write back).
inline double paired(int rounds, const std::function<bool()>& ours, const std::function<bool()>& peer,
                     const std::function<void()>& settle = {}) {
    double a = 1e300, b = 1e300;
    auto timed = [&](const std::function<bool()>& side, double& best) {
        if (settle) settle();
        const auto t0 = std::chrono::steady_clock::now();
        if (!side()) return false;
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
        return true;
    };
    for (int r = 0; r < rounds; ++r)
        if (!timed(ours, a) || !timed(peer, b)) return 0;
    return b / a;
}

// A target on the ratio; ratio <= 0: the peer is missing (`peer` says why).
inline void report_ratio(const std::string& what, const std::string& ours, const std::string& peer,
                         double ratio, const char* op, double target) {
    const std::string r = ratio > 0 ? figure("%.3f", ratio) : "-";
    std::printf("RATIO|%s|%s|%s|%s|%s|%s|%g|\n", what.c_str(), ours.c_str(), peer.c_str(), r.c_str(),
                r.c_str(), op, target);
    std::fflush(stdout);
}

// A target on a figure of ours (`value` in `unit`), the ratio beside it.
inline void report_measure(const std::string& what, const std::string& ours, const std::string& peer,
                           double ratio, double value, const char* op, double target, const char* unit) {
    const std::string r = ratio > 0 ? figure("%.3f", ratio) : "-";
    std::printf("RATIO|%s|%s|%s|%s|%g|%s|%g|%s\n", what.c_str(), ours.c_str(), peer.c_str(), r.c_str(), value,
                op, target, unit);
    std::fflush(stdout);
}

} // namespace kp::bench
