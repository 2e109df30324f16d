// concurrency_test.cpp - several processes write one registry file while
// one of them is killed at random moments: the file stays sound and every
// write that returned true is there.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "registry/registry.h"
#include "registry/support.h"

namespace kp::registry {
namespace {

constexpr int kWrites = 5000;

std::u16string u16(const std::string& s) {
    return std::u16string(s.begin(), s.end());
}
std::u16string writer_key(int writer) {
    return u16("HKEY_CURRENT_USER\\Stress\\W" + std::to_string(writer));
}
// Write n of a writer: every tenth a new key, the others values.
bool write_n(int writer, int n, CXError& err) {
    const std::u16string key = writer_key(writer), tag = u16(std::to_string(n));
    return n % 10 == 0 ? create_key(key + u"\\K" + tag, err)
                       : set_integer(key, ValueRef::named(u"v" + tag), n, err);
}
bool written(int writer, int n) {
    const std::u16string key = writer_key(writer), tag = u16(std::to_string(n));
    return n % 10 == 0 ? exists(key + u"\\K" + tag)
                       : query_value(key, ValueRef::named(u"v" + tag)).integer == n;
}

// Child process: writes 1..kWrites, logging each write that returned true,
// resuming after the last logged one.
[[noreturn]] void run_writer(const std::string& file, const std::string& log, int writer) {
    platform::registry::use_database(file);
    int n = 0; // the last write logged
    std::ifstream in(log);
    for (int logged; in >> logged;)
        n = logged;
    int fd = open(log.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0644);
    kp_error_record record{};
    CXError err(&record);
    while (!create_key(writer_key(writer), err))
        usleep(1000);
    while (++n <= kWrites) {
        if (!write_n(writer, n, err)) {
            --n; // busy: the same write again
            continue;
        }
        std::string line = std::to_string(n) + "\n";
        if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) _exit(3);
    }
    _exit(0);
}

TEST(Concurrency, KilledWriterLosesNothingAcknowledged) {
    kp::test::TempDir dir;
    std::string file = (dir.path() / "shared.sqlite3").string();
    std::string logs[2] = {(dir.path() / "w0.log").string(), (dir.path() / "w1.log").string()};
    auto start = [&](int w) {
        pid_t pid = fork();
        if (pid == 0) run_writer(file, logs[w], w);
        return pid;
    };
    pid_t steady = start(1);
    pid_t victim = start(0);
    // Each life of the victim is cut at a random moment once it is writing
    // (its log has grown), forty times; then it is left to finish.
    auto logged_bytes = [&] {
        std::error_code ec;
        auto n = std::filesystem::file_size(logs[0], ec);
        return ec ? 0 : n;
    };
    std::mt19937 rng(12345);
    int kills = 0, status = 0;
    bool finished = false;
    while (kills < 40 && !finished) {
        auto before = logged_bytes();
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (logged_bytes() == before && std::chrono::steady_clock::now() < deadline && !finished) {
            finished = waitpid(victim, &status, WNOHANG) == victim;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        if (finished) break;
        std::this_thread::sleep_for(
            std::chrono::microseconds(std::uniform_int_distribution<int>(0, 5000)(rng)));
        if (waitpid(victim, &status, WNOHANG) == victim) {
            finished = true;
            break;
        }
        kill(victim, SIGKILL);
        waitpid(victim, &status, 0);
        if (WIFSIGNALED(status)) ++kills;
        victim = start(0);
    }
    if (!finished) waitpid(victim, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    waitpid(steady, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    RecordProperty("kills", kills);
    EXPECT_GE(kills, 10);

    EXPECT_EQ(kp::test::sql_text(file, "PRAGMA integrity_check"), "ok");
    platform::registry::use_database(file);
    for (int w = 0; w < 2; ++w) {
        int n = 0, count = 0, missing = 0;
        for (std::ifstream in(logs[w]); in >> n; ++count)
            missing += !written(w, n);
        EXPECT_GE(count, kWrites) << "writer " << w;
        EXPECT_EQ(missing, 0) << "writer " << w;
    }
    platform::registry::use_database("");
}

} // namespace
} // namespace kp::registry
