// registry_store.h - the device registry, with the semantics and the Win32
// error codes of the system's registry calls (RegCreateKeyExW,
// RegOpenKeyExW, RegQueryValueExW, RegSetValueExW, RegEnumKeyExW,
// RegEnumValueW, RegQueryInfoKeyW, RegDeleteKeyW, RegDeleteValueW,
// RegCloseKey).  The registry family and the saved parameters reach the
// registry only through these calls; the store behind them is one SQLite
// database file (the host's "registry" setting), implemented in
// registry_sqlite.cpp.
//
// Every call returns a Win32 error code: 0 on success, 2 (not found), 5
// (access denied), 6 (invalid handle), 87 (invalid parameter), 234 (more
// data: the buffer is too short, *size tells the size needed), 259 (no more
// items), 1010 (bad key), 1018 (key marked for deletion) ...
// The database file adds its own: 5 (a read-only file written), 170 (busy:
// another process held the file past the busy timeout), 1009 (not a
// registry database: not SQLite, another program's database, or a later
// schema version; such a file is never written), 1011/1012/1013 (the file
// cannot be opened, read or written), 112 (disk full).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kp::platform::registry {

// An open key: a predefined root or a handle returned by create_key/open_key.
using Key = uintptr_t;

inline constexpr Key kClassesRoot = 0x80000000u;
inline constexpr Key kCurrentUser = 0x80000001u;
inline constexpr Key kLocalMachine = 0x80000002u;
inline constexpr Key kUsers = 0x80000003u;

// Access rights of open_key/create_key.
inline constexpr uint32_t kQueryValue = 0x0001;
inline constexpr uint32_t kSetValue = 0x0002;
inline constexpr uint32_t kCreateSubKey = 0x0004;
inline constexpr uint32_t kEnumerateSubKeys = 0x0008;
inline constexpr uint32_t kRead = 0x20019;
inline constexpr uint32_t kWrite = 0x20006;
inline constexpr uint32_t kAllAccess = 0xF003F;

// Value types.
inline constexpr uint32_t kNone = 0, kSz = 1, kExpandSz = 2, kBinary = 3, kDword = 4, kDwordBigEndian = 5, kLink = 6,
                          kMultiSz = 7, kResourceList = 8;

// Dispositions reported by create_key.
inline constexpr uint32_t kCreatedNewKey = 1, kOpenedExistingKey = 2;

// The database file the calls work on, given by the component from the
// host's "registry" setting before the first call (and again when it
// changes).  Without one every call fails with 1010 (bad key).
void use_database(std::string_view path);

struct KeyInfo {
    uint32_t subkeys = 0;
    uint32_t max_subkey_len = 0; // characters, terminator excluded
    uint32_t values = 0;
    uint32_t max_value_name_len = 0;
    uint32_t max_value_len = 0; // bytes
};

// Creates the key (and every missing level) or opens it when it exists.
uint32_t create_key(Key parent, std::u16string_view subkey, uint32_t access, Key* out,
                    uint32_t* disposition = nullptr);
uint32_t open_key(Key parent, std::u16string_view subkey, uint32_t access, Key* out);
uint32_t close_key(Key key);

// Reads a value: with data null, only *type and *size (bytes); otherwise
// *size is the buffer's size in bytes on entry and the data's on return
// (234 when the buffer is too short).  An empty name is the default value.
uint32_t query_value(Key key, std::u16string_view name, uint32_t* type, uint8_t* data, uint32_t* size);
uint32_t set_value(Key key, std::u16string_view name, uint32_t type, const uint8_t* data, uint32_t size);

// Subkey and value at `index`, in the store's enumeration order (subkeys in
// case-insensitive name order, values in the order they were first
// written).  *name_chars is the name buffer's size in characters
// (terminator included) on entry and the name's length on return; 234 when
// the name does not fit, 259 past the last one.  For enum_value, data and
// size follow query_value's rules (data may be null).
uint32_t enum_key(Key key, uint32_t index, char16_t* name, uint32_t* name_chars);
uint32_t enum_value(Key key, uint32_t index, char16_t* name, uint32_t* name_chars, uint32_t* type, uint8_t* data,
                    uint32_t* size);
uint32_t query_info_key(Key key, KeyInfo* info);

// Deletes a key that has no subkeys (5 when it still has some).
uint32_t delete_key(Key parent, std::u16string_view subkey);
uint32_t delete_value(Key key, std::u16string_view name);

// The subkey that follows the one named `name` (spelled exactly so, case
// included) in enumeration order: 2 when no subkey is spelled so, 259 when
// it is the last; the name buffer as enum_key's.  One lookup, where a walk
// by index would count from the first subkey.
uint32_t enum_key_after(Key key, std::u16string_view name, char16_t* next, uint32_t* next_chars);

// How long a write waits for another process's write before it fails with
// 170 (busy); 5000 ms unless set.
void set_busy_timeout(uint32_t milliseconds);

// Makes the calls of this thread between begin_batch and end_batch one
// transaction (a tool importing a file writes all of it or nothing).  Other
// threads wait until the batch ends.  end_batch(false) undoes the batch.
// Batches nest; the outermost end decides.
uint32_t begin_batch();
uint32_t end_batch(bool commit);

} // namespace kp::platform::registry
