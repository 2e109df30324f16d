// files_unix.cpp - the device's file service over POSIX.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <new>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "platform/codepage.h"
#include "platform/extents.h"
#include "platform/files.h"
#include "platform/host_attributes.h"
#include "platform/paths.h"
#include "platform/win32_error.h"

namespace kp::platform {

namespace {

// What a FileHandle points at.
struct OpenFile {
    int fd = -1;
    uint64_t pointer = 0;
    uint32_t access = 0;
    uint32_t share = 0;
};

OpenFile* file_of(FileHandle h) {
    if (h == kInvalidFile || h == 0) {
        set_last_error(kErrorInvalidHandle);
        return nullptr;
    }
    return reinterpret_cast<OpenFile*>(h);
}

bool fail(uint32_t code) {
    set_last_error(code);
    return false;
}

bool fail_errno() {
    set_last_error_from_errno();
    return false;
}

bool is_read_only(const struct stat& st) {
    return host::is_read_only(st.st_mode);
}

// The last component of a device name, as written.
std::u16string_view last_component(std::u16string_view name) {
    while (!name.empty() && (name.back() == u'\\' || name.back() == u'/'))
        name.remove_suffix(1);
    std::size_t cut = name.find_last_of(u"\\/");
    return cut == std::u16string_view::npos ? name : name.substr(cut + 1);
}

// Resolves a name that must exist: 2 when it does not, 3 when its directory does not.
bool resolve_existing(std::u16string_view name, ResolvedName& r) {
    if (!resolve_device_name(name, r)) return false;
    if (!r.exists) return fail(r.parent_exists ? kErrorFileNotFound : kErrorPathNotFound);
    return true;
}

bool fail_resolve() {
    return fail(win32_from_resolve_errno(errno));
}

// The status of a resolved entry, a final link followed inside the root.
// false with errno when it cannot be reached (ENOENT for a dangling link).
bool stat_followed(const ResolvedName& r, struct stat& st) {
    Fd fd(open_resolved(r, O_PATH));
    return fd && fstat(fd.get(), &st) == 0;
}

bool full_pread(int fd, uint64_t offset, void* buffer, uint32_t count, uint32_t* done) {
    uint32_t total = 0;
    auto* p = static_cast<uint8_t*>(buffer);
    while (total < count) {
        ssize_t n = pread(fd, p + total, count - total, static_cast<off_t>(offset + total));
        // Stream devices (pipes, terminals) have no offsets: plain reads.
        if (n < 0 && errno == ESPIPE) n = read(fd, p + total, count - total);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (done) *done = total;
            return fail_errno();
        }
        if (n == 0) break;
        total += static_cast<uint32_t>(n);
    }
    if (done) *done = total;
    return true;
}

bool full_pwrite(int fd, uint64_t offset, const void* buffer, uint32_t count, uint32_t* done) {
    uint32_t total = 0;
    const auto* p = static_cast<const uint8_t*>(buffer);
    while (total < count) {
        ssize_t n = pwrite(fd, p + total, count - total, static_cast<off_t>(offset + total));
        if (n < 0 && errno == ESPIPE) n = write(fd, p + total, count - total);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (done) *done = total;
            return fail_errno();
        }
        if (n == 0) {
            if (done) *done = total;
            return fail(kErrorDiskFull);
        }
        total += static_cast<uint32_t>(n);
    }
    if (done) *done = total;
    return true;
}

constexpr uint64_t kMaxOffset = static_cast<uint64_t>(LLONG_MAX);

} // namespace

// --- Handles ---------------------------------------------------------------

namespace {

FileHandle no_file(uint32_t error) {
    set_last_error(error);
    return kInvalidFile;
}

// The open(2) flags of CreateFileW's disposition and access on an entry
// that exists (or not) and is read-only (or not); 0 or the Win32 error
// CreateFileW gives.
uint32_t open_flags(uint32_t disposition, uint32_t access, bool exists, bool read_only, int& oflags) {
    const bool wants_write = (access & kGenericWrite) != 0;
    oflags = O_CLOEXEC;
    switch (disposition) {
    case kCreateNew:
        if (exists) return kErrorFileExists;
        oflags |= O_CREAT | O_EXCL;
        break;
    case kCreateAlways:
        if (read_only) return kErrorAccessDenied;
        oflags |= O_CREAT | O_TRUNC;
        break;
    case kOpenExisting:
        if (!exists) return kErrorFileNotFound;
        break;
    case kOpenAlways:
        oflags |= O_CREAT;
        break;
    case kTruncateExisting:
        if (!exists) return kErrorFileNotFound;
        if (!wants_write) return kErrorInvalidParameter;
        oflags |= O_TRUNC;
        break;
    default:
        return kErrorInvalidParameter;
    }
    if (read_only && wants_write) return kErrorAccessDenied;
    const bool wants_read = (access & kGenericRead) != 0;
    oflags |= wants_read && wants_write ? O_RDWR : wants_write ? O_WRONLY : O_RDONLY;
    return 0;
}

} // namespace

FileHandle create_file(std::u16string_view name, uint32_t access, uint32_t share, uint32_t disposition,
                       uint32_t flags_and_attributes) {
    ResolvedName r;
    if (!resolve_device_name(name, r)) return kInvalidFile;
    if (r.is_root) return no_file(kErrorAccessDenied);
    if (!r.parent_exists) return no_file(kErrorPathNotFound);
    struct stat st;
    const bool exists = stat_followed(r, st);
    if (!exists && errno != ENOENT) return no_file(win32_from_resolve_errno(errno));
    if (exists && S_ISDIR(st.st_mode)) return no_file(kErrorAccessDenied);
    const bool read_only = exists && S_ISREG(st.st_mode) && is_read_only(st);
    int oflags = 0;
    if (uint32_t error = open_flags(disposition, access, exists, read_only, oflags)) return no_file(error);
    // Stream devices (FIFOs) must not block the program thread on open.
    if (exists && !S_ISREG(st.st_mode)) oflags |= O_NONBLOCK;

    // A dangling link creates its target inside the root, or fails.
    int fd = open_resolved(r, oflags, 0666);
    if (fd < 0) return no_file(errno == ENOENT ? kErrorPathNotFound : win32_from_resolve_errno(errno));
    if (!exists && (flags_and_attributes & kAttributeReadOnly)) {
        struct stat now;
        if (fstat(fd, &now) == 0) fchmod(fd, now.st_mode & ~(S_IWUSR | S_IWGRP | S_IWOTH) & 07777);
    }
    auto* f = new (std::nothrow) OpenFile;
    if (!f) {
        close(fd);
        return no_file(kErrorNotEnoughMemory);
    }
    f->fd = fd;
    f->access = access;
    f->share = share;
    if (disposition == kCreateAlways || disposition == kOpenAlways)
        set_last_error(exists ? kErrorAlreadyExists : kErrorSuccess);
    return reinterpret_cast<FileHandle>(f);
}

int32_t compare_file_contents(FileHandle a, FileHandle b) {
    OpenFile *fa = file_of(a), *fb = file_of(b);
    if (!fa || !fb) {
        set_last_error(kErrorInvalidHandle);
        return -1;
    }
    return compare_descriptors(fa->fd, fb->fd);
}

bool close_file(FileHandle h) {
    OpenFile* f = file_of(h);
    if (!f) return false;
    int rc = close(f->fd);
    int err = errno;
    delete f;
    if (rc != 0 && err != EINTR) {
        errno = err;
        return fail_errno();
    }
    return true;
}

bool read_file(FileHandle h, void* buffer, uint32_t count, uint32_t* done) {
    if (done) *done = 0;
    OpenFile* f = file_of(h);
    if (!f) return false;
    uint32_t n = 0;
    bool ok = read_file_at(h, f->pointer, buffer, count, &n);
    f->pointer += n;
    if (done) *done = n;
    return ok;
}

bool write_file(FileHandle h, const void* buffer, uint32_t count, uint32_t* done) {
    if (done) *done = 0;
    OpenFile* f = file_of(h);
    if (!f) return false;
    uint32_t n = 0;
    bool ok = write_file_at(h, f->pointer, buffer, count, &n);
    f->pointer += n;
    if (done) *done = n;
    return ok;
}

bool read_file_at(FileHandle h, uint64_t offset, void* buffer, uint32_t count, uint32_t* done) {
    if (done) *done = 0;
    OpenFile* f = file_of(h);
    if (!f) return false;
    if (!(f->access & kGenericRead)) return fail(kErrorAccessDenied);
    if (count == 0) return true;
    if (!buffer) return fail(kErrorInvalidParameter);
    if (offset >= kMaxOffset) return true; // nothing lies that far
    if (count > kMaxOffset - offset) count = static_cast<uint32_t>(kMaxOffset - offset);
    return full_pread(f->fd, offset, buffer, count, done);
}

bool write_file_at(FileHandle h, uint64_t offset, const void* buffer, uint32_t count, uint32_t* done) {
    if (done) *done = 0;
    OpenFile* f = file_of(h);
    if (!f) return false;
    if (!(f->access & kGenericWrite)) return fail(kErrorAccessDenied);
    if (count == 0) return true;
    if (!buffer) return fail(kErrorInvalidParameter);
    if (offset > kMaxOffset - count) return fail(kErrorDiskFull);
    return full_pwrite(f->fd, offset, buffer, count, done);
}

bool set_file_pointer(FileHandle h, int64_t distance, uint32_t origin, uint64_t* new_position) {
    OpenFile* f = file_of(h);
    if (!f) return false;
    int64_t base = 0;
    switch (origin) {
    case kFileBegin:
        base = 0;
        break;
    case kFileCurrent:
        base = static_cast<int64_t>(f->pointer);
        break;
    case kFileEnd: {
        struct stat st;
        if (fstat(f->fd, &st) != 0) return fail_errno();
        base = static_cast<int64_t>(st.st_size);
        break;
    }
    default:
        return fail(kErrorInvalidParameter);
    }
    int64_t target = 0;
    if (__builtin_add_overflow(base, distance, &target)) return fail(kErrorInvalidParameter);
    if (target < 0) return fail(kErrorNegativeSeek);
    f->pointer = static_cast<uint64_t>(target);
    if (new_position) *new_position = f->pointer;
    return true;
}

bool get_file_size(FileHandle h, uint64_t* size) {
    OpenFile* f = file_of(h);
    if (!f) return false;
    struct stat st;
    if (fstat(f->fd, &st) != 0) return fail_errno();
    if (size) *size = static_cast<uint64_t>(st.st_size);
    return true;
}

bool set_end_of_file(FileHandle h) {
    OpenFile* f = file_of(h);
    if (!f) return false;
    if (!(f->access & kGenericWrite)) return fail(kErrorAccessDenied);
    if (f->pointer > kMaxOffset) return fail(kErrorInvalidParameter);
    while (ftruncate(f->fd, static_cast<off_t>(f->pointer)) != 0) {
        if (errno != EINTR) return fail(errno == EFBIG ? kErrorDiskFull : win32_from_errno(errno));
    }
    return true;
}

bool flush_file(FileHandle h) {
    OpenFile* f = file_of(h);
    if (!f) return false;
    if (!(f->access & kGenericWrite)) return fail(kErrorAccessDenied);
    if (fdatasync(f->fd) != 0 && errno != EINVAL) return fail_errno();
    return true;
}

namespace {
bool range_lock(FileHandle h, uint64_t offset, uint64_t length, bool lock) {
    OpenFile* f = file_of(h);
    if (!f) return false;
    if (length == 0) return true; // an empty range holds nothing to lock
    if (offset > kMaxOffset || length > kMaxOffset - offset) return fail(kErrorInvalidParameter);
    struct flock fl;
    std::memset(&fl, 0, sizeof fl);
    fl.l_type = !lock ? F_UNLCK : (f->access & kGenericWrite) ? F_WRLCK : F_RDLCK;
    fl.l_whence = SEEK_SET;
    fl.l_start = static_cast<off_t>(offset);
    fl.l_len = static_cast<off_t>(length);
    while (fcntl(f->fd, F_OFD_SETLK, &fl) != 0) {
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EACCES) return fail(kErrorLockViolation);
        return fail_errno();
    }
    return true;
}
} // namespace

bool lock_file(FileHandle h, uint64_t offset, uint64_t length) {
    return range_lock(h, offset, length, true);
}
bool unlock_file(FileHandle h, uint64_t offset, uint64_t length) {
    return range_lock(h, offset, length, false);
}

namespace {
bool whole_lock(FileHandle h, short type, int command) {
    OpenFile* f = file_of(h);
    if (!f) return false;
    struct flock fl;
    std::memset(&fl, 0, sizeof fl);
    fl.l_type = type;
    fl.l_whence = SEEK_SET;
    fl.l_start = 0;
    fl.l_len = 0; // to the end, whatever the length becomes
    while (fcntl(f->fd, command, &fl) != 0) {
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EACCES) return fail(kErrorLockViolation);
        // A write lock on a read-only handle, or a read lock on a write-only one.
        if (errno == EBADF) return fail(kErrorAccessDenied);
        return fail_errno();
    }
    return true;
}
} // namespace

bool lock_whole_file(FileHandle h, bool exclusive) {
    return whole_lock(h, exclusive ? F_WRLCK : F_RDLCK, F_OFD_SETLKW);
}
bool unlock_whole_file(FileHandle h) {
    return whole_lock(h, F_UNLCK, F_OFD_SETLK);
}

// --- Names -----------------------------------------------------------------

// Attributes, times and sizes are those of what a link leads to inside the
// root (a dangling link reads as itself); setting them acts on that too,
// since a link of the host has no attributes of its own to set.
namespace {
bool info_of(const ResolvedName& r, FileInfo& info) {
    if (host::info_beneath(r.root.get(), r.rel, r.leaf, info)) return true;
    if (last_error() != kErrorFileNotFound) return false;
    return host::info_at(r.dir.get(), r.leaf.c_str(), info); // a dangling link
}
} // namespace

uint32_t get_file_attributes(std::u16string_view name) {
    ResolvedName r;
    if (!resolve_existing(name, r)) return kInvalidAttributes;
    FileInfo info;
    if (!info_of(r, info)) return kInvalidAttributes;
    return info.attributes;
}

bool get_entry_kind(std::u16string_view name, bool& directory) {
    bool dangling = false;
    Fd fd(open_device_name(name, O_PATH, &dangling));
    struct stat st;
    directory = false;
    if (!fd) return dangling;
    if (fstat(fd.get(), &st) != 0) return fail_errno();
    directory = S_ISDIR(st.st_mode);
    return true;
}

bool set_file_attributes(std::u16string_view name, uint32_t attributes) {
    ResolvedName r;
    if (!resolve_existing(name, r)) return false;
    Fd target(open_resolved(r, O_PATH));
    struct stat st;
    if (!target || fstat(target.get(), &st) != 0) return fail_resolve();
    FileInfo now;
    if (!host::info_beneath(r.root.get(), r.rel, r.leaf, now)) return false;
    // The stored bits first: when the file system refuses them nothing has
    // changed yet.  A hidden bit that comes from the name is not stored.
    uint32_t want = attributes & host::kDosKeptBits;
    uint32_t have = now.attributes & host::kDosKeptBits;
    uint32_t stored = 0;
    Fd readable(
        S_ISREG(st.st_mode) || S_ISDIR(st.st_mode) ? open_resolved(r, O_RDONLY | O_NONBLOCK | O_NOCTTY) : -1);
    bool has_stored = readable && host::read_dos_bits(readable.get(), &stored);
    if (want != have || (has_stored && (stored & host::kDosKeptBits) != want)) {
        if (!readable) return fail(kErrorAccessDenied);
        if (!host::write_dos_bits(readable.get(), want)) return false;
    }
    if (S_ISDIR(st.st_mode)) return true; // read-only has no meaning for a directory here
    mode_t mode = st.st_mode & 07777;
    mode_t wanted = (attributes & kAttributeReadOnly) ? (mode & ~(S_IWUSR | S_IWGRP | S_IWOTH))
                                                      : (is_read_only(st) ? (mode | S_IWUSR) : mode);
    if (wanted == mode) return true;
    // fchmod does not take an O_PATH descriptor: the file opened for reading.
    if (!readable) return fail(kErrorAccessDenied);
    if (fchmod(readable.get(), wanted) != 0) return fail_errno();
    return true;
}

bool get_file_info(std::u16string_view name, FileInfo& info) {
    ResolvedName r;
    if (!resolve_existing(name, r)) return false;
    info = FileInfo{};
    return info_of(r, info);
}

bool set_file_times(std::u16string_view name, const uint64_t* access_time, const uint64_t* write_time) {
    ResolvedName r;
    if (!resolve_existing(name, r)) return false;
    struct timespec ts[2];
    ts[0] = access_time ? host::timespec_of(*access_time) : timespec{0, UTIME_OMIT};
    ts[1] = write_time ? host::timespec_of(*write_time) : timespec{0, UTIME_OMIT};
    Fd target(open_resolved(r, O_PATH));
    if (!target) return fail_resolve();
    struct stat st;
    if (fstat(target.get(), &st) != 0) return fail_errno();
    // utimensat takes an O_PATH descriptor only through AT_EMPTY_PATH
    // (Linux 6.6); files and directories are opened for reading instead.
    Fd readable(
        S_ISREG(st.st_mode) || S_ISDIR(st.st_mode) ? open_resolved(r, O_RDONLY | O_NONBLOCK | O_NOCTTY) : -1);
    if (readable ? futimens(readable.get(), ts) == 0 : utimensat(target.get(), "", ts, AT_EMPTY_PATH) == 0)
        return true;
    return fail_errno();
}

bool set_file_times(std::u16string_view name, const uint64_t* creation_time, const uint64_t* access_time,
                    const uint64_t* write_time) {
    if (creation_time) return fail(kErrorNotSupported);
    return set_file_times(name, access_time, write_time);
}

bool delete_file(std::u16string_view name) {
    ResolvedName r;
    if (!resolve_existing(name, r)) return false;
    struct stat st;
    if (fstatat(r.dir.get(), r.leaf.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return fail_errno();
    if (S_ISDIR(st.st_mode)) return fail(kErrorAccessDenied);
    if (S_ISREG(st.st_mode) && is_read_only(st)) return fail(kErrorAccessDenied);
    if (unlinkat(r.dir.get(), r.leaf.c_str(), 0) != 0) return fail_errno();
    return true;
}

// Renaming and deleting act on the entry itself: a link is renamed or
// removed, never what it leads to.
bool move_file(std::u16string_view from, std::u16string_view to) {
    if (!is_absolute_device_name(from) || !is_absolute_device_name(to)) return fail(kErrorPathNotFound);
    ResolvedName src, dst;
    if (!resolve_existing(from, src)) return false;
    if (!resolve_device_name(to, dst)) return false;
    if (src.is_root || dst.is_root) return fail(kErrorAccessDenied);
    if (!dst.parent_exists) return fail(kErrorPathNotFound);
    const int sd = src.dir.get(), dd = dst.dir.get();
    const char* from_name = src.leaf.c_str();
    std::string target = dst.leaf;
    if (dst.exists) {
        struct stat a, b;
        bool same = fstatat(sd, from_name, &a, AT_SYMLINK_NOFOLLOW) == 0 &&
                    fstatat(dd, target.c_str(), &b, AT_SYMLINK_NOFOLLOW) == 0 && a.st_dev == b.st_dev &&
                    a.st_ino == b.st_ino;
        if (!same) return fail(kErrorAlreadyExists);
        // A change of case only: the entry takes the name as written.
        target = to_utf8(last_component(to));
        if (target == src.leaf) return true;
        if (renameat(sd, from_name, dd, target.c_str()) != 0) return fail_errno();
        return true;
    }
    if (renameat2(sd, from_name, dd, target.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)
        return fail(errno == EEXIST ? kErrorAlreadyExists : win32_from_errno(errno));
    // The file system refuses the flag: a hard link cannot replace either.
    struct stat st;
    if (fstatat(sd, from_name, &st, AT_SYMLINK_NOFOLLOW) != 0) return fail_errno();
    if (!S_ISDIR(st.st_mode)) {
        if (linkat(sd, from_name, dd, target.c_str(), 0) != 0)
            return fail(errno == EEXIST ? kErrorAlreadyExists : win32_from_errno(errno));
        if (unlinkat(sd, from_name, 0) != 0) {
            uint32_t e = win32_from_errno(errno);
            unlinkat(dd, target.c_str(), 0);
            return fail(e);
        }
        return true;
    }
    if (fstatat(dd, target.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return fail(kErrorAlreadyExists);
    if (renameat(sd, from_name, dd, target.c_str()) != 0) return fail_errno();
    return true;
}

// Copying reads and writes what links lead to inside the root; a dangling
// link as the target creates its target inside the root.
bool copy_file(std::u16string_view from, std::u16string_view to, bool fail_if_exists) {
    ResolvedName src, dst;
    if (!resolve_existing(from, src)) return false;
    if (!resolve_device_name(to, dst)) return false;
    if (!dst.parent_exists) return fail(kErrorPathNotFound);
    struct stat ss;
    if (!stat_followed(src, ss)) return fail_resolve();
    if (S_ISDIR(ss.st_mode)) return fail(kErrorAccessDenied);
    if (dst.exists) {
        struct stat ds;
        if (stat_followed(dst, ds)) {
            if (ds.st_dev == ss.st_dev && ds.st_ino == ss.st_ino) return fail(kErrorSharingViolation);
            if (fail_if_exists) return fail(kErrorFileExists);
            if (S_ISDIR(ds.st_mode)) return fail(kErrorAccessDenied);
            if (is_read_only(ds)) return fail(kErrorAccessDenied);
        } else if (errno != ENOENT) {
            return fail_resolve();
        } else if (fail_if_exists) {
            return fail(kErrorFileExists); // a dangling link is there
        }
    }
    Fd in(open_resolved(src, O_RDONLY));
    if (!in) return fail_resolve();
    Fd out(open_resolved(dst, O_WRONLY | O_CREAT | O_TRUNC, 0666));
    if (!out) return fail_resolve();
    bool ok = copy_file_extents(in.get(), out.get()); // the holes of a sparse file stay holes
    uint32_t err = last_error();
    if (ok) {
        struct timespec ts[2] = {ss.st_atim, ss.st_mtim};
        futimens(out.get(), ts);
        fchmod(out.get(), ss.st_mode & 07777);
        uint32_t bits = 0;
        if (host::read_dos_bits(in.get(), &bits))
            host::write_dos_bits(out.get(), bits);
        else
            fremovexattr(out.get(), host::kDosAttributeName);
    }
    if (!ok) {
        // The name the copy was made under, unless it is a link.
        unlinkat(dst.dir.get(), dst.leaf.c_str(), 0);
        return fail(err);
    }
    return true;
}

bool create_directory(std::u16string_view name) {
    ResolvedName r;
    if (!resolve_device_name(name, r)) return false;
    if (r.exists) return fail(kErrorAlreadyExists);
    if (!r.parent_exists) return fail(kErrorPathNotFound);
    if (mkdirat(r.dir.get(), r.leaf.c_str(), 0777) != 0)
        return fail(errno == EEXIST ? kErrorAlreadyExists : win32_from_errno(errno));
    return true;
}

bool remove_directory(std::u16string_view name) {
    ResolvedName r;
    if (!resolve_existing(name, r)) return false;
    if (r.is_root) return fail(kErrorAccessDenied);
    struct stat st;
    if (fstatat(r.dir.get(), r.leaf.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return fail_errno();
    if (!S_ISDIR(st.st_mode)) return fail(kErrorDirectory);
    if (unlinkat(r.dir.get(), r.leaf.c_str(), AT_REMOVEDIR) != 0)
        return fail(errno == EEXIST ? kErrorDirNotEmpty : win32_from_errno(errno));
    return true;
}

// A directory's entries as they are: a link is listed with what it leads
// to inside the root (a dangling one as itself).
bool list_directory(std::u16string_view name, std::vector<FileInfo>& entries) {
    entries.clear();
    ResolvedName r;
    if (!resolve_device_name(name, r)) return false;
    if (!r.exists) return fail(kErrorPathNotFound);
    int fd = open_resolved(r, O_RDONLY | O_DIRECTORY);
    if (fd < 0) return fail(errno == ENOTDIR ? kErrorDirectory : win32_from_resolve_errno(errno));
    DIR* d = fdopendir(fd);
    if (!d) {
        close(fd);
        return fail_errno();
    }
    std::vector<std::string> names;
    while (dirent* e = readdir(d)) {
        std::string_view n(e->d_name);
        if (n != "." && n != "..") names.emplace_back(n);
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    for (const std::string& n : names) {
        FileInfo info;
        if (!host::info_beneath(r.root.get(), r.rel + "/" + n, n, info)) {
            Fd dir(open_resolved(r, O_PATH | O_DIRECTORY));
            if (!dir || !host::info_at(dir.get(), n.c_str(), info)) continue;
        }
        info.name = from_utf8(n);
        entries.push_back(std::move(info));
    }
    return true;
}

} // namespace kp::platform
