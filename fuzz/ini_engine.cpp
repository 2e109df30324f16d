// ini_engine.cpp - the INI engine over random files and random writes: no
// fault on any file, and after a write that returned true the reader gives
// the value back wherever the file leaves no doubt about the key's line:
//   - the section and the key are spelled one way only: every line the
//     reader takes for the header (trimmed, any case) is the writer's
//     header spelled exactly, and every line the reader takes for the key
//     starts with the key spelled exactly;
//   - every line the reader takes for a header starts with "[" (the
//     writer's own test), and the file ends with CR LF (text appended after
//     a last line without one runs on into it);
//   - the section, key and value hold no NUL and no line end, the key no
//     "=", the value no blank or tab at its ends and at most 8191 bytes.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

#include "files/ini.h"
#include "platform/codepage.h"

namespace {

using namespace kp::files::ini;
constexpr uint32_t kCp = 1252;

const std::string& work_file() {
    static const std::string path = [] {
        char tmpl[] = "/tmp/kp120-fuzz-ini-XXXXXX";
        const char* dir = mkdtemp(tmpl);
        if (!dir) std::abort();
        return std::string(dir) + "/f.ini";
    }();
    return path;
}

std::string slurp() {
    std::ifstream f(work_file(), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

bool blank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && blank(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && blank(s.back()))
        s.remove_suffix(1);
    return s;
}

// Case-blind comparison wider than the reader's: ASCII letters fold, and
// every byte of 0x80 and more matches every other such byte.
bool loosely_equal(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x + 32);
        if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y + 32);
        if (x != y && !(x >= 0x80 && y >= 0x80)) return false;
    }
    return true;
}

bool plain_text(std::string_view s) {
    return !s.empty() && s.find('\0') == std::string_view::npos && s.find('\r') == std::string_view::npos &&
           s.find('\n') == std::string_view::npos;
}

// Whether the file and the arguments leave no doubt (see the header).
bool unambiguous(const std::string& file, const std::string& section, const std::string& key,
                 const std::string& value) {
    if (!plain_text(section) || section.find(']') != std::string::npos) return false;
    if (!plain_text(key) || key.find('=') != std::string::npos || blank(key[0]) || key[0] == ';' ||
        key[0] == '[')
        return false;
    if (value.empty() || value.find('\0') != std::string::npos || value.find("\r\n") != std::string::npos ||
        blank(value.front()) || blank(value.back()) || value.size() > kReadMax)
        return false;
    if (!file.empty() && file.size() >= 2 && file.compare(file.size() - 2, 2, "\r\n") != 0) return false;
    if (file.size() == 1) return false;
    const std::string header = "[" + section + "]";
    std::size_t at = 0;
    while (at < file.size()) {
        std::size_t end = file.find("\r\n", at);
        if (end == std::string::npos) end = file.size();
        std::string_view line(file.data() + at, end - at);
        std::string_view t = trim(line);
        at = end + 2;
        if (!t.empty() && t[0] == '[' && t.find(']') != std::string_view::npos && line[0] != '[')
            return false;
        if (t.size() >= header.size() && loosely_equal(t.substr(0, header.size()), header) &&
            line.substr(0, header.size()) != header)
            return false;
        if (t.size() > key.size() && loosely_equal(t.substr(0, key.size()), key) &&
            line.substr(0, key.size()) != key)
            return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    {
        std::ofstream f(work_file(), std::ios::binary | std::ios::trunc);
        std::string start = in.ConsumeRandomLengthString(4096);
        f.write(start.data(), static_cast<std::streamsize>(start.size()));
    }
    const std::u16string name = kp::platform::from_utf8(work_file());
    for (int op = 0; op < 6 && in.remaining_bytes() > 0; ++op) {
        const int kind = in.ConsumeIntegralInRange<int>(0, 4);
        std::string section = in.ConsumeRandomLengthString(24);
        std::string key = in.ConsumeRandomLengthString(24);
        std::string value = in.ConsumeRandomLengthString(64);
        std::string out;
        uint32_t code = 0;
        switch (kind) {
        case 0: {
            const std::string before = slurp();
            const bool check = unambiguous(before, section, key, value);
            if (section.empty() || key.empty()) break;
            bool ok = write_file(name, section, &key, &value, kCp, &code);
            if (ok && check) {
                if (!read_file(name, &section, &key, kReadMax, kCp, out) || out != value) std::abort();
            }
            break;
        }
        case 1:
            if (!section.empty() && !key.empty()) write_file(name, section, &key, nullptr, kCp, &code);
            break;
        case 2:
            if (!section.empty()) write_file(name, section, nullptr, nullptr, kCp, &code);
            break;
        case 3:
            read_file(name, section.empty() ? nullptr : &section, key.empty() ? nullptr : &key, kReadMax, kCp,
                      out);
            break;
        default:
            read_file(name, nullptr, nullptr, kReadMax, kCp, out);
            read_file(name, section.empty() ? nullptr : &section, nullptr, 100, kCp, out);
            break;
        }
    }
    return 0;
}
