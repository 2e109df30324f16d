// File management against its command-line and C library peers, each pair
// measured alternately in the same run (each side's fastest round counts):
//   fListFile over 100,000 files in 1,000 directories, a procedure called
//     back for each, against nftw counting the same files (target >= 0.5);
//   fCompare of two equal 1 GiB files against cmp (target >= 1.0);
//   fCopyFile of a 1 GiB file against cp (target >= 1.0);
//   fCompare and fCopyFile of a 1 GiB file that is 90% holes (1 MiB of
//     data every 10 MiB) against cmp and cp (target >= 1.0 each).
// Before each copy, untimed, both copies are removed and the dirty pages
// written back (sync), so that neither side pays for the other's output.
// The files live in a temporary directory removed at the end.  The peak
// resident size printed last shows that comparing and copying 1 GiB files
// does not hold them in memory.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/test_host.h"

#include "file_tree.h"
#include "ratio.h"

namespace {

namespace fs = std::filesystem;
using kp::host::Value;

constexpr std::size_t kBigFile = 1u << 30;

struct Setup {
    std::unique_ptr<kp::test::HostFixture> fx;
    fs::path device;
    bool ready = false;
};

Setup& setup() {
    static Setup s = [] {
        Setup r;
        r.fx = std::make_unique<kp::test::HostFixture>();
        r.device = r.fx->device();
        kp::bench::make_tree(r.device);
        // Two equal files of 1 GiB, written in blocks.
        std::vector<char> block(1u << 20);
        for (std::size_t i = 0; i < block.size(); ++i)
            block[i] = static_cast<char>(i * 31 + i / 4096);
        for (const char* name : {"big1", "big2"}) {
            std::ofstream f(r.device / name, std::ios::binary);
            for (std::size_t done = 0; done < kBigFile; done += block.size())
                f.write(block.data(), static_cast<std::streamsize>(block.size()));
        }
        // Two equal files of 1 GiB, 90% holes: 1 MiB of data every 10 MiB.
        for (const char* name : {"sparse1", "sparse2"}) {
            const int fd = ::open((r.device / name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            for (std::size_t at = 0; fd >= 0 && at < kBigFile; at += 10 * block.size())
                if (pwrite(fd, block.data(), block.size(), static_cast<off_t>(at)) < 0) break;
            if (fd >= 0 && ftruncate(fd, static_cast<off_t>(kBigFile)) == 0) ::close(fd);
        }
        r.ready =
            fs::file_size(r.device / "big2") == kBigFile && fs::file_size(r.device / "sparse2") == kBigFile;
        return r;
    }();
    return s;
}

int64_t list_files() {
    return kp::bench::list_tree(*setup().fx->host);
}
int64_t nftw_files() {
    return kp::bench::nftw_tree(setup().device);
}

// The dense files "big1"/"big2", or the sparse ones "sparse1"/"sparse2".
bool compare_files(const std::string& stem = "big") {
    std::vector<Value> args = {Value::string(u"\\" + kp::host::utf16(stem) + u"1"),
                               Value::string(u"\\" + kp::host::utf16(stem) + u"2")};
    return setup().fx->host->call("fCompare", args).result.i == 0;
}
bool cmp_files(const std::string& stem = "big") {
    std::string cmd = "cmp -s '" + (setup().device / (stem + "1")).string() + "' '" +
                      (setup().device / (stem + "2")).string() + "'";
    return std::system(cmd.c_str()) == 0;
}

// Both copies removed and every dirty page written back: a copy starts
// from the same state whichever side ran before it.
void settle_copies() {
    fs::remove(setup().device / "copy1");
    fs::remove(setup().device / "copy2");
    ::sync();
}
bool copy_file(const std::string& stem = "big") {
    std::vector<Value> args = {Value::string(u"\\" + kp::host::utf16(stem) + u"1"),
                               Value::string(u"\\copy1")};
    return setup().fx->host->call("fCopyFile", args).result.b;
}
bool cp_file(const std::string& stem = "big") {
    std::string cmd =
        "cp '" + (setup().device / (stem + "1")).string() + "' '" + (setup().device / "copy2").string() + "'";
    return std::system(cmd.c_str()) == 0;
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
void BM_Compare(benchmark::State& state) {
    for (auto _ : state)
        if (!compare_files()) state.SkipWithError("files reported different");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFile * 2));
}
void BM_CmpPeer(benchmark::State& state) {
    for (auto _ : state)
        if (!cmp_files()) state.SkipWithError("cmp failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFile * 2));
}
void BM_CopyFile(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        settle_copies();
        state.ResumeTiming();
        if (!copy_file()) state.SkipWithError("copy failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFile));
}
void BM_CpPeer(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        settle_copies();
        state.ResumeTiming();
        if (!cp_file()) state.SkipWithError("cp failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBigFile));
}
void BM_CompareSparse(benchmark::State& state) {
    for (auto _ : state)
        if (!compare_files("sparse")) state.SkipWithError("files reported different");
}
void BM_CmpSparsePeer(benchmark::State& state) {
    for (auto _ : state)
        if (!cmp_files("sparse")) state.SkipWithError("cmp failed");
}
void BM_CopySparse(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        settle_copies();
        state.ResumeTiming();
        if (!copy_file("sparse")) state.SkipWithError("copy failed");
    }
}
void BM_CpSparsePeer(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        settle_copies();
        state.ResumeTiming();
        if (!cp_file("sparse")) state.SkipWithError("cp failed");
    }
}
BENCHMARK(BM_ListFile)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_NftwPeer)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_Compare)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_CmpPeer)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_CopyFile)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_CpPeer)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_CompareSparse)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_CmpSparsePeer)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_CopySparse)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_CpSparsePeer)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

} // namespace

using kp::bench::paired;

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!setup().ready) {
        std::fprintf(stderr, "file_management_bench: the test files could not be made\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    double list = paired(
        3, [] { return list_files() == kp::bench::kTreeFiles; },
        [] { return nftw_files() == kp::bench::kTreeFiles; });
    double compare = paired(
        3, [] { return compare_files(); }, [] { return cmp_files(); });
    double copy = paired(
        3, [] { return copy_file(); }, [] { return cp_file(); }, settle_copies);
    double sparse_compare = paired(
        3, [] { return compare_files("sparse"); }, [] { return cmp_files("sparse"); });
    double sparse_copy = paired(
        3, [] { return copy_file("sparse"); }, [] { return cp_file("sparse"); }, settle_copies);
    kp::bench::report_ratio("fListFile (throughput x nftw)", "alternate runs", "nftw", list, ">=", 1.0);
    kp::bench::report_ratio("fCompare (throughput x cmp)", "alternate runs", "cmp", compare, ">=", 1.0);
    kp::bench::report_ratio("fCopyFile (throughput x cp)", "alternate runs", "cp", copy, ">=", 1.0);
    kp::bench::report_ratio("fCompare, 1 GiB 90% holes (throughput x cmp)", "alternate runs", "cmp",
                            sparse_compare, ">=", 1.0);
    kp::bench::report_ratio("fCopyFile, 1 GiB 90% holes (throughput x cp)", "alternate runs", "cp",
                            sparse_copy, ">=", 1.0);
    struct rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    std::printf("peak resident size of this process: %ld MiB\n", ru.ru_maxrss / 1024);
    benchmark::Shutdown();
    setup().fx.reset(); // removes the files
    return 0;
}
