// Date formatting and day numbers per call.  Target: DateToString with a
// mask of names no slower than strftime writing the same text.  Two peers:
// strftime alone from a broken-down date it is handed (the floor), and
// strptime + strftime, which start from the same date text as DateToString.
// The peer of DateToInteger is timegm on the same broken-down date.
#include <benchmark/benchmark.h>

#include <ctime>
#include <string>

#include "datetime/calendar.h"
#include "datetime/masks.h"

namespace {

const kp_regional_settings kEnglish = {
    {u"Monday", u"Tuesday", u"Wednesday", u"Thursday", u"Friday", u"Saturday", u"Sunday"},
    {u"January", u"February", u"March", u"April", u"May", u"June", u"July", u"August", u"September",
     u"October", u"November", u"December"},
    u"M/d/yyyy",
    u"h:mm tt",
    u'.',
    nullptr};

void BM_DateToStringMask(benchmark::State& state) {
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    std::u16string date = u"20240105";
    std::u16string_view mask = u"JJJJ JJ MMMM AAAA";
    for (auto _ : state) {
        benchmark::DoNotOptimize(date.data());
        std::u16string s = kp::datetime::date_to_string(date, &mask, kEnglish, err);
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK(BM_DateToStringMask);

// The same text ("Friday 05 January 2024") from strftime in the C locale.
void BM_StrftimePeer(benchmark::State& state) {
    std::tm tm{};
    tm.tm_year = 124;
    tm.tm_mon = 0;
    tm.tm_mday = 5;
    tm.tm_wday = 5;
    char buf[64];
    for (auto _ : state) {
        benchmark::DoNotOptimize(&tm);
        size_t n = std::strftime(buf, sizeof buf, "%A %d %B %Y", &tm);
        std::string s(buf, n);
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK(BM_StrftimePeer);

// The C library's whole way from the same date text: strptime reads it and
// works out the weekday, strftime writes the names.
void BM_StrptimeStrftimePeer(benchmark::State& state) {
    const char* date = "20240105";
    char buf[64];
    for (auto _ : state) {
        benchmark::DoNotOptimize(date);
        std::tm tm{};
        strptime(date, "%Y%m%d", &tm);
        size_t n = std::strftime(buf, sizeof buf, "%A %d %B %Y", &tm);
        std::string s(buf, n);
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK(BM_StrptimeStrftimePeer);

void BM_DateToInteger(benchmark::State& state) {
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    std::u16string date = u"20240105";
    for (auto _ : state) {
        benchmark::DoNotOptimize(date.data());
        int32_t n = kp::datetime::date_to_integer(date, false, err);
        benchmark::DoNotOptimize(n);
    }
}
BENCHMARK(BM_DateToInteger);

void BM_TimegmPeer(benchmark::State& state) {
    for (auto _ : state) {
        std::tm tm{};
        tm.tm_year = 124;
        tm.tm_mday = 5;
        benchmark::DoNotOptimize(&tm);
        time_t t = timegm(&tm);
        benchmark::DoNotOptimize(t);
    }
}
BENCHMARK(BM_TimegmPeer);

} // namespace

BENCHMARK_MAIN();
