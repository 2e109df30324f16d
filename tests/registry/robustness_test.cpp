// robustness_test.cpp - unusable database files, and a writer killed at random moments.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sqlite3.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>

#include "registry/registry.h"
#include "registry/support.h"

namespace kp::registry {
namespace {

namespace store = platform::registry;

// Whether a value was written under the key, and the identifier and system code recorded.
std::tuple<bool, uint32_t, uint32_t> write_one(std::u16string_view key) {
    kp_error_record rec{};
    rec.severity = 1;
    CXError err(&rec);
    bool ok = set_integer(key, ValueRef::named(u"v"), 1, err);
    return {ok, rec.id, rec.system_code};
}

TEST(UnusableDatabases, FailWithTheirErrorsAndStayUntouched) {
    kp::test::TempDir dir;
    std::string garbage = (dir.path() / "garbage").string();
    std::string junk(4096, '\0');
    for (std::size_t i = 0; i < junk.size(); ++i)
        junk[i] = static_cast<char>(i * 37 + 11);
    std::ofstream(garbage, std::ios::binary) << junk;
    auto database = [&](const char* name, const char* sql) {
        std::string file = (dir.path() / name).string();
        sqlite3* db = nullptr;
        sqlite3_open(file.c_str(), &db);
        sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
        sqlite3_close(db);
        return file;
    };
    std::string later = database("later.sqlite3", "CREATE TABLE other(x); PRAGMA user_version = 7");
    std::string foreign = database("foreign.sqlite3", "CREATE TABLE mine(x); INSERT INTO mine VALUES(1)");
    // clang-format off
    struct Case { std::string file; uint32_t system; } cases[] = {
        {garbage, 1009}, {later, 1009},
        {foreign, 1009}, // another program's database
        {(dir.path() / "no" / "such" / "folder.sqlite3").string(), 1011}, {"", 1010}};
    // clang-format on
    for (const auto& c : cases) {
        store::use_database(c.file);
        SCOPED_TRACE(c.file);
        EXPECT_EQ(write_one(u"HKEY_CURRENT_USER"), std::tuple(false, 80293u, c.system));
        kp_error_record rec{};
        CXError err(&rec);
        EXPECT_FALSE(create_key(u"HKEY_CURRENT_USER\\X", err));
        EXPECT_EQ(rec.system_code, c.system);
        EXPECT_FALSE(delete_key(u"HKEY_CURRENT_USER\\X", err) || exists(u"HKEY_CURRENT_USER"));
        EXPECT_EQ(query_value(u"HKEY_CURRENT_USER", ValueRef::named(u"v")), Data{});
        EXPECT_EQ(first_subkey(u"HKEY_CURRENT_USER") + list_values(u"HKEY_CURRENT_USER", true) +
                      seek(u"HKEY_CURRENT_USER", u"x", kSeekDefault),
                  u"");
    }
    store::use_database("");
    std::ifstream in(garbage, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), junk);
    EXPECT_EQ(kp::test::sql_text(later, "PRAGMA user_version"), "7");
    EXPECT_EQ(kp::test::sql_text(foreign, "SELECT group_concat(name) FROM sqlite_master"), "mine");
    EXPECT_EQ(kp::test::sql_text(foreign, "PRAGMA journal_mode"), "delete");
}

TEST(UnusableDatabases, LockedPastTheTimeout) {
    kp::test::TempDir dir;
    std::string file = (dir.path() / "locked.sqlite3").string();
    store::use_database(file);
    kp_error_record rec{};
    CXError err(&rec);
    ASSERT_TRUE(create_key(u"HKEY_CURRENT_USER\\L", err));
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    store::set_busy_timeout(150);
    EXPECT_EQ(write_one(u"HKEY_CURRENT_USER\\L"), std::tuple(false, 80293u, 170u));
    // Reading goes on while another process writes.
    EXPECT_TRUE(exists(u"HKEY_CURRENT_USER\\L"));
    EXPECT_FALSE(delete_key(u"HKEY_CURRENT_USER\\L", err));
    EXPECT_EQ(rec.system_code, 170u);
    EXPECT_FALSE(create_key(u"HKEY_CURRENT_USER\\L\\Sub", err));
    EXPECT_EQ(rec.system_code, 170u);
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(other);
    EXPECT_TRUE(std::get<0>(write_one(u"HKEY_CURRENT_USER\\L")));
    store::set_busy_timeout(5000);
    store::use_database("");
}

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

// Child process: writes 1..kWrites from after the last logged one, logging each success.
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
    // Each life of the victim is cut at random once its log grows, forty times; then it finishes.
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
