// params.cpp - the parameter store: path rules, escaping, and the registry
// and INI back ends.
#include "files/params.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <vector>

#include "component/runtime.h"
#include "files/ini.h"
#include "files/streams.h"
#include "platform/codepage.h"
#include "platform/registry_store.h"
#include "platform/win32_error.h"

namespace kp::files::params {

namespace reg = platform::registry;

namespace {

constexpr char16_t kBackslash = u'\\';
constexpr std::size_t kFirstRead = 1023;   // characters of the first INI read
constexpr std::size_t kSecondRead = 65535; // and of the second, when the first was full
constexpr char16_t kNoProject[] = u"Project";

std::u16string project_name() {
    auto fn = runtime::service(&kp_services::project_name);
    const char16_t* p = fn ? fn(runtime::vm()) : nullptr;
    if (!p || !*p) return kNoProject;
    return p;
}

bool starts_with_ignoring_case(std::u16string_view s, std::u16string_view prefix) {
    if (s.size() < prefix.size()) return false;
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        char16_t a = s[i], b = prefix[i];
        if (a >= u'a' && a <= u'z') a = static_cast<char16_t>(a - 32);
        if (b >= u'a' && b <= u'z') b = static_cast<char16_t>(b - 32);
        if (a != b) return false;
    }
    return true;
}

// --- Numbers as text ------------------------------------------------------------------

std::u16string widen(std::string_view s) {
    return std::u16string(s.begin(), s.end());
}

// ASCII text of a number, or "" when the text holds anything else.
std::string narrow_number(std::u16string_view text) {
    std::string a;
    for (char16_t c : text) {
        if (c > 0x7F) return {};
        a.push_back(static_cast<char>(c == u',' ? '.' : c));
    }
    std::size_t b = a.find_first_not_of(" \t"), e = a.find_last_not_of(" \t");
    if (b == std::string::npos) return {};
    a = a.substr(b, e - b + 1);
    if (!a.empty() && a[0] == '+') a.erase(0, 1);
    return a;
}

template <typename T> bool parse_whole(const std::string& a, T& out) {
    if (a.empty()) return false;
    auto [p, ec] = std::from_chars(a.data(), a.data() + a.size(), out);
    return ec == std::errc() && p == a.data() + a.size();
}

// --- Registry back end -------------------------------------------------------------------

struct Location {
    reg::Key root = reg::kCurrentUser;
    std::u16string path;
};

Location registry_location() {
    std::u16string loc = settings().location.empty() ? default_registry_location() : settings().location;
    Location l;
    static constexpr std::u16string_view kCurrentUser = u"HKEY_CURRENT_USER\\";
    static constexpr std::u16string_view kLocalMachine = u"HKEY_LOCAL_MACHINE\\";
    if (starts_with_ignoring_case(loc, kCurrentUser)) {
        loc.erase(0, kCurrentUser.size());
    } else if (starts_with_ignoring_case(loc, kLocalMachine)) {
        loc.erase(0, kLocalMachine.size());
        l.root = reg::kLocalMachine;
    }
    l.path = std::move(loc);
    return l;
}

std::u16string group_key(const Location& l, std::u16string_view group) {
    while (!group.empty() && group.front() == kBackslash)
        group.remove_prefix(1);
    if (group.empty()) return l.path;
    if (l.path.empty()) return std::u16string(group);
    std::u16string key = l.path;
    key.push_back(kBackslash);
    key.append(group);
    return key;
}

void use_registry() {
    reg::use_database(runtime::setting(KP_SETTING_REGISTRY));
}

// Open key, closed when it goes.
struct OpenedKey {
    reg::Key key = 0;
    ~OpenedKey() {
        if (key) reg::close_key(key);
    }
};

// The location key exists (made when missing); 80291 otherwise.
bool make_location(const Location& l, CXError& err) {
    OpenedKey k;
    uint32_t rc = reg::create_key(l.root, l.path, reg::kAllAccess, &k.key);
    if (rc == 0) return true;
    err.fail(kErrLocation, {l.path});
    err.set_system(rc);
    return false;
}

std::vector<uint8_t> registry_bytes(const Param& v, uint32_t* type) {
    std::vector<uint8_t> data;
    auto put_text = [&](std::u16string_view t) {
        *type = reg::kSz;
        data.resize((t.size() + 1) * 2);
        std::memcpy(data.data(), t.data(), t.size() * 2);
    };
    switch (v.kind) {
    case Param::Kind::Bool:
    case Param::Kind::Int: {
        *type = reg::kDword;
        uint32_t d = static_cast<uint32_t>(v.i);
        data.resize(4);
        std::memcpy(data.data(), &d, 4);
        break;
    }
    case Param::Kind::Int64:
        *type = kRegQword;
        data.resize(8);
        std::memcpy(data.data(), &v.i, 8);
        break;
    case Param::Kind::Real:
        put_text(real_text(v.r));
        break;
    case Param::Kind::Bytes:
        *type = reg::kBinary;
        data = v.bytes;
        break;
    case Param::Kind::Text:
        put_text(v.text);
        break;
    case Param::Kind::None:
        put_text(u"");
        break;
    }
    return data;
}

// A registry value as a host value: the registry family's conversions, and
// REG_QWORD as an 8-byte integer.
Param from_registry(uint32_t type, const std::vector<uint8_t>& data) {
    auto word = [&](std::size_t at) -> uint32_t {
        uint8_t b[4] = {0, 0, 0, 0};
        for (std::size_t k = 0; k < 4 && at + k < data.size(); ++k)
            b[k] = data[at + k];
        return b[0] | (b[1] << 8) | (b[2] << 16) | (static_cast<uint32_t>(b[3]) << 24);
    };
    switch (type) {
    case reg::kNone:
    case reg::kLink:
    case reg::kResourceList:
        return Param::string(u"");
    case reg::kSz: {
        std::u16string t(data.size() / 2, u'\0');
        if (!t.empty()) std::memcpy(t.data(), data.data(), t.size() * 2);
        while (!t.empty() && t.back() == 0)
            t.pop_back();
        return Param::string(t);
    }
    case reg::kExpandSz:
    case reg::kBinary:
    case reg::kMultiSz:
        return Param::buffer(data);
    case reg::kDword:
        return Param::integer(static_cast<int32_t>(word(0)));
    case reg::kDwordBigEndian: {
        uint32_t w = word(0);
        return Param::integer(static_cast<int32_t>((w << 16) | (w >> 16)));
    }
    case kRegQword: {
        uint64_t q = word(0) | (static_cast<uint64_t>(word(4)) << 32);
        return Param::int64(static_cast<int64_t>(q));
    }
    default:
        return Param::none();
    }
}

// The value `name` of `key`, or false when it cannot be read.
bool query(reg::Key key, std::u16string_view name, uint32_t* type, std::vector<uint8_t>& data) {
    uint32_t size = 0;
    if (reg::query_value(key, name, type, nullptr, &size) != 0) return false;
    for (int attempt = 0; attempt < 4; ++attempt) {
        data.resize(size);
        uint32_t rc = reg::query_value(key, name, type, data.data(), &size);
        if (rc == 0) {
            data.resize(size);
            return true;
        }
        if (rc != platform::kErrorMoreData) return false;
    }
    return false;
}

bool registry_load(const ParamPath& p, Param& out) {
    use_registry();
    Location l = registry_location();
    OpenedKey k;
    if (reg::open_key(l.root, group_key(l, p.group), reg::kQueryValue, &k.key) != 0) return false;
    uint32_t type = 0;
    std::vector<uint8_t> data;
    if (!query(k.key, p.name, &type, data)) return false;
    out = from_registry(type, data);
    return true;
}

void registry_save(const ParamPath& p, const Param& value, CXError& err) {
    use_registry();
    Location l = registry_location();
    if (!make_location(l, err)) return;
    const std::u16string key_path = group_key(l, p.group);
    OpenedKey k;
    uint32_t rc = reg::create_key(l.root, key_path, reg::kAllAccess, &k.key);
    uint32_t type = 0;
    std::vector<uint8_t> data = registry_bytes(value, &type);
    if (rc == 0 && settings().compare_before_write) {
        uint32_t old_type = 0;
        std::vector<uint8_t> old;
        if (query(k.key, p.name, &old_type, old) && old_type == type && old == data) return;
    }
    if (rc == 0) rc = reg::set_value(k.key, p.name, type, data.data(), static_cast<uint32_t>(data.size()));
    if (rc == 0) return;
    err.fail(kErrValueWrite, {key_path, p.name, system_error_text(rc, runtime::french())});
    err.set_system(rc);
    if (rc == platform::kErrorAccessDenied) err.set_additional(1, 1);
}

// Deletes `subkey` of `parent` with everything under it, depth first.  The
// keys on the way down are a list, not a recursion, so a tree however deep
// takes no stack, and they stay open: each step opens one level beneath the
// last, so a tree costs one open a key (opening every key from the top
// again cost the cube of the depth).
uint32_t delete_tree(reg::Key parent, const std::u16string& subkey) {
    std::vector<std::u16string> names{subkey};
    std::vector<std::unique_ptr<OpenedKey>> open;
    auto above = [&] { return open.empty() ? parent : open.back()->key; };
    auto open_last = [&] {
        auto k = std::make_unique<OpenedKey>();
        const uint32_t rc = reg::open_key(above(), names.back(), reg::kEnumerateSubKeys, &k->key);
        if (rc == 0) open.push_back(std::move(k));
        return rc;
    };
    uint32_t rc = open_last();
    if (rc == platform::kErrorFileNotFound) return 0;
    while (rc == 0 && !open.empty()) {
        char16_t name[256];
        uint32_t chars = 256;
        rc = reg::enum_key(open.back()->key, 0, name, &chars);
        if (rc == 0) {
            names.emplace_back(name, chars);
            rc = open_last();
        } else if (rc == platform::kErrorNoMoreItems) {
            open.pop_back();
            rc = reg::delete_key(above(), names.back());
            names.pop_back();
        }
    }
    return rc;
}

bool registry_delete(const ParamPath& p, bool value, CXError& err) {
    use_registry();
    Location l = registry_location();
    if (!make_location(l, err)) return false;
    const std::u16string key_path = group_key(l, p.group);
    uint32_t rc;
    if (value) {
        OpenedKey k;
        rc = reg::open_key(l.root, key_path, reg::kSetValue, &k.key);
        if (rc == 0) rc = reg::delete_value(k.key, p.name);
    } else {
        // The location itself is never removed: only what lies under it.
        if (key_path == l.path) return true;
        rc = delete_tree(l.root, key_path);
    }
    if (rc == 0) return true;
    err.fail(kErrLocation, {key_path});
    err.set_system(rc);
    return false;
}

// --- INI back end ----------------------------------------------------------------------

std::u16string ini_file() {
    return settings().location.empty() ? default_ini_file() : settings().location;
}

// The raw bytes stored for the parameter, read as the store reads them.
bool ini_load_bytes(const ParamPath& p, std::string& out) {
    const uint32_t cp = ansi_codepage();
    std::string section = ini::to_ansi(section_of(p.group), cp), key = ini::to_ansi(p.name, cp);
    if (key.empty()) return false;
    if (!ini::read_file(ini_file(), &section, &key, kFirstRead, cp, out)) return false;
    if (out.size() >= kFirstRead) ini::read_file(ini_file(), &section, &key, kSecondRead, cp, out);
    return true;
}

// The text of a value as it goes into the file, escaped, in ANSI bytes.
std::string ini_text(const Param& v, uint32_t cp) {
    switch (v.kind) {
    case Param::Kind::Bool:
        return v.i ? "1" : "0";
    case Param::Kind::Int:
    case Param::Kind::Int64:
        return std::to_string(v.i);
    case Param::Kind::Real:
        return ini::to_ansi(real_text(v.r), cp);
    case Param::Kind::Bytes: {
        std::string raw(v.bytes.begin(), v.bytes.end());
        std::size_t nul = raw.find('\0');
        if (nul != std::string::npos) raw.resize(nul); // the engine's C strings
        return escape_bytes(raw);
    }
    case Param::Kind::Text:
        return ini::to_ansi(escape(v.text), cp);
    case Param::Kind::None:
        return {};
    }
    return {};
}

void ini_save(const ParamPath& p, const Param& value, CXError& err) {
    const uint32_t cp = ansi_codepage();
    const std::u16string file = ini_file();
    std::string section = ini::to_ansi(section_of(p.group), cp), key = ini::to_ansi(p.name, cp);
    std::string text = ini_text(value, cp);
    if (settings().compare_before_write && !key.empty()) {
        std::string old;
        if (!ini_load_bytes(p, old)) old = ini::to_ansi(kCompareSentinel, cp);
        // A read that filled its buffer may have cut a longer stored value.
        if (old.size() < kSecondRead && old == text) return;
    }
    uint32_t code = 0;
    bool ok = false;
    if (!key.empty()) {
        try {
            ok = ini::write_file(file, section, &key, text.empty() ? nullptr : &text, cp, &code);
        } catch (const std::bad_alloc&) {
            code = platform::kErrorNotEnoughMemory;
        }
    } else {
        code = platform::kErrorInvalidParameter;
    }
    if (ok) return;
    err.fail(ini::kErrFile, {file});
    err.set_system(code);
}

bool ini_delete(const ParamPath& p, bool value, CXError& err) {
    const uint32_t cp = ansi_codepage();
    const std::u16string file = ini_file();
    std::string section = ini::to_ansi(section_of(p.group), cp), key = ini::to_ansi(p.name, cp);
    uint32_t code = 0;
    bool ok = false;
    try {
        ok = ini::write_file(file, section, value && !key.empty() ? &key : nullptr, nullptr, cp, &code);
    } catch (const std::bad_alloc&) {
        code = platform::kErrorNotEnoughMemory;
    }
    if (ok) return true;
    err.fail(ini::kErrFile, {file});
    err.set_system(code);
    return false;
}

// The stored value, in the type of `like` when given.
bool load(const ParamPath& p, const Param* like, Param& out) {
    if (settings().mode == kModeRegistry) {
        Param stored;
        if (!registry_load(p, stored)) return false;
        if (!like) {
            out = std::move(stored);
            return true;
        }
        return convert_to(stored, like->kind, out);
    }
    std::string raw;
    if (!ini_load_bytes(p, raw)) return false;
    if (like && like->kind == Param::Kind::Bytes) {
        out = Param::buffer({});
        std::string bytes = unescape_bytes(raw);
        out.bytes.assign(bytes.begin(), bytes.end());
        return true;
    }
    Param text = Param::string(unescape(ini::nul_to_crlf(ini::from_ansi(raw, ansi_codepage()))));
    if (!like) {
        out = std::move(text);
        return true;
    }
    return convert_to(text, like->kind, out);
}

} // namespace

// --- Pure rules -------------------------------------------------------------------------

ParamPath split_path(std::u16string_view name) {
    std::u16string path(name);
    for (char16_t& c : path)
        if (c == u'/' || c == u'.') c = kBackslash;
    ParamPath p;
    std::size_t last = path.rfind(kBackslash);
    if (last == std::u16string::npos) {
        p.name = std::move(path);
    } else {
        p.group = path.substr(0, last);
        p.name = path.substr(last + 1);
    }
    return p;
}

namespace {

// The characters written escaped, each with the letter after its backslash.
struct Escape {
    char16_t raw;
    char16_t letter;
};
constexpr Escape kEscapes[] = {
    {u'\\', u'\\'}, {u'\n', u'n'}, {u'\r', u'r'}, {u'\t', u't'}, {u' ', u'_'},
};

} // namespace

std::u16string escape(std::u16string_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (char16_t c : text) {
        const Escape* e = std::find_if(std::begin(kEscapes), std::end(kEscapes),
                                       [c](const Escape& x) { return x.raw == c; });
        if (e == std::end(kEscapes)) {
            out.push_back(c);
        } else {
            out.push_back(u'\\');
            out.push_back(e->letter);
        }
    }
    return out;
}

std::u16string unescape(std::u16string_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char16_t c = text[i];
        if (c != u'\\' || i + 1 == text.size()) {
            out.push_back(c);
            continue;
        }
        char16_t n = text[++i];
        const Escape* e = std::find_if(std::begin(kEscapes), std::end(kEscapes),
                                       [n](const Escape& x) { return x.letter == n; });
        if (e == std::end(kEscapes)) {
            // An unknown sequence stays as it was written.
            out.push_back(c);
            out.push_back(n);
        } else {
            out.push_back(e->raw);
        }
    }
    return out;
}

namespace {

// `f` applied to bytes read as the characters 0-255; its result back as bytes.
std::string on_bytes(std::string_view bytes, std::u16string (*f)(std::u16string_view)) {
    std::u16string wide(bytes.size(), u'\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        wide[i] = static_cast<uint8_t>(bytes[i]);
    std::u16string r = f(wide);
    return std::string(r.begin(), r.end());
}

} // namespace

std::string escape_bytes(std::string_view bytes) {
    return on_bytes(bytes, escape);
}

std::string unescape_bytes(std::string_view bytes) {
    return on_bytes(bytes, unescape);
}

std::u16string section_of(std::u16string_view group) {
    if (!group.empty() && group.front() == kBackslash) group.remove_prefix(1);
    if (group.empty()) return u"Global";
    std::u16string s(group);
    for (char16_t& c : s)
        if (c == kBackslash || c == u' ' || c == u'-' || c == u'\t') c = u'_';
    return s;
}

std::u16string real_text(double v) {
    char buf[64];
    auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
    if (ec != std::errc()) return u"0";
    return widen(std::string_view(buf, static_cast<std::size_t>(end - buf)));
}

bool convert_to(const Param& v, Param::Kind kind, Param& out) {
    using K = Param::Kind;
    const bool integral = v.kind == K::Bool || v.kind == K::Int || v.kind == K::Int64;
    switch (kind) {
    case K::Bool:
        if (integral) return out = Param::boolean(v.i != 0), true;
        if (v.kind == K::Real) return out = Param::boolean(v.r != 0), true;
        if (v.kind == K::Text) {
            std::string a = narrow_number(v.text);
            int64_t i = 0;
            double r = 0;
            if (parse_whole(a, i)) return out = Param::boolean(i != 0), true;
            if (parse_whole(a, r)) return out = Param::boolean(r != 0), true;
        }
        return false;
    case K::Int:
    case K::Int64: {
        int64_t i = 0;
        if (integral) {
            i = v.i;
        } else if (v.kind == K::Text) {
            if (!parse_whole(narrow_number(v.text), i)) return false;
        } else if (v.kind == K::Real) {
            if (!(std::isfinite(v.r) && v.r == std::trunc(v.r) && std::fabs(v.r) < 9.2e18)) return false;
            i = static_cast<int64_t>(v.r);
        } else {
            return false;
        }
        if (kind == K::Int64) return out = Param::int64(i), true;
        if (i < INT32_MIN || i > INT32_MAX) return false;
        return out = Param::integer(static_cast<int32_t>(i)), true;
    }
    case K::Real: {
        if (integral) return out = Param::real(static_cast<double>(v.i)), true;
        if (v.kind == K::Real) return out = v, true;
        double r = 0;
        if (v.kind == K::Text && parse_whole(narrow_number(v.text), r)) return out = Param::real(r), true;
        return false;
    }
    case K::Text:
        if (v.kind == K::Text) return out = v, true;
        if (integral) return out = Param::string(widen(std::to_string(v.i))), true;
        if (v.kind == K::Real) return out = Param::string(real_text(v.r)), true;
        if (v.kind == K::Bytes) {
            std::string_view b(reinterpret_cast<const char*>(v.bytes.data()), v.bytes.size());
            return out = Param::string(ini::from_ansi(b, ansi_codepage())), true;
        }
        return false;
    case K::Bytes:
        if (v.kind == K::Bytes) return out = v, true;
        if (v.kind == K::Text) {
            std::string b = ini::to_ansi(v.text, ansi_codepage());
            return out = Param::buffer(std::vector<uint8_t>(b.begin(), b.end())), true;
        }
        return false;
    case K::None:
        out = v;
        return true;
    }
    return false;
}

// --- The store -----------------------------------------------------------------------------

Settings& settings() {
    // One store per component instance, made on first use; it lives until
    // the module is unloaded.
    static Settings s;
    return s;
}

std::u16string default_registry_location() {
    return u"Software\\" + project_name();
}

std::u16string default_ini_file() {
    // Appended to a string that starts with the backslash: GCC 12 at -O3
    // warns (-Wrestrict, wrongly) on inserting in front of a temporary.
    std::u16string file = u"\\";
    file += project_name();
    file += u".ini";
    return file;
}

std::u16string init_parameter(int32_t mode, std::u16string_view location, CXError& err) {
    if (mode != kModeRegistry && mode != kModeIni) {
        err.fail(kErrMode);
        return {};
    }
    Settings& s = settings();
    std::u16string previous = widen(std::to_string(s.mode));
    previous.push_back(u'\t');
    previous.append(s.location);
    s.mode = mode;
    s.location.assign(location);
    return previous;
}

void save_parameter(std::u16string_view name, const Param& value, CXError& err) {
    if (name.empty()) {
        err.fail(kErrEmptyName);
        return;
    }
    ParamPath p = split_path(name);
    if (settings().mode == kModeRegistry)
        registry_save(p, value, err);
    else
        ini_save(p, value, err);
}

Param load_parameter(std::u16string_view name, const Param* fallback) {
    Param out;
    if (!name.empty()) {
        try {
            if (load(split_path(name), fallback, out)) return out;
        } catch (const std::bad_alloc&) {}
    }
    return fallback ? *fallback : Param::string(u"");
}

bool delete_parameter(std::u16string_view name, CXError& err) {
    if (name.empty()) {
        err.fail(kErrEmptyName);
        return false;
    }
    ParamPath p = split_path(name);
    // A stored value is deleted; any other name is a group, deleted whole.
    // (A value that reads as the sentinel text counts as missing.)
    const Param sentinel = Param::string(kMissingSentinel);
    Param probe;
    bool exists = false;
    try {
        exists = load(p, nullptr, probe) && !(probe == sentinel);
    } catch (const std::bad_alloc&) {}
    if (!exists) {
        ParamPath group;
        group.group = p.group.empty() ? p.name : p.group + kBackslash + p.name;
        p = std::move(group);
    }
    try {
        return settings().mode == kModeRegistry ? registry_delete(p, exists, err)
                                                : ini_delete(p, exists, err);
    } catch (const std::bad_alloc&) {
        err.fail(kErrLocation, {name});
        return false;
    }
}

bool delete_current_object(CXError& err) {
    auto fn = runtime::service(&kp_services::current_object_name);
    const char16_t* name = fn ? fn(runtime::vm()) : nullptr;
    return delete_parameter(name ? std::u16string_view(name) : std::u16string_view(), err);
}

} // namespace kp::files::params
