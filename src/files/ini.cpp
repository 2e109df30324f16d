// ini.cpp - the INI engine: line reader, reader, writer and the tail-moving
// rewrite.
#include "files/ini.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "files/streams.h"
#include "platform/codepage.h"
#include "platform/paths.h"
#include "platform/win32_error.h"

namespace kp::files::ini {

namespace {

constexpr char kCR = '\r', kLF = '\n';

// --- Characters ----------------------------------------------------------------

// Case folding of one byte: ASCII letters, and in code page 1252 the
// accented capitals (À-Þ but ×) and Š, Œ, Ž, Ÿ.
uint8_t fold(uint8_t c, uint32_t cp) {
    if (c >= 'A' && c <= 'Z') return static_cast<uint8_t>(c + 32);
    if (cp != platform::kCodePage1252 || c < 0x80) return c;
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return static_cast<uint8_t>(c + 0x20);
    switch (c) {
    case 0x8A:
    case 0x8C:
    case 0x8E:
        return static_cast<uint8_t>(c + 0x10);
    case 0x9F:
        return 0xFF;
    default:
        return c;
    }
}

// Letters and digits: ASCII, and in code page 1252 its letters.
bool is_alnum(uint8_t c, uint32_t cp) {
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) return true;
    if (cp != platform::kCodePage1252 || c < 0x80) return false;
    switch (c) {
    case 0x83:
    case 0x8A:
    case 0x8C:
    case 0x8E:
    case 0x9A:
    case 0x9C:
    case 0x9E:
    case 0x9F:
    case 0xAA:
    case 0xB5:
    case 0xBA:
        return true;
    default:
        return c >= 0xC0 && c != 0xD7 && c != 0xF7;
    }
}

bool same_ignoring_case(std::string_view a, std::string_view b, uint32_t cp) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i] && fold(static_cast<uint8_t>(a[i]), cp) != fold(static_cast<uint8_t>(b[i]), cp))
            return false;
    return true;
}

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view trim(std::string_view s) {
    std::size_t b = 0, e = s.size();
    while (b < e && is_blank(s[b]))
        ++b;
    while (e > b && is_blank(s[e - 1]))
        --e;
    return s.substr(b, e - b);
}

// A header as the reader sees it (a trimmed line).
bool is_header(std::string_view trimmed) {
    return !trimmed.empty() && trimmed[0] == '[' && trimmed.find(']') != std::string_view::npos;
}

// The key rule shared by reader and writer (each with its own comparison):
// the line starts with the key, is longer, and goes on with neither a
// letter nor a digit.
bool key_line(std::string_view line, std::string_view key, bool ignore_case, uint32_t cp) {
    if (line.size() <= key.size()) return false;
    std::string_view head = line.substr(0, key.size());
    if (ignore_case ? !same_ignoring_case(head, key, cp) : head != key) return false;
    return !is_alnum(static_cast<uint8_t>(line[key.size()]), cp);
}

std::string bracketed(std::string_view section) {
    std::string h;
    h.reserve(section.size() + 2);
    h.push_back('[');
    h.append(section);
    h.push_back(']');
    return h;
}

// --- Rewriting -------------------------------------------------------------------

// Writes `count` bytes at `position` in pieces a single write can take.
bool write_all(IXStream& s, uint64_t position, const char* data, std::size_t count) {
    while (count > 0) {
        uint32_t n = static_cast<uint32_t>(std::min<std::size_t>(count, 0x40000000u));
        if (!s.WriteAt(position, data, n)) return false;
        position += n;
        data += n;
        count -= n;
    }
    return true;
}

bool read_all(IXStream& s, uint64_t position, char* data, std::size_t count) {
    while (count > 0) {
        uint32_t n = static_cast<uint32_t>(std::min<std::size_t>(count, 0x40000000u));
        if (!s.ReadAt(position, data, n)) return false; // exact: a short read fails
        position += n;
        data += n;
        count -= n;
    }
    return true;
}

// Replaces the bytes [start, end) of the file by `text`: the tail from `end`
// is read into memory, and `text` followed by the tail is written from
// `start`; the file is cut where that ends.
//
// The order keeps the file whole when a write is refused for lack of room
// (a full disk, the file-size limit): the one step that can fail that way is
// growing the file, so it comes first.
//   - Growing: the bytes that land past the old end are written first.  If
//     that fails, the file is cut back to its old length, untouched.  After
//     it, every other write lies inside the file.
//   - Not growing: the last byte to be written is first written again with
//     its present value; a limit that refuses the highest offset refuses it
//     there, before anything changed.  Then the new bytes, then the cut.
bool replace_range(IXStream& s, uint64_t start, uint64_t end, std::string_view text) {
    int64_t length = s.GetLength();
    if (length < 0) return false;
    const uint64_t old_length = static_cast<uint64_t>(length);
    if (end > old_length) end = old_length;
    if (start > end) start = end;
    // The text and the rest of the file after it are held in memory: their
    // size is summed in 64 bits and must fit a size_t (a file of several GB
    // in a 32-bit process does not).
    const uint64_t tail = old_length - end;
    std::string data;
    if (tail > std::numeric_limits<std::size_t>::max() - text.size() ||
        text.size() + tail > data.max_size()) {
        platform::set_last_error(platform::kErrorNotEnoughMemory);
        return false;
    }
    const std::size_t total = text.size() + static_cast<std::size_t>(tail);
    try {
        data.reserve(total);
        data.append(text);
        data.resize(total);
    } catch (const std::exception&) {
        platform::set_last_error(platform::kErrorNotEnoughMemory);
        return false;
    }
    if (!read_all(s, end, data.data() + text.size(), static_cast<std::size_t>(tail))) return false;
    const uint64_t new_length = start + data.size();
    if (new_length > old_length) {
        const std::size_t inside = static_cast<std::size_t>(old_length - start);
        if (!write_all(s, old_length, data.data() + inside, data.size() - inside)) {
            uint32_t code = s.GetLastError();
            s.SetLength(static_cast<int64_t>(old_length), 0);
            platform::set_last_error(code);
            return false;
        }
        return write_all(s, start, data.data(), inside);
    }
    if (new_length > start) {
        char last = 0;
        if (!s.ReadAt(new_length - 1, &last, 1) || !s.WriteAt(new_length - 1, &last, 1)) return false;
    }
    if (!write_all(s, start, data.data(), data.size())) return false;
    if (new_length == old_length) return true;
    return s.SetLength(static_cast<int64_t>(new_length), 0);
}

std::string key_line_text(std::string_view key, std::string_view value) {
    std::string line;
    line.reserve(key.size() + value.size() + 5);
    line.append(key);
    line.append(" = ");
    line.append(value);
    line.append("\r\n");
    return line;
}

// Opens `file` as the engine does and takes the whole-file lock.
bool open_locked(IXStream& s, std::u16string_view file, bool for_write, uint32_t cp) {
    if (!platform::is_absolute_device_name(file)) {
        platform::set_last_error(platform::kErrorPathNotFound);
        return false;
    }
    const uint32_t share = platform::kShareRead | platform::kShareWrite;
    bool ok = for_write ? s.Open(file, platform::kGenericRead | platform::kGenericWrite, share,
                                 platform::kOpenAlways, platform::kFlagRandomAccess)
                        : s.Open(file, platform::kGenericRead, share, platform::kOpenExisting,
                                 platform::kFlagRandomAccess);
    if (!ok) return false;
    s.set_codepage(cp);
    if (!platform::lock_whole_file(s.handle(), for_write)) {
        // A reader goes on unlocked where the file system cannot lock; a
        // writer never rewrites a file it could not lock.
        if (for_write) return false;
    }
    return true;
}

} // namespace

// --- Names and conversions ---------------------------------------------------------

std::string to_ansi(std::u16string_view text, uint32_t cp) {
    std::size_t nul = text.find(u'\0');
    if (nul != std::u16string_view::npos) text = text.substr(0, nul);
    if (cp == platform::kCodePage1252) return platform::encode_1252(text);
    std::string out;
    if (!platform::encode(cp, text, out)) out = platform::encode_1252(text);
    return out;
}

std::u16string from_ansi(std::string_view bytes, uint32_t cp) {
    std::span<const uint8_t> b(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    if (cp == platform::kCodePage1252) return platform::decode_1252(b);
    std::u16string out;
    if (!platform::decode(cp, b, out)) out = platform::decode_1252(b);
    return out;
}

std::u16string nul_to_crlf(std::u16string text) {
    if (text.find(u'\0') == std::u16string::npos) return text;
    std::u16string joined;
    joined.reserve(text.size() + 16);
    for (char16_t c : text) {
        if (c == 0)
            joined.append(u"\r\n");
        else
            joined.push_back(c);
    }
    return joined;
}

// --- Line reader -------------------------------------------------------------------

int64_t read_line(IXStream& s, std::string& line) {
    line.clear();
    const uint64_t start = s.GetPosition();
    char block[kLineBlock];
    for (;;) {
        uint32_t n = 0;
        if (!s.Read(block, kLineBlock, &n)) return kReadFailed;
        if (n == 0) return line.empty() ? kEnd : static_cast<int64_t>(line.size());
        // A CR that ended the previous block may pair with this block's LF.
        const std::size_t from = line.empty() ? 0 : line.size() - 1;
        line.append(block, n);
        const std::size_t at = line.find("\r\n", from, 2);
        if (at != std::string::npos) {
            const std::size_t taken = at + 2;
            const int64_t back = static_cast<int64_t>(line.size() - taken);
            line.resize(at);
            if (back > 0 && s.Seek(-back, platform::kFileCurrent) < 0 &&
                s.Seek(static_cast<int64_t>(start + taken), platform::kFileBegin) < 0)
                return kReadFailed;
            return static_cast<int64_t>(taken);
        }
        if (n < kLineBlock) return static_cast<int64_t>(line.size());
    }
}

// --- Reader --------------------------------------------------------------------------

bool read_profile(IXStream& s, Text section, Text key, std::size_t max, uint32_t cp, std::string& out) {
    out.clear();
    if (s.Seek(0, platform::kFileBegin) < 0) return false;
    std::string raw;
    auto full = [&] { return out.size() >= max; };
    if (!section) {
        while (!full() && read_line(s, raw) >= 0) {
            std::string_view line = trim(raw);
            if (!is_header(line)) continue;
            std::size_t close = line.find(']');
            out.append(line.substr(1, close - 1));
            out.append("\r\n");
        }
        if (out.size() > max) out.resize(max);
        return !out.empty();
    }
    const std::string header = bracketed(*section);
    bool found = false;
    while (read_line(s, raw) >= 0) {
        std::string_view line = trim(raw);
        if (line.size() >= header.size() && same_ignoring_case(line.substr(0, header.size()), header, cp)) {
            found = true;
            break;
        }
    }
    if (!found) return false;
    bool any = false;
    while (!full() && read_line(s, raw) >= 0) {
        std::string_view line = trim(raw);
        if (is_header(line)) break;
        if (line.empty() || line[0] == ';') continue;
        std::size_t eq = line.find('=');
        if (eq == std::string_view::npos) continue;
        if (key) {
            if (!key_line(line, *key, true, cp)) continue;
            std::size_t v = eq + 1;
            while (v < line.size() && is_blank(line[v]))
                ++v;
            out.assign(line.substr(v));
            if (out.size() > max) out.resize(max);
            return true;
        }
        std::string_view name = line.substr(0, eq);
        while (!name.empty() && is_blank(name.back()))
            name.remove_suffix(1);
        out.append(name);
        out.append("\r\n");
        any = true;
    }
    if (out.size() > max) out.resize(max);
    return any;
}

// --- Writer --------------------------------------------------------------------------

bool write_profile(IXStream& s, std::string_view section, Text key, Text value, uint32_t cp) {
    if (s.Seek(0, platform::kFileBegin) < 0) return false;
    const std::string header = bracketed(section);
    std::string line;
    uint64_t header_start = 0;
    bool found = false;
    for (;;) {
        const uint64_t at = s.GetPosition();
        int64_t n = read_line(s, line);
        if (n == kReadFailed) return false;
        if (n == kEnd) break;
        if (line.compare(0, header.size(), header) == 0) {
            header_start = at;
            found = true;
            break;
        }
    }
    if (!found) {
        // A new section goes at the end, right after whatever the last line
        // holds.  Deleting a key of a missing section leaves the new header.
        if (!key) return true;
        std::string text = header + "\r\n";
        if (value) text += key_line_text(*key, *value);
        int64_t length = s.GetLength();
        return length >= 0 &&
               replace_range(s, static_cast<uint64_t>(length), static_cast<uint64_t>(length), text);
    }
    if (key) {
        for (;;) {
            const uint64_t at = s.GetPosition();
            int64_t n = read_line(s, line);
            if (n == kReadFailed) return false;
            if (n == kEnd) {
                if (!value) return true;
                int64_t length = s.GetLength();
                return length >= 0 &&
                       replace_range(s, static_cast<uint64_t>(length), static_cast<uint64_t>(length),
                                     key_line_text(*key, *value));
            }
            if (key_line(line, *key, false, cp))
                return replace_range(s, at, at + static_cast<uint64_t>(n),
                                     value ? key_line_text(*key, *value) : std::string());
            if (!line.empty() && (line[0] == '[' || line[0] == kCR || line[0] == kLF)) {
                if (!value) return true;
                return replace_range(s, at, at, key_line_text(*key, *value));
            }
        }
    }
    // Deleting a section removes its header and its lines, up to the next
    // header (as the reader sees headers) or the end of the file.
    uint64_t end = s.GetPosition();
    for (;;) {
        const uint64_t at = s.GetPosition();
        int64_t n = read_line(s, line);
        if (n == kReadFailed) return false;
        if (n == kEnd) break;
        if (is_header(trim(line))) {
            end = at;
            break;
        }
        end = at + static_cast<uint64_t>(n);
    }
    return replace_range(s, header_start, end, std::string_view());
}

// --- Files ---------------------------------------------------------------------------

bool read_file(std::u16string_view file, Text section, Text key, std::size_t max, uint32_t cp,
               std::string& out) {
    IXStream s;
    if (!open_locked(s, file, false, cp)) return false;
    return read_profile(s, section, key, max, cp, out);
}

bool write_file(std::u16string_view file, std::string_view section, Text key, Text value, uint32_t cp,
                uint32_t* error) {
    IXStream s;
    bool ok = open_locked(s, file, true, cp) && write_profile(s, section, key, value, cp);
    uint32_t code = ok ? 0 : platform::last_error();
    if (!ok && code == 0) code = s.GetLastError();
    if (!ok && code == 0) code = platform::kErrorInvalidFunction;
    if (s.is_open() && !s.Close() && ok) {
        ok = false;
        code = s.GetLastError();
    }
    if (error) *error = code;
    return ok;
}

// --- Language functions ------------------------------------------------------------

std::u16string ini_read(std::u16string_view section, std::u16string_view key, std::u16string_view fallback,
                        std::u16string_view file) {
    const uint32_t cp = ansi_codepage();
    std::string section_bytes = to_ansi(section, cp), key_bytes = to_ansi(key, cp);
    Text sec = section_bytes.empty() ? nullptr : &section_bytes;
    Text k = !sec || key_bytes.empty() ? nullptr : &key_bytes;
    std::string out;
    try {
        if (!read_file(file.empty() ? std::u16string_view(kDefaultFile) : file, sec, k, kReadMax, cp, out))
            return std::u16string(fallback);
        return nul_to_crlf(from_ansi(out, cp));
    } catch (const std::bad_alloc&) {
        return std::u16string();
    }
}

bool ini_write(std::u16string_view section, std::u16string_view key, std::u16string_view value,
               std::u16string_view file, CXError& err) {
    const uint32_t cp = ansi_codepage();
    const bool explicit_file = !file.empty();
    const std::u16string_view name = explicit_file ? file : std::u16string_view(kDefaultFile);
    std::string section_bytes = to_ansi(section, cp), key_bytes = to_ansi(key, cp),
                value_bytes = to_ansi(value, cp);
    uint32_t code = 0;
    bool ok = false;
    if (section_bytes.empty()) {
        code = platform::kErrorInvalidParameter;
    } else {
        Text k = key_bytes.empty() ? nullptr : &key_bytes;
        Text v = value_bytes.empty() ? nullptr : &value_bytes;
        try {
            ok = write_file(name, section_bytes, k, v, cp, &code);
        } catch (const std::bad_alloc&) {
            code = platform::kErrorNotEnoughMemory;
        }
    }
    if (ok) return true;
    if (explicit_file) {
        err.fail(kErrFile, {name});
        err.set_system(code);
    }
    return false;
}

} // namespace kp::files::ini
