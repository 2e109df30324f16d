// params.h - saved parameters (InitParameter, SaveParameter, LoadParameter,
// DeleteParameter): named values kept between runs in the registry or in
// an INI file, as InitParameter chose.
//
// A parameter name is a path: "/" and "." read as "\", the part before the
// last "\" is the group, the part after it the name.
//
// Registry mode: a group is the key "<location>\<group>" (the location
// itself for an empty group; a group's leading backslashes are dropped),
// the name a value of it.  The location defaults to "Software\<project>"
// under HKEY_CURRENT_USER, <project> being the name the host gives for its
// project; a location that starts with "HKEY_CURRENT_USER\" or
// "HKEY_LOCAL_MACHINE\" (any case) is under that root, any other under
// HKEY_CURRENT_USER.  Saving and deleting create the location key when it
// is missing; loading never creates anything.
//
// INI mode: the file is the location, by default "\<project>.ini" at the
// root of the device; a group is a section (its leading backslash dropped,
// "\", blank, "-" and tab made "_"; "Global" for an empty group), the name
// a key.  Values are escaped ("\\", "\n", "\r", "\t", "\_" for a blank).
//
// Without a project name from the host, <project> is "Project".
//
// How values are kept:
//   host value       registry                          INI file
//   string           REG_SZ, characters and a NUL      the text, escaped
//   integer          REG_DWORD                         decimal digits
//   8-byte integer   REG_QWORD (11), little-endian     decimal digits
//   boolean          REG_DWORD 1 or 0                  "1" or "0"
//   real             REG_SZ, the shortest decimal text that reads back as
//                    the same number ("0.1", "1e+300", "-0", "inf")
//   buffer           REG_BINARY                        its bytes, escaped
//   other values     REG_SZ of the text the VM converts them to
// LoadParameter gives the value in the registry's type (REG_SZ a string,
// REG_DWORD an integer, REG_QWORD an 8-byte integer, REG_BINARY,
// REG_EXPAND_SZ and REG_MULTI_SZ a buffer) or, from an INI file, a string.
// With a default, the stored value is given in the default's type (boolean,
// integer, 8-byte integer, real, string or buffer) read exactly from what
// was stored, so every such value saved comes back equal; a stored value
// that does not read as that type gives the default.
//
// What INI files cannot hold: text after a NUL character (the engine takes
// C strings; a NUL byte of a buffer is read back as CR LF), characters
// outside the ANSI code page, values of more than 65535 characters, and
// the empty string (writing it deletes the key, so the default comes back).
//
// The store compares before writing: a save that would store what is
// already there writes nothing (no file rewrite, no registry write).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "component/error.h"

namespace kp::files::params {

constexpr int32_t kModeRegistry = 0;
constexpr int32_t kModeIni = 3;

constexpr uint32_t kErrLocation = 80291;   // the registry location cannot be created
constexpr uint32_t kErrValueWrite = 80293; // a registry value cannot be written
constexpr uint32_t kErrMode = 80700;
constexpr uint32_t kErrEmptyName = 80800;

inline constexpr char16_t kCompareSentinel[] = u"****DEFAULT****";
inline constexpr char16_t kMissingSentinel[] = u"***(NULL/VALEURNONRESEIGNEE)***";
constexpr uint32_t kRegQword = 11;

// A value as the store handles it.
struct Param {
    enum class Kind { None, Bool, Int, Int64, Real, Text, Bytes };
    Kind kind = Kind::None;
    int64_t i = 0; // Bool, Int, Int64
    double r = 0;
    std::u16string text;
    std::vector<uint8_t> bytes;

    static Param none() { return {}; }
    static Param boolean(bool b) { return {Kind::Bool, b ? 1 : 0, 0, {}, {}}; }
    static Param integer(int32_t v) { return {Kind::Int, v, 0, {}, {}}; }
    static Param int64(int64_t v) { return {Kind::Int64, v, 0, {}, {}}; }
    static Param real(double v) { return {Kind::Real, 0, v, {}, {}}; }
    static Param string(std::u16string_view s) { return {Kind::Text, 0, 0, std::u16string(s), {}}; }
    static Param buffer(std::vector<uint8_t> b) { return {Kind::Bytes, 0, 0, {}, std::move(b)}; }
    bool operator==(const Param&) const = default;
};

// --- Pure rules ---------------------------------------------------------------

struct ParamPath {
    std::u16string group; // "" when the name has no "\"
    std::u16string name;
};
ParamPath split_path(std::u16string_view name);
std::u16string escape(std::u16string_view text);
std::u16string unescape(std::u16string_view text);
std::string escape_bytes(std::string_view bytes);
std::string unescape_bytes(std::string_view bytes);
std::u16string section_of(std::u16string_view group);
// The shortest decimal text that reads back as `v`.
std::u16string real_text(double v);
// The value read in the kind of `like` (Bool, Int, Int64, Real, Text or
// Bytes); false when it does not read as that kind.  Other kinds of `like`
// leave the value as it is.
bool convert_to(const Param& value, Param::Kind kind, Param& out);

// --- The store --------------------------------------------------------------------

struct Settings {
    int32_t mode = kModeRegistry;
    std::u16string location;          // "" = the default
    bool compare_before_write = true; // no function of this edition turns it off
};
// The component's parameter store, made on first use.
Settings& settings();

// InitParameter: the previous setting as "<mode>\t<location>", or "" with
// 80700 for a mode other than 0 and 3.
std::u16string init_parameter(int32_t mode, std::u16string_view location, CXError& err);
void save_parameter(std::u16string_view name, const Param& value, CXError& err);
// The stored value; `fallback` (null: the empty string) when there is none.
Param load_parameter(std::u16string_view name, const Param* fallback);
bool delete_parameter(std::u16string_view name, CXError& err);
// DeleteParameter(): the group named after the host's current object.
bool delete_current_object(CXError& err);

// The defaults derived from the host's project name.
std::u16string default_registry_location();
std::u16string default_ini_file();

} // namespace kp::files::params
