// xvfb.h - an Xvfb server of the test's own on a free display number, and children with pipes.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace kp::test {

// A child process whose standard input and output are pipes of ours.
class Child {
  public:
    Child() = default;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() { stop(); }

    // Starts argv[0] (looked up in PATH) with extra environment entries; a quiet one's stderr is dropped.
    bool start(const std::vector<std::string>& argv, const std::vector<std::string>& env = {},
               bool quiet = false) {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return false;
        posix_spawn_file_actions_t fa;
        posix_spawn_file_actions_init(&fa);
        posix_spawn_file_actions_adddup2(&fa, in[0], 0);
        posix_spawn_file_actions_adddup2(&fa, out[1], 1);
        if (quiet) posix_spawn_file_actions_addopen(&fa, 2, "/dev/null", O_WRONLY, 0);
        // env(1) replaces inherited entries of the same name (of two, qemu-user would keep the last).
        std::vector<char*> args = {const_cast<char*>("env")};
        for (const auto* list : {&env, &argv})
            for (const auto& a : *list)
                args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        const int r = posix_spawnp(&pid_, "env", &fa, nullptr, args.data(), environ);
        posix_spawn_file_actions_destroy(&fa);
        close(in[0]);
        close(out[1]);
        in_ = in[1];
        out_ = out[0];
        if (r != 0) pid_ = 0;
        return r == 0;
    }
    // One line of the child's output, "" after `ms` milliseconds or at its end.
    std::string line(int ms = 5000) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        std::size_t nl;
        while ((nl = buf_.find('\n')) == std::string::npos) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            pollfd p{out_, POLLIN, 0};
            char b[4096];
            ssize_t n = 0;
            if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0 ||
                (n = read(out_, b, sizeof b)) <= 0)
                return {};
            buf_.append(b, static_cast<std::size_t>(n));
        }
        std::string l = buf_.substr(0, nl);
        buf_.erase(0, nl + 1);
        return l;
    }
    void stop() {
        if (in_ >= 0) close(in_), in_ = -1;
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
            int st = 0;
            waitpid(pid_, &st, 0);
            pid_ = 0;
        }
        if (out_ >= 0) close(out_), out_ = -1;
    }
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = 0;
    int in_ = -1, out_ = -1;
    std::string buf_;
};

// A target program's command: in a cross build behind KP120_TARGET_EMULATOR (words joined by '|').
inline std::vector<std::string> target_command(std::vector<std::string> argv) {
#ifdef KP120_TARGET_EMULATOR
    std::istringstream words(KP120_TARGET_EMULATOR);
    std::vector<std::string> emulator;
    for (std::string w; std::getline(words, w, '|');)
        emulator.push_back(w);
    argv.insert(argv.begin(), emulator.begin(), emulator.end());
#endif
    return argv;
}

class Xvfb {
  public:
    bool start(const std::string& geometry = "800x600x24") {
        if (!server_.start(
                {"Xvfb", "-displayfd", "1", "-screen", "0", geometry, "-nolisten", "tcp", "-noreset"}, {},
                true))
            return false;
        const std::string n = server_.line(10000);
        name_ = n.empty() ? "" : ":" + n;
        return !n.empty();
    }
    void stop() { server_.stop(); }
    const std::string& name() const { return name_; }

  private:
    Child server_;
    std::string name_;
};

// Output of a shell command run against `display`, trailing newlines removed unless `whole`.
inline std::string run_on(const std::string& display, const std::string& command, bool whole = false) {
    std::string out;
    FILE* p = popen(("DISPLAY=" + display + " " + command + " 2>/dev/null").c_str(), "r");
    char b[4096];
    for (std::size_t n; p && (n = fread(b, 1, sizeof b, p)) > 0;)
        out.append(b, n);
    if (p) pclose(p);
    while (!whole && !out.empty() && (out.back() == '\n' || out.back() == '\r'))
        out.pop_back();
    return out;
}

} // namespace kp::test
