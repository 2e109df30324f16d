// INI files: INIRead of one key in a file of 1,000 keys (ten sections of a
// hundred), against GLib's GKeyFile loading the same file and reading the
// same key, in the same run.  Both sides open and read the file each time.
// Target: at least the peer's speed (ratio_to_gkeyfile >= 1.0).  The ratio
// printed after the table comes from batches of each side taken alternately.
#include <benchmark/benchmark.h>

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "files/ini.h"
#include "platform/codepage.h"

#include "ratio.h"

namespace {

const std::string& ini_path() {
    static std::string path = [] {
        std::string p = (std::filesystem::temp_directory_path() / "kp120-bench-keys.ini").string();
        FILE* f = std::fopen(p.c_str(), "wb");
        for (int s = 0; s < 10; ++s) {
            std::fprintf(f, "[section%d]\r\n", s);
            for (int k = 0; k < 100; ++k)
                std::fprintf(f, "key%d = value number %d of section %d\r\n", k, k, s);
        }
        std::fclose(f);
        std::atexit(
            [] { std::filesystem::remove(std::filesystem::temp_directory_path() / "kp120-bench-keys.ini"); });
        return p;
    }();
    return path;
}

// The key in the middle of the file, and the last one.
struct Lookup {
    const char* section;
    const char* key;
    const char16_t* section16;
    const char16_t* key16;
};
constexpr Lookup kMiddle{"section5", "key0", u"section5", u"key0"};
constexpr Lookup kLast{"section9", "key99", u"section9", u"key99"};

std::size_t ours(const std::u16string& name, const Lookup& l) {
    std::u16string v = kp::files::ini::ini_read(l.section16, l.key16, u"", name);
    benchmark::DoNotOptimize(v.data());
    return v.size();
}

std::size_t peer(const std::string& path, const Lookup& l) {
    GKeyFile* kf = g_key_file_new();
    std::size_t n = 0;
    if (g_key_file_load_from_file(kf, path.c_str(), G_KEY_FILE_NONE, nullptr)) {
        gchar* v = g_key_file_get_value(kf, l.section, l.key, nullptr);
        if (v) n = std::strlen(v);
        benchmark::DoNotOptimize(v);
        g_free(v);
    }
    g_key_file_free(kf);
    return n;
}

void BM_GKeyFilePeer(benchmark::State& state) {
    const Lookup& l = state.range(0) ? kLast : kMiddle;
    const std::string& path = ini_path();
    for (auto _ : state)
        if (peer(path, l) == 0) return state.SkipWithError("GKeyFile did not find the key");
}
BENCHMARK(BM_GKeyFilePeer)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_IniRead(benchmark::State& state) {
    const Lookup& l = state.range(0) ? kLast : kMiddle;
    std::u16string name = kp::platform::from_utf8(ini_path());
    for (auto _ : state)
        if (ours(name, l) == 0) return state.SkipWithError("INIRead did not find the key");
}
BENCHMARK(BM_IniRead)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// Batches of lookups of each side alternately, each keeping its fastest
// batch.  The peer's time over INIRead's; 0 when a side failed.
double paired_ratio(const Lookup& l) {
    constexpr int kRounds = 60, kCalls = 200;
    const std::string& path = ini_path();
    std::u16string name = kp::platform::from_utf8(path);
    auto time = [&](auto&& one) {
        auto t0 = std::chrono::steady_clock::now();
        for (int i = 0; i < kCalls; ++i)
            if (one() == 0) return -1.0;
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() / kCalls;
    };
    double a = 1e300, b = 1e300;
    for (int r = 0; r < kRounds; ++r) {
        double t = time([&] { return ours(name, l); });
        if (t < 0) return 0;
        a = std::min(a, t);
        t = time([&] { return peer(path, l); });
        if (t < 0) return 0;
        b = std::min(b, t);
    }
    std::printf("%s/%s: INIRead %.1f us, GKeyFile %.1f us\n", l.section, l.key, a * 1e6, b * 1e6);
    return b / a;
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    double middle = paired_ratio(kMiddle), last = paired_ratio(kLast);
    kp::bench::report_ratio("INIRead middle key (throughput x GKeyFile)", "paired", "GKeyFile", middle,
                            ">=", 1.0);
    kp::bench::report_ratio("INIRead last key (throughput x GKeyFile)", "paired", "GKeyFile", last,
                            ">=", 1.0);
    benchmark::Shutdown();
    return 0;
}
