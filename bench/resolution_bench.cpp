// The cost of resolving device names beneath the device root, against the
// C library on the same host paths, each pair measured alternately in the
// same run (each side's fastest round counts):
//   fFileExist on a name six levels deep through the ABI, against a plain
//     stat of the host path (target: at most 2x the time, ratio >= 0.5),
//     also with the cost of the ABI call itself taken out;
//   fListFile over 100,000 files in 1,000 directories, a procedure called
//     back for each, against nftw counting the same files (target >= 1.0).
// KP120_RESOLVE_WALK=1 measures the walk that stands in for openat2.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "file_tree.h"
#include "ratio.h"
#include "support/test_host.h"

namespace {

namespace fs = std::filesystem;
using kp::host::Value;

constexpr int kLookups = 10000;

struct Setup {
    std::unique_ptr<kp::test::HostFixture> fx;
    fs::path device, deep;
};

Setup& setup() {
    static Setup s = [] {
        Setup r;
        r.fx = std::make_unique<kp::test::HostFixture>();
        r.device = r.fx->device();
        kp::bench::make_tree(r.device);
        r.deep = r.device / "Data" / "Orders" / "2024" / "March" / "Day31" / "orders.dat";
        fs::create_directories(r.deep.parent_path());
        std::ofstream(r.deep) << "x";
        return r;
    }();
    return s;
}

bool file_exist() {
    std::vector<Value> args = {Value::string(u"\\Data\\Orders\\2024\\March\\Day31\\orders.dat")};
    bool ok = true;
    for (int i = 0; i < kLookups; ++i)
        ok &= setup().fx->host->call("fFileExist", args).result.b;
    return ok;
}
// The same calls with an empty name, which fails before any resolution:
// what the ABI call itself costs.
bool abi_call_alone() {
    std::vector<Value> args = {Value::string(u"")};
    bool none = false;
    for (int i = 0; i < kLookups; ++i)
        none |= setup().fx->host->call("fFileExist", args).result.b;
    return !none;
}
bool plain_stat() {
    const std::string path = setup().deep.string();
    bool ok = true;
    struct stat st;
    for (int i = 0; i < kLookups; ++i)
        ok &= stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
    return ok;
}

int64_t list_files() {
    return kp::bench::list_tree(*setup().fx->host);
}
int64_t nftw_files() {
    return kp::bench::nftw_tree(setup().device);
}

void BM_FileExist(benchmark::State& state) {
    for (auto _ : state)
        if (!file_exist()) state.SkipWithError("not found");
    state.SetItemsProcessed(state.iterations() * kLookups);
}
void BM_StatPeer(benchmark::State& state) {
    for (auto _ : state)
        if (!plain_stat()) state.SkipWithError("not found");
    state.SetItemsProcessed(state.iterations() * kLookups);
}
void BM_ListFile(benchmark::State& state) {
    for (auto _ : state)
        if (list_files() != kp::bench::kTreeFiles) state.SkipWithError("wrong count");
    state.SetItemsProcessed(state.iterations() * kp::bench::kTreeFiles);
}
void BM_NftwPeer(benchmark::State& state) {
    for (auto _ : state)
        if (nftw_files() != kp::bench::kTreeFiles) state.SkipWithError("wrong count");
    state.SetItemsProcessed(state.iterations() * kp::bench::kTreeFiles);
}
BENCHMARK(BM_FileExist)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_StatPeer)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ListFile)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_NftwPeer)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

} // namespace

using kp::bench::paired;

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    setup();
    benchmark::RunSpecifiedBenchmarks();
    double exist = paired(5, file_exist, plain_stat);
    // The resolution alone: each side's fastest of 5 rounds, the ABI call's
    // own cost taken out of fFileExist's.
    auto fastest = [](const std::function<bool()>& f) {
        double best = 1e300;
        for (int r = 0; r < 5; ++r) {
            auto t0 = std::chrono::steady_clock::now();
            f();
            best =
                std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
        }
        return best;
    };
    const double whole = fastest(file_exist), call = fastest(abi_call_alone), peer = fastest(plain_stat);
    double list = paired(
        3, [] { return list_files() == kp::bench::kTreeFiles; },
        [] { return nftw_files() == kp::bench::kTreeFiles; });
    kp::bench::report_ratio("fFileExist, 6 levels through the resolver (throughput x stat)", "alternate runs",
                            "stat", exist, ">=", 0.5);
    std::printf("resolution alone: %.2f us a lookup (the ABI call's %.2f us taken out), stat %.2f us\n",
                (whole - call) * 1e6 / kLookups, call * 1e6 / kLookups, peer * 1e6 / kLookups);
    kp::bench::report_ratio("fListFile through the resolver (throughput x nftw)", "alternate runs", "nftw",
                            list, ">=", 1.0);
    benchmark::Shutdown();
    setup().fx.reset(); // removes the files
    return 0;
}
