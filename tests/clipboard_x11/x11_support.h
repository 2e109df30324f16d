// x11_support.h - a private X server for the clipboard tests, and the
// programs they talk to through it.
//
// Each server is an Xvfb started by the test on a display number it picks
// itself (-displayfd), never the machine's own display; it is ended by its
// process id.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern char** environ;

namespace kp::test {

class Xvfb {
  public:
    Xvfb() {
        int fds[2];
        if (pipe(fds) != 0) return;
        const std::string fd = std::to_string(fds[1]);
        // -noreset: a server that resets when its last client leaves refuses
        // connections for a moment, between one test and the next.
        std::vector<std::string> argv_s = {"Xvfb",     "-displayfd", fd,  "-nolisten", "tcp",
                                           "-noreset", "-screen",    "0", "320x240x24"};
        std::vector<char*> argv;
        for (auto& a : argv_s)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t fa;
        posix_spawn_file_actions_init(&fa);
        posix_spawn_file_actions_addclose(&fa, fds[0]);
        posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&fa, 2, "/dev/null", O_WRONLY, 0);
        const int rc = posix_spawnp(&pid_, "Xvfb", &fa, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&fa);
        close(fds[1]);
        if (rc != 0) {
            pid_ = -1;
            close(fds[0]);
            return;
        }
        std::string number;
        char c;
        while (read(fds[0], &c, 1) == 1 && c != '\n')
            number += c;
        close(fds[0]);
        if (!number.empty()) name_ = ":" + number;
    }
    ~Xvfb() { stop(); }
    Xvfb(const Xvfb&) = delete;
    Xvfb& operator=(const Xvfb&) = delete;

    bool running() const { return pid_ > 0 && !name_.empty(); }
    const std::string& name() const { return name_; }
    void stop() {
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
            int st;
            waitpid(pid_, &st, 0);
            pid_ = -1;
        }
    }

  private:
    pid_t pid_ = -1;
    std::string name_;
};

// Runs a shell command with DISPLAY set to `display`; its standard output.
inline std::string run_output(const std::string& display, const std::string& command, int* status = nullptr) {
    const std::string full = "DISPLAY=" + display + " " + command;
    FILE* p = popen(full.c_str(), "r");
    std::string out;
    if (!p) return out;
    char buf[1 << 16];
    std::size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        out.append(buf, n);
    const int st = pclose(p);
    if (status) *status = st;
    return out;
}

// Runs a shell command with `input` on its standard input (its output
// discarded: xclip leaves a process behind that serves the selection).
inline int run_input(const std::string& display, const std::string& command, const std::string& input) {
    const std::string full = "DISPLAY=" + display + " " + command + " >/dev/null 2>&1";
    FILE* p = popen(full.c_str(), "w");
    if (!p) return -1;
    fwrite(input.data(), 1, input.size(), p);
    return pclose(p);
}

inline bool have_program(const char* name) {
    return std::system((std::string("command -v ") + name + " >/dev/null 2>&1").c_str()) == 0;
}

} // namespace kp::test
