// dos_record.h - the value of the extended attribute "user.DOSATTRIB" that
// Samba keeps a file's DOS attributes and creation time in, read and made
// as plain bytes (no file system here).
//
// The value is an NDR record (Samba's published xattr_DOSATTRIB
// description): a NUL-terminated text "0x<hex attributes>", then, aligned
// on 2 from the value's start, the version twice (uint16, the union's
// discriminant repeats it), then the version's structure aligned on 4, all
// little-endian:
//   1: attrib, ea_size (uint32), size, alloc_size, create_time, change_time
//      (uint64)
//   2: flags, attrib, ea_size (uint32), size, alloc_size, create_time,
//      change_time, write_time (uint64), name (NUL-terminated)
//   3: valid_flags, attrib, ea_size (uint32), size, alloc_size, create_time,
//      change_time (uint64)
//   4: valid_flags, attrib (uint32), itime, create_time (uint64)
//   5: valid_flags, attrib (uint32), create_time (uint64)
// valid_flags says which fields hold a value (1 attrib, 0x10 create_time).
// A value that is the text alone is the older form (the version 0xFFFF of
// the description).  Current Samba writes version 5 with an empty text.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kp::platform::host {

struct DosRecord {
    bool has_attributes = false; // the value gives the attributes
    uint32_t attributes = 0;
    bool has_create_time = false; // a creation time (FILETIME units) is kept
    uint64_t create_time = 0;
};

// Reads a value.  The attributes come from the record when its version is
// known, it is complete and says they are valid; otherwise from the text
// when it holds a number; otherwise there are none (has_attributes false):
// a truncated record or one of an unknown version never fails otherwise.
DosRecord parse_dos_record(std::span<const uint8_t> value);

// The value current Samba writes (version 5, empty text) for `attributes`,
// keeping the creation time of `previous` (the parsed value already there).
std::string make_dos_record(uint32_t attributes, const DosRecord& previous);

} // namespace kp::platform::host
