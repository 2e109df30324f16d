// directory_unix.cpp - reading, searching, making and removing device
// directories over POSIX directory streams and *at() calls.
#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/codepage.h"
#include "platform/directory.h"
#include "platform/host_attributes.h"
#include "platform/paths.h"
#include "platform/wildcard.h"
#include "platform/win32_error.h"

namespace kp::platform {

namespace {

bool fail(uint32_t code) {
    set_last_error(code);
    return false;
}

bool is_separator(char16_t c) {
    return c == u'\\' || c == u'/';
}

// Opens a device directory for reading, a link to one followed inside the
// root; `r` keeps the root and the name relative to it.
int open_directory(std::u16string_view name, ResolvedName& r) {
    if (!resolve_device_name(name, r)) return -1;
    if (!r.exists) {
        set_last_error(kErrorPathNotFound);
        return -1;
    }
    int fd = open_resolved(r, O_RDONLY | O_DIRECTORY);
    if (fd < 0) {
        set_last_error(errno == ENOTDIR ? kErrorDirectory : win32_from_resolve_errno(errno));
        return -1;
    }
    return fd;
}

// Removes everything under the open directory `fd` without following links.
bool empty_tree(int fd, int depth) {
    if (depth > 4096) return fail(kErrorFilenameExcedRange);
    int dup_fd = dup(fd);
    if (dup_fd < 0) return fail(win32_from_errno(errno));
    DIR* d = fdopendir(dup_fd);
    if (!d) {
        close(dup_fd);
        return fail(win32_from_errno(errno));
    }
    std::vector<std::pair<std::string, bool>> names;
    while (dirent* e = readdir(d)) {
        std::string_view n(e->d_name);
        if (n == "." || n == "..") continue;
        bool dir = e->d_type == DT_DIR;
        if (e->d_type == DT_UNKNOWN) {
            struct stat st;
            dir = fstatat(fd, e->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
        }
        names.emplace_back(n, dir);
    }
    closedir(d);
    bool ok = true;
    uint32_t first_error = 0;
    for (const auto& [n, dir] : names) {
        if (dir) {
            int sub = openat(fd, n.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (sub < 0 || !empty_tree(sub, depth + 1)) {
                if (sub < 0) set_last_error_from_errno();
                if (ok) first_error = last_error();
                ok = false;
            }
            if (sub >= 0) close(sub);
            if (unlinkat(fd, n.c_str(), AT_REMOVEDIR) != 0 && ok) {
                first_error = win32_from_errno(errno);
                ok = false;
            }
        } else if (unlinkat(fd, n.c_str(), 0) != 0 && ok) {
            first_error = win32_from_errno(errno);
            ok = false;
        }
    }
    if (!ok) set_last_error(first_error);
    return ok;
}

bool size_of_tree(int fd, uint64_t& total, int depth) {
    if (depth > 4096) return fail(kErrorFilenameExcedRange);
    DIR* d = fdopendir(fd);
    if (!d) {
        close(fd);
        return fail(win32_from_errno(errno));
    }
    bool ok = true;
    while (dirent* e = readdir(d)) {
        std::string_view n(e->d_name);
        if (n == "." || n == "..") continue;
        struct stat st;
        if (fstatat(dirfd(d), e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue; // went away
        if (S_ISDIR(st.st_mode)) {
            int sub = openat(dirfd(d), e->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            // An unreadable directory adds nothing; the walk goes on.
            if (sub >= 0 && !size_of_tree(sub, total, depth + 1) && last_error() == kErrorFilenameExcedRange)
                ok = false;
        } else if (S_ISREG(st.st_mode)) {
            total += static_cast<uint64_t>(st.st_size);
        }
    }
    closedir(d);
    return ok;
}

} // namespace

// --- DirectoryReader ---------------------------------------------------------

DirectoryReader::DirectoryReader() = default;

DirectoryReader::~DirectoryReader() {
    if (fd_ >= 0) close(fd_);
}

// An entry that is a link is listed with what it leads to inside the root
// (a folder when it leads to one) and marked as a link: walks do not enter
// it, so that a link cannot take a walk round in a loop or twice through
// the same folder.
bool DirectoryReader::open(std::u16string_view name) {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
    root_ = SharedFd();
    entries_.clear();
    host_names_.clear();
    ResolvedName r;
    int fd = open_directory(name, r);
    if (fd < 0) return false;
    root_ = r.root;
    rel_ = r.rel;
    struct stat st;
    if (fstat(fd, &st) != 0) {
        set_last_error_from_errno();
        ::close(fd);
        return false;
    }
    dev_ = st.st_dev;
    ino_ = st.st_ino;
    int dup_fd = dup(fd);
    DIR* d = dup_fd >= 0 ? fdopendir(dup_fd) : nullptr;
    if (!d) {
        set_last_error_from_errno();
        if (dup_fd >= 0) ::close(dup_fd);
        ::close(fd);
        return false;
    }
    struct Raw {
        std::string name;
        bool dir, link;
    };
    std::vector<Raw> raw;
    while (dirent* e = readdir(d)) {
        std::string_view n(e->d_name);
        if (n == "." || n == "..") continue;
        bool dir = e->d_type == DT_DIR, link = e->d_type == DT_LNK;
        if (e->d_type == DT_UNKNOWN) {
            struct stat es;
            link = fstatat(fd, e->d_name, &es, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(es.st_mode);
            dir = !link && S_ISDIR(es.st_mode);
        }
        if (link) {
            struct stat es;
            Fd target(open_beneath(root_.get(), rel_ + "/" + e->d_name, O_PATH));
            dir = target && fstat(target.get(), &es) == 0 && S_ISDIR(es.st_mode);
        }
        raw.push_back({std::string(n), dir, link});
    }
    closedir(d);
    std::sort(raw.begin(), raw.end(), [](const Raw& a, const Raw& b) { return a.name < b.name; });
    entries_.reserve(raw.size());
    host_names_.reserve(raw.size());
    for (Raw& r : raw) {
        entries_.push_back({from_utf8(r.name), r.dir, r.link});
        host_names_.push_back(std::move(r.name));
    }
    fd_ = fd;
    return true;
}

bool DirectoryReader::info(std::size_t i, FileInfo& out) const {
    if (i >= host_names_.size() || fd_ < 0) return fail(kErrorInvalidParameter);
    out.name = entries_[i].name;
    const std::string& base = host_names_[i];
    if (entries_[i].link && host::info_beneath(root_.get(), rel_ + "/" + base, base, out)) return true;
    return host::info_at(fd_, base.c_str(), out); // the entry itself; a dangling link reads as itself
}

// --- FileSearch --------------------------------------------------------------

void split_device_name(std::u16string_view name, std::u16string_view& directory, std::u16string_view& last) {
    std::size_t cut = name.size();
    while (cut > 0 && !is_separator(name[cut - 1]))
        --cut;
    directory = name.substr(0, cut);
    last = name.substr(cut);
}

FileSearch::FileSearch() = default;
FileSearch::~FileSearch() = default;

void FileSearch::close() {
    reader_.reset();
    mask_.clear();
    at_ = 0;
}

bool FileSearch::first(std::u16string_view pattern, FileInfo& out) {
    close();
    std::u16string_view dir, mask;
    split_device_name(pattern, dir, mask);
    if (has_wildcards(dir)) return fail(kErrorInvalidName);
    if (mask.empty()) return fail(kErrorFileNotFound);
    // The mask obeys the name rules but for its wildcards.
    ResolvedName check;
    if (!resolve_device_name(pattern, check, true)) return false;
    auto reader = std::make_unique<DirectoryReader>();
    if (!reader->open(dir.empty() ? std::u16string_view(u"\\") : dir)) {
        if (last_error() == kErrorDirectory) set_last_error(kErrorPathNotFound);
        return false;
    }
    reader_ = std::move(reader);
    mask_.assign(mask);
    at_ = 0;
    if (!advance(out)) {
        close();
        return fail(kErrorFileNotFound);
    }
    return true;
}

bool FileSearch::next(FileInfo& out) {
    if (!reader_) return fail(kErrorNoMoreFiles);
    if (!advance(out)) return fail(kErrorNoMoreFiles);
    return true;
}

bool FileSearch::advance(FileInfo& out) {
    WildcardPattern pattern(mask_);
    const auto& entries = reader_->entries();
    while (at_ < entries.size()) {
        std::size_t i = at_++;
        if (!pattern.matches(entries[i].name)) continue;
        if (reader_->info(i, out)) return true;
    }
    return false;
}

// --- Trees -------------------------------------------------------------------

bool create_directory_tree(std::u16string_view name) {
    ResolvedName r;
    if (!resolve_device_name(name, r)) return false;
    if (r.exists) {
        struct stat st;
        Fd target(open_resolved(r, O_PATH));
        if (!target || fstat(target.get(), &st) != 0) return fail(win32_from_resolve_errno(errno));
        return S_ISDIR(st.st_mode) ? true : fail(kErrorAlreadyExists);
    }
    if (!r.parent_exists) {
        // The level above first, then this one.
        std::size_t end = name.size();
        while (end > 0 && is_separator(name[end - 1]))
            --end;
        std::size_t cut = end;
        while (cut > 0 && !is_separator(name[cut - 1]))
            --cut;
        if (cut == 0) return fail(kErrorPathNotFound);
        if (!create_directory_tree(name.substr(0, cut))) return false;
    }
    if (create_directory(name)) return true;
    // Another process made it meanwhile.
    if (last_error() == kErrorAlreadyExists) {
        ResolvedName again;
        struct stat st;
        if (resolve_device_name(name, again) && again.exists) {
            Fd target(open_resolved(again, O_PATH));
            if (target && fstat(target.get(), &st) == 0 && S_ISDIR(st.st_mode)) return true;
        }
    }
    return false;
}

bool remove_directory_tree(std::u16string_view name) {
    ResolvedName r;
    struct stat st;
    if (!resolve_entry(name, r, st)) return false;
    if (!S_ISDIR(st.st_mode)) return fail(kErrorDirectory);
    int fd = openat(r.dir.get(), r.leaf.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return fail(win32_from_errno(errno));
    bool ok = empty_tree(fd, 0);
    close(fd);
    if (!ok) return false;
    if (unlinkat(r.dir.get(), r.leaf.c_str(), AT_REMOVEDIR) != 0) return fail(win32_from_errno(errno));
    return true;
}

bool directory_size(std::u16string_view name, uint64_t& total) {
    total = 0;
    ResolvedName r;
    int fd = open_directory(name, r);
    if (fd < 0) return false;
    return size_of_tree(fd, total, 0);
}

} // namespace kp::platform
