// attributes_unix.cpp - Win32 attributes and times of host files: statx,
// the user.DOSATTRIB extended attribute and the file system's flags.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <vector>

#include "platform/dos_record.h"
#include "platform/host_attributes.h"
#include "platform/win32_error.h"

namespace kp::platform::host {

namespace {
constexpr int64_t kEpochDelta = 11644473600LL; // seconds from 1601 to 1970

bool base_name_hidden(const std::string& path) {
    std::size_t cut = path.rfind('/');
    std::string_view base =
        cut == std::string::npos ? std::string_view(path) : std::string_view(path).substr(cut + 1);
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

// The whole value of user.DOSATTRIB, whatever its length (a value that
// grows between the two calls is asked for again).  False when there is
// none.
bool read_dos_value(const std::string& path, std::vector<uint8_t>& value) {
    for (int attempt = 0; attempt < 4; ++attempt) {
        const ssize_t size = getxattr(path.c_str(), kDosAttributeName, nullptr, 0);
        if (size <= 0) return false;
        value.resize(static_cast<std::size_t>(size));
        const ssize_t n = getxattr(path.c_str(), kDosAttributeName, value.data(), value.size());
        if (n >= 0) {
            value.resize(static_cast<std::size_t>(n));
            return true;
        }
        if (errno != ERANGE) return false;
    }
    return false;
}

} // namespace

bool read_dos_bits(const std::string& path, uint32_t* bits) {
    std::vector<uint8_t> value;
    if (!read_dos_value(path, value)) return false;
    const DosRecord record = parse_dos_record(value);
    if (!record.has_attributes) return false;
    *bits = record.attributes;
    return true;
}

bool write_dos_bits(const std::string& path, uint32_t bits) {
    // The record already there keeps its creation time and the attributes
    // this side does not keep (read-only excepted: the permission bits say
    // it).
    std::vector<uint8_t> value;
    DosRecord previous;
    if (read_dos_value(path, value)) previous = parse_dos_record(value);
    uint32_t attributes = bits & kDosKeptBits;
    if (previous.has_attributes) attributes |= previous.attributes & ~(kDosKeptBits | kAttributeReadOnly);
    const std::string record = make_dos_record(attributes, previous);
    if (setxattr(path.c_str(), kDosAttributeName, record.data(), record.size(), 0) != 0) {
        set_last_error(errno == ENOTSUP ? kErrorNotSupported : win32_from_errno(errno));
        return false;
    }
    return true;
}

bool info_at(int dirfd, const char* name, const std::string& full_path, bool follow, FileInfo& info) {
    struct statx sx;
    int flags = AT_STATX_SYNC_AS_STAT | (follow ? 0 : AT_SYMLINK_NOFOLLOW);
    if (statx(dirfd, name, flags, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0) {
        set_last_error_from_errno();
        return false;
    }
    const bool dir = S_ISDIR(sx.stx_mode);
    uint32_t a = dir ? kAttributeDirectory : 0;
    uint32_t kept = 0;
    if (read_dos_bits(full_path, &kept))
        a |= kept & kDosKeptBits;
    else if (!dir && (sx.stx_mode & S_IXUSR))
        a |= kAttributeArchive; // Samba's "map archive": the owner's execute bit
    if (!dir && is_read_only(sx.stx_mode)) a |= kAttributeReadOnly;
    if (base_name_hidden(full_path)) a |= kAttributeHidden;
    if (sx.stx_attributes_mask & STATX_ATTR_COMPRESSED && sx.stx_attributes & STATX_ATTR_COMPRESSED)
        a |= kAttributeCompressed;
    if (a == 0) a = kAttributeNormal;
    info.attributes = a;
    info.size = dir ? 0 : sx.stx_size;
    info.write_time = filetime_of_statx(sx.stx_mtime);
    info.access_time = filetime_of_statx(sx.stx_atime);
    info.creation_time = (sx.stx_mask & STATX_BTIME) ? filetime_of_statx(sx.stx_btime) : info.write_time;
    return true;
}

} // namespace kp::platform::host
