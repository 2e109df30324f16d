// regfile.cpp - reading and writing registry editor files.
#include "registry/regfile.h"

#include <cstring>

#include "platform/codepage.h"

namespace kp::registry::regfile {

namespace {

constexpr std::u16string_view kHeader5 = u"Windows Registry Editor Version 5.00";
constexpr std::u16string_view kHeader4 = u"REGEDIT4";
constexpr std::u16string_view kRootNames[] = {u"HKEY_CLASSES_ROOT", u"HKEY_CURRENT_USER",
                                              u"HKEY_LOCAL_MACHINE", u"HKEY_USERS"};
constexpr std::size_t kMaxKeyName = 255;

char16_t fold_ascii(char16_t c) {
    return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
}

bool same_ascii_nocase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (fold_ascii(a[i]) != fold_ascii(b[i])) return false;
    return true;
}

bool blank(char16_t c) {
    return c == u' ' || c == u'\t';
}

std::u16string_view trim_left(std::u16string_view s) {
    while (!s.empty() && blank(s.front()))
        s.remove_prefix(1);
    return s;
}
std::u16string_view trim_right(std::u16string_view s) {
    while (!s.empty() && blank(s.back()))
        s.remove_suffix(1);
    return s;
}
std::u16string_view trim(std::u16string_view s) {
    return trim_right(trim_left(s));
}

int hex_digit(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

// One to eight hex digits, nothing else.
bool parse_hex32(std::u16string_view s, uint32_t* out) {
    if (s.empty() || s.size() > 8) return false;
    uint32_t v = 0;
    for (char16_t c : s) {
        int d = hex_digit(c);
        if (d < 0) return false;
        v = (v << 4) | static_cast<uint32_t>(d);
    }
    *out = v;
    return true;
}

bool valid_utf8(std::span<const uint8_t> b, bool* non_ascii) {
    *non_ascii = false;
    for (std::size_t i = 0; i < b.size();) {
        uint8_t c = b[i];
        std::size_t len = c < 0x80             ? 1
                          : (c & 0xE0) == 0xC0 ? 2
                          : (c & 0xF0) == 0xE0 ? 3
                          : (c & 0xF8) == 0xF0 ? 4
                                               : 0;
        if (!len || i + len > b.size() || (len == 2 && c < 0xC2)) return false;
        for (std::size_t k = 1; k < len; ++k)
            if ((b[i + k] & 0xC0) != 0x80) return false;
        if (len > 1) *non_ascii = true;
        i += len;
    }
    return true;
}

std::u16string decode_file(std::span<const uint8_t> file, uint32_t codepage) {
    if (file.size() >= 2 && file[0] == 0xFF && file[1] == 0xFE) {
        std::u16string s((file.size() - 2) / 2, u'\0');
        for (std::size_t i = 0; i < s.size(); ++i)
            s[i] = static_cast<char16_t>(file[2 + 2 * i] | (file[3 + 2 * i] << 8));
        return s;
    }
    std::string_view bytes(reinterpret_cast<const char*>(file.data()), file.size());
    if (bytes.substr(0, 3) == "\xEF\xBB\xBF") return platform::from_utf8(bytes.substr(3));
    bool non_ascii = false;
    if (valid_utf8(file, &non_ascii) && non_ascii) return platform::from_utf8(bytes);
    std::u16string s;
    if (!platform::decode(codepage, file, s)) s = platform::decode_1252(file);
    return s;
}

std::vector<uint8_t> text_bytes(std::u16string_view s, bool terminator) {
    std::vector<uint8_t> b((s.size() + (terminator ? 1 : 0)) * 2, 0);
    for (std::size_t i = 0; i < s.size(); ++i) {
        b[2 * i] = static_cast<uint8_t>(s[i]);
        b[2 * i + 1] = static_cast<uint8_t>(s[i] >> 8);
    }
    return b;
}

std::u16string bytes_text(std::span<const uint8_t> b) {
    std::u16string s(b.size() / 2, u'\0');
    for (std::size_t i = 0; i < s.size(); ++i)
        s[i] = static_cast<char16_t>(b[2 * i] | (b[2 * i + 1] << 8));
    return s;
}

class Parser {
  public:
    Parser(std::u16string_view text, Document& doc, std::vector<Problem>& problems, uint32_t codepage)
        : doc_(doc), problems_(problems), codepage_(codepage) {
        std::size_t start = 0;
        while (start <= text.size()) {
            std::size_t end = text.find(u'\n', start);
            std::u16string_view line =
                text.substr(start, end == std::u16string_view::npos ? end : end - start);
            if (!line.empty() && line.back() == u'\r') line.remove_suffix(1);
            lines_.push_back(line);
            if (end == std::u16string_view::npos) break;
            start = end + 1;
        }
    }

    bool run() {
        std::size_t i = 0;
        if (!header(i)) return false;
        long key = -1;
        for (; i < lines_.size(); ++i) {
            std::u16string_view line = trim_left(lines_[i]);
            std::size_t at = i + 1;
            if (line.empty() || line.front() == u';') continue;
            if (line.front() == u'[') {
                key = key_line(trim_right(line), at) ? static_cast<long>(doc_.keys.size()) - 1 : -2;
            } else if (line.front() == u'"' || line.front() == u'@') {
                if (key == -1) {
                    problem(at, "a value before any key");
                    skip_value(i);
                } else if (key >= 0 && doc_.keys[static_cast<std::size_t>(key)].remove) {
                    problem(at, "a value under a key that is deleted");
                    skip_value(i);
                } else {
                    Value v;
                    if (value_line(i, v) && key >= 0)
                        doc_.keys[static_cast<std::size_t>(key)].values.push_back(std::move(v));
                }
            } else {
                problem(at, "neither a key, a value nor a comment");
            }
        }
        return problems_.empty();
    }

  private:
    void problem(std::size_t line, std::string message) { problems_.push_back({line, std::move(message)}); }

    bool header(std::size_t& i) {
        for (; i < lines_.size(); ++i) {
            std::u16string_view line = trim(lines_[i]);
            if (i == 0 && !line.empty() && line.front() == u'\uFEFF') line.remove_prefix(1);
            if (line.empty()) continue;
            if (line == kHeader5) {
                doc_.regedit4 = false;
            } else if (line == kHeader4) {
                doc_.regedit4 = true;
            } else {
                problem(i + 1,
                        "not a registry file: the first line is neither \"Windows Registry Editor Version "
                        "5.00\" nor \"REGEDIT4\"");
                return false;
            }
            ++i;
            return true;
        }
        problem(1, "empty file");
        return false;
    }

    bool key_line(std::u16string_view line, std::size_t at) {
        if (line.back() != u']') {
            problem(at, "a key line without its closing ']'");
            return false;
        }
        std::u16string_view path = line.substr(1, line.size() - 2);
        Key k;
        if (!path.empty() && path.front() == u'-') {
            k.remove = true;
            path.remove_prefix(1);
        }
        if (path.find(u'\r') != std::u16string_view::npos) {
            problem(at, "a line end in a key name");
            return false;
        }
        std::u16string_view rest;
        if (root_of(path, &rest) < 0) {
            problem(at,
                    "the key does not start with HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE or "
                    "HKEY_USERS");
            return false;
        }
        if (k.remove && rest.empty()) {
            problem(at, "a root cannot be deleted");
            return false;
        }
        for (std::size_t s = 0; s <= rest.size() && !rest.empty();) {
            std::size_t e = rest.find(u'\\', s);
            std::size_t len = (e == std::u16string_view::npos ? rest.size() : e) - s;
            if (len == 0 || len > kMaxKeyName) {
                problem(at, len ? "a key name longer than 255 characters" : "an empty key name in the path");
                return false;
            }
            if (e == std::u16string_view::npos) break;
            s = e + 1;
        }
        k.path.assign(path);
        doc_.keys.push_back(std::move(k));
        return true;
    }

    // Reads a quoted text starting after its opening quote at `pos` of line
    // i; a text left open goes on over the next lines (a line end in the
    // text).  On return i and pos are just after the closing quote.
    bool quoted(std::size_t& i, std::size_t& pos, std::u16string& out) {
        for (;;) {
            std::u16string_view line = lines_[i];
            while (pos < line.size()) {
                char16_t c = line[pos++];
                if (c == u'"') return true;
                if (c == u'\\' && pos < line.size() && (line[pos] == u'\\' || line[pos] == u'"'))
                    c = line[pos++];
                out += c;
            }
            if (i + 1 >= lines_.size()) return false;
            ++i;
            pos = 0;
            out += u"\r\n";
        }
    }

    // Skips the lines a bad value goes on over.
    void skip_value(std::size_t& i) {
        while (i + 1 < lines_.size() && !trim_right(lines_[i]).empty() &&
               trim_right(lines_[i]).back() == u'\\')
            ++i;
    }

    // A value line: its name, '=', then "-" (delete), a string, dword: or
    // hex[(N)]: with its byte list.
    bool value_line(std::size_t& i, Value& v) {
        const std::size_t at = i + 1;
        std::u16string_view line = lines_[i];
        std::size_t pos = line.size() - trim_left(line).size();
        if (!value_name(i, pos, v.name, at)) return false;
        std::u16string_view rest = trim_left(line.substr(pos));
        if (rest.empty() || rest.front() != u'=') {
            problem(at, "'=' expected after the value name");
            skip_value(i);
            return false;
        }
        rest = trim_left(rest.substr(1));
        if (trim_right(rest) == u"-") {
            v.remove = true;
            return true;
        }
        if (!rest.empty() && rest.front() == u'"')
            return string_value(i, line.size() - rest.size() + 1, v, at);
        std::size_t colon = rest.find(u':');
        std::u16string_view form = colon == std::u16string_view::npos ? rest : rest.substr(0, colon);
        if (colon != std::u16string_view::npos && same_ascii_nocase(form, u"dword")) {
            uint32_t d = 0;
            if (!parse_hex32(trim(rest.substr(colon + 1)), &d)) {
                problem(at, "dword: takes one to eight hex digits");
                return false;
            }
            v.type = 4;
            v.data = {static_cast<uint8_t>(d), static_cast<uint8_t>(d >> 8), static_cast<uint8_t>(d >> 16),
                      static_cast<uint8_t>(d >> 24)};
            return true;
        }
        if (colon == std::u16string_view::npos || form.size() < 3 ||
            !same_ascii_nocase(form.substr(0, 3), u"hex")) {
            problem(at, "unknown value form (a string, dword:, hex: or hex(N): expected)");
            skip_value(i);
            return false;
        }
        v.type = 3;
        if (form.size() > 3) {
            std::u16string_view n = form.substr(3);
            if (n.size() < 3 || n.front() != u'(' || n.back() != u')' ||
                !parse_hex32(n.substr(1, n.size() - 2), &v.type)) {
                problem(at, "hex(N): takes the type number in hex");
                skip_value(i);
                return false;
            }
        }
        return hex_value(i, rest.substr(colon + 1), v, at);
    }

    // "@" or a quoted name on one line; pos ends just after it.
    bool value_name(std::size_t& i, std::size_t& pos, std::u16string& name, std::size_t at) {
        if (lines_[i][pos++] == u'@') return true;
        const std::size_t first = i;
        if (!quoted(i, pos, name)) {
            problem(at, "a value name without its closing quote");
            return false;
        }
        if (i != first || name.find(u'\r') != std::u16string::npos) {
            problem(at, "a line end in a value name");
            return false;
        }
        return true;
    }

    // A quoted string from `pos` (after its opening quote) of line i,
    // nothing after its closing quote.
    bool string_value(std::size_t& i, std::size_t pos, Value& v, std::size_t at) {
        std::u16string text;
        if (!quoted(i, pos, text)) {
            problem(at, "a string without its closing quote");
            return false;
        }
        if (!trim(lines_[i].substr(pos)).empty()) {
            problem(i + 1, "text after the closing quote of a string");
            return false;
        }
        v.type = 1;
        v.data = text_bytes(text, true);
        return true;
    }

    // The byte list of a hex value, over the lines that a trailing
    // backslash continues.
    bool hex_value(std::size_t& i, std::u16string_view first, Value& v, std::size_t at) {
        std::u16string list(first);
        for (;;) {
            std::u16string_view t = trim_right(list);
            if (t.empty() || t.back() != u'\\') break;
            list.resize(t.size() - 1);
            if (i + 1 >= lines_.size()) break;
            list += trim_left(lines_[++i]);
        }
        std::u16string_view l = trim(list);
        std::size_t s = 0;
        while (s < l.size()) {
            std::size_t e = l.find(u',', s);
            std::u16string_view tok = trim(l.substr(s, e == std::u16string_view::npos ? e : e - s));
            uint32_t byte = 0;
            if (tok.empty() && e == std::u16string_view::npos) break; // a trailing comma
            if (tok.size() > 2 || !parse_hex32(tok, &byte)) {
                problem(at, "a byte of a hex list is not one or two hex digits");
                return false;
            }
            v.data.push_back(static_cast<uint8_t>(byte));
            if (e == std::u16string_view::npos) break;
            s = e + 1;
        }
        // The ANSI form holds the expand and multi strings as ANSI bytes.
        if (doc_.regedit4 && (v.type == 2 || v.type == 7)) {
            std::u16string text;
            if (!platform::decode(codepage_, v.data, text)) text = platform::decode_1252(v.data);
            v.data = text_bytes(text, false);
        }
        return true;
    }

    Document& doc_;
    std::vector<Problem>& problems_;
    uint32_t codepage_;
    std::vector<std::u16string_view> lines_;
};

std::u16string quote(std::u16string_view s) {
    std::u16string out = u"\"";
    for (char16_t c : s) {
        if (c == u'\\' || c == u'"') out += u'\\';
        out += c;
    }
    out += u'"';
    return out;
}

bool has_line_end(std::u16string_view s) {
    return s.find_first_of(u"\r\n") != std::u16string_view::npos;
}

bool encodable(std::u16string_view s, uint32_t codepage) {
    std::string bytes;
    if (!platform::encode(codepage, s, bytes)) return false;
    std::u16string back;
    return platform::decode(
               codepage,
               std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()),
               back) &&
           back == s;
}

// The text of a REG_SZ that a quoted string gives back exactly: its
// characters and one NUL, no NUL inside, no line end.
bool plain_string(const Value& v, bool regedit4, uint32_t codepage, std::u16string* text) {
    if (v.type != 1 || v.data.size() < 2 || v.data.size() % 2) return false;
    std::u16string s = bytes_text(v.data);
    if (s.back() != u'\0') return false;
    s.pop_back();
    if (s.find(u'\0') != std::u16string::npos || has_line_end(s)) return false;
    if (regedit4 && !encodable(s, codepage)) return false;
    *text = std::move(s);
    return true;
}

void hex_value(std::u16string& out, const std::u16string& lead, const Value& v, bool regedit4,
               uint32_t codepage) {
    static const char16_t kDigits[] = u"0123456789abcdef";
    std::vector<uint8_t> bytes = v.data;
    if (regedit4 && (v.type == 2 || v.type == 7)) {
        std::string ansi;
        std::u16string text = bytes_text(v.data);
        if (!platform::encode(codepage, text, ansi)) ansi = platform::encode_1252(text);
        bytes.assign(ansi.begin(), ansi.end());
    }
    std::u16string line = lead + u'=';
    if (v.type == 3) {
        line += u"hex:";
    } else {
        line += u"hex(";
        char buf[16];
        std::snprintf(buf, sizeof buf, "%x", v.type);
        for (char* p = buf; *p; ++p)
            line += static_cast<char16_t>(*p);
        line += u"):";
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        line += kDigits[bytes[i] >> 4];
        line += kDigits[bytes[i] & 15];
        if (i + 1 < bytes.size()) {
            line += u',';
            // Lines of at most 80 characters, continued by a backslash.
            if (line.size() >= 76) {
                out += line + u"\\\r\n";
                line = u"  ";
            }
        }
    }
    out += line + u"\r\n";
}

} // namespace

int root_of(std::u16string_view path, std::u16string_view* rest) {
    for (int r = 0; r < 4; ++r) {
        std::u16string_view name = kRootNames[r];
        if (path.size() < name.size() || !same_ascii_nocase(path.substr(0, name.size()), name)) continue;
        std::u16string_view tail = path.substr(name.size());
        if (!tail.empty() && tail.front() != u'\\') continue;
        if (!tail.empty()) tail.remove_prefix(1);
        if (rest) *rest = tail;
        return r;
    }
    return -1;
}

bool parse(std::span<const uint8_t> file, Document& out, std::vector<Problem>& problems, uint32_t codepage) {
    out = Document{};
    problems.clear();
    std::u16string text = decode_file(file, codepage);
    Parser p(text, out, problems, codepage);
    return p.run();
}

std::vector<uint8_t> write(const Document& doc, std::vector<std::u16string>* skipped, uint32_t codepage) {
    std::u16string out(doc.regedit4 ? kHeader4 : kHeader5);
    out += u"\r\n\r\n";
    for (const Key& k : doc.keys) {
        if (has_line_end(k.path)) {
            if (skipped) skipped->push_back(k.path);
            continue;
        }
        out += k.remove ? u"[-" : u"[";
        out += k.path + u"]\r\n";
        for (const Value& v : k.values) {
            if (has_line_end(v.name)) {
                if (skipped) skipped->push_back(k.path + u'\\' + v.name);
                continue;
            }
            std::u16string lead = v.name.empty() ? u"@" : quote(v.name);
            std::u16string text;
            if (v.remove) {
                out += lead + u"=-\r\n";
            } else if (plain_string(v, doc.regedit4, codepage, &text)) {
                out += lead + u'=' + quote(text) + u"\r\n";
            } else if (v.type == 4 && v.data.size() == 4) {
                char buf[16];
                uint32_t d = v.data[0] | (v.data[1] << 8) | (v.data[2] << 16) |
                             (static_cast<uint32_t>(v.data[3]) << 24);
                std::snprintf(buf, sizeof buf, "dword:%08x", d);
                out += lead + u'=';
                for (char* p = buf; *p; ++p)
                    out += static_cast<char16_t>(*p);
                out += u"\r\n";
            } else {
                hex_value(out, lead, v, doc.regedit4, codepage);
            }
        }
        out += u"\r\n";
    }
    std::vector<uint8_t> bytes;
    if (doc.regedit4) {
        std::string ansi;
        if (!platform::encode(codepage, out, ansi)) ansi = platform::encode_1252(out);
        bytes.assign(ansi.begin(), ansi.end());
    } else {
        bytes = {0xFF, 0xFE};
        std::vector<uint8_t> body = text_bytes(out, false);
        bytes.insert(bytes.end(), body.begin(), body.end());
    }
    return bytes;
}

} // namespace kp::registry::regfile
