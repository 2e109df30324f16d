// Line reading: fReadLine over a 100 MB text file of 60-byte lines, against
// a C getline loop over the same file in the same run.  Target: at least
// half of getline's throughput (ratio_to_getline >= 0.5), with the position
// checked exact after every line in the fReadLine runs.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "files/streams.h"
#include "platform/codepage.h"

namespace {

constexpr std::size_t kFileBytes = 100u << 20;
constexpr std::size_t kLineBytes = 60; // 58 characters and CR LF

// The file, written once per process and removed at exit.
const std::string& text_file() {
    static std::string path = [] {
        std::string p = (std::filesystem::temp_directory_path() / "kp120-bench-lines.txt").string();
        FILE* f = std::fopen(p.c_str(), "wb");
        std::string line;
        for (std::size_t i = 0; i + kLineBytes <= kFileBytes; i += kLineBytes) {
            line.assign(kLineBytes - 2, static_cast<char>('a' + (i / kLineBytes) % 26));
            line += "\r\n";
            std::fwrite(line.data(), 1, line.size(), f);
        }
        std::fclose(f);
        std::atexit([] {
            std::filesystem::remove(std::filesystem::temp_directory_path() / "kp120-bench-lines.txt");
        });
        return p;
    }();
    return path;
}

void BM_GetlinePeer(benchmark::State& state) {
    const std::string& path = text_file();
    std::size_t bytes = 0;
    for (auto _ : state) {
        FILE* f = std::fopen(path.c_str(), "rb");
        char* line = nullptr;
        std::size_t cap = 0;
        ssize_t n;
        std::size_t lines = 0;
        while ((n = getline(&line, &cap, f)) > 0) {
            benchmark::DoNotOptimize(line);
            bytes += static_cast<std::size_t>(n);
            ++lines;
        }
        std::free(line);
        std::fclose(f);
        benchmark::DoNotOptimize(lines);
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_GetlinePeer)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ReadLine(benchmark::State& state) {
    const std::string& path = text_file();
    std::u16string name = kp::platform::from_utf8(path);
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    std::size_t bytes = 0;
    bool exact = true;
    for (auto _ : state) {
        int32_t h = kp::files::f_open(name, kp::files::kFoRead, err);
        if (h < 0) {
            state.SkipWithError("open failed");
            return;
        }
        int64_t expected = 0;
        for (;;) {
            std::u16string line = kp::files::f_read_line(h, err);
            if (line.size() == 1 && line[0] == kp::files::kEndOfFile) break;
            expected += static_cast<int64_t>(line.size()) + 2;
            // The position a following fSeek, fRead or fWrite would see.
            if (kp::files::handle_table().find(h)->stream->GetPosition() != static_cast<uint64_t>(expected))
                exact = false;
            benchmark::DoNotOptimize(line.data());
        }
        bytes += static_cast<std::size_t>(expected);
        kp::files::f_close(h, err);
    }
    if (!exact) state.SkipWithError("position not exact after a line");
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_ReadLine)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    // Both measured in this run; the ratio is printed after the table.
    struct Collect : benchmark::ConsoleReporter {
        double getline = 0, readline = 0;
        void ReportRuns(const std::vector<Run>& runs) override {
            for (const Run& r : runs) {
                auto it = r.counters.find("bytes_per_second");
                if (it == r.counters.end()) continue;
                if (r.benchmark_name().find("Getline") != std::string::npos) getline = it->second;
                if (r.benchmark_name().find("ReadLine") != std::string::npos) readline = it->second;
            }
            ConsoleReporter::ReportRuns(runs);
        }
    } reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    if (reporter.getline > 0)
        std::printf("ratio_to_getline (fReadLine / getline throughput) = %.3f (target >= 0.5)\n",
                    reporter.readline / reporter.getline);
    benchmark::Shutdown();
    return 0;
}
