// The cost of one call through the ABI: an integer function with its
// overload resolved beforehand, called the way the VM calls a handler
// (frame, call context, argument vector, result setter).  Target: 30 ns.
// The peer is the same pure function called directly from C++; the end of
// the run prints both times per call and their ratio.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "host.h"
#include "transforms/encodings.h"

#include "ratio.h"

namespace {

struct Slot {
    int32_t value;
};
void set_result(kp_value_interface*, void* handle, const void* value, uint32_t) {
    static_cast<Slot*>(handle)->value = *static_cast<const int32_t*>(value);
}
kp_error_record* error_of(kp_call_context* c);
struct Context {
    kp_call_context base;
    kp_error_record record;
};
kp_error_record* error_of(kp_call_context* c) {
    return &reinterpret_cast<Context*>(c)->record;
}

// The handler of ZigouigouiARoulette(integer) with everything a call needs,
// made once for the benchmarks and the ratio printed at the end.
struct AbiCall {
    kp::host::Options options;
    kp::host::Host host{options};
    kp_handler handler = nullptr;
    std::string error;
    kp_value_interface_ops vops{};
    kp_value_interface values{&vops};
    kp_call_context_ops cops{};
    Context ctx{};
    Slot slot{0};
    kp_call_frame frame{&values, nullptr, nullptr, nullptr, &slot};
    int32_t arg = 5;
    void* argv[1] = {&arg};

    AbiCall() {
        if (!host.loaded()) {
            error = host.load_error();
            return;
        }
        const kp_function* fn = host.find_function("ZigouigouiARoulette");
        std::vector<kp::host::Value> probe{kp::host::Value::integer(1)};
        const int k = fn ? host.choose_overload(*fn, probe, nullptr) : -1;
        if (k < 0) {
            error = "ZigouigouiARoulette is not available";
            return;
        }
        handler = fn->overloads[k].handler;
        vops.set_result = set_result;
        cops.error = error_of;
        ctx.base.ops = &cops;
        ctx.record.severity = 1;
    }
    void call() { handler(&frame, &ctx.base, argv); }
};

AbiCall& abi() {
    static AbiCall a;
    return a;
}

// The peer: the same pure function called directly from C++.  Through a
// volatile pointer, as an inlined call of a constant function would fold to
// its result and measure nothing; the ABI call is an indirect call too.
int32_t (*volatile direct_fn)(int32_t) = &kp::transforms::zigouigoui_a_roulette;

void BM_IntegerCallThroughAbi(benchmark::State& state) {
    AbiCall& a = abi();
    if (!a.handler) {
        state.SkipWithError(a.error.c_str());
        return;
    }
    for (auto _ : state) {
        a.call();
        benchmark::DoNotOptimize(a.slot.value);
    }
    if (a.slot.value != 24053) state.SkipWithError("wrong result");
    state.counters["target_ns"] = 30;
}
BENCHMARK(BM_IntegerCallThroughAbi);

void BM_DirectCppCall(benchmark::State& state) {
    int32_t arg = 5, r = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(arg);
        r = direct_fn(arg);
        benchmark::DoNotOptimize(r);
    }
    if (r != 24053) state.SkipWithError("wrong result");
}
BENCHMARK(BM_DirectCppCall);

// Seconds per call of `f` over `n` calls, the best of three rounds.
template <typename F> double per_call(F&& f, int n) {
    double best = 1e9;
    for (int round = 0; round < 3; ++round) {
        const auto t0 = std::chrono::steady_clock::now();
        for (int i = 0; i < n; ++i)
            f();
        best =
            std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() / n);
    }
    return best;
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    AbiCall& a = abi();
    if (a.handler) {
        constexpr int kCalls = 2000000;
        const double through_abi = per_call(
            [&a] {
                a.call();
                benchmark::DoNotOptimize(a.slot.value);
            },
            kCalls);
        const double direct = per_call(
            [] {
                int32_t arg = 5;
                benchmark::DoNotOptimize(arg);
                int32_t r = direct_fn(arg);
                benchmark::DoNotOptimize(r);
            },
            kCalls);
        kp::bench::report_measure("ABI call of ZigouigouiARoulette (time x direct C++ call)",
                                  kp::bench::figure("%.1f ns", through_abi * 1e9),
                                  kp::bench::figure("direct %.1f ns", direct * 1e9), through_abi / direct,
                                  through_abi * 1e9, "<=", 30, "ns");
    }
    benchmark::Shutdown();
    return 0;
}
