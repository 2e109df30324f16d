// attributes_unix.cpp - Win32 attributes and times of host files: statx,
// the user.DOSATTRIB extended attribute and the file system's flags.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <vector>

#include "platform/dos_record.h"
#include "platform/host_attributes.h"
#include "platform/paths.h"
#include "platform/win32_error.h"

namespace kp::platform::host {

namespace {
constexpr int64_t kEpochDelta = 11644473600LL; // seconds from 1601 to 1970

bool base_name_hidden(std::string_view base) {
    return !base.empty() && base.front() == '.' && base != "." && base != "..";
}

uint64_t filetime_of_statx(const struct statx_timestamp& t) {
    struct timespec ts;
    ts.tv_sec = static_cast<time_t>(t.tv_sec);
    ts.tv_nsec = static_cast<long>(t.tv_nsec);
    return filetime_of(ts);
}
} // namespace

uint64_t filetime_of(const struct timespec& ts) {
    int64_t secs = static_cast<int64_t>(ts.tv_sec) + kEpochDelta;
    if (secs < 0) return 0;
    return static_cast<uint64_t>(secs) * 10000000ULL + static_cast<uint64_t>(ts.tv_nsec) / 100;
}

struct timespec timespec_of(uint64_t filetime) {
    struct timespec ts;
    ts.tv_sec = static_cast<time_t>(static_cast<int64_t>(filetime / 10000000ULL) - kEpochDelta);
    ts.tv_nsec = static_cast<long>((filetime % 10000000ULL) * 100);
    return ts;
}

bool is_read_only(mode_t mode) {
    return (mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

namespace {

// The whole value of user.DOSATTRIB of the open file `fd`, whatever its
// length (a value that grows between the two calls is asked for again).
// False when there is none.
bool read_dos_value(int fd, std::vector<uint8_t>& value) {
    for (int attempt = 0; attempt < 4; ++attempt) {
        const ssize_t size = fgetxattr(fd, kDosAttributeName, nullptr, 0);
        if (size <= 0) return false;
        value.resize(static_cast<std::size_t>(size));
        const ssize_t n = fgetxattr(fd, kDosAttributeName, value.data(), value.size());
        if (n >= 0) {
            value.resize(static_cast<std::size_t>(n));
            return true;
        }
        if (errno != ERANGE) return false;
    }
    return false;
}

} // namespace

bool read_dos_bits(int fd, uint32_t* bits) {
    std::vector<uint8_t> value;
    if (!read_dos_value(fd, value)) return false;
    const DosRecord record = parse_dos_record(value);
    if (!record.has_attributes) return false;
    *bits = record.attributes;
    return true;
}

bool write_dos_bits(int fd, uint32_t bits) {
    // The record already there keeps its creation time and the attributes
    // this side does not keep (read-only excepted: the permission bits say
    // it).
    std::vector<uint8_t> value;
    DosRecord previous;
    if (read_dos_value(fd, value)) previous = parse_dos_record(value);
    uint32_t attributes = bits & kDosKeptBits;
    if (previous.has_attributes) attributes |= previous.attributes & ~(kDosKeptBits | kAttributeReadOnly);
    const std::string record = make_dos_record(attributes, previous);
    if (fsetxattr(fd, kDosAttributeName, record.data(), record.size(), 0) != 0) {
        set_last_error(errno == ENOTSUP ? kErrorNotSupported : win32_from_errno(errno));
        return false;
    }
    return true;
}

int open_for_attributes(int dirfd, const char* name, mode_t mode) {
    // Extended attributes of the user namespace exist on files and
    // directories only; opening anything else (a serial line, a FIFO) could
    // act on it.
    if (!S_ISREG(mode) && !S_ISDIR(mode)) return -1;
    return openat(dirfd, *name ? name : ".", O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

namespace {
// `fd`, when not -1, is the entry opened for reading, whose stored bits count.
bool info_of(const struct statx& sx, int fd, std::string_view base_name, FileInfo& info) {
    const bool dir = S_ISDIR(sx.stx_mode);
    uint32_t a = dir ? kAttributeDirectory : 0;
    DosRecord record;
    std::vector<uint8_t> value;
    if (fd >= 0 && read_dos_value(fd, value)) record = parse_dos_record(value);
    if (record.has_attributes)
        a |= record.attributes & kDosKeptBits;
    else if (!dir && (sx.stx_mode & S_IXUSR))
        a |= kAttributeArchive; // Samba's "map archive": the owner's execute bit
    if (!dir && is_read_only(sx.stx_mode)) a |= kAttributeReadOnly;
    if (base_name_hidden(base_name)) a |= kAttributeHidden;
    if (sx.stx_attributes_mask & STATX_ATTR_COMPRESSED && sx.stx_attributes & STATX_ATTR_COMPRESSED)
        a |= kAttributeCompressed;
    if (a == 0) a = kAttributeNormal;
    info.attributes = a;
    info.size = dir ? 0 : sx.stx_size;
    info.write_time = filetime_of_statx(sx.stx_mtime);
    info.access_time = filetime_of_statx(sx.stx_atime);
    // The creation time Samba keeps (a time of 0 is none, as for Samba)
    // comes before the file system's.
    if (record.has_create_time && record.create_time != 0)
        info.creation_time = record.create_time;
    else
        info.creation_time = (sx.stx_mask & STATX_BTIME) ? filetime_of_statx(sx.stx_btime) : info.write_time;
    return true;
}
} // namespace

bool info_at(int dirfd, const char* name, FileInfo& info) {
    struct statx sx;
    if (statx(dirfd, name, AT_STATX_SYNC_AS_STAT | AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME,
              &sx) != 0) {
        set_last_error_from_errno();
        return false;
    }
    int fd = open_for_attributes(dirfd, name, sx.stx_mode);
    info_of(sx, fd, name, info);
    if (fd >= 0) close(fd);
    return true;
}

bool info_beneath(int root_fd, const std::string& rel, std::string_view base_name, FileInfo& info) {
    int fd = open_beneath(root_fd, rel, O_PATH);
    if (fd < 0) {
        set_last_error(win32_from_resolve_errno(errno));
        return false;
    }
    struct statx sx;
    if (statx(fd, "", AT_EMPTY_PATH | AT_STATX_SYNC_AS_STAT, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0) {
        set_last_error_from_errno();
        close(fd);
        return false;
    }
    close(fd);
    // The stored bits need the entry open for reading (a descriptor of
    // O_PATH has no extended attributes): one that cannot be read has none.
    fd = S_ISREG(sx.stx_mode) || S_ISDIR(sx.stx_mode)
             ? open_beneath(root_fd, rel, O_RDONLY | O_NONBLOCK | O_NOCTTY)
             : -1;
    info_of(sx, fd, base_name, info);
    if (fd >= 0) close(fd);
    return true;
}

} // namespace kp::platform::host
