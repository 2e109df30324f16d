// Data transforms against their peers, measured in the same run:
//   CRC-32 of 1 MiB against zlib's crc32 (target: at least as fast);
//   LZW compression and decompression (Compress / Uncompress) of a 10 MB
//   mix of text and binary against ncompress's `compress` on the same bytes
//   (target: at least as fast; sizes printed beside); the compression's
//   ratio comes from rounds taken in turns with the peer;
//   encodeBASE64 against coreutils `base64` on the same bytes (target: at
//   least as fast);
//   cipher throughput of cryptFast, cryptSecure and cryptRC516 in MB/s.
// The peers' commands run as processes on a file of the bytes; their time is
// the CPU time they use (user + system), ours the CPU time of the benchmark
// thread, so that the ratios hold on a machine shared with other work.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "ratio.h"
#include "transforms/checksum.h"
#include "transforms/cipher.h"
#include "transforms/compression.h"
#include "transforms/encodings.h"

namespace {

using namespace kp::transforms;
namespace fs = std::filesystem;

constexpr std::size_t kMix = 10'000'000;

std::vector<uint8_t> random_bytes(std::size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (auto& b : v)
        b = static_cast<uint8_t>(rng());
    return v;
}

// Words and numbers in lines, with a stretch of binary now and then.
const std::vector<uint8_t>& mix() {
    static const std::vector<uint8_t> data = [] {
        static const char* words[] = {"client ",  "facture ", "montant ", "date ", "2026-11-21 ", "total ",
                                      "adresse ", "rue ",     "Paris ",   "Lyon ", "quantité ",   "prix ",
                                      "TVA ",     "remise ",  "\r\n",     "code ", "article ",    "stock "};
        std::mt19937 rng(42);
        std::vector<uint8_t> v;
        v.reserve(kMix);
        while (v.size() < kMix) {
            if (rng() % 200 == 0) {
                for (int k = 64 + rng() % 512; k > 0 && v.size() < kMix; --k)
                    v.push_back(static_cast<uint8_t>(rng()));
            } else {
                for (const char* w = words[rng() % 18]; *w && v.size() < kMix; ++w)
                    v.push_back(static_cast<uint8_t>(*w));
                if (rng() % 4 == 0)
                    for (int k = rng() % 6; k >= 0 && v.size() < kMix; --k)
                        v.push_back(static_cast<uint8_t>('0' + rng() % 10));
            }
        }
        return v;
    }();
    return data;
}

// The bytes in a temporary file for the peer commands, removed at exit.
const fs::path& mix_file() {
    static const fs::path path = [] {
        fs::path p = fs::temp_directory_path() / "kp120-bench-mix.bin";
        std::ofstream f(p, std::ios::binary | std::ios::trunc);
        f.write(reinterpret_cast<const char*>(mix().data()), static_cast<std::streamsize>(mix().size()));
        f.close();
        std::atexit([] {
            std::error_code ec;
            fs::remove(fs::temp_directory_path() / "kp120-bench-mix.bin", ec);
            fs::remove(fs::temp_directory_path() / "kp120-bench-mix.bin.Z", ec);
        });
        return p;
    }();
    return path;
}

std::map<std::string, double>& sizes() {
    static std::map<std::string, double> s;
    return s;
}

// CPU time (user + system) of the finished children.
double children_cpu_seconds() {
    rusage ru{};
    getrusage(RUSAGE_CHILDREN, &ru);
    return static_cast<double>(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) +
           static_cast<double>(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) * 1e-6;
}

// Runs a shell command; the iteration's time is the CPU time the command
// used, so that the comparison with our own CPU time holds on a loaded
// machine.
void timed_command(benchmark::State& state, const std::string& command) {
    for (auto _ : state) {
        const double t0 = children_cpu_seconds();
        const int rc = std::system(command.c_str());
        const double t1 = children_cpu_seconds();
        if (rc != 0) {
            state.SkipWithError(("command failed: " + command).c_str());
            return;
        }
        state.SetIterationTime(t1 - t0);
    }
}

// CPU time of the calling thread.
double thread_cpu_seconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// LZW compression of the mix against `compress` on its file, taken in
// turns (ours, then the peer's) for `rounds` rounds, each side keeping its
// fastest round in CPU time: a neighbour's load then falls on both alike.
// Throughputs in bytes a second; false when a side failed.
bool paired_lzw_compress(int rounds, double& ours, double& peer) {
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    const std::string in = mix_file().string();
    const std::string command = "compress -c '" + in + "' > '" + in + ".Z'";
    double a = 1e300, b = 1e300;
    for (int r = 0; r < rounds; ++r) {
        const double t0 = thread_cpu_seconds();
        const auto packed = compress(mix(), false, err);
        const double t1 = thread_cpu_seconds();
        if (packed.empty()) return false;
        const double c0 = children_cpu_seconds();
        if (std::system(command.c_str()) != 0) return false;
        const double c1 = children_cpu_seconds();
        a = std::min(a, t1 - t0);
        b = std::min(b, c1 - c0);
    }
    ours = static_cast<double>(kMix) / a;
    peer = static_cast<double>(kMix) / b;
    return true;
}

// ---- CRC-32 ---------------------------------------------------------------

void BM_Crc32(benchmark::State& state) {
    const auto data = random_bytes(1 << 20, 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(crc32(data));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(data.size()));
}
BENCHMARK(BM_Crc32);

void BM_Crc32ZlibPeer(benchmark::State& state) {
    const auto data = random_bytes(1 << 20, 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(::crc32(0L, data.data(), static_cast<uInt>(data.size())));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(data.size()));
}
BENCHMARK(BM_Crc32ZlibPeer);

// ---- LZW ------------------------------------------------------------------

void BM_LzwCompress(benchmark::State& state) {
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    std::size_t out = 0;
    for (auto _ : state) {
        const auto packed = compress(mix(), false, err);
        out = packed.size();
        benchmark::DoNotOptimize(packed.data());
    }
    sizes()["ours"] = static_cast<double>(out);
    state.counters["out_bytes"] = static_cast<double>(out);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kMix));
}
BENCHMARK(BM_LzwCompress)->Unit(benchmark::kMillisecond);

void BM_LzwCompressNcompressPeer(benchmark::State& state) {
    const std::string in = mix_file().string();
    timed_command(state, "compress -c '" + in + "' > '" + in + ".Z'");
    const double out = static_cast<double>(fs::file_size(in + ".Z"));
    sizes()["ncompress"] = out;
    state.counters["out_bytes"] = out;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kMix));
}
BENCHMARK(BM_LzwCompressNcompressPeer)->Unit(benchmark::kMillisecond)->UseManualTime();

void BM_LzwUncompress(benchmark::State& state) {
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    const auto packed = compress(mix(), false, err);
    for (auto _ : state) {
        const auto back = uncompress(packed, err);
        if (back.size() != kMix) state.SkipWithError("round trip failed");
        benchmark::DoNotOptimize(back.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kMix));
}
BENCHMARK(BM_LzwUncompress)->Unit(benchmark::kMillisecond);

void BM_LzwUncompressNcompressPeer(benchmark::State& state) {
    const std::string in = mix_file().string();
    if (std::system(("compress -c '" + in + "' > '" + in + ".Z'").c_str()) != 0)
        state.SkipWithError("compress");
    timed_command(state, "compress -dc '" + in + ".Z' > /dev/null");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kMix));
}
BENCHMARK(BM_LzwUncompressNcompressPeer)->Unit(benchmark::kMillisecond)->UseManualTime();

// ---- Base64 ---------------------------------------------------------------
// 64 MiB both ways, into buffers made once (the text is 170 MiB of UTF-16:
// fresh pages for it would cost more than the coding).  Target: 4 GB/s of
// bytes each way; coreutils base64 (encode, and -d on its own text) beside.

constexpr std::size_t kBase64Bytes = 64u << 20;

const std::vector<uint8_t>& base64_input() {
    static const std::vector<uint8_t> data = random_bytes(kBase64Bytes, 64);
    return data;
}

const fs::path& base64_file() {
    static const fs::path path = [] {
        fs::path p = fs::temp_directory_path() / "kp120-bench-b64.bin";
        std::ofstream f(p, std::ios::binary | std::ios::trunc);
        f.write(reinterpret_cast<const char*>(base64_input().data()),
                static_cast<std::streamsize>(base64_input().size()));
        f.close();
        if (std::system(("base64 '" + p.string() + "' > '" + p.string() + ".txt' 2>/dev/null").c_str()) != 0)
            fs::remove(p.string() + ".txt");
        std::atexit([] {
            std::error_code ec;
            fs::remove(fs::temp_directory_path() / "kp120-bench-b64.bin", ec);
            fs::remove(fs::temp_directory_path() / "kp120-bench-b64.bin.txt", ec);
        });
        return p;
    }();
    return path;
}

void BM_Base64Encode(benchmark::State& state) {
    const auto encoder = make_encoder(kEncodeBase64);
    const auto& in = base64_input();
    std::vector<char16_t> text(encoder->encode(in, encoder->groups_per_line(), nullptr));
    for (auto _ : state) {
        encoder->encode(in, encoder->groups_per_line(), text.data());
        benchmark::DoNotOptimize(text.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kBase64Bytes));
}
BENCHMARK(BM_Base64Encode)->Unit(benchmark::kMillisecond);

void BM_Base64Decode(benchmark::State& state) {
    const auto encoder = make_encoder(kEncodeBase64);
    const std::u16string text = encoder->encode(base64_input());
    std::vector<uint8_t> out(encoder->decode(text, nullptr));
    for (auto _ : state) {
        const std::size_t n = encoder->decode(text, out.data());
        if (n != kBase64Bytes) state.SkipWithError("round trip failed");
        benchmark::DoNotOptimize(out.data());
    }
    if (out != base64_input()) state.SkipWithError("round trip failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kBase64Bytes));
}
BENCHMARK(BM_Base64Decode)->Unit(benchmark::kMillisecond);

void BM_Base64EncodeCoreutilsPeer(benchmark::State& state) {
    timed_command(state, "base64 '" + base64_file().string() + "' > /dev/null");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kBase64Bytes));
}
BENCHMARK(BM_Base64EncodeCoreutilsPeer)->Unit(benchmark::kMillisecond)->UseManualTime();

void BM_Base64DecodeCoreutilsPeer(benchmark::State& state) {
    if (!fs::exists(base64_file().string() + ".txt")) {
        state.SkipWithError("coreutils base64 missing");
        return;
    }
    timed_command(state, "base64 -d '" + base64_file().string() + ".txt' > /dev/null");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kBase64Bytes));
}
BENCHMARK(BM_Base64DecodeCoreutilsPeer)->Unit(benchmark::kMillisecond)->UseManualTime();

// ---- Ciphers --------------------------------------------------------------

void BM_Cipher(benchmark::State& state) {
    const int mode = static_cast<int>(state.range(0));
    auto cipher = make_cipher(mode);
    cipher->set_password(u"mot de passe");
    auto data = random_bytes(1 << 20, 3);
    for (auto _ : state) {
        cipher->encrypt(data);
        benchmark::DoNotOptimize(data.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(data.size()));
    state.SetLabel(mode == 1 ? "cryptFast" : mode == 2 ? "cryptSecure" : "cryptRC516");
}
BENCHMARK(BM_Cipher)->Arg(1)->Arg(2)->Arg(3);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    struct Collect : benchmark::ConsoleReporter {
        std::map<std::string, double> rate;
        void ReportRuns(const std::vector<Run>& runs) override {
            for (const Run& r : runs) {
                auto it = r.counters.find("bytes_per_second");
                if (it != r.counters.end()) rate[r.benchmark_name()] = it->second;
            }
            ConsoleReporter::ReportRuns(runs);
        }
        double get(const std::string& prefix) const {
            for (const auto& [name, v] : rate)
                if (name.rfind(prefix, 0) == 0) return v;
            return 0;
        }
    } reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    // Throughputs in MB/s, ours over the peer's.
    auto ratio = [&](const char* what, const char* ours, const char* peer, const char* peer_name,
                     double target) {
        const double a = reporter.get(ours), b = reporter.get(peer);
        kp::bench::report_ratio(what, kp::bench::figure("%.0f MB/s", a / 1e6),
                                b > 0 ? kp::bench::figure("%s %.0f MB/s", peer_name, b / 1e6)
                                      : std::string(peer_name) + " missing",
                                a > 0 && b > 0 ? a / b : 0, ">=", target);
    };
    ratio("CRC-32 of 1 MiB (throughput x zlib)", "BM_Crc32", "BM_Crc32ZlibPeer", "zlib", 1);
    // LZW compression: the fastest of 7 rounds taken in turns with the peer.
    double lzw_ours = 0, lzw_peer = 0;
    const bool lzw_paired = paired_lzw_compress(7, lzw_ours, lzw_peer);
    kp::bench::report_ratio("LZW compress 10 MB (throughput x ncompress)",
                            kp::bench::figure("%.0f MB/s", lzw_ours / 1e6),
                            lzw_paired ? kp::bench::figure("ncompress %.0f MB/s", lzw_peer / 1e6)
                                       : std::string("ncompress missing"),
                            lzw_paired ? lzw_ours / lzw_peer : 0, ">=", 1);
    ratio("LZW uncompress 10 MB (throughput x ncompress)", "BM_LzwUncompress",
          "BM_LzwUncompressNcompressPeer", "ncompress", 1);
    // Base64: 4 GB/s each way, coreutils beside.
    auto base64 = [&](const char* what, const char* ours, const char* peer, const char* peer_name) {
        const double a = reporter.get(ours), b = reporter.get(peer);
        kp::bench::report_measure(what, kp::bench::figure("%.2f GB/s", a / 1e9),
                                  b > 0 ? kp::bench::figure("%s %.2f GB/s", peer_name, b / 1e9)
                                        : std::string(peer_name) + " missing",
                                  a > 0 && b > 0 ? a / b : 0, a / 1e9, ">=", 4, "GB/s");
    };
    base64("Base64 encode 64 MiB (x coreutils)", "BM_Base64Encode", "BM_Base64EncodeCoreutilsPeer", "base64");
    base64("Base64 decode 64 MiB (x coreutils)", "BM_Base64Decode", "BM_Base64DecodeCoreutilsPeer",
           "base64 -d");
    if (sizes().count("ours") && sizes().count("ncompress"))
        std::printf("lzw sizes of %zu bytes: ours %.0f, ncompress %.0f (%.3f)\n", kMix, sizes()["ours"],
                    sizes()["ncompress"], sizes()["ours"] / sizes()["ncompress"]);
    for (int mode = 1; mode <= 3; ++mode) {
        const double r = reporter.get("BM_Cipher/" + std::to_string(mode));
        if (r > 0) std::printf("cipher mode %d throughput = %.1f MB/s\n", mode, r / 1e6);
    }
    benchmark::Shutdown();
    return 0;
}
