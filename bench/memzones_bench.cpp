// Memory zones: MemAdd of 1,000,000 elements then MemSort, through the
// component interface (the overload called directly, as a VM does after
// resolving it once).  Target: under 1 s for both.  The peer fills a
// std::vector of the same (value, key) pairs and stable-sorts it.  Both
// sides are timed in the CPU time of the thread, so that the ratio holds
// on a machine shared with other work.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "support/test_host.h"

#include "ratio.h"

namespace {

constexpr int kCount = 1000000;

// Seconds of CPU time of the calling thread.
double thread_seconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

std::vector<int64_t> keys() {
    std::vector<int64_t> k(kCount);
    std::mt19937_64 rng(1);
    for (auto& x : k)
        x = static_cast<int64_t>(rng() % 100000000);
    return k;
}

struct Zones {
    kp::test::HostFixture fx;
    const kp_function* add = fx.host->find_function("MemAdd");
    const kp_function* sort = fx.host->find_function("MemSort");
    const kp_function* clear = fx.host->find_function("MemDeleteAll");
    std::vector<int64_t> k = keys();

    // Seconds for the adds and for the sort.
    std::pair<double, double> run() {
        std::vector<kp::host::Value> none;
        fx.host->call_overload(*clear, 0, none);
        std::vector<kp::host::Value> args{kp::host::Value::integer(0), kp::host::Value::integer(0)};
        const double t0 = thread_seconds();
        for (int i = 0; i < kCount; ++i) {
            args[0].i = i;
            args[1].i = k[static_cast<std::size_t>(i)];
            fx.host->call_overload(*add, 1, args); // MemAdd(value, key)
        }
        const double t1 = thread_seconds();
        fx.host->call_overload(*sort, 0, none);
        return {t1 - t0, thread_seconds() - t1};
    }
};

Zones& zones() {
    static Zones z;
    return z;
}

double peer() {
    const std::vector<int64_t> k = keys();
    const double t0 = thread_seconds();
    std::vector<std::pair<int64_t, int64_t>> v;
    for (int i = 0; i < kCount; ++i)
        v.emplace_back(i, k[static_cast<std::size_t>(i)]);
    std::stable_sort(v.begin(), v.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
    benchmark::DoNotOptimize(v.data());
    return thread_seconds() - t0;
}

void BM_MemAddThenSort(benchmark::State& state) {
    double add = 0, sort = 0;
    for (auto _ : state) {
        auto [a, s] = zones().run();
        add += a, sort += s;
    }
    state.counters["add_s"] = add / static_cast<double>(state.iterations());
    state.counters["sort_s"] = sort / static_cast<double>(state.iterations());
    state.counters["target_s"] = 1;
}
BENCHMARK(BM_MemAddThenSort)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_VectorPeer(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(peer());
}
BENCHMARK(BM_VectorPeer)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    double best = 1e9, best_add = 1e9, best_sort = 1e9, best_peer = 1e9;
    for (int i = 0; i < 5; ++i) {
        auto [a, s] = zones().run();
        best = std::min(best, a + s);
        best_add = std::min(best_add, a);
        best_sort = std::min(best_sort, s);
        best_peer = std::min(best_peer, peer());
    }
    std::printf("fastest runs (CPU time): MemAdd x %d %.3f s, MemSort %.3f s, vector + stable_sort %.3f s\n",
                kCount, best_add, best_sort, best_peer);
    kp::bench::report_ratio("MemAdd x 1,000,000 + MemSort (time x vector + stable_sort)",
                            kp::bench::figure("%.3f s", best), kp::bench::figure("%.3f s", best_peer),
                            best / best_peer, "<=", 2);
    benchmark::Shutdown();
    return 0;
}
