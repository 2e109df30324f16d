// ini.h - the INI engine: INIRead and INIWrite over IXStream.
//
// An INI file is ANSI text (the host's ANSI code page) made of lines ended
// by CR LF; a lone CR or LF is part of a line.  A line that begins with "["
// and holds "]" is a section header, a line "key=value" belongs to the
// section above it, a line whose first character is ";" is a comment.
// Lines before the first header belong to no section and are never found.
//
// The reader and the writer match differently, on purpose:
//   - the reader trims each line (blanks and tabs at both ends: the only
//     characters trimmed) and compares headers and keys without regard to
//     case (ASCII letters; in code page 1252 its accented letters too);
//   - the writer compares the raw line, with regard to case, and writes
//     its own forms "[%s]\r\n" and "%s = %s\r\n" (one blank each side of
//     "="), whatever spacing the file used.
// A key matches a line that starts with it, is longer than it, and whose
// next character is neither a letter nor a digit: "key=", "key =" and
// "key\t=" are lines of "key", "key2=" and "keys=" are not.
//
// Deleting a section removes its header line with the lines under it, up
// to the next header or the end of the file.  Deleting a key of a missing
// section leaves the new, empty header behind; text appended to a file
// whose last line has no CR LF runs on after that line.
//
// Host strings reach the engine as C strings: the text after a NUL
// character is not part of them.
//
// Concurrency: INIWrite holds an exclusive whole-file lock from its first
// read to its last write and INIRead a shared one, so several processes
// that write one file lose nothing and a reader never sees a
// half-rewritten file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "component/error.h"
#include "files/stream.h"

namespace kp::files::ini {

// Error identifiers.
constexpr uint32_t kErrIntegerArgument = 80290; // a non-zero integer for a key or a value
constexpr uint32_t kErrFile = 80294;            // an explicit file that cannot be opened or written

// The file used when a call names none.
inline constexpr char16_t kDefaultFile[] = u"\\Windows\\win.ini";
// Characters of an INIRead result (the cut happens before the NUL
// replacement, which may lengthen it).
constexpr std::size_t kReadMax = 8191;
// Bytes the line reader asks for at a time.
constexpr uint32_t kLineBlock = 80;

// Reads the line at the stream's position: its bytes up to the first CR LF
// (without it) into `line`, read in blocks of kLineBlock bytes, and leaves
// the position just after the CR LF.  Lines have no length limit.  Returns
// the bytes the line took in the file (CR LF included), kEnd when no byte
// remains, kReadFailed when the stream failed.
constexpr int64_t kEnd = -1;
constexpr int64_t kReadFailed = -2;
int64_t read_line(IXStream& s, std::string& line);

// A host string as the engine takes it: up to its first NUL, in ANSI bytes
// of `codepage`; and ANSI bytes back to UTF-16.
std::string to_ansi(std::u16string_view text, uint32_t codepage);
std::u16string from_ansi(std::string_view bytes, uint32_t codepage);
// Every NUL character of a result becomes CR LF.
std::u16string nul_to_crlf(std::u16string text);

// Text of the engine: ANSI bytes, or absent (null).
using Text = const std::string*;

// INIRead on an open stream, from its beginning: with no section the
// section names, with no key the section's keys (each followed by CR LF),
// else the key's value.  The result is cut at `max` bytes.  False when
// nothing is found (an empty list included).
bool read_profile(IXStream& s, Text section, Text key, std::size_t max, uint32_t codepage, std::string& out);

// INIWrite on an open stream (read and write access): sets the key, deletes
// it (no value), or deletes the section (no key).  False when the stream
// failed (its recorded error tells why); the file is then as it was.
bool write_profile(IXStream& s, std::string_view section, Text key, Text value, uint32_t codepage);

// The same on a file by device name, opened as the functions open it and
// locked for the call.  read_file: false when the file cannot be opened or
// nothing is found.  write_file: false with the system error in *error.
bool read_file(std::u16string_view file, Text section, Text key, std::size_t max, uint32_t codepage,
               std::string& out);
bool write_file(std::u16string_view file, std::string_view section, Text key, Text value, uint32_t codepage,
                uint32_t* error);

// INIRead: the value or list, else `fallback`.  An empty section or key is
// absent; an empty file name is the default file.
std::u16string ini_read(std::u16string_view section, std::u16string_view key, std::u16string_view fallback,
                        std::u16string_view file);
// INIWrite with string arguments (an empty key deletes the section, an
// empty value the key).  `file` empty means the default file, whose
// failures record no error; an explicit file's record 80294.
bool ini_write(std::u16string_view section, std::u16string_view key, std::u16string_view value,
               std::u16string_view file, CXError& err);
} // namespace kp::files::ini
