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
// is the one user.DOSATTRIB keeps when its record has one (not 0), else the
// birth time where the file system records one (statx), else the
// modification time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/stat.h>

#include "platform/files.h"

namespace kp::platform::host {

constexpr const char* kDosAttributeName = "user.DOSATTRIB";
// The bits kept in user.DOSATTRIB.
constexpr uint32_t kDosKeptBits = kAttributeHidden | kAttributeSystem | kAttributeArchive;

uint64_t filetime_of(const struct timespec& ts);
struct timespec timespec_of(uint64_t filetime);
bool is_read_only(mode_t mode);

// The stored DOS bits of a file or directory open for reading (not O_PATH):
// true with *bits when the extended attribute is there and readable, false
// when there is none.
bool read_dos_bits(int fd, uint32_t* bits);
// Stores the DOS bits (only kDosKeptBits), keeping the creation time and the
// other attributes of a record already there; false with the mapped Win32
// code as last error when the file system refuses.
bool write_dos_bits(int fd, uint32_t bits);
// Opens the entry `name` of `dirfd` ("" for `dirfd` itself), of type `mode`,
// for its extended attributes, without following a link: -1 for what has
// none (links, devices, FIFOs) or cannot be read.
int open_for_attributes(int dirfd, const char* name, mode_t mode);

// Everything a FileInfo holds (but its name) for the entry `name` of the
// directory `dirfd` itself (a link is not followed).  False with the
// mapped error.
bool info_at(int dirfd, const char* name, FileInfo& info);
// The same for `rel` beneath the device root `root_fd`, links followed
// inside the root; `base_name` is the name the entry is known by (a name
// beginning with "." reads as hidden).
bool info_beneath(int root_fd, const std::string& rel, std::string_view base_name, FileInfo& info);

} // namespace kp::platform::host
