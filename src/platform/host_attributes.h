// host_attributes.h - how a host file's Win32 attributes and times are
// kept, shared by the Unix file and directory services (not for families).
//
// Attributes POSIX has no bit for (hidden, system, archive) live in the
// extended attribute "user.DOSATTRIB", the record Samba keeps them in
// (dos_record.h: every version is read, the one current Samba writes is
// written), so that files it serves keep them.  A file without it reads as
// Samba's "map archive" (its default for shares that store no DOS
// attributes) shows it: archive when the owner may execute it (directories:
// never).  A name beginning with "." always reads as hidden, read-only is
// the absence of every write permission bit, compressed comes from the file
// system's own flag, and an entry with no other bit reads as normal (0x80).
//
// Times: modification and access times with nanoseconds; the creation time
// is the birth time where the file system records one (statx), else the
// modification time.
#pragma once

#include <cstdint>
#include <string>
#include <sys/stat.h>

#include "platform/files.h"

namespace kp::platform::host {

constexpr const char* kDosAttributeName = "user.DOSATTRIB";
// The bits kept in user.DOSATTRIB.
constexpr uint32_t kDosKeptBits = kAttributeHidden | kAttributeSystem | kAttributeArchive;

uint64_t filetime_of(const struct timespec& ts);
struct timespec timespec_of(uint64_t filetime);
bool is_read_only(mode_t mode);

// The stored DOS bits of a host path: true with *bits when the extended
// attribute is there and readable, false when there is none.
bool read_dos_bits(const std::string& path, uint32_t* bits);
// Stores the DOS bits (only kDosKeptBits), keeping the creation time and the
// other attributes of a record already there; false with the mapped Win32
// code as last error when the file system refuses.
bool write_dos_bits(const std::string& path, uint32_t bits);

// Everything a FileInfo holds (but its name) for `name` under the directory
// `dirfd` (AT_FDCWD with a full path), whose full host path is
// `full_path`; `follow` follows a final symbolic link.  False with the
// mapped error.
bool info_at(int dirfd, const char* name, const std::string& full_path, bool follow, FileInfo& info);

} // namespace kp::platform::host
