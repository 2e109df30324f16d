// processes.h - the process functions: starting programs and documents,
// counting, listing and stopping processes, the shared objects of a
// process, and the information of an executable.
//
// Program paths are device names (resolved under the device root like any
// file name).  A process's module is shown as its device name when its
// executable lies under the device root, else as its host path; processes
// whose executable cannot be read (kernel threads, processes of other
// users) are shown by their command name.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "component/error.h"

namespace kp::system {

// Wait modes of ExeRun.
constexpr int32_t kExeDontWait = 0, kExeWait = 1, kExeReturnValue = 2, kExePid = 3;

// A command line cut into the program path and the argument string.
struct CommandLine {
    std::u16string program;
    std::u16string arguments;
    bool has_arguments = false;
};
// A line that begins with a double quote names the program up to the next
// double quote and that quote; otherwise up to the first blank.  The
// character after the program (the blank, or whatever follows the closing
// quote) is dropped; the rest is the argument string.  One leading and one
// trailing double quote are then removed from the program path.  The line
// ends at its first NUL.
CommandLine parse_command_line(std::u16string_view line);

// ExeRun: starts the program; with wait mode 1 or 2 waits for it to end.
// Returns the exit code (mode 2), the process identifier (mode 3) or 1;
// 0 on failure (80600 for a path that is not absolute, 80400 for a program
// that cannot be started).
int32_t exe_run(std::u16string_view command_line, int32_t wait_mode, CXError& err);

// ShellExecute: opens the document with its associated application, with
// `verb` or by default "open" then the default verb.
bool shell_execute(std::u16string_view document, std::optional<std::u16string_view> verb, CXError& err);

// The parts of a path, as the device splits them: drive ("C:"), directory
// (up to and including the last separator), name and extension (from the
// last dot of the file name).
struct PathParts {
    std::u16string_view drive, directory, name, extension;
};
PathParts split_path(std::u16string_view path);

// ExeRunning: number of processes whose module has the program's name
// (without extension) and, when the program names a directory, that
// directory; the calling program itself when none is given.  -1 when the
// process list cannot be read (80100).
int32_t exe_running(std::optional<std::u16string_view> program, CXError& err);

// ExeTerminate by name: stops every process whose module has the file name
// (with extension) of `program` and, when it names one, its directory.
bool exe_terminate(std::u16string_view program, CXError& err);
// ExeTerminate by identifier.
bool exe_terminate(int32_t pid, CXError& err);

// ExeListProcess: one line per process with the chosen columns (0 module
// file name, 1 module path, 3 identifier; others empty), taken until the
// first -1.
std::u16string exe_list_process(std::span<const int32_t> selectors, CXError& err);

// ExeListDLL: file names of the shared objects a process maps.
std::u16string exe_list_dll(int32_t pid, CXError& err);

// ExeInfo: an item of the executable's information; the calling program
// when no path is given.
std::u16string exe_info(std::u16string_view key, std::optional<std::u16string_view> path, CXError& err);

// The calling program's module path, as processes show it.
std::u16string own_module_path();

} // namespace kp::system
