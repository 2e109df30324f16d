// processes.h - programs of the host: starting them, waiting for them,
// listing them and the shared objects they map, stopping them.
//
// Failures leave a Win32 code in the calling thread's last error
// (platform/win32_error.h): 2 missing program, 5 not executable or not
// allowed, 193 not an executable format, 206 argument string too long, 87
// no such process.
//
// Programs are started with no handle of the component: every descriptor
// above 2 is closed in the child, standard input reads /dev/null (a program
// of the device has no console to read), standard output and error are the
// host's.  Signal mask and dispositions start at their defaults.  The
// environment and the working directory are the host's.
//
// A program of the device is started from the descriptor its resolution
// beneath the device root gave (execveat with AT_EMPTY_PATH), so that a
// link swapped into its name after the resolution cannot change what runs.
// A script ("#!") is the exception: its interpreter, a program of the host
// outside the device root by design, is given the script by its host path
// (links resolved inside the root, as argv[0] of every program), and the
// child checks just before the exec that the path still leads to the
// resolved file (st_dev/st_ino), refusing with 5 when it does not.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/paths.h"

namespace kp::platform {

// Exit code of a process that is still running (STILL_ACTIVE).
constexpr uint32_t kStillActive = 259;

// Longest argument string a program can be given, in UTF-16 units.
constexpr std::size_t kMaxArgumentString = 32767;

// A program to start: the file a device name resolved to.
struct ProgramFile {
    Fd fd;               // the file, open for reading when it may be (else O_PATH)
    std::string path;    // its host path, links resolved (argv[0])
    bool script = false; // begins with "#!"
    uint64_t dev = 0, ino = 0;
};
// A started program that this process waits for.  The destructor of a
// process that was never seen ending waits for it (so no zombie is left).
class ChildProcess {
  public:
    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&& other) noexcept;

    int32_t pid() const { return pid_; }
    bool valid() const { return pid_ > 0; }
    // Waits up to `timeout_ms` for the process to end.  Returns its exit
    // code once it has ended, kStillActive before.  A process that ended
    // normally gives its exit status (0-255); one ended by signal N gives
    // 128 + N, as shells report it.  When the host collected the process
    // itself (SIGCHLD ignored), the exit code is unknown and reads 0xFFFFFFFF.
    uint32_t wait(int timeout_ms);

  private:
    friend bool start_process(const ProgramFile&, const std::vector<std::string>&, ChildProcess&);
    friend int32_t start_background_process(const ProgramFile&, const std::vector<std::string>&);
    void reset();
    int32_t pid_ = 0;
    int pidfd_ = -1;
    bool ended_ = false;
    uint32_t code_ = kStillActive;
};

// Resolves a device name beneath the device root and opens the program
// file it names; false with the last error (2, 3, 5, 1921, the name's own).
bool open_program(std::u16string_view name, ProgramFile& out);

// Starts `program` (a host path) with argv = program, args...; the process
// is a child of this one and must be waited for.
bool start_process(const std::string& program, const std::vector<std::string>& args, ChildProcess& child);
// The same from a resolved program file.
bool start_process(const ProgramFile& program, const std::vector<std::string>& args, ChildProcess& child);

// Starts `program` without waiting for it: the process is a child of this
// one, kept in the component's table of the children it started.  Those
// children are collected by the component (collect_children, and the stop
// of kill_process), never by waitpid(-1), so the exit code a ChildProcess
// waits for is never taken from it.  Returns its identifier, 0 on failure.
int32_t start_background_process(const std::string& program, const std::vector<std::string>& args);
int32_t start_background_process(const ProgramFile& program, const std::vector<std::string>& args);

// Collects the children of the table that have ended (without waiting):
// they leave no zombie between two calls of the process functions.  While
// children of the table run, a thread of the component collects them as
// they end, and keeps the component's module loaded until the last has
// ended: a program started without waiting outlives an unload of the
// component and still leaves no zombie of the host.
void collect_children();

// One process of the system.
struct ProcessEntry {
    int32_t pid = 0;
    // The executable's host path; the command name when the executable
    // cannot be read (kernel threads, processes of other users).
    std::string module;
    bool module_is_path = false;
};

// A snapshot of the processes that run, by increasing identifier.  A
// process that has ended and waits for its parent (state Z or X) is not in
// it.  False when the process list cannot be read.
bool list_processes(std::vector<ProcessEntry>& out);

// The script a process runs: when its arguments are an interpreter's (the
// first argument that is not an option is an absolute path that is not the
// process's own executable), that path; "" otherwise or when the
// arguments cannot be read.  A script started by name runs as its
// interpreter ("/bin/sh /dev/root/sync.sh"), so that its name is found so.
std::string process_script(int32_t pid, const std::string& module);

// The executable of this process (host path), "" when unknown.
std::string own_executable();
int32_t own_process_id();

// Read-only access to a host file outside the device: the executable of
// this process.
class HostFile {
  public:
    explicit HostFile(const std::string& path);
    ~HostFile();
    HostFile(const HostFile&) = delete;
    HostFile& operator=(const HostFile&) = delete;
    // Exactly `count` bytes at `offset`, or false.
    bool read(uint64_t offset, void* out, std::size_t count);

  private:
    int fd_ = -1;
};

// Suspends the calling thread.
void pause_milliseconds(int ms);

// Host paths of the shared objects `pid` maps (files mapped executable,
// the process's own executable excluded), in address order, each once.
// False when the process does not exist (87) or cannot be read (5).
bool process_shared_objects(int32_t pid, std::vector<std::string>& out);

// The state of a process that may be stopped.
enum class ProcessAccess {
    Running, // exists and may be stopped by this process
    Ended,   // has ended and waits for its parent to collect it
    Missing, // no process has that identifier (last error 87)
    Denied,  // exists but belongs to another user (last error 5)
};
ProcessAccess open_process(int32_t pid);

// Stops a process at once (SIGKILL, the equivalent of the device's
// TerminateProcess).  False with the last error when it cannot be stopped.
// Then waits until `deadline_ms` (a steady clock reading, see
// steady_milliseconds) for the process to end, and collects it when it is
// one of the component's children: the stop is complete when it returns.
bool kill_process(int32_t pid, int64_t deadline_ms);
int64_t steady_milliseconds();

} // namespace kp::platform
