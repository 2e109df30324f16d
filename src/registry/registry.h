// registry.h - the registry functions: reading, writing, listing, searching
// and deleting keys and values named by one key path string.
//
// A key path is a root name, a backslash and the subkey path
// ("HKEY_LOCAL_MACHINE\Software\Vendor").  Every function opens and closes
// the key itself; no key handle is kept between calls.  The functions work
// on the registry store of src/platform/registry_store.h, whose database
// the handlers select from the host's "registry" setting before each call.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "component/error.h"
#include "platform/registry_store.h"

namespace kp::registry {

// --- Key paths --------------------------------------------------------------

struct KeyPath {
    std::u16string_view root_name; // as matched ("HKEY_CLASSES_ROOT" when none matched)
    platform::registry::Key root;  // 0 for the three roots the device does not have
    std::u16string_view subkey;    // without its leading and trailing backslash
};

// Splits a key path into root and subkey.  The root names are tested in a
// fixed order as plain prefixes with regard to case; without one the root
// is HKEY_CLASSES_ROOT and the whole path is the subkey.
KeyPath parse_key_path(std::u16string_view path);

// Opens the key of a path (0 or a Win32 error; 206 for a subkey of more
// than 259 characters, 6 for a root the device does not have).
uint32_t open_path(std::u16string_view path, uint32_t access, platform::registry::Key* out);

// --- Values -----------------------------------------------------------------

// A value named by its name, or by its number: n > 0 is the value the
// enumeration gives at index n - 1, 0 the key's default value.
struct ValueRef {
    bool by_number = false;
    std::u16string_view name;
    int32_t number = 0;
    static ValueRef named(std::u16string_view n) { return {false, n, 0}; }
    static ValueRef numbered(int32_t n) { return {true, {}, n}; }
};

// What RegistryQueryValue hands back.
struct Data {
    enum class Kind { Empty, Text, Integer, Bytes } kind = Kind::Text;
    std::u16string text;
    int32_t integer = 0;
    std::vector<uint8_t> bytes;
    bool operator==(const Data&) const = default;
};

// Registry data as the language sees it (by type: text, integer, bytes,
// the empty string, or an empty value for types it does not know).
Data convert_data(uint32_t type, std::span<const uint8_t> bytes);

// Reads a value; *read (when given) tells whether it could be read.
// Failures give the empty string and report no error.
Data query_value(std::u16string_view key, ValueRef value, bool* read = nullptr);

// Writes a value of `type` with these bytes; the key must exist.  False and
// error 80293 when the key cannot be opened or the value written.
bool set_value(std::u16string_view key, ValueRef value, uint32_t type, std::span<const uint8_t> bytes,
               CXError& err);
// The stored forms of the language's values.
std::vector<uint8_t> string_bytes(std::u16string_view s, bool with_terminator);
std::vector<uint8_t> dword_bytes(int32_t v);
bool set_string(std::u16string_view key, ValueRef value, std::u16string_view s, CXError& err);
bool set_integer(std::u16string_view key, ValueRef value, int32_t v, CXError& err);
bool set_real(std::u16string_view key, ValueRef value, double v, CXError& err);
bool set_currency(std::u16string_view key, ValueRef value, const uint8_t (&cy)[10], CXError& err);
// The bytes at a program's memory address (998 when they cannot be read).
bool set_memory(std::u16string_view key, ValueRef value, uintptr_t address, int32_t size, CXError& err);

bool exists(std::u16string_view key);
bool exists(std::u16string_view key, ValueRef value);
bool delete_value(std::u16string_view key, std::u16string_view name, CXError& err);
std::u16string list_values(std::u16string_view key, bool with_types);

// --- Keys -------------------------------------------------------------------

std::u16string first_subkey(std::u16string_view key);
std::u16string next_key(std::u16string_view key);
bool create_key(std::u16string_view key, CXError& err);
bool delete_key(std::u16string_view key, CXError& err);

// --- Search -----------------------------------------------------------------

inline constexpr int32_t kSeekKey = 1, kSeekValue = 2, kSeekData = 4, kSeekRecursive = 8, kSeekWholeWord = 16;
// Options when the program gives none.
inline constexpr int32_t kSeekDefault = kSeekKey | kSeekValue | kSeekData | kSeekRecursive;

// Whether `text` occurs in `candidate`, both in upper case (as whole words
// with kSeekWholeWord).
bool seek_matches(std::u16string_view candidate, std::u16string_view text, bool whole_word);
std::u16string seek(std::u16string_view key, std::u16string_view text, int32_t options);

} // namespace kp::registry
