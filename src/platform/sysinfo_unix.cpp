// sysinfo_unix.cpp - the system information readers of sysinfo.h over
// uname, /proc, /sys, /etc and statvfs.
#include "platform/sysinfo.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "platform/win32_error.h"

extern char** environ;

namespace kp::platform {

namespace {

bool read_small_file(const std::string& path, std::string& out, std::size_t limit = 1 << 20) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    out.clear();
    char buf[4096];
    while (out.size() < limit && in.read(buf, sizeof buf).gcount() > 0)
        out.append(buf, static_cast<std::size_t>(in.gcount()));
    return true;
}

std::string trim(std::string_view s) {
    std::size_t b = 0, e = s.size();
    while (b < e && std::isspace(static_cast<unsigned char>(s[b])))
        ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1])))
        --e;
    return std::string(s.substr(b, e - b));
}

// Decodes the octal escapes mountinfo uses for blanks and backslashes.
std::string unescape_octal(std::string_view s) {
    auto oct = [](char c) { return c >= '0' && c <= '7'; };
    std::string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 3 < s.size() && oct(s[i + 1]) && oct(s[i + 2]) && oct(s[i + 3])) {
            out.push_back(
                static_cast<char>(((s[i + 1] - '0') << 6) | ((s[i + 2] - '0') << 3) | (s[i + 3] - '0')));
            i += 3;
            continue;
        }
        out.push_back(s[i]);
    }
    return out;
}

} // namespace

KernelInfo kernel_info() {
    struct utsname u {};
    if (uname(&u) != 0) return {"Linux", ""};
    return {u.sysname, u.release};
}

std::optional<std::string> os_release_value(std::string_view text, std::string_view key) {
    std::size_t pos = 0;
    while (pos <= text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(pos, end - pos);
        pos = end + 1;
        while (!line.empty() && (line.front() == ' ' || line.front() == '\t'))
            line.remove_prefix(1);
        if (line.empty() || line.front() == '#') continue;
        std::size_t eq = line.find('=');
        if (eq == std::string_view::npos || line.substr(0, eq) != key) continue;
        std::string_view v = line.substr(eq + 1);
        while (!v.empty() && (v.back() == '\r' || v.back() == ' ' || v.back() == '\t'))
            v.remove_suffix(1);
        std::string out;
        if (!v.empty() && (v.front() == '"' || v.front() == '\'')) {
            const char q = v.front();
            for (std::size_t i = 1; i < v.size() && v[i] != q; ++i) {
                if (v[i] == '\\' && q == '"' && i + 1 < v.size()) ++i;
                out.push_back(v[i]);
            }
        } else {
            out.assign(v);
        }
        return out;
    }
    return std::nullopt;
}

std::string read_os_release() {
    std::string text;
    if (read_small_file("/etc/os-release", text) || read_small_file("/usr/lib/os-release", text)) return text;
    return {};
}

std::string release_number(std::string_view release) {
    std::size_t n = 0;
    while (n < release.size() && (std::isdigit(static_cast<unsigned char>(release[n])) || release[n] == '.'))
        ++n;
    while (n > 0 && release[n - 1] == '.')
        --n;
    return std::string(release.substr(0, n));
}

std::vector<std::string> environment_entries() {
    std::vector<std::string> out;
    for (char** e = environ; e && *e; ++e)
        out.emplace_back(*e);
    return out;
}

std::optional<std::string> environment_value(std::string_view name) {
    if (name.empty() || name.find('=') != std::string_view::npos || name.find('\0') != std::string_view::npos)
        return std::nullopt;
    const char* v = std::getenv(std::string(name).c_str());
    if (!v) return std::nullopt;
    return std::string(v);
}

std::string clean_serial(std::string_view raw) {
    std::string s = trim(raw);
    std::string lower;
    for (char c : s)
        lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    static const char* const placeholders[] = {"to be filled by o.e.m.",
                                               "not specified",
                                               "default string",
                                               "system serial number",
                                               "none",
                                               "0",
                                               "n/a",
                                               "not applicable",
                                               "123456789",
                                               "0123456789"};
    for (const char* p : placeholders)
        if (lower == p) return {};
    if (lower.find_first_not_of("0 ") == std::string::npos) return {};
    return s;
}

std::string machine_serial() {
    for (const char* f : {"/sys/class/dmi/id/product_serial", "/sys/class/dmi/id/board_serial",
                          "/sys/class/dmi/id/chassis_serial"}) {
        std::string raw;
        if (read_small_file(f, raw, 256)) {
            std::string s = clean_serial(raw);
            if (!s.empty()) return s;
        }
    }
    std::string id;
    if (read_small_file("/etc/machine-id", id, 256) || read_small_file("/var/lib/dbus/machine-id", id, 256)) {
        id = trim(id);
        if (!id.empty()) return id;
    }
    set_last_error(kErrorFileNotFound);
    return {};
}

std::string process_executable(int64_t pid) {
    if (pid < 0 || pid > 0x7FFFFFFF) {
        set_last_error(kErrorInvalidParameter);
        return {};
    }
    std::string link = pid == 0 ? "/proc/self/exe" : "/proc/" + std::to_string(pid) + "/exe";
    std::string buf(4096, '\0');
    ssize_t n = readlink(link.c_str(), buf.data(), buf.size());
    if (n < 0) {
        set_last_error(errno == ENOENT ? kErrorInvalidParameter : win32_from_errno(errno));
        return {};
    }
    buf.resize(static_cast<std::size_t>(n));
    const std::string deleted = " (deleted)";
    if (buf.size() > deleted.size() && buf.compare(buf.size() - deleted.size(), deleted.size(), deleted) == 0)
        buf.resize(buf.size() - deleted.size());
    return buf;
}

bool memory_figures(uint64_t* total, uint64_t* available) {
    std::string text;
    if (!read_small_file("/proc/meminfo", text)) {
        set_last_error_from_errno();
        return false;
    }
    bool t = false, a = false;
    std::istringstream in(text);
    std::string key;
    uint64_t kb = 0;
    std::string unit;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream ls(line);
        if (!(ls >> key >> kb)) continue;
        if (key == "MemTotal:") *total = kb * 1024, t = true;
        if (key == "MemAvailable:") *available = kb * 1024, a = true;
    }
    if (!t || !a) {
        set_last_error(kErrorInvalidData);
        return false;
    }
    return true;
}

bool storage_figures(const std::string& path, uint64_t* total, uint64_t* available) {
    struct statvfs s {};
    if (statvfs(path.empty() ? "/" : path.c_str(), &s) != 0) {
        set_last_error_from_errno();
        return false;
    }
    *total = static_cast<uint64_t>(s.f_blocks) * s.f_frsize;
    *available = static_cast<uint64_t>(s.f_bavail) * s.f_frsize;
    return true;
}

std::vector<MountEntry> parse_mountinfo(std::string_view text) {
    std::vector<MountEntry> out;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(pos, end - pos);
        pos = end + 1;
        // id parent major:minor root mount-point options [optional...] - fstype source super-options
        std::vector<std::string_view> f;
        std::size_t i = 0;
        while (i < line.size()) {
            while (i < line.size() && line[i] == ' ')
                ++i;
            std::size_t j = line.find(' ', i);
            if (j == std::string_view::npos) j = line.size();
            if (j > i) f.push_back(line.substr(i, j - i));
            i = j;
        }
        if (f.size() < 7) continue;
        std::string_view dev = f[2];
        std::size_t colon = dev.find(':');
        if (colon == std::string_view::npos) continue;
        MountEntry m;
        try {
            m.major = static_cast<uint32_t>(std::stoul(std::string(dev.substr(0, colon))));
            m.minor = static_cast<uint32_t>(std::stoul(std::string(dev.substr(colon + 1))));
        } catch (...) {
            continue;
        }
        m.mount_point = unescape_octal(f[4]);
        for (std::size_t k = 6; k < f.size(); ++k) {
            if (f[k] == "-") {
                if (k + 2 < f.size()) m.source = unescape_octal(f[k + 2]);
                break;
            }
        }
        out.push_back(std::move(m));
    }
    return out;
}

bool block_device_removable(uint32_t major, uint32_t minor) {
    if (major == 0) return false; // virtual file systems
    const std::string base = "/sys/dev/block/" + std::to_string(major) + ":" + std::to_string(minor);
    std::string flag;
    if (read_small_file(base + "/removable", flag, 16)) return trim(flag) == "1";
    // A partition: the flag lies with its disk, the parent directory.
    if (read_small_file(base + "/../removable", flag, 16)) return trim(flag) == "1";
    return false;
}

std::vector<std::string> removable_mounts(std::string_view mountinfo_text,
                                          const std::function<bool(uint32_t, uint32_t)>& removable) {
    std::vector<std::string> out;
    std::set<std::string> seen;
    for (const MountEntry& m : parse_mountinfo(mountinfo_text))
        if (removable(m.major, m.minor) && seen.insert(m.mount_point).second) out.push_back(m.mount_point);
    return out;
}

std::string read_mountinfo() {
    std::string text;
    if (!read_small_file("/proc/self/mountinfo", text, 16 << 20)) set_last_error_from_errno();
    return text;
}

bool make_directories(const std::string& path) {
    std::string cur;
    std::size_t i = 0;
    while (i <= path.size()) {
        std::size_t j = path.find('/', i);
        if (j == std::string::npos) j = path.size();
        cur = path.substr(0, j);
        i = j + 1;
        if (cur.empty()) continue;
        if (mkdir(cur.c_str(), 0777) != 0 && errno != EEXIST) {
            set_last_error_from_errno();
            return false;
        }
    }
    struct stat st {};
    if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        set_last_error(kErrorPathNotFound);
        return false;
    }
    return true;
}

} // namespace kp::platform
