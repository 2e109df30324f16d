// Date formatting and day numbers per call.  Target: DateToString with a
// mask of names no slower than strftime writing the same text.  Two peers:
// strftime alone from a broken-down date it is handed (the floor), and
// strptime + strftime, which start from the same date text as DateToString.
// The peer of DateToInteger is timegm on the same broken-down date.
//
// The table gives each call's time.  The ratios printed after it come from
// short batches of ours and of the peer taken alternately, many times, each
// side keeping its fastest batch: a neighbour's load then falls on both
// sides alike, which keeps the ratios steady on a shared machine.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>

#include "component/runtime.h"
#include "datetime/calendar.h"
#include "datetime/masks.h"

#include "ratio.h"

namespace {

const kp_regional_settings& kEnglish = kp::runtime::default_regional_settings();

// One call of each side, with its inputs.
struct Calls {
    kp_error_record rec{};
    kp::CXError err{&rec};
    std::u16string date = u"20240105";
    std::u16string_view mask = u"JJJJ JJ MMMM AAAA";
    std::tm tm{};
    char buf[64];

    Calls() {
        rec.severity = 1;
        tm.tm_year = 124;
        tm.tm_mon = 0;
        tm.tm_mday = 5;
        tm.tm_wday = 5;
    }
    void date_to_string() {
        benchmark::DoNotOptimize(date.data());
        std::u16string s = kp::datetime::date_to_string(date, &mask, kEnglish, err);
        benchmark::DoNotOptimize(s.data());
    }
    // The same text ("Friday 05 January 2024") from strftime in the C locale.
    void strftime() {
        benchmark::DoNotOptimize(&tm);
        size_t n = std::strftime(buf, sizeof buf, "%A %d %B %Y", &tm);
        std::string s(buf, n);
        benchmark::DoNotOptimize(s.data());
    }
    // The C library's whole way from the same date text: strptime reads it
    // and works out the weekday, strftime writes the names.
    void strptime_strftime() {
        const char* text = "20240105";
        benchmark::DoNotOptimize(text);
        std::tm t{};
        strptime(text, "%Y%m%d", &t);
        size_t n = std::strftime(buf, sizeof buf, "%A %d %B %Y", &t);
        std::string s(buf, n);
        benchmark::DoNotOptimize(s.data());
    }
    void date_to_integer() {
        benchmark::DoNotOptimize(date.data());
        int32_t n = kp::datetime::date_to_integer(date, false, err);
        benchmark::DoNotOptimize(n);
    }
    void timegm() {
        std::tm t{};
        t.tm_year = 124;
        t.tm_mday = 5;
        benchmark::DoNotOptimize(&t);
        time_t v = ::timegm(&t);
        benchmark::DoNotOptimize(v);
    }
};

template <void (Calls::*Call)()> void Run(benchmark::State& state) {
    Calls c;
    for (auto _ : state)
        (c.*Call)();
}
BENCHMARK(Run<&Calls::date_to_string>)->Name("BM_DateToStringMask");
BENCHMARK(Run<&Calls::strftime>)->Name("BM_StrftimePeer");
BENCHMARK(Run<&Calls::strptime_strftime>)->Name("BM_StrptimeStrftimePeer");
BENCHMARK(Run<&Calls::date_to_integer>)->Name("BM_DateToInteger");
BENCHMARK(Run<&Calls::timegm>)->Name("BM_TimegmPeer");

// Fastest batch of each side over alternating batches; ours / peer.
double paired_ratio(void (Calls::*ours)(), void (Calls::*peer)()) {
    constexpr int kRounds = 400, kCalls = 1000;
    Calls c;
    auto batch = [&](void (Calls::*call)()) {
        auto t0 = std::chrono::steady_clock::now();
        for (int i = 0; i < kCalls; ++i)
            (c.*call)();
        return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count();
    };
    double a = 1e300, b = 1e300;
    for (int r = 0; r < kRounds; ++r) {
        a = std::min(a, batch(ours));
        b = std::min(b, batch(peer));
    }
    return a / b;
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    // Time, ours over the peer's.
    auto ratio = [](const char* what, const char* peer_name, void (Calls::*ours)(), void (Calls::*peer)()) {
        kp::bench::report_ratio(what, "paired batches", peer_name, paired_ratio(ours, peer), "<=", 1);
    };
    ratio("DateToString (time x strftime)", "strftime", &Calls::date_to_string, &Calls::strftime);
    ratio("DateToString (time x strptime + strftime)", "strptime + strftime", &Calls::date_to_string,
          &Calls::strptime_strftime);
    ratio("DateToInteger (time x timegm)", "timegm", &Calls::date_to_integer, &Calls::timegm);
    benchmark::Shutdown();
    return 0;
}
