// process_fixture.h - a host over a temporary device root, and helpers to watch processes.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/test_host.h"

namespace kp::process::test {

using kp::host::CallOutcome;
using kp::host::Value;
namespace fs = std::filesystem;

inline const auto I = [](int64_t v) { return Value::integer(v); };

// Waits up to `ms` for `done` to hold.
inline bool eventually(const std::function<bool()>& done, int ms = 5000) {
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!done()) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// The file's bytes; what could be read when it fails midway (a /proc file of a process that
// has just ended fails with ESRCH), nothing when it cannot be opened.
inline std::string read_text(const fs::path& p) {
    std::string out;
    const int fd = ::open(p.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return out;
    char buf[4096];
    for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;)
        out.append(buf, static_cast<std::size_t>(n));
    ::close(fd);
    return out;
}

// "S" field of /proc/PID/stat and the parent, or 0 when the process is gone.
inline char process_state(int pid, int* parent = nullptr) {
    std::string stat = read_text("/proc/" + std::to_string(pid) + "/stat");
    auto close = stat.rfind(')');
    if (close == std::string::npos || close + 2 >= stat.size()) return 0;
    if (parent) *parent = std::atoi(stat.c_str() + close + 4);
    return stat[close + 2];
}

// Children of this process, in any state.
inline int children_of_this_process() {
    int count = 0;
    for (const auto& e : fs::directory_iterator("/proc")) {
        const std::string name = e.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        int parent = 0;
        const char s = process_state(std::stoi(name), &parent);
        if (s != 0 && parent == getpid()) ++count;
    }
    return count;
}

inline std::u16string upper(std::u16string s) {
    for (char16_t& c : s)
        if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
    return s;
}

// A name no other process of the machine has.
inline std::string unique_name(const char* stem) {
    static int serial = 0;
    return std::string(stem) + "_" + std::to_string(getpid()) + "_" + std::to_string(++serial);
}

class ProcessTest : public ::testing::Test {
  protected:
    kp::test::HostFixture fx;
    std::vector<int> started; // processes to stop at the end if still there

    void TearDown() override {
        for (int pid : started)
            if (pid > 0 && process_state(pid) != 0) ::kill(pid, SIGKILL);
        // The component collects its ended programs at its next call: no zombie is left.
        EXPECT_TRUE(eventually(
            [&] {
                call("ExeRunning", {Value::string(u"\\none")});
                return children_of_this_process() == 0;
            },
            3000))
            << "children left";
    }

    CallOutcome call(const char* name, std::vector<Value> args) { return fx.host->call(name, args); }

    fs::path host_path(const std::string& rel) const { return fx.device() / rel; }

    // Writes a file under the device root with the given mode.
    fs::path put(const std::string& rel, const std::string& bytes, mode_t mode = 0644) {
        fs::path p = host_path(rel);
        fs::create_directories(p.parent_path());
        std::ofstream(p, std::ios::binary | std::ios::trunc) << bytes;
        ::chmod(p.c_str(), mode);
        return p;
    }
    fs::path script(const std::string& rel, const std::string& body) {
        return put(rel, "#!/bin/sh\n" + body + "\n", 0755);
    }
    // A copy of /bin/sleep under the device root: a process whose module is a file of the device.
    fs::path sleeper(const std::string& rel) { return put(rel, read_text("/bin/sleep"), 0755); }
    // Whether `program` runs with the argument "0" (not under qemu-user without binfmt_misc).
    static bool starts(const fs::path& program) {
        return std::system(("'" + program.string() + "' 0").c_str()) == 0;
    }
};

} // namespace kp::process::test
