// Line reading: fReadLine over a 100 MB text file of 60-byte lines, against
// a C getline loop over the same file in the same run.  Each side keeps its
// line's storage from one line to the next (the buffer getline grows, the
// string fReadLine fills, as its handler does before the copy into the
// VM's string).  Target: at least
// getline's throughput, with the position checked exact after every line in
// the fReadLine runs.  The ratio printed after the table comes from batches
// of lines of each side taken alternately.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "files/streams.h"
#include "platform/codepage.h"

#include "ratio.h"

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

// One pass of the C getline loop over the file; the bytes read.
std::size_t getline_pass(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return 0;
    char* line = nullptr;
    std::size_t cap = 0, bytes = 0;
    ssize_t n;
    while ((n = getline(&line, &cap, f)) > 0) {
        benchmark::DoNotOptimize(line);
        bytes += static_cast<std::size_t>(n);
    }
    std::free(line);
    std::fclose(f);
    return bytes;
}

// One pass of fReadLine over the file; the bytes read, or 0 when the file
// did not open or the position was not exact after a line.
std::size_t read_line_pass(const std::u16string& name) {
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    int32_t h = kp::files::f_open(name, kp::files::kFoRead, err);
    if (h < 0) return 0;
    kp::files::IXStream& stream = *kp::files::handle_table().find(h)->stream;
    int64_t expected = 0;
    bool exact = true;
    std::u16string line;
    for (;;) {
        kp::files::f_read_line(h, line, err);
        if (line.size() == 1 && line[0] == kp::files::kEndOfFile) break;
        expected += static_cast<int64_t>(line.size()) + 2;
        // The position a following fSeek, fRead or fWrite would see.
        exact &= stream.GetPosition() == static_cast<uint64_t>(expected);
        benchmark::DoNotOptimize(line.data());
    }
    kp::files::f_close(h, err);
    return exact ? static_cast<std::size_t>(expected) : 0;
}

void BM_GetlinePeer(benchmark::State& state) {
    const std::string& path = text_file();
    std::size_t bytes = 0;
    for (auto _ : state)
        bytes += getline_pass(path);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_GetlinePeer)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ReadLine(benchmark::State& state) {
    std::u16string name = kp::platform::from_utf8(text_file());
    std::size_t bytes = 0;
    for (auto _ : state) {
        std::size_t n = read_line_pass(name);
        if (n == 0) {
            state.SkipWithError("open failed or position not exact after a line");
            return;
        }
        bytes += n;
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_ReadLine)->Unit(benchmark::kMillisecond)->UseRealTime();

// Batches of lines read by each side alternately, each side going on
// through its own open file (and starting it again at the end), each
// keeping its fastest batch: a neighbour's load then falls on both sides
// alike.  fReadLine's throughput over getline's; 0 when a side failed.
double paired_ratio(double& ours_ns, double& peer_ns) {
    constexpr int kRounds = 300, kLines = 20000;
    const std::string& path = text_file();
    std::u16string name = kp::platform::from_utf8(path);
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    int32_t h = kp::files::f_open(name, kp::files::kFoRead, err);
    FILE* f = std::fopen(path.c_str(), "rb");
    if (h < 0 || !f) return 0;
    char* buf = nullptr;
    std::size_t cap = 0;
    // Seconds a line of a batch, or -1 when the batch met the file's end
    // (the file is then started again and the batch not counted).
    std::u16string line;
    auto ours = [&] {
        auto t0 = std::chrono::steady_clock::now();
        for (int i = 0; i < kLines; ++i) {
            kp::files::f_read_line(h, line, err);
            benchmark::DoNotOptimize(line.data());
            if (line.size() == 1 && line[0] == kp::files::kEndOfFile) {
                kp::files::f_seek(h, 0, 0, err);
                return -1.0;
            }
        }
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() / kLines;
    };
    auto peer = [&] {
        auto t0 = std::chrono::steady_clock::now();
        for (int i = 0; i < kLines; ++i) {
            ssize_t n = getline(&buf, &cap, f);
            benchmark::DoNotOptimize(buf);
            if (n <= 0) {
                std::rewind(f);
                return -1.0;
            }
        }
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() / kLines;
    };
    double a = 1e300, b = 1e300;
    for (int r = 0; r < kRounds; ++r) {
        if (double t = ours(); t > 0) a = std::min(a, t);
        if (double t = peer(); t > 0) b = std::min(b, t);
    }
    std::free(buf);
    std::fclose(f);
    kp::files::f_close(h, err);
    if (a >= 1e300 || b >= 1e300) return 0;
    std::printf("fastest batches: fReadLine %.1f ns a line, getline %.1f ns a line\n", a * 1e9, b * 1e9);
    ours_ns = a * 1e9;
    peer_ns = b * 1e9;
    return b / a;
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    double ours_ns = 0, peer_ns = 0;
    const double ratio = paired_ratio(ours_ns, peer_ns);
    kp::bench::report_ratio("fReadLine 60-byte ANSI lines (throughput x getline)",
                            kp::bench::figure("%.1f ns a line", ours_ns),
                            kp::bench::figure("getline %.1f ns", peer_ns), ratio, ">=", 1.0);
    benchmark::Shutdown();
    return 0;
}
