// trash_unix.cpp - the freedesktop.org trash over POSIX renames.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/paths.h"
#include "platform/trash.h"
#include "platform/win32_error.h"

namespace kp::platform {

namespace {

bool fail(uint32_t code) {
    set_last_error(code);
    return false;
}

std::string parent_of(const std::string& path) {
    std::size_t cut = path.rfind('/');
    if (cut == std::string::npos || cut == 0) return "/";
    return path.substr(0, cut);
}

// The device of a path, or of its nearest existing ancestor.
bool device_of(std::string path, dev_t& dev) {
    struct stat st;
    while (stat(path.c_str(), &st) != 0) {
        if (path == "/" || path.empty()) return false;
        path = parent_of(path);
    }
    dev = st.st_dev;
    return true;
}

bool make_dirs(const std::string& path, mode_t mode) {
    struct stat st;
    if (stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
    if (path != "/" && !make_dirs(parent_of(path), mode)) return false;
    return mkdir(path.c_str(), mode) == 0 || errno == EEXIST;
}

std::string percent_encoded(const std::string& path) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/' ||
            c == '-' || c == '_' || c == '.' || c == '~') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

// The mount point holding `path`: the highest ancestor on the same device.
std::string top_directory(const std::string& path, dev_t dev) {
    std::string top = parent_of(path);
    while (top != "/") {
        std::string up = parent_of(top);
        struct stat st;
        if (stat(up.c_str(), &st) != 0 || st.st_dev != dev) break;
        top = up;
    }
    return top;
}

} // namespace

bool move_to_trash(std::u16string_view name) {
    ResolvedName r;
    struct stat st;
    if (!resolve_entry(name, r, st)) return false;

    std::string data_home;
    if (const char* x = std::getenv("XDG_DATA_HOME"); x && *x == '/') {
        data_home = x;
    } else if (const char* home = std::getenv("HOME"); home && *home == '/') {
        data_home = std::string(home) + "/.local/share";
    }
    std::string trash, recorded_path;
    dev_t home_dev = 0;
    if (!data_home.empty() && device_of(data_home, home_dev) && home_dev == st.st_dev) {
        trash = data_home + "/Trash";
        recorded_path = r.host_path;
    } else {
        std::string top = top_directory(r.host_path, st.st_dev);
        trash = (top == "/" ? "" : top) + "/.Trash-" + std::to_string(getuid());
        recorded_path = r.host_path.substr(top == "/" ? 1 : top.size() + 1);
    }
    if (!make_dirs(trash + "/files", 0700) || !make_dirs(trash + "/info", 0700))
        return fail(win32_from_errno(errno));

    const std::string& base = r.leaf;
    char stamp[32];
    std::time_t now = std::time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &local);
    const std::string info =
        "[Trash Info]\nPath=" + percent_encoded(recorded_path) + "\nDeletionDate=" + stamp + "\n";

    for (int n = 1; n < 10000; ++n) {
        std::string entry = n == 1 ? base : base + "." + std::to_string(n);
        std::string info_path = trash + "/info/" + entry + ".trashinfo";
        int fd = open(info_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            return fail(win32_from_errno(errno));
        }
        ssize_t w = write(fd, info.data(), info.size());
        close(fd);
        std::string target = trash + "/files/" + entry;
        struct stat taken;
        if (w != static_cast<ssize_t>(info.size()) || lstat(target.c_str(), &taken) == 0) {
            unlink(info_path.c_str());
            if (w != static_cast<ssize_t>(info.size())) return fail(kErrorDiskFull);
            continue; // a leftover in files/ without its info file
        }
        // The entry itself leaves its directory (a link goes as a link).
        if (renameat(r.dir.get(), r.leaf.c_str(), AT_FDCWD, target.c_str()) != 0) {
            uint32_t e = win32_from_errno(errno);
            unlink(info_path.c_str());
            return fail(e);
        }
        return true;
    }
    return fail(kErrorAlreadyExists);
}

} // namespace kp::platform
