// Processes, each beside its peer in the same run:
//   - ExeListProcess(3, 0) through the component against running
//     `ps -e -o pid=,comm=` and reading its output (target: at least as
//     fast, ratio >= 1.0);
//   - ExeRun of a program that exits at once, wait mode 2, against
//     posix_spawn + waitpid of the same program (target: ratio >= 0.8).
// Ratios are the peer's time over ours, from alternating rounds, each side
// keeping its fastest, so that a neighbour's load falls on both alike.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>

#include "support/test_host.h"

#include "ratio.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using kp::host::Value;

// A host over a device that holds a copy of /bin/true.
struct Bench {
    kp::test::HostFixture fx;
    std::string program;
    Bench() {
        fs::create_directories(fx.device() / "bin");
        program = (fx.device() / "bin" / "true").string();
        fs::copy_file("/bin/true", program, fs::copy_options::overwrite_existing);
    }
};
Bench& bench() {
    static Bench b;
    return b;
}

std::size_t list_processes() {
    std::vector<Value> args{Value::integer(3), Value::integer(0)};
    return bench().fx.host->call("ExeListProcess", args).result.s.size();
}

// Runs ps and reads all it writes; the bytes read.
std::size_t run_ps() {
    int fds[2];
    if (pipe(fds) != 0) return 0;
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, fds[1], 1);
    posix_spawn_file_actions_addclose(&fa, fds[0]);
    char* argv[] = {const_cast<char*>("ps"), const_cast<char*>("-e"), const_cast<char*>("-o"),
                    const_cast<char*>("pid=,comm="), nullptr};
    pid_t pid;
    int rc = posix_spawnp(&pid, "ps", &fa, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&fa);
    close(fds[1]);
    std::size_t total = 0;
    char buf[65536];
    for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;)
        total += static_cast<std::size_t>(n);
    close(fds[0]);
    if (rc == 0) waitpid(pid, nullptr, 0);
    return rc == 0 ? total : 0;
}

int64_t exe_run() {
    std::vector<Value> args{Value::string(u"\\bin\\true"), Value::integer(1), Value::integer(2)};
    auto r = bench().fx.host->call("ExeRun", args);
    return r.error.severity == 1 ? r.result.i : -1;
}

int spawn_wait() {
    const std::string& p = bench().program;
    char* argv[] = {const_cast<char*>(p.c_str()), nullptr};
    pid_t pid;
    if (posix_spawn(&pid, p.c_str(), nullptr, nullptr, argv, environ) != 0) return -1;
    int status = 0;
    waitpid(pid, &status, 0);
    return WEXITSTATUS(status);
}

void BM_ExeListProcess(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(list_processes());
}
BENCHMARK(BM_ExeListProcess)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_PsPeer(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(run_ps());
}
BENCHMARK(BM_PsPeer)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_ExeRunWaitExitCode(benchmark::State& state) {
    for (auto _ : state)
        if (exe_run() != 0) {
            state.SkipWithError("ExeRun failed");
            return;
        }
}
BENCHMARK(BM_ExeRunWaitExitCode)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_SpawnWaitPeer(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(spawn_wait());
}
BENCHMARK(BM_SpawnWaitPeer)->Unit(benchmark::kMicrosecond)->UseRealTime();

// Peer time over ours, fastest of `rounds` alternating runs of each.
double paired_ratio(const std::function<void()>& ours, const std::function<void()>& peer, int rounds,
                    const char* what) {
    auto time = [](const std::function<void()>& f) {
        auto t0 = std::chrono::steady_clock::now();
        f();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    };
    double a = 1e300, b = 1e300;
    for (int r = 0; r < rounds; ++r) {
        a = std::min(a, time(ours));
        b = std::min(b, time(peer));
    }
    std::printf("fastest rounds of %s: ours %.1f us, peer %.1f us\n", what, a * 1e6, b * 1e6);
    return b / a;
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    const double list = paired_ratio([] { list_processes(); }, [] { run_ps(); }, 200, "the process list");
    const double run =
        paired_ratio([] { exe_run(); }, [] { spawn_wait(); }, 300, "a program that exits at once");
    kp::bench::report_ratio("ExeListProcess(3, 0) (throughput x ps)", "paired rounds", "ps", list, ">=", 1.0);
    kp::bench::report_ratio("ExeRun mode 2 (throughput x posix_spawn + waitpid)", "paired rounds",
                            "posix_spawn + waitpid", run, ">=", 0.8);
    benchmark::Shutdown();
    return 0;
}
