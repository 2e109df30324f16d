// Table export: TableToText of a table control of 100,000 rows by 10
// columns (strings, integers and reals), through the reference host, each
// cell read through the table interface and converted by the host's
// conversion.  Target: under 0.5 s a call.  The peer is the same text built
// directly from the host's cells in one loop (no interface, no variants),
// measured in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "support/test_host.h"

#include "ratio.h"

namespace {

constexpr int kRows = 100000;
constexpr int kColumns = 10;

using kp::host::Value;

struct Table {
    kp::test::HostFixture fx;
    std::shared_ptr<kp::host::TableControl> control = std::make_shared<kp::host::TableControl>();
    Value handle;
    std::size_t expected_size = 0;

    Table() {
        for (int c = 0; c < kColumns; ++c)
            control->columns.push_back(
                {u"Column " + std::u16string(1, static_cast<char16_t>(u'0' + c)), true});
        control->rows.reserve(kRows);
        for (int r = 0; r < kRows; ++r) {
            std::vector<Value> row;
            row.reserve(kColumns);
            for (int c = 0; c < kColumns; ++c) {
                if (c % 3 == 0)
                    row.push_back(
                        Value::string(u"item " + kp::host::utf16(std::to_string(r * kColumns + c))));
                else if (c % 3 == 1)
                    row.push_back(Value::integer(static_cast<int64_t>(r) * 7919 - c));
                else
                    row.push_back(Value::real(r + c / 4.0));
            }
            control->rows.push_back(std::move(row));
        }
        handle = Value::integer(static_cast<int64_t>(fx.host->add_control(control)));
    }

    std::u16string export_text() {
        std::vector<Value> args{handle};
        return fx.host->call("TableToText", args).result.s;
    }

    // The peer: the same text from the same cells, in one loop.
    std::u16string join() const {
        std::u16string out;
        for (int c = 0; c < kColumns; ++c) {
            if (c) out += u'\t';
            out += control->columns[static_cast<std::size_t>(c)].title;
        }
        char buf[64];
        for (const auto& row : control->rows) {
            out += u"\r\n";
            for (int c = 0; c < kColumns; ++c) {
                if (c) out += u'\t';
                const Value& v = row[static_cast<std::size_t>(c)];
                if (v.kind == Value::Kind::String) {
                    out += v.s;
                    continue;
                }
                int n = v.kind == Value::Kind::Int
                            ? std::snprintf(buf, sizeof buf, "%lld", static_cast<long long>(v.i))
                            : std::snprintf(buf, sizeof buf, "%.15g", v.r);
                for (int k = 0; k < n; ++k)
                    out += static_cast<char16_t>(buf[k]);
            }
        }
        return out;
    }
};

Table& table() {
    static Table t;
    return t;
}

void BM_TableToText(benchmark::State& state) {
    Table& t = table();
    const std::size_t expected = t.join().size();
    for (auto _ : state) {
        std::u16string s = t.export_text();
        if (s.size() != expected) state.SkipWithError("the exported text differs from the peer's");
        benchmark::DoNotOptimize(s.data());
    }
    state.counters["rows"] = kRows;
}
BENCHMARK(BM_TableToText)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PeerJoin(benchmark::State& state) {
    Table& t = table();
    for (auto _ : state) {
        std::u16string s = t.join();
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK(BM_PeerJoin)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    // Ratio from runs of each side taken alternately.
    Table& t = table();
    double best_export = 1e9, best_join = 1e9;
    for (int k = 0; k < 3; ++k) {
        auto t0 = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(t.export_text().size());
        auto t1 = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(t.join().size());
        auto t2 = std::chrono::steady_clock::now();
        best_export = std::min(best_export, std::chrono::duration<double>(t1 - t0).count());
        best_join = std::min(best_join, std::chrono::duration<double>(t2 - t1).count());
    }
    kp::bench::report_measure(
        "TableToText 100000 x 10 (time x join)", kp::bench::figure("%.3f s", best_export),
        kp::bench::figure("join %.3f s", best_join), best_export / best_join, best_export, "<=", 0.5, "s");
    benchmark::Shutdown();
    return 0;
}
