// regfile.h - registry files in the registry editor's text format: reading
// and writing, without touching the registry (regtool.h applies and
// gathers them).
//
// Two forms:
//   "Windows Registry Editor Version 5.00"  UTF-16LE with its byte-order
//                                           mark; REG_EXPAND_SZ and
//                                           REG_MULTI_SZ data as UTF-16
//   "REGEDIT4"                              ANSI text; REG_EXPAND_SZ and
//                                           REG_MULTI_SZ data as ANSI bytes
// A file is a header line, then blocks: "[KEY]" (created) or "[-KEY]"
// (deleted with its subtree), followed by the key's values:
//   "name"="text"        REG_SZ (\\ and \" escape a backslash and a quote)
//   @=...                the key's default value
//   "name"=dword:1a2b    REG_DWORD (one to eight hex digits)
//   "name"=hex:01,02     REG_BINARY; hex(N): any type N (hexadecimal),
//                        hex(2) expand string, hex(7) multi-string,
//                        hex(b) 64-bit number, hex(0) no type
//   "name"=-             the value is deleted
// A hex list goes on over the next lines after a trailing backslash;
// lines starting with ';' are comments.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kp::registry::regfile {

struct Value {
    std::u16string name; // empty: the default value
    bool remove = false;
    uint32_t type = 0;
    std::vector<uint8_t> data; // as stored in the registry (UTF-16 text)
    bool operator==(const Value&) const = default;
};

struct Key {
    std::u16string path; // root name first, as written in the file
    bool remove = false;
    std::vector<Value> values;
    bool operator==(const Key&) const = default;
};

struct Document {
    bool regedit4 = false;
    std::vector<Key> keys;
    bool operator==(const Document&) const = default;
};

struct Problem {
    std::size_t line; // 1-based
    std::string message;
};

// Reads a file (UTF-16LE with BOM, UTF-8 with or without BOM, or ANSI text
// in `codepage`).  False with every bad line in `problems` when any line
// does not parse; the document is then not to be applied.
bool parse(std::span<const uint8_t> file, Document& out, std::vector<Problem>& problems,
           uint32_t codepage = 1252);

// Writes a document in the form `doc.regedit4` chooses.  Values and keys a
// file cannot hold (a line end in a name) are left out and listed in
// `skipped`.  In the REGEDIT4 form, string characters outside the code page
// are kept by writing the value as hex(1) (raw UTF-16); those of expand and
// multi strings become '?', as the form has no other way to hold them.
std::vector<uint8_t> write(const Document& doc, std::vector<std::u16string>* skipped = nullptr,
                           uint32_t codepage = 1252);

// The predefined root a key path starts with (the full root name, any case,
// followed by the end or a backslash), or -1.  0 HKEY_CLASSES_ROOT,
// 1 HKEY_CURRENT_USER, 2 HKEY_LOCAL_MACHINE, 3 HKEY_USERS; `rest` receives
// the subkey path.
int root_of(std::u16string_view path, std::u16string_view* rest = nullptr);

} // namespace kp::registry::regfile
