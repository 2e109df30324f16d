// Currency conversion and rounding per call.  Target: under 100 ns.
// The peer is the same conversion done in doubles (inexact), the floor of
// what a conversion can cost.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <memory>

#include "currency_table.h"
#include "host.h"
#include "numeric/currency.h"

namespace {

using kp::numeric::Money;

kp_currency_table& table() {
    static kp_currency_table t = *kp::host::currency_table();
    return t;
}

void BM_ConvertDoublePeer(benchmark::State& state) {
    double v = 1234.56, rate = 6.55957;
    for (auto _ : state) {
        benchmark::DoNotOptimize(v);
        double r = std::round(v / rate * 100) / 100;
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_ConvertDoublePeer);

void BM_RoundDecimals(benchmark::State& state) {
    Money v = *Money::from_text("-1234567.891234");
    int32_t d = 2;
    for (auto _ : state) {
        benchmark::DoNotOptimize(v);
        benchmark::DoNotOptimize(d);
        auto r = kp::numeric::round_decimals(v, d);
        benchmark::DoNotOptimize(r);
    }
    state.counters["target_ns"] = 100;
}
BENCHMARK(BM_RoundDecimals);

void BM_ToEuroRounded(benchmark::State& state) {
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    Money v = *Money::from_text("1234.56");
    Money diff;
    for (auto _ : state) {
        benchmark::DoNotOptimize(v);
        Money r = kp::numeric::to_euro(&table(), v, 6, 2, &diff, err);
        benchmark::DoNotOptimize(r);
    }
    if (err.failed()) state.SkipWithError("conversion failed");
    state.counters["target_ns"] = 100;
}
BENCHMARK(BM_ToEuroRounded);

void BM_ChangeCurrencyRounded(benchmark::State& state) {
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    Money v = *Money::from_text("98765432.123456");
    for (auto _ : state) {
        benchmark::DoNotOptimize(v);
        Money r = kp::numeric::change_currency(&table(), v, 6, 8, 2, nullptr, err);
        benchmark::DoNotOptimize(r);
    }
    if (err.failed()) state.SkipWithError("conversion failed");
    state.counters["target_ns"] = 100;
}
BENCHMARK(BM_ChangeCurrencyRounded);

// The whole call of eToEuro(value, index, decimals) through the module's
// handler, the table fetched from the object module as on every call.
struct Context {
    kp_call_context base;
    kp_error_record record;
};
kp_error_record* error_of(kp_call_context* c) {
    return &reinterpret_cast<Context*>(c)->record;
}
void set_result(kp_value_interface*, void* handle, const void* value, uint32_t) {
    std::memcpy(handle, value, 10);
}

void BM_ToEuroThroughAbi(benchmark::State& state) {
    kp::host::Options o;
    kp::host::Host host(o);
    if (!host.loaded()) {
        state.SkipWithError(host.load_error().c_str());
        return;
    }
    const kp_function* fn = host.find_function("eToEuro");
    if (!fn || KP_IDENT_COUNT(fn->ident) < 3 || !fn->overloads[2].handler) {
        state.SkipWithError("eToEuro is not available");
        return;
    }
    kp_handler handler = fn->overloads[2].handler;
    static kp_value_interface_ops vops{};
    vops.set_result = set_result;
    kp_value_interface values{&vops};
    static kp_call_context_ops cops{};
    cops.error = error_of;
    auto ctx = std::make_unique<Context>();
    ctx->base.ops = &cops;
    ctx->record.severity = 1;
    uint8_t result[10] = {};
    kp_call_frame frame{&values, nullptr, nullptr, nullptr, result};
    uint8_t value[10];
    Money::from_int(1234).to_bytes(value);
    int32_t index = 6, decimals = 2;
    void* argv[3] = {value, &index, &decimals};
    for (auto _ : state) {
        handler(&frame, &ctx->base, argv);
        benchmark::DoNotOptimize(result);
    }
    if (ctx->record.severity != 1 || Money::from_bytes(result).to_text() != "188.120000")
        state.SkipWithError("wrong result");
    state.counters["target_ns"] = 100;
}
BENCHMARK(BM_ToEuroThroughAbi);

} // namespace

BENCHMARK_MAIN();
