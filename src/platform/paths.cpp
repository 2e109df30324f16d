// paths.cpp - device names resolved beneath the device root, without
// regard to case.
#include "platform/paths.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unistd.h>

#include <vector>

#include "platform/codepage.h"
#include "platform/win32_error.h"

namespace kp::platform {

namespace {

constexpr std::size_t kMaxComponentBytes = 255;

bool is_separator(char16_t c) {
    return c == u'\\' || c == u'/';
}

// 0 when the name may be handed to the host, else the Win32 code.
uint32_t check_name(std::u16string_view name, bool allow_wildcards) {
    if (name.empty()) return kErrorPathNotFound;
    if (name.size() > kMaxDeviceName) return kErrorFilenameExcedRange;
    for (std::size_t i = 0; i < name.size(); ++i) {
        char16_t c = name[i];
        if (c < 0x20 || c == u'<' || c == u'>' || c == u'|' || c == u'"') return kErrorInvalidName;
        if (!allow_wildcards && (c == u'*' || c == u'?')) return kErrorInvalidName;
        if (c >= 0xD800 && c <= 0xDBFF) {
            if (i + 1 >= name.size() || name[i + 1] < 0xDC00 || name[i + 1] > 0xDFFF)
                return kErrorInvalidName;
            ++i;
        } else if (c >= 0xDC00 && c <= 0xDFFF) {
            return kErrorInvalidName;
        }
    }
    return 0;
}

bool same_without_case(std::u16string_view a, std::u16string_view b) {
    UErrorCode st = U_ZERO_ERROR;
    int r = u_strCaseCompare(reinterpret_cast<const UChar*>(a.data()), static_cast<int32_t>(a.size()),
                             reinterpret_cast<const UChar*>(b.data()), static_cast<int32_t>(b.size()),
                             U_FOLD_CASE_DEFAULT, &st);
    return U_SUCCESS(st) && r == 0;
}

// The entry of the directory `dir_fd` that equals `name` without regard to
// case; the smallest in byte order when several do.  Empty when none.
std::string find_without_case(int dir_fd, std::u16string_view name) {
    int fd = openat(dir_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return {};
    DIR* d = fdopendir(fd);
    if (!d) {
        close(fd);
        return {};
    }
    std::string best;
    while (dirent* e = readdir(d)) {
        std::string_view entry(e->d_name);
        if (entry == "." || entry == "..") continue;
        if (!same_without_case(from_utf8(entry), name)) continue;
        if (best.empty() || entry < best) best = entry;
    }
    closedir(d);
    return best;
}

// The components of a device name, with "." dropped and ".." kept inside
// the root.
void components(std::u16string_view name, std::vector<std::u16string_view>& parts) {
    std::size_t i = 0;
    while (i < name.size()) {
        while (i < name.size() && is_separator(name[i]))
            ++i;
        std::size_t j = i;
        while (j < name.size() && !is_separator(name[j]))
            ++j;
        std::u16string_view part = name.substr(i, j - i);
        i = j;
        if (part.empty() || part == u".") continue;
        if (part == u"..") {
            if (!parts.empty()) parts.pop_back();
            continue;
        }
        parts.push_back(part);
    }
}

// A device name as a host path relative to the root, built on the stack:
// the components in UTF-8 joined by "/", "." dropped and ".." kept inside
// the root, as components() gives them ("" for the root itself).  The name
// has passed check_name, so that it is at most kMaxDeviceName units long:
// 3 bytes a unit at most.
struct RelativeName {
    char text[kMaxDeviceName * 3 + 1];
    std::size_t size = 0;
    bool too_long = false; // a component longer than the host allows
};

void relative_name(std::u16string_view name, RelativeName& out) {
    char* const begin = out.text;
    char* p = begin;
    std::size_t i = 0;
    while (i < name.size()) {
        while (i < name.size() && is_separator(name[i]))
            ++i;
        if (i == name.size()) break;
        char* const part = p == begin ? p : p + 1;
        std::size_t end = i;
        while (end < name.size() && !is_separator(name[end]))
            ++end;
        char* const q = write_utf8(name.substr(i, end - i), part);
        i = end;
        const std::string_view written(part, static_cast<std::size_t>(q - part));
        if (written == ".") continue;
        if (written == "..") {
            // Back to the end of the component before (none above the root).
            while (p > begin && *--p != '/') {}
            continue;
        }
        if (written.size() > kMaxComponentBytes) out.too_long = true;
        if (p != begin) *p = '/';
        p = q;
    }
    *p = '\0';
    out.size = static_cast<std::size_t>(p - begin);
}

// --- Resolution beneath the root --------------------------------------------

// More links than this on the way is a loop, as for the kernel.
constexpr int kMaxLinks = 40;

// How names are resolved: by the kernel (openat2) or by the walk.  Which
// one is a fact of the running kernel, found at the first resolution and
// kept for the process; KP120_RESOLVE_WALK=1 in the environment chooses the
// walk (the tests prove both ways with the same suite).
enum ResolverMode { kModeUnknown, kModeKernel, kModeWalk };
std::atomic<int> g_mode{kModeUnknown};

long call_openat2(int dir_fd, const char* rel, int flags, unsigned mode) {
    struct open_how how;
    std::memset(&how, 0, sizeof how);
    how.flags = static_cast<uint64_t>(flags | O_CLOEXEC);
    how.mode = (flags & O_CREAT) ? mode : 0;
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    return syscall(SYS_openat2, dir_fd, rel, &how, sizeof how);
}

int resolver_mode(int root_fd) {
    int m = g_mode.load(std::memory_order_relaxed);
    if (m != kModeUnknown) return m;
    const char* forced = std::getenv("KP120_RESOLVE_WALK");
    if (forced && *forced && std::strcmp(forced, "0") != 0) {
        m = kModeWalk;
    } else {
        long fd = call_openat2(root_fd, ".", O_PATH | O_DIRECTORY, 0);
        if (fd >= 0) {
            close(static_cast<int>(fd));
            m = kModeKernel;
        } else {
            // Kernels before 5.6 (ENOSYS), sandboxes that filter it (EPERM).
            m = (errno == ENOSYS || errno == EPERM || errno == E2BIG || errno == EINVAL) ? kModeWalk
                                                                                         : kModeKernel;
        }
    }
    g_mode.store(m, std::memory_order_relaxed);
    return m;
}

void split_host_path(std::string_view path, std::deque<std::string>& out, bool front) {
    std::deque<std::string> parts;
    std::size_t i = 0;
    while (i <= path.size()) {
        std::size_t j = path.find('/', i);
        if (j == std::string_view::npos) j = path.size();
        if (j > i) parts.emplace_back(path.substr(i, j - i));
        i = j + 1;
    }
    if (front)
        out.insert(out.begin(), parts.begin(), parts.end());
    else
        out.insert(out.end(), parts.begin(), parts.end());
}

// The walk component by component with O_PATH | O_NOFOLLOW, by the rules
// of RESOLVE_IN_ROOT: a link's target read with readlinkat and put in front
// of what is left, an absolute one from the root, ".." never above the
// root, at most kMaxLinks links.  `canonical`, when given, receives the
// path of what was opened relative to the root, links replaced by their
// targets.  With `missing_last`, a component that does not exist is not a
// failure: the walk returns the directory that lacks it, sets
// *missing_last, and `canonical` ends with the missing names as written.
int walk_beneath(int root_fd, std::string_view rel, int flags, unsigned mode, std::string* canonical,
                 bool* missing_last = nullptr) {
    struct Level {
        int fd;
        std::string name;
    };
    std::vector<Level> stack;
    auto cur = [&] { return stack.empty() ? root_fd : stack.back().fd; };
    auto pop = [&] {
        close(stack.back().fd);
        stack.pop_back();
    };
    auto finish = [&](int fd, const std::string* last) {
        int err = errno;
        if (canonical && fd >= 0) {
            canonical->clear();
            for (const Level& l : stack)
                *canonical += (canonical->empty() ? "" : "/") + l.name;
            if (last) *canonical += (canonical->empty() ? "" : "/") + *last;
            if (canonical->empty()) *canonical = ".";
        }
        while (!stack.empty())
            pop();
        errno = err;
        return fd;
    };
    const bool no_follow = (flags & O_NOFOLLOW) || ((flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL));
    std::deque<std::string> todo;
    split_host_path(rel, todo, false);
    int links = 0;
    while (!todo.empty()) {
        std::string c = std::move(todo.front());
        todo.pop_front();
        if (c == ".") continue;
        if (c == "..") {
            if (!stack.empty()) pop();
            continue;
        }
        const bool last = todo.empty();
        int fd = openat(cur(), c.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) {
            if (errno == ENOENT && missing_last) {
                // What is missing keeps its name: a path through it fails.
                *missing_last = true;
                for (const std::string& rest : todo)
                    c += "/" + rest;
                return finish(openat(cur(), ".", O_PATH | O_DIRECTORY | O_CLOEXEC), &c);
            }
            if (last && errno == ENOENT && (flags & O_CREAT))
                return finish(openat(cur(), c.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode), &c);
            return finish(-1, nullptr);
        }
        struct stat st;
        if (fstat(fd, &st) != 0) {
            close(fd);
            return finish(-1, nullptr);
        }
        if (S_ISLNK(st.st_mode) && !(last && no_follow)) {
            char target[PATH_MAX];
            ssize_t n = ++links > kMaxLinks ? -1 : readlinkat(fd, "", target, sizeof target);
            close(fd);
            if (n < 0 || n >= static_cast<ssize_t>(sizeof target)) {
                errno = n < 0 && links <= kMaxLinks ? errno : (links > kMaxLinks ? ELOOP : ENAMETOOLONG);
                return finish(-1, nullptr);
            }
            std::string_view t(target, static_cast<std::size_t>(n));
            if (!t.empty() && t.front() == '/')
                while (!stack.empty())
                    pop();
            split_host_path(t, todo, true);
            continue;
        }
        if (!last) {
            if (!S_ISDIR(st.st_mode)) {
                close(fd);
                errno = ENOTDIR;
                return finish(-1, nullptr);
            }
            stack.push_back({fd, std::move(c)});
            continue;
        }
        if ((flags & O_PATH) && !((flags & O_DIRECTORY) && !S_ISDIR(st.st_mode))) return finish(fd, &c);
        close(fd);
        if ((flags & O_DIRECTORY) && !S_ISDIR(st.st_mode)) {
            errno = ENOTDIR;
            return finish(-1, nullptr);
        }
        return finish(openat(cur(), c.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode), &c);
    }
    // Nothing left: the directory reached itself ("." or a name ending in "..").
    if (missing_last) *missing_last = false;
    return finish(openat(cur(), ".", (flags & ~(O_CREAT | O_EXCL | O_NOFOLLOW)) | O_CLOEXEC), nullptr);
}

} // namespace

Fd::~Fd() {
    if (fd_ >= 0) close(fd_);
}

Fd& Fd::operator=(Fd&& o) noexcept {
    if (this != &o) {
        if (fd_ >= 0) close(fd_);
        fd_ = o.release();
    }
    return *this;
}

namespace {
// A root path as the kept descriptor is compared by: no trailing "/", and
// "/" for the host's root.
std::string_view normal_root(std::string_view path) {
    while (!path.empty() && path.back() == '/')
        path.remove_suffix(1);
    return path.empty() ? std::string_view("/") : path;
}
} // namespace

SharedFd RootDirectory::reopen(const std::string& path) {
    fd_ = SharedFd();
    path_ = path;
    auto fd = std::make_shared<Fd>(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat st;
    if (!*fd || fstat(fd->get(), &st) != 0) return {};
    dev_ = static_cast<uint64_t>(st.st_dev);
    ino_ = static_cast<uint64_t>(st.st_ino);
    fd_ = SharedFd(std::move(fd));
    return fd_;
}

SharedFd RootDirectory::open(std::string_view path_in) {
    const std::string_view path = normal_root(path_in);
    std::lock_guard<std::mutex> lock(mutex_);
    if (fd_ && path == path_) return fd_;
    return reopen(std::string(path));
}

bool RootDirectory::replaced(std::string_view path_in) {
    const std::string path(normal_root(path_in));
    struct stat st;
    const bool found = stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    std::lock_guard<std::mutex> lock(mutex_);
    if (path != path_) return true;
    if (found && fd_ && static_cast<uint64_t>(st.st_dev) == dev_ && static_cast<uint64_t>(st.st_ino) == ino_)
        return false;
    const bool had = static_cast<bool>(fd_);
    return static_cast<bool>(reopen(path)) || had;
}

namespace {
int open_path_beneath(int root_fd, const char* r, int flags, unsigned mode) {
    if (resolver_mode(root_fd) == kModeWalk) return walk_beneath(root_fd, r, flags, mode, nullptr);
    for (int attempt = 0;; ++attempt) {
        long fd = call_openat2(root_fd, r, flags, mode);
        if (fd >= 0) return static_cast<int>(fd);
        // EAGAIN: a rename raced with ".." (the kernel asks for a retry).
        if ((errno != EAGAIN && errno != EINTR) || attempt == 16) return -1;
    }
}
} // namespace

int open_beneath(int root_fd, const std::string& rel, int flags, unsigned mode) {
    return open_path_beneath(root_fd, rel.empty() ? "." : rel.c_str(), flags, mode);
}

int open_resolved(const ResolvedName& r, int flags, unsigned mode) {
    if (!r.root) {
        errno = ENOENT;
        return -1;
    }
    return open_beneath(r.root.get(), r.rel, flags, mode);
}

uint32_t win32_from_resolve_errno(int err) {
    if (err == ELOOP) return kErrorCantResolveFilename;
    if (err == EXDEV) return kErrorAccessDenied;
    return win32_from_errno(err);
}

bool is_absolute_device_name(std::u16string_view name) {
    if (name.empty()) return false;
    return is_separator(name.front()) || name.back() == u':';
}

namespace {

bool resolve_once(std::string_view root_in, std::u16string_view name, ResolvedName& out, uint32_t* error,
                  bool allow_wildcards) {
    out = ResolvedName{};
    if (uint32_t e = check_name(name, allow_wildcards)) {
        if (error) *error = e;
        return false;
    }
    std::string root(root_in);
    while (!root.empty() && root.back() == '/')
        root.pop_back();

    std::vector<std::u16string_view> parts;
    components(name, parts);

    std::vector<std::string> written;
    written.reserve(parts.size());
    for (std::u16string_view p : parts) {
        written.push_back(to_utf8(p));
        if (written.back().size() > kMaxComponentBytes) {
            if (error) *error = kErrorFilenameExcedRange;
            return false;
        }
    }
    auto fail = [&](int err) {
        if (error) *error = win32_from_resolve_errno(err);
        out = ResolvedName{};
        return false;
    };
    // Whatever is missing keeps the name as written.
    auto missing_from = [&](std::size_t k, std::string path) {
        for (; k < written.size(); ++k)
            path += "/" + written[k];
        out.host_path = std::move(path);
        out.dir = Fd();
        return true;
    };

    out.root = kept_root().open(root);
    if (parts.empty()) {
        out.host_path = root.empty() ? "/" : root;
        out.parent_exists = out.exists = static_cast<bool>(out.root);
        out.is_root = true;
        out.rel = out.leaf = ".";
        if (out.root) out.dir = Fd(dup(out.root.get()));
        return true;
    }
    if (!out.root) return missing_from(0, root);
    const int root_fd = out.root.get();

    // The directory part: at once as written, else level by level with the
    // levels that exist in another case.
    std::string rel;
    for (std::size_t k = 0; k + 1 < written.size(); ++k)
        rel += (k ? "/" : "") + written[k];
    if (written.size() == 1)
        out.dir = Fd(dup(root_fd));
    else
        out.dir = Fd(open_beneath(root_fd, rel, O_PATH | O_DIRECTORY));
    if (!out.dir) {
        if (errno != ENOENT && errno != ENOTDIR) return fail(errno);
        rel.clear();
        out.dir = Fd(dup(root_fd));
        for (std::size_t k = 0; k + 1 < written.size(); ++k) {
            std::string candidate = rel.empty() ? written[k] : rel + "/" + written[k];
            Fd next(open_beneath(root_fd, candidate, O_PATH | O_DIRECTORY));
            if (!next && errno == ENOENT) {
                std::string match = find_without_case(out.dir.get(), parts[k]);
                if (!match.empty()) {
                    candidate = rel.empty() ? match : rel + "/" + match;
                    next = Fd(open_beneath(root_fd, candidate, O_PATH | O_DIRECTORY));
                }
            }
            if (!next) {
                if (errno != ENOENT && errno != ENOTDIR) return fail(errno);
                std::string path = root + "/" + rel;
                if (rel.empty()) path.pop_back();
                return missing_from(k, path);
            }
            out.dir = std::move(next);
            rel = std::move(candidate);
        }
    }
    out.parent_exists = true;

    // The last component: the entry itself, not followed.
    std::string leaf = written.back();
    struct stat st;
    out.exists = fstatat(out.dir.get(), leaf.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
    if (!out.exists) {
        std::string match = find_without_case(out.dir.get(), parts.back());
        if (!match.empty()) {
            leaf = std::move(match);
            out.exists = true;
        }
    }
    out.rel = rel.empty() ? leaf : rel + "/" + leaf;
    out.host_path = root + "/" + out.rel;
    out.leaf = std::move(leaf);
    return true;
}

} // namespace

bool resolve_device_name(std::string_view root, std::u16string_view name, ResolvedName& out, uint32_t* error,
                         bool allow_wildcards) {
    if (!resolve_once(root, name, out, error, allow_wildcards)) return false;
    // A name not found, or the root itself: the root may have been replaced.
    if ((out.is_root || !out.exists) && kept_root().replaced(root))
        return resolve_once(root, name, out, error, allow_wildcards);
    return true;
}

bool resolve_device_name(std::u16string_view name, ResolvedName& out, bool allow_wildcards) {
    uint32_t e = 0;
    if (!resolve_device_name(device_root(), name, out, &e, allow_wildcards)) {
        set_last_error(e);
        return false;
    }
    return true;
}

bool resolve_entry(std::u16string_view name, ResolvedName& out, struct stat& st) {
    if (!resolve_device_name(name, out)) return false;
    uint32_t e = kErrorSuccess;
    if (out.is_root)
        e = kErrorAccessDenied;
    else if (!out.exists)
        e = out.parent_exists ? kErrorFileNotFound : kErrorPathNotFound;
    else if (fstatat(out.dir.get(), out.leaf.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        e = win32_from_errno(errno);
    if (e == kErrorSuccess) return true;
    set_last_error(e);
    return false;
}

int open_device_name(std::u16string_view name, int flags, bool* dangling) {
    if (dangling) *dangling = false;
    if (uint32_t e = check_name(name, false)) {
        set_last_error(e);
        return -1;
    }
    // At once when every component exists as written.
    RelativeName rel;
    relative_name(name, rel);
    SharedFd root_fd = kept_root().open(device_root_view());
    if (root_fd && !rel.too_long) {
        int fd = open_path_beneath(root_fd.get(), rel.size ? rel.text : ".", flags, 0);
        if (fd >= 0) return fd;
        if (errno != ENOENT && errno != ENOTDIR && errno != ENAMETOOLONG) {
            set_last_error(win32_from_resolve_errno(errno));
            return -1;
        }
    }
    // Else through the resolution without regard to case.
    ResolvedName r;
    if (!resolve_device_name(name, r)) return -1;
    if (!r.exists) {
        set_last_error(r.parent_exists ? kErrorFileNotFound : kErrorPathNotFound);
        return -1;
    }
    int fd = open_resolved(r, flags);
    if (fd < 0) {
        if (errno == ENOENT && dangling) *dangling = true;
        set_last_error(errno == ENOENT ? kErrorFileNotFound : win32_from_resolve_errno(errno));
    }
    return fd;
}

bool resolve_host_path(std::string_view root_in, std::u16string_view name, std::string& path, bool& exists,
                       uint32_t* error) {
    ResolvedName r;
    if (!resolve_device_name(root_in, name, r, error)) return false;
    if (!r.root) {
        if (error) *error = kErrorPathNotFound;
        return false;
    }
    if (!r.parent_exists) {
        // The name as written, for the walk to find where it stops existing.
        std::vector<std::u16string_view> parts;
        components(name, parts);
        r.rel.clear();
        for (std::u16string_view p : parts)
            r.rel += (r.rel.empty() ? "" : "/") + to_utf8(p);
    }
    std::string canonical;
    bool missing = false;
    Fd fd(walk_beneath(r.root.get(), r.rel, O_PATH, 0, &canonical, &missing));
    if (!fd) {
        if (error) *error = win32_from_resolve_errno(errno);
        return false;
    }
    exists = !missing;
    std::string root(root_in);
    while (!root.empty() && root.back() == '/')
        root.pop_back();
    path = canonical == "." ? (root.empty() ? "/" : root) : root + "/" + canonical;
    return true;
}

bool resolve_host_path(std::u16string_view name, std::string& path, bool& exists) {
    uint32_t e = 0;
    if (resolve_host_path(device_root(), name, path, exists, &e)) return true;
    set_last_error(e);
    return false;
}

std::u16string device_name_of(std::string_view root_in, std::string_view host_path) {
    std::string_view root = root_in;
    while (!root.empty() && root.back() == '/')
        root.remove_suffix(1);
    if (host_path.substr(0, root.size()) != root) return {};
    std::string_view rest = host_path.substr(root.size());
    if (!rest.empty() && rest.front() != '/') return {};
    if (rest.empty()) return std::u16string(1, u'\\');
    std::u16string out = from_utf8(rest);
    for (char16_t& c : out)
        if (c == u'/') c = u'\\';
    return out;
}

} // namespace kp::platform
