// sysinfo.h - what the system says about itself: kernel and distribution,
// environment, machine serial, program path, memory and storage figures,
// and the mount points of removable media.
//
// The parsers are pure and take the text of the files they read, so that
// tests feed them any content; the readers below them open the real files.
// Readers that fail leave a Win32 code as the thread's last error.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kp::platform {

// Kernel identity (uname).
struct KernelInfo {
    std::string sysname; // "Linux"
    std::string release; // "6.1.0-18-amd64"
};
KernelInfo kernel_info();

// Value of `key` in os-release text (KEY=value lines, values optionally in
// double or single quotes with backslash escapes); nullopt when absent.
std::optional<std::string> os_release_value(std::string_view text, std::string_view key);
// /etc/os-release, else /usr/lib/os-release; "" when neither is readable.
std::string read_os_release();

// The leading dotted number of a kernel release ("6.1.0" of "6.1.0-18-amd64").
std::string release_number(std::string_view release);

// The process environment as NAME=value entries, in the order the process holds them.
std::vector<std::string> environment_entries();
// One variable; nullopt when unset.
std::optional<std::string> environment_value(std::string_view name);

// A serial number as the firmware gives it, trimmed; "" when it is a
// placeholder some firmware writes where it has none ("To Be Filled By
// O.E.M.", "Not Specified", "Default string", "0", "None"...).
std::string clean_serial(std::string_view raw);
// The machine's serial: the DMI product, then board, then chassis serial
// (readable by privileged users only on most systems), else the machine
// identifier of /etc/machine-id.  "" with last error 2 when there is none.
std::string machine_serial();

// Absolute path of process `pid`'s executable (0: this process); "" with
// last error 87 when there is no such process, 5 when it cannot be read.
std::string process_executable(int64_t pid);

// Memory figures in bytes: total and available physical memory
// (/proc/meminfo MemTotal and MemAvailable); false when unreadable.
bool memory_figures(uint64_t* total, uint64_t* available);
// Total and free space of the file system holding `path` (statvfs; free
// space as an unprivileged user sees it); false with the system error.
bool storage_figures(const std::string& path, uint64_t* total, uint64_t* available);

// A mount of /proc/self/mountinfo.
struct MountEntry {
    uint32_t major = 0, minor = 0;
    std::string mount_point; // octal escapes (\040 ...) decoded
    std::string source;      // the mount source (device path), decoded
};
// Parses mountinfo text; malformed lines are skipped.
std::vector<MountEntry> parse_mountinfo(std::string_view text);
// Whether the block device major:minor is removable media: its own
// "removable" flag or that of the disk a partition belongs to.
bool block_device_removable(uint32_t major, uint32_t minor);
// Mount points of removable media, in mount order, each once.
std::vector<std::string> removable_mounts(std::string_view mountinfo_text,
                                          const std::function<bool(uint32_t, uint32_t)>& removable);
std::string read_mountinfo();

// Creates a directory and its parents (host path); false with the system error.
bool make_directories(const std::string& path);

} // namespace kp::platform
