// NumToString against snprintf on the same conversions.  Target: at least
// snprintf's throughput.  NumToString reads the format, makes the digits
// and the UTF-16 result; the peer is snprintf alone into a char buffer.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "component/error.h"
#include "numeric/format.h"

#include "ratio.h"

namespace {

using kp::numeric::NumberValue;

struct Conv {
    const char16_t* ours;
    const char* c;
    bool integer;
};
const Conv kConvs[] = {
    {u"%d", "%lld", true},        {u"Total: %.2f EUR", "Total: %.2f EUR", false},
    {u"%08.3f", "%08.3f", false}, {u"%e", "%e", false},
    {u"%x", "%llx", true},        {u"%g", "%g", false},
};
constexpr int kConvCount = sizeof kConvs / sizeof kConvs[0];

kp_error_record g_rec{};

void ours(int n) {
    kp::CXError e(&g_rec);
    for (int i = 0; i < n; ++i) {
        const Conv& c = kConvs[i % kConvCount];
        const NumberValue v =
            c.integer ? NumberValue::int64(123456789 + i) : NumberValue::real(12345.678 + i);
        std::u16string s = kp::numeric::num_to_string(v, c.ours, e);
        benchmark::DoNotOptimize(s.data());
    }
}

void peer(int n) {
    char buf[128];
    for (int i = 0; i < n; ++i) {
        const Conv& c = kConvs[i % kConvCount];
        if (c.integer)
            std::snprintf(buf, sizeof buf, c.c, static_cast<long long>(123456789 + i));
        else
            std::snprintf(buf, sizeof buf, c.c, 12345.678 + i);
        benchmark::DoNotOptimize(buf);
    }
}

void BM_NumToString(benchmark::State& state) {
    for (auto _ : state)
        ours(kConvCount);
}
BENCHMARK(BM_NumToString);

void BM_SnprintfPeer(benchmark::State& state) {
    for (auto _ : state)
        peer(kConvCount);
}
BENCHMARK(BM_SnprintfPeer);

// Alternating batches of both, so that both sides see the same machine.
double paired_ratio(double& ours_ns, double& peer_ns) {
    double t_ours = 0, t_peer = 0;
    for (int round = 0; round < 20; ++round) {
        auto t0 = std::chrono::steady_clock::now();
        ours(60000);
        auto t1 = std::chrono::steady_clock::now();
        peer(60000);
        auto t2 = std::chrono::steady_clock::now();
        t_ours += std::chrono::duration<double>(t1 - t0).count();
        t_peer += std::chrono::duration<double>(t2 - t1).count();
    }
    ours_ns = t_ours / (20 * 60000) * 1e9;
    peer_ns = t_peer / (20 * 60000) * 1e9;
    return t_peer / t_ours;
}

} // namespace

int main(int argc, char** argv) {
    g_rec.severity = KP_SEVERITY_NONE;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    double ours_ns = 0, peer_ns = 0;
    const double ratio = paired_ratio(ours_ns, peer_ns);
    kp::bench::report_ratio("NumToString (throughput x snprintf)",
                            kp::bench::figure("%.0f ns a call", ours_ns),
                            kp::bench::figure("snprintf %.0f ns", peer_ns), ratio, ">=", 1.0);
    benchmark::Shutdown();
    return 0;
}
