// concurrency_test.cpp - processes on one INI file: writers lose nothing, readers see no half rewrite.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

#include "files/ini.h"
#include "platform/codepage.h"
#include "support/test_host.h"

namespace kp::files::ini {
namespace {

constexpr uint32_t kCp = 1252;

int wait_for(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

TEST(IniProcesses, TwoWritersOfAThousandKeysEachLoseNothing) {
    kp::test::TempDir dir;
    const std::u16string file = platform::from_utf8((dir.path() / "shared.ini").string());
    // A key after both sections: every insertion moves it, a reader of a half rewrite would miss it.
    const std::string key = "key", present = "present";
    uint32_t code = 0;
    for (const char* section : {"first", "second", "witness"})
        ASSERT_TRUE(write_file(file, section, &key, &present, kCp, &code));
    auto writer = [&](const char* section, const char* prefix) {
        pid_t pid = fork();
        if (pid == 0) {
            int failures = 0;
            for (int i = 0; i < 1000; ++i) {
                std::string k = prefix + std::to_string(i), v = "value of " + k;
                uint32_t code = 0;
                if (!write_file(file, section, &k, &v, kCp, &code)) ++failures;
            }
            _exit(failures ? 1 : 0);
        }
        return pid;
    };
    pid_t a = writer("first", "a");
    pid_t b = writer("second", "b");
    pid_t reader = fork();
    if (reader == 0) {
        // Reads until both writers are done (the parent kills it then).
        std::string s = "witness", k = "key", out;
        for (;;) {
            if (!read_file(file, &s, &k, kReadMax, kCp, out) || out != "present") _exit(1);
        }
    }
    EXPECT_EQ((std::tuple{wait_for(a), wait_for(b)}), std::tuple(0, 0));
    kill(reader, SIGKILL);
    EXPECT_EQ(wait_for(reader), 100 + SIGKILL) << "the reader saw the witness key missing";

    std::string out;
    int missing = 0;
    for (int i = 0; i < 1000; ++i) {
        for (auto [section, prefix] : {std::pair{"first", "a"}, std::pair{"second", "b"}}) {
            std::string s = section, k = prefix + std::to_string(i);
            if (!read_file(file, &s, &k, kReadMax, kCp, out) || out != "value of " + k) ++missing;
        }
    }
    EXPECT_EQ(missing, 0);
    std::string s = "first";
    ASSERT_TRUE(read_file(file, &s, nullptr, 1 << 20, kCp, out));
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1001); // 1000 keys and "key"
}

} // namespace
} // namespace kp::files::ini
