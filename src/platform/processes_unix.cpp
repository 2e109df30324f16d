// processes_unix.cpp - programs of the host over fork, pidfd
// and /proc.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <mutex>
#include <thread>
#include <unordered_set>

#include "platform/processes.h"
#include "platform/win32_error.h"

extern char** environ;

namespace kp::platform {

namespace {

constexpr uint32_t kErrorBadExeFormat = 193;

// Process descriptors, by system call (the C library's header for them
// has no C++ linkage).
int pidfd_open(pid_t pid, unsigned flags) {
    return static_cast<int>(syscall(SYS_pidfd_open, pid, flags));
}
int pidfd_send_signal(int fd, int sig) {
    return static_cast<int>(syscall(SYS_pidfd_send_signal, fd, sig, nullptr, 0u));
}

// Waits on a process descriptor (P_PIDFD), by number for the C library.
constexpr idtype_t kWaitPidfd = static_cast<idtype_t>(3);

// The code the device reports when a program cannot be started.
uint32_t start_error(int err) {
    switch (err) {
    case ENOEXEC:
        return kErrorBadExeFormat;
    case E2BIG:
        return kErrorFilenameExcedRange;
    default:
        return win32_from_errno(err);
    }
}

bool fail(uint32_t code) {
    set_last_error(code);
    return false;
}

// argv of a program: the program, then its arguments; pointers into the
// caller's strings.
std::vector<char*> make_argv(const std::string& program, const std::vector<std::string>& args) {
    std::vector<char*> argv;
    argv.reserve(args.size() + 2);
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& a : args)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    return argv;
}

uint32_t exit_code_of(int status) {
    if (WIFEXITED(status)) return static_cast<uint32_t>(WEXITSTATUS(status));
    // A program ended by signal N reports 128 + N, as the shells do.
    if (WIFSIGNALED(status)) return 128u + static_cast<uint32_t>(WTERMSIG(status));
    return 0xFFFFFFFFu;
}

void sleep_ms(int ms) {
    timespec ts{ms / 1000, (ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {}
}

// Reads a small /proc file into buf (terminated); length or -1.
ssize_t read_small(const char* path, char* buf, std::size_t size) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    ssize_t n;
    do {
        n = read(fd, buf, size - 1);
    } while (n < 0 && errno == EINTR);
    close(fd);
    if (n < 0) return -1;
    buf[n] = 0;
    return n;
}

// Whether the state after the command name's ")" of /proc/PID/stat says
// that the process has ended: Z (or X) with no thread left.  A leader that
// ended while other threads of the process run shows Z but still runs (the
// number of threads is the 17th field from the state on).
bool ended_state(const char* close_paren) {
    if (close_paren[0] != ')' || close_paren[1] != ' ') return false;
    const char state = close_paren[2];
    if (state != 'Z' && state != 'X') return false;
    const char* p = close_paren + 3;
    for (int field = 0; field < 16 && p; ++field)
        p = std::strchr(p + 1, ' ');
    return !p || std::atol(p + 1) <= 1;
}

bool read_link(const char* path, std::string& out) {
    char buf[PATH_MAX];
    ssize_t n = readlink(path, buf, sizeof buf);
    if (n <= 0 || static_cast<std::size_t>(n) >= sizeof buf) return false;
    out.assign(buf, static_cast<std::size_t>(n));
    // An executable replaced since it started is shown by its name.
    constexpr std::string_view kDeleted = " (deleted)";
    if (out.size() > kDeleted.size() &&
        out.compare(out.size() - kDeleted.size(), kDeleted.size(), kDeleted) == 0)
        out.resize(out.size() - kDeleted.size());
    return true;
}

// The message of a child whose exec failed (why).
struct StartMessage {
    int32_t kind; // 2 errno
    int32_t value;
};

void write_message(int fd, int32_t kind, int32_t value) {
    StartMessage m{kind, value};
    ssize_t r;
    do {
        r = write(fd, &m, sizeof m);
    } while (r < 0 && errno == EINTR);
}

// The children started without waiting (start_background_process), each
// with its process descriptor where the kernel has them: a descriptor names
// the process itself, so that an identifier reused after someone else
// collected the child is never waited for.  Children collected are
// remembered (the last kRemembered), so that stopping one of them by
// identifier reads as stopping a process that has already ended.
//
// A program started without waiting outlives the component, as on the
// device; it stays a child of the host (so that no process is left to a
// first process that may never collect it), and the component collects it
// when it ends even after the host has unloaded the component.  While such
// children run, a waiter thread collects them as they end and holds a
// reference of the component's module, so that the host's unload leaves the
// code mapped.  The waiter's last act, once no child is left, is to start a
// thread whose whole body is dlclose of that reference: no code of the
// component runs after the module goes.  When that dlclose is the last
// reference, the unload's destructor (this one) joins the waiter, which has
// then left the component's code.  The same destructor at the end of the
// process stops a waiter still waiting.
class ChildTable {
  public:
    ~ChildTable() {
        std::thread waiter;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
            waiter = std::move(waiter_);
        }
        wake();
        if (waiter.joinable()) waiter.join();
        collect();
        for (const Started& c : started_)
            if (c.pidfd >= 0) close(c.pidfd);
        if (wake_fd_ >= 0) close(wake_fd_);
    }
    void add(pid_t pid, int pidfd) {
        std::lock_guard<std::mutex> lock(mutex_);
        started_.push_back({pid, pidfd});
        if (!waiting_)
            start_waiter();
        else
            wake();
    }
    // Collects the ended children (all, or only `only`).
    void collect(pid_t only = 0) {
        std::lock_guard<std::mutex> lock(mutex_);
        collect_locked(only);
    }
    // A duplicate of the child's descriptor (-1 when none), or -2 when
    // `pid` is not a child of the table.
    int descriptor_of(pid_t pid) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const Started& c : started_)
            if (c.pid == pid) return c.pidfd >= 0 ? fcntl(c.pidfd, F_DUPFD_CLOEXEC, 0) : -1;
        return -2;
    }
    bool collected(pid_t pid) {
        std::lock_guard<std::mutex> lock(mutex_);
        return std::find(ended_.begin(), ended_.end(), pid) != ended_.end();
    }

  private:
    struct Started {
        pid_t pid;
        int pidfd;
    };
    static constexpr std::size_t kRemembered = 256;
    // How long the waiter sleeps between two looks at children without a
    // process descriptor (kernels before 5.3).
    static constexpr int kPollMs = 100;

    void collect_locked(pid_t only) {
        for (std::size_t i = 0; i < started_.size();) {
            Started& c = started_[i];
            if ((only == 0 || c.pid == only) && collect_one(c)) {
                if (c.pidfd >= 0) close(c.pidfd);
                remember(c.pid);
                started_[i] = started_.back();
                started_.pop_back();
            } else {
                ++i;
            }
        }
    }

    // True when the child has ended and is collected now, or was collected
    // by the host (its SIGCHLD handler, or SIGCHLD ignored).
    static bool collect_one(const Started& c) {
        for (;;) {
            siginfo_t info{};
            const int r = c.pidfd >= 0
                              ? waitid(kWaitPidfd, static_cast<id_t>(c.pidfd), &info, WEXITED | WNOHANG)
                              : waitid(P_PID, static_cast<id_t>(c.pid), &info, WEXITED | WNOHANG);
            if (r == 0) return info.si_pid != 0;
            if (errno == EINTR) continue;
            return errno == ECHILD;
        }
    }
    void remember(pid_t pid) {
        if (ended_.size() == kRemembered) ended_.pop_front();
        ended_.push_back(pid);
    }

    void wake() {
        if (wake_fd_ < 0) return;
        const uint64_t one = 1;
        ssize_t r;
        do {
            r = write(wake_fd_, &one, sizeof one);
        } while (r < 0 && errno == EINTR);
    }

    // Under the lock.  Without a reference of the module (the component
    // linked into a program) or a thread, the children are collected by the
    // calls of the process functions only.
    void start_waiter() {
        if (stopping_) return;
        if (wake_fd_ < 0) wake_fd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (waiter_.joinable()) waiter_.join(); // the last one has ended (waiting_ is false)
        Dl_info info{};
        void* self = nullptr;
        if (dladdr(reinterpret_cast<const void*>(&collect_children), &info) && info.dli_fname)
            self = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
        if (!self) return;
        try {
            waiter_ = std::thread([this, self] { wait_for_children(self); });
            waiting_ = true;
        } catch (...) {
            dlclose(self);
        }
    }

    void wait_for_children(void* self) {
        std::vector<pollfd> fds;
        for (;;) {
            int timeout = -1;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                collect_locked(0);
                if (stopping_) return; // the process ends, and the module with it
                if (started_.empty()) {
                    waiting_ = false;
                    break;
                }
                fds.clear();
                for (const Started& c : started_) {
                    if (c.pidfd >= 0)
                        fds.push_back({c.pidfd, POLLIN, 0});
                    else
                        timeout = kPollMs;
                }
            }
            if (wake_fd_ >= 0)
                fds.push_back({wake_fd_, POLLIN, 0});
            else
                timeout = kPollMs;
            poll(fds.data(), fds.size(), timeout);
            uint64_t count; // the wake-ups are drained; none to drain is EAGAIN
            if (wake_fd_ >= 0) (void)!read(wake_fd_, &count, sizeof count);
        }
        // dlclose has the one argument and an int result, returned where a
        // thread's void* result is: the thread runs the C library alone.
        pthread_t closer;
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
        auto body = reinterpret_cast<void* (*)(void*)>(reinterpret_cast<void (*)()>(&dlclose));
        // Without a thread the reference stays, and the module with it.
        pthread_create(&closer, &attr, body, self);
        pthread_attr_destroy(&attr);
    }

    std::mutex mutex_;
    std::vector<Started> started_;
    std::deque<pid_t> ended_;
    std::thread waiter_;
    bool waiting_ = false;
    bool stopping_ = false;
    int wake_fd_ = -1;
};

ChildTable& children() {
    static ChildTable table;
    return table;
}

} // namespace

void collect_children() {
    children().collect();
}

int64_t steady_milliseconds() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// --- Children ------------------------------------------------------------

ChildProcess::~ChildProcess() {
    reset();
}

ChildProcess::ChildProcess(ChildProcess&& o) noexcept
    : pid_(o.pid_), pidfd_(o.pidfd_), ended_(o.ended_), code_(o.code_) {
    o.pid_ = 0;
    o.pidfd_ = -1;
}

ChildProcess& ChildProcess::operator=(ChildProcess&& o) noexcept {
    if (this != &o) {
        reset();
        pid_ = o.pid_, pidfd_ = o.pidfd_, ended_ = o.ended_, code_ = o.code_;
        o.pid_ = 0;
        o.pidfd_ = -1;
    }
    return *this;
}

void ChildProcess::reset() {
    if (pid_ > 0 && !ended_) {
        int status;
        while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {}
    }
    if (pidfd_ >= 0) close(pidfd_);
    pid_ = 0;
    pidfd_ = -1;
    ended_ = false;
    code_ = kStillActive;
}

uint32_t ChildProcess::wait(int timeout_ms) {
    if (pid_ <= 0) return 0xFFFFFFFFu;
    if (ended_) return code_;
    if (pidfd_ >= 0) {
        pollfd p{pidfd_, POLLIN, 0};
        int r = poll(&p, 1, timeout_ms);
        if (r <= 0) return kStillActive; // timed out (or interrupted: asked again)
    }
    for (int waited = 0;; ++waited) {
        int status = 0;
        pid_t r = waitpid(pid_, &status, WNOHANG);
        if (r == pid_) {
            ended_ = true;
            code_ = exit_code_of(status);
            return code_;
        }
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) { // collected by the host (SIGCHLD ignored): the code is lost
            ended_ = true;
            code_ = 0xFFFFFFFFu;
            return code_;
        }
        if (pidfd_ >= 0 || waited >= timeout_ms) return kStillActive;
        sleep_ms(1);
    }
}

// The child's side of a start: default signal dispositions, standard input
// from /dev/null, no descriptor of the component past 2, the caller's signal
// mask cleared, then the exec; a failed exec writes its errno to `report`
// and ends the child with 127.  Only system calls: it also runs in a vfork
// child.  A program file runs from its descriptor, a script by its path once
// the path is seen to lead to the same file.
[[noreturn]] static void exec_child(const ProgramFile& program, std::vector<char*>& argv, int null_fd,
                                    const sigset_t& none, int report) {
    for (int sig = 1; sig < NSIG; ++sig) {
        struct sigaction sa {};
        sa.sa_handler = SIG_DFL;
        sigaction(sig, &sa, nullptr);
    }
    dup2(null_fd, 0);
    close_range(3, ~0u, CLOSE_RANGE_CLOEXEC);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    int err = 0;
    if (program.fd && !program.script) {
        syscall(SYS_execveat, program.fd.get(), "", argv.data(), environ, AT_EMPTY_PATH);
        err = errno;
    }
    if (!program.fd || program.script || err == ENOSYS) {
        // By the path: a script, or a kernel without execveat.
        struct stat st;
        const int fd = program.fd ? open(program.path.c_str(), O_PATH | O_CLOEXEC) : -1;
        const bool same = fd >= 0 && fstat(fd, &st) == 0 && static_cast<uint64_t>(st.st_dev) == program.dev &&
                          static_cast<uint64_t>(st.st_ino) == program.ino;
        if (fd >= 0) close(fd);
        if (!program.fd || same) {
            execve(program.path.c_str(), argv.data(), environ);
            err = errno;
        } else {
            err = EACCES;
        }
    }
    write_message(report, 2, err);
    _exit(127);
}

bool open_program(std::u16string_view name, ProgramFile& out) {
    out = ProgramFile{};
    bool exists = false;
    if (!resolve_host_path(name, out.path, exists)) return false;
    // Readable to tell a script; a program that may only be executed is
    // opened as a path (it cannot be a script: its interpreter could not
    // read it).
    int fd = open_device_name(name, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (fd < 0 && last_error() == kErrorAccessDenied) fd = open_device_name(name, O_PATH);
    if (fd < 0) return false;
    out.fd = Fd(fd);
    struct stat st;
    if (fstat(fd, &st) != 0) return fail(win32_from_errno(errno));
    out.dev = static_cast<uint64_t>(st.st_dev);
    out.ino = static_cast<uint64_t>(st.st_ino);
    char head[2];
    out.script =
        S_ISREG(st.st_mode) && pread(fd, head, sizeof head, 0) == 2 && head[0] == '#' && head[1] == '!';
    return true;
}

bool start_process(const std::string& program, const std::vector<std::string>& args, ChildProcess& child) {
    ProgramFile file;
    file.path = program;
    return start_process(file, args, child);
}

bool start_process(const ProgramFile& program, const std::vector<std::string>& args, ChildProcess& child) {
    // Forked by hand rather than with posix_spawn: where the C library's
    // spawn cannot share the child's memory until the exec (qemu-user turns
    // its vfork into a fork), posix_spawn reports a program that cannot be
    // started as a child that ends with 127.  The child writes the exec's
    // errno to a close-on-exec pipe instead, which works everywhere.  The
    // child is made with vfork, which shares the parent's memory until the
    // exec as posix_spawn does (a fork of a large VM process costs its page
    // tables at every start); with every signal blocked around it and the
    // child making only system calls (signal dispositions reset, descriptors,
    // exec, one write, _exit), nothing of the parent runs in it.
    child.reset();
    std::vector<char*> argv = make_argv(program.path, args);
    int pipe_fds[2];
    if (pipe2(pipe_fds, O_CLOEXEC) != 0) return fail(start_error(errno));
    const int null_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (null_fd < 0) {
        const int err = errno;
        close(pipe_fds[0]);
        close(pipe_fds[1]);
        return fail(start_error(err));
    }
    sigset_t all, none, saved;
    sigfillset(&all);
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &all, &saved);
    const pid_t pid = vfork();
    if (pid == 0) {
        exec_child(program, argv, null_fd, none, pipe_fds[1]);
    }
    const int fork_errno = errno;
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    close(pipe_fds[1]);
    close(null_fd);
    if (pid < 0) {
        close(pipe_fds[0]);
        return fail(start_error(fork_errno));
    }
    // End of file: the exec succeeded (the pipe closed with it).
    int32_t err = 0;
    StartMessage m;
    for (;;) {
        const ssize_t r = read(pipe_fds[0], &m, sizeof m);
        if (r < 0 && errno == EINTR) continue;
        if (r == static_cast<ssize_t>(sizeof m) && m.kind == 2) err = m.value;
        break;
    }
    close(pipe_fds[0]);
    if (err != 0) {
        int status;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
        return fail(start_error(err));
    }
    child.pid_ = pid;
    child.pidfd_ = pidfd_open(pid, 0); // -1 on kernels without pidfds: waits then poll waitpid
    return true;
}

int32_t start_background_process(const std::string& program, const std::vector<std::string>& args) {
    ProgramFile file;
    file.path = program;
    return start_background_process(file, args);
}

int32_t start_background_process(const ProgramFile& program, const std::vector<std::string>& args) {
    ChildProcess child;
    if (!start_process(program, args, child)) return 0;
    // The table owns the process from now on: the ChildProcess lets it go
    // without waiting for it.
    const int32_t pid = child.pid_;
    children().add(pid, child.pidfd_);
    child.pid_ = 0;
    child.pidfd_ = -1;
    return pid;
}

// --- Process list --------------------------------------------------------

bool list_processes(std::vector<ProcessEntry>& out) {
    out.clear();
    DIR* d = opendir("/proc");
    if (!d) {
        set_last_error_from_errno();
        return false;
    }
    char path[64];
    char stat[512];
    while (dirent* e = readdir(d)) {
        const char* name = e->d_name;
        if (*name < '1' || *name > '9') continue;
        // 64 bits whatever the width of long, so that the bound below can be
        // passed before the number wraps.
        int64_t pid = 0;
        bool digits = true;
        for (const char* p = name; *p && digits; ++p) {
            if (*p < '0' || *p > '9')
                digits = false;
            else
                pid = pid * 10 + (*p - '0');
            if (pid > INT32_MAX) digits = false;
        }
        if (!digits) continue;
        ProcessEntry entry;
        entry.pid = static_cast<int32_t>(pid);
        std::snprintf(path, sizeof path, "/proc/%" PRId64 "/exe", pid);
        if (read_link(path, entry.module)) {
            entry.module_is_path = true;
        } else {
            // No executable: a kernel thread, a process of another user, or
            // one that has ended.  "pid (comm) S ..." gives the command name
            // and the state.
            std::snprintf(path, sizeof path, "/proc/%" PRId64 "/stat", pid);
            if (read_small(path, stat, sizeof stat) <= 0) continue; // ended meanwhile
            const char* open_paren = std::strchr(stat, '(');
            const char* close_paren = std::strrchr(stat, ')');
            if (!open_paren || !close_paren || close_paren < open_paren) continue;
            if (ended_state(close_paren)) continue;
            entry.module.assign(open_paren + 1, static_cast<std::size_t>(close_paren - open_paren - 1));
        }
        out.push_back(std::move(entry));
    }
    closedir(d);
    std::sort(out.begin(), out.end(),
              [](const ProcessEntry& a, const ProcessEntry& b) { return a.pid < b.pid; });
    return true;
}

std::string process_script(int32_t pid, const std::string& module) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/cmdline", pid);
    char args[4096];
    const ssize_t n = read_small(path, args, sizeof args);
    if (n <= 0) return {};
    // argv[0], then the interpreter's options, then the script.
    const char* end = args + n;
    const char* p = args + std::strlen(args) + 1;
    while (p < end && *p == '-')
        p += std::strlen(p) + 1;
    if (p >= end || *p != '/') return {};
    std::string script(p);
    return script == module ? std::string() : script;
}

std::string own_executable() {
    std::string p;
    return read_link("/proc/self/exe", p) ? p : std::string();
}

int32_t own_process_id() {
    return static_cast<int32_t>(getpid());
}

HostFile::HostFile(const std::string& path)
    : fd_(path.empty() ? -1 : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}

HostFile::~HostFile() {
    if (fd_ >= 0) close(fd_);
}

bool HostFile::read(uint64_t offset, void* out, std::size_t count) {
    if (fd_ < 0 || offset > static_cast<uint64_t>(INT64_MAX)) return false;
    auto* p = static_cast<char*>(out);
    std::size_t done = 0;
    while (done < count) {
        ssize_t n = pread(fd_, p + done, count - done, static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

void pause_milliseconds(int ms) {
    sleep_ms(ms);
}

bool process_shared_objects(int32_t pid, std::vector<std::string>& out) {
    out.clear();
    if (pid <= 0) return fail(kErrorInvalidParameter);
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/maps", pid);
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return fail(errno == ENOENT || errno == ESRCH ? kErrorInvalidParameter : win32_from_errno(errno));
    std::string text;
    char buf[65536];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            int err = errno;
            close(fd);
            return fail(err == ESRCH ? kErrorInvalidParameter : win32_from_errno(err));
        }
        if (n == 0) break;
        text.append(buf, static_cast<std::size_t>(n));
    }
    close(fd);

    std::string exe;
    std::snprintf(path, sizeof path, "/proc/%d/exe", pid);
    read_link(path, exe);
    std::unordered_set<std::string> seen;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string::npos) end = text.size();
        std::string_view line(text.data() + pos, end - pos);
        pos = end + 1;
        // address perms offset device inode [path]
        std::size_t field = 0, i = 0;
        std::string_view perms;
        while (field < 5 && i < line.size()) {
            std::size_t start = i;
            while (i < line.size() && line[i] != ' ')
                ++i;
            if (field == 1) perms = line.substr(start, i - start);
            while (i < line.size() && line[i] == ' ')
                ++i;
            ++field;
        }
        if (field < 5 || i >= line.size() || line[i] != '/') continue;
        if (perms.size() < 3 || perms[2] != 'x') continue;
        std::string file(line.substr(i));
        constexpr std::string_view kDeleted = " (deleted)";
        if (file.size() > kDeleted.size() &&
            file.compare(file.size() - kDeleted.size(), kDeleted.size(), kDeleted) == 0)
            file.resize(file.size() - kDeleted.size());
        if (file == exe) continue;
        if (seen.insert(file).second) out.push_back(std::move(file));
    }
    return true;
}

// --- Stopping ------------------------------------------------------------

ProcessAccess open_process(int32_t pid) {
    if (pid <= 0) {
        set_last_error(kErrorInvalidParameter);
        return ProcessAccess::Missing;
    }
    // A pidfd names a process (a thread that leads no process is refused).
    // A child of the component that it has collected has ended.
    int fd = pidfd_open(pid, 0);
    if (fd < 0) {
        if (errno == ESRCH || errno == EINVAL || (kill(pid, 0) != 0 && errno == ESRCH)) {
            if (children().collected(pid)) return ProcessAccess::Ended;
            set_last_error(kErrorInvalidParameter);
            return ProcessAccess::Missing;
        }
    }
    char path[64], stat[512];
    std::snprintf(path, sizeof path, "/proc/%d/stat", pid);
    if (read_small(path, stat, sizeof stat) > 0) {
        // "pid (comm) S ...": the state follows the last parenthesis.
        const char* close_paren = std::strrchr(stat, ')');
        if (close_paren && ended_state(close_paren)) {
            if (fd >= 0) close(fd);
            return ProcessAccess::Ended;
        }
    }
    int r = fd >= 0 ? pidfd_send_signal(fd, 0) : kill(pid, 0);
    int err = errno;
    if (fd >= 0) close(fd);
    if (r != 0) {
        set_last_error(err == EPERM ? kErrorAccessDenied : kErrorInvalidParameter);
        return err == EPERM ? ProcessAccess::Denied : ProcessAccess::Missing;
    }
    return ProcessAccess::Running;
}

bool kill_process(int32_t pid, int64_t deadline_ms) {
    // Never 0 or negative: those would signal process groups.
    if (pid <= 0) return fail(kErrorInvalidParameter);
    // Through the process's descriptor when there is one, so that the
    // signal and the wait reach this process even if it ends meanwhile.
    int fd = children().descriptor_of(pid);
    if (fd == -2) fd = pidfd_open(pid, 0);
    const int r = fd >= 0 ? pidfd_send_signal(fd, SIGKILL) : kill(pid, SIGKILL);
    if (r != 0) {
        const int err = errno;
        if (fd >= 0) close(fd);
        return fail(err == EPERM ? kErrorAccessDenied : kErrorInvalidParameter);
    }
    // The stop completes within the deadline: a descriptor becomes readable
    // when the process has ended; without one, its state is read again.
    for (;;) {
        const int64_t left = deadline_ms - steady_milliseconds();
        if (fd >= 0) {
            pollfd p{fd, POLLIN, 0};
            if (poll(&p, 1, static_cast<int>(std::max<int64_t>(left, 0))) != 0 || left <= 0) break;
        } else {
            if (open_process(pid) != ProcessAccess::Running || left <= 0) break;
            sleep_ms(1);
        }
    }
    if (fd >= 0) close(fd);
    children().collect(pid);
    return true;
}

} // namespace kp::platform
