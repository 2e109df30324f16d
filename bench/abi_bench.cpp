// The cost of one call through the ABI: an integer function with its
// overload resolved beforehand, called the way the VM calls a handler
// (frame, call context, argument vector, result setter).  Target: 30 ns.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "host.h"

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
kp_error_record* error_of(kp_call_context* c) { return &reinterpret_cast<Context*>(c)->record; }

void BM_IntegerCallThroughAbi(benchmark::State& state) {
    kp::host::Options o;
    kp::host::Host host(o);
    if (!host.loaded()) {
        state.SkipWithError(host.load_error().c_str());
        return;
    }
    const kp_function* fn = host.find_function("ZigouigouiARoulette");
    std::vector<kp::host::Value> probe{kp::host::Value::integer(1)};
    int k = fn ? host.choose_overload(*fn, probe, nullptr) : -1;
    if (k < 0) {
        state.SkipWithError("ZigouigouiARoulette is not available");
        return;
    }
    kp_handler handler = fn->overloads[k].handler;
    static kp_value_interface_ops vops{};
    vops.set_result = set_result;
    kp_value_interface values{&vops};
    static kp_call_context_ops cops{};
    cops.error = error_of;
    auto ctx = std::make_unique<Context>();
    ctx->base.ops = &cops;
    ctx->record.severity = 1;
    Slot slot{0};
    kp_call_frame frame{&values, nullptr, nullptr, nullptr, &slot};
    int32_t arg = 5;
    void* argv[1] = {&arg};
    for (auto _ : state) {
        handler(&frame, &ctx->base, argv);
        benchmark::DoNotOptimize(slot.value);
    }
    if (slot.value != 24053) state.SkipWithError("wrong result");
    state.counters["target_ns"] = 30;
}
BENCHMARK(BM_IntegerCallThroughAbi);

} // namespace

BENCHMARK_MAIN();
