// registry.cpp - the registry functions over the registry store.
#include "registry/registry.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "component/runtime.h"
#include "platform/memory.h"
#include "platform/unicode_text.h"
#include "registry/regtool.h"

namespace kp::registry {

namespace store = platform::registry;
using store::Key;

namespace {

constexpr uint32_t kNotFound = 2, kAccessDenied = 5, kInvalidHandle = 6, kNotEnoughMemory = 8,
                   kInvalidParameter = 87, kBadPathname = 161, kNameTooLong = 206;

// Root and subkey are held in buffers of 260 characters: a longer subkey
// names no key (206) rather than a shortened one.
constexpr std::size_t kMaxSubkey = 259;
// Names enumerated by number are read into a buffer of 256 characters.
constexpr uint32_t kEnumNameChars = 256;
// A size reported as all ones stands for this many bytes.
constexpr uint32_t kUnknownSize = 16384;
// Access of the by-number forms: query, enumerate (and set when writing).
constexpr uint32_t kQueryAndEnumerate = store::kQueryValue | store::kEnumerateSubKeys;
constexpr uint32_t kSetByNumber = kQueryAndEnumerate | store::kSetValue;

struct RootName {
    std::u16string_view name;
    Key key;
};
// In the order of the prefix test.  The last three are recognised so that
// they are never taken for a subkey, but the device has no such roots.
constexpr RootName kRoots[] = {
    {u"HKEY_CLASSES_ROOT", store::kClassesRoot},
    {u"HKEY_CURRENT_USER", store::kCurrentUser},
    {u"HKEY_LOCAL_MACHINE", store::kLocalMachine},
    {u"HKEY_USERS", store::kUsers},
    {u"HKEY_PERFORMANCE_DATA", 0},
    {u"HKEY_CURRENT_CONFIG", 0},
    {u"HKEY_DYN_DATA", 0},
};

// Closes a key at the end of a scope.
class Open {
  public:
    Open() = default;
    ~Open() {
        if (key_) store::close_key(key_);
    }
    Open(const Open&) = delete;
    Open& operator=(const Open&) = delete;
    uint32_t path(std::u16string_view p, uint32_t access) { return open_path(p, access, &key_); }
    uint32_t child(Key parent, std::u16string_view name, uint32_t access) {
        return store::open_key(parent, name, access, &key_);
    }
    Key get() const { return key_; }

  private:
    Key key_ = 0;
};

uint16_t le16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

std::u16string text_of(std::span<const uint8_t> bytes) {
    std::u16string s(bytes.size() / 2, u'\0');
    if (!s.empty()) std::memcpy(s.data(), bytes.data(), s.size() * 2);
    std::size_t nul = s.find(u'\0');
    if (nul != std::u16string::npos) s.resize(nul);
    return s;
}

// The first four bytes, zero-padded when the data is shorter.
void first4(std::span<const uint8_t> bytes, uint8_t (&out)[4]) {
    std::memset(out, 0, 4);
    if (!bytes.empty()) std::memcpy(out, bytes.data(), bytes.size() < 4 ? bytes.size() : 4);
}

// Reads a value of an open key by name; 0 with type and data, or the error.
// Most values fit the first buffer: one query; a longer one is read again
// at its size (and again if it grew in between).
uint32_t read_named(Key k, std::u16string_view name, uint32_t* type, std::vector<uint8_t>* data) {
    uint32_t size = 256;
    for (int attempt = 0; attempt < 4; ++attempt) {
        data->resize(size);
        uint32_t e = store::query_value(k, name, type, data->data(), &size);
        if (e == 234) continue;
        if (e) return e;
        data->resize(size);
        return 0;
    }
    return 234;
}

// Name of the value at `index` (buffer of 256 characters).
uint32_t name_at(Key k, uint32_t index, std::u16string* name) {
    char16_t buf[kEnumNameChars];
    uint32_t chars = kEnumNameChars;
    if (uint32_t e = store::enum_value(k, index, buf, &chars, nullptr, nullptr, nullptr)) return e;
    name->assign(buf, chars);
    return 0;
}

void report_write_failure(CXError& err, std::u16string_view key, std::u16string_view name, uint32_t code) {
    err.set(80293, {key, name, system_error_text(code, runtime::french())});
    err.set_system(code);
    if (code == kAccessDenied) err.set_additional(1, 1);
    err.set_severity(2);
}

bool separator(char16_t c) {
    return !platform::is_alphanumeric(c);
}

} // namespace

// --- Key paths --------------------------------------------------------------

KeyPath parse_key_path(std::u16string_view path) {
    KeyPath r{kRoots[0].name, store::kClassesRoot, path};
    for (const RootName& root : kRoots) {
        if (path.substr(0, root.name.size()) == root.name) {
            r.root_name = root.name;
            r.root = root.key;
            r.subkey = path.substr(root.name.size());
            if (!r.subkey.empty() && r.subkey.front() == u'\\') r.subkey.remove_prefix(1);
            break;
        }
    }
    if (!r.subkey.empty() && r.subkey.back() == u'\\') r.subkey.remove_suffix(1);
    return r;
}

uint32_t open_path(std::u16string_view path, uint32_t access, Key* out) {
    *out = 0;
    KeyPath p = parse_key_path(path);
    if (!p.root) return kInvalidHandle;
    if (p.subkey.size() > kMaxSubkey) return kNameTooLong;
    return store::open_key(p.root, p.subkey, access, out);
}

// --- Values -----------------------------------------------------------------

Data convert_data(uint32_t type, std::span<const uint8_t> bytes) {
    Data d;
    switch (type) {
    case store::kNone:
    case store::kLink:
    case store::kResourceList:
        break; // the empty string
    case store::kSz:
        d.text = text_of(bytes);
        break;
    case store::kExpandSz:
    case store::kBinary:
    case store::kMultiSz:
        // Unexpanded and unsplit.
        d.kind = Data::Kind::Bytes;
        d.bytes.assign(bytes.begin(), bytes.end());
        break;
    case store::kDword: {
        uint8_t b[4];
        first4(bytes, b);
        d.kind = Data::Kind::Integer;
        d.integer = static_cast<int32_t>(le16(b) | (static_cast<uint32_t>(le16(b + 2)) << 16));
        break;
    }
    case store::kDwordBigEndian: {
        // The first little-endian half is the high half and the second the
        // low one: the halves are swapped, the bytes within each are not.
        uint8_t b[4];
        first4(bytes, b);
        d.kind = Data::Kind::Integer;
        d.integer = static_cast<int32_t>((static_cast<uint32_t>(le16(b)) << 16) | le16(b + 2));
        break;
    }
    default:
        d.kind = Data::Kind::Empty;
        break;
    }
    return d;
}

namespace {
Data read_value(std::u16string_view key, ValueRef value, bool* read) {
    if (!value.by_number && key.empty() && value.name.empty()) return {};
    uint32_t type = 0;
    std::vector<uint8_t> data;
    Open k;
    if (!value.by_number || value.number == 0) {
        if (k.path(key, store::kQueryValue)) return {};
        if (read_named(k.get(), value.name, &type, &data)) {
            // A key without a default value reads as the empty string.
            if (!value.name.empty()) return {};
            type = store::kSz;
            data.clear();
        }
    } else {
        if (k.path(key, kQueryAndEnumerate)) return {};
        uint32_t index = static_cast<uint32_t>(value.number) - 1;
        char16_t name[kEnumNameChars];
        uint32_t chars = kEnumNameChars, size = 0;
        if (store::enum_value(k.get(), index, name, &chars, &type, nullptr, &size)) return {};
        if (size == 0xFFFFFFFFu) size = kUnknownSize;
        data.resize(size);
        chars = kEnumNameChars;
        if (store::enum_value(k.get(), index, name, &chars, &type, data.data(), &size)) return {};
        data.resize(size);
    }
    *read = true;
    return convert_data(type, data);
}
} // namespace

Data query_value(std::u16string_view key, ValueRef value, bool* read) {
    bool ok = false;
    // A value too large for the memory left reads as a failure.
    try {
        Data d = read_value(key, value, &ok);
        if (read) *read = ok;
        return d;
    } catch (const std::bad_alloc&) {
        if (read) *read = false;
        return {};
    }
}

bool set_value(std::u16string_view key, ValueRef value, uint32_t type, std::span<const uint8_t> bytes,
               CXError& err) {
    if (key.empty()) return false;
    bool numbered = value.by_number && value.number != 0;
    Open k;
    if (uint32_t e = k.path(key, numbered ? kSetByNumber : store::kSetValue)) {
        report_write_failure(err, key, numbered ? std::u16string_view() : value.name, e);
        return false;
    }
    std::u16string name(value.name);
    // A number names no value when the enumeration has none there: false,
    // without an error.
    if (numbered && name_at(k.get(), static_cast<uint32_t>(value.number) - 1, &name)) return false;
    uint32_t e = bytes.size() > 0xFFFFFFFFu ? kInvalidParameter
                                            : store::set_value(k.get(), name, type, bytes.data(),
                                                               static_cast<uint32_t>(bytes.size()));
    if (e) {
        report_write_failure(err, key, name, e);
        return false;
    }
    return true;
}

std::vector<uint8_t> string_bytes(std::u16string_view s, bool with_terminator) {
    std::vector<uint8_t> b((s.size() + (with_terminator ? 1 : 0)) * 2, 0);
    if (!s.empty()) std::memcpy(b.data(), s.data(), s.size() * 2);
    return b;
}

std::vector<uint8_t> dword_bytes(int32_t v) {
    uint32_t u = static_cast<uint32_t>(v);
    return {static_cast<uint8_t>(u), static_cast<uint8_t>(u >> 8), static_cast<uint8_t>(u >> 16),
            static_cast<uint8_t>(u >> 24)};
}

bool set_string(std::u16string_view key, ValueRef value, std::u16string_view s, CXError& err) {
    // Named, the string is stored with its terminating NUL; given by number,
    // without it.  Both read back as the same string.
    return set_value(key, value, store::kSz, string_bytes(s, !value.by_number), err);
}

bool set_integer(std::u16string_view key, ValueRef value, int32_t v, CXError& err) {
    return set_value(key, value, store::kDword, dword_bytes(v), err);
}

bool set_real(std::u16string_view key, ValueRef value, double v, CXError& err) {
    uint8_t b[8];
    std::memcpy(b, &v, 8);
    return set_value(key, value, store::kBinary, b, err);
}

bool set_currency(std::u16string_view key, ValueRef value, const uint8_t (&cy)[10], CXError& err) {
    return set_value(key, value, store::kBinary, cy, err);
}

bool set_memory(std::u16string_view key, ValueRef value, uintptr_t address, int32_t size, CXError& err) {
    if (key.empty()) return false;
    std::vector<uint8_t> bytes;
    uint32_t e = 0;
    if (size < 0) {
        e = kInvalidParameter;
    } else {
        // Read a megabyte at a time: a size beyond the readable memory fails
        // without first taking that much memory.
        try {
            std::size_t done = 0, total = static_cast<std::size_t>(size);
            while (!e && done < total) {
                std::size_t n = std::min<std::size_t>(total - done, std::size_t(1) << 20);
                bytes.resize(done + n);
                if (!platform::read_memory(address + done, bytes.data() + done, n)) e = 998;
                done += n;
            }
        } catch (const std::bad_alloc&) {
            e = kNotEnoughMemory;
        }
    }
    if (e) {
        report_write_failure(err, key, value.by_number ? std::u16string_view() : value.name, e);
        return false;
    }
    return set_value(key, value, store::kBinary, bytes, err);
}

bool exists(std::u16string_view key) {
    // The default value reads whenever the key opens.
    return exists(key, ValueRef::named(u""));
}

bool exists(std::u16string_view key, ValueRef value) {
    if (key.empty()) return false;
    bool read = false;
    query_value(key, value, &read);
    return read;
}

bool delete_value(std::u16string_view key, std::u16string_view name, CXError& err) {
    if (key.empty() || name.empty()) return false;
    {
        Open q;
        uint32_t size = 0;
        if (q.path(key, store::kQueryValue) || store::query_value(q.get(), name, nullptr, nullptr, &size))
            return true; // nothing to delete
    }
    Open k;
    uint32_t e = k.path(key, store::kSetValue);
    if (!e) e = store::delete_value(k.get(), name);
    if (e) {
        err.set(80291, {key});
        err.set_system(e);
        err.set_severity(2);
        return false;
    }
    return true;
}

std::u16string list_values(std::u16string_view key, bool with_types) {
    if (key.empty()) return {};
    Open k;
    store::KeyInfo info;
    if (k.path(key, store::kRead) || store::query_info_key(k.get(), &info)) return {};
    std::u16string out;
    std::u16string name(info.max_value_name_len + 1, u'\0');
    for (uint32_t i = 0; i < info.values; ++i) {
        uint32_t chars = info.max_value_name_len + 1, type = 0;
        if (store::enum_value(k.get(), i, name.data(), &chars, &type, nullptr, nullptr)) break;
        if (i) out += u"\r\n";
        out.append(name.data(), chars);
        if (with_types) {
            out += u'\t';
            out += (type == store::kSz || type == store::kExpandSz || type == store::kMultiSz) ? u'T'
                   : (type == store::kDword || type == store::kDwordBigEndian)                 ? u'N'
                                                                                               : u'B';
        }
    }
    return out;
}

// --- Keys -------------------------------------------------------------------

std::u16string first_subkey(std::u16string_view key) {
    KeyPath p = parse_key_path(key);
    Open k;
    if (k.path(key, store::kEnumerateSubKeys)) return {};
    char16_t name[256];
    uint32_t chars = 256;
    if (store::enum_key(k.get(), 0, name, &chars)) return {};
    std::u16string out(p.root_name);
    out += u'\\';
    out += p.subkey;
    if (!p.subkey.empty()) out += u'\\';
    out.append(name, chars);
    return out;
}

std::u16string next_key(std::u16string_view key) {
    KeyPath p = parse_key_path(key);
    if (!p.root || p.subkey.empty() || p.subkey.size() > kMaxSubkey) return {};
    std::size_t cut = p.subkey.rfind(u'\\');
    std::u16string_view parent =
        cut == std::u16string_view::npos ? std::u16string_view() : p.subkey.substr(0, cut);
    std::u16string_view name = cut == std::u16string_view::npos ? p.subkey : p.subkey.substr(cut + 1);
    Open k;
    if (k.child(p.root, parent, store::kEnumerateSubKeys)) return {};
    // The sibling at the index after the subkey whose name equals `name`
    // with regard to case (names are unique whatever their case, so there
    // is at most one).
    char16_t buf[256];
    uint32_t chars = 256;
    if (store::enum_key_after(k.get(), name, buf, &chars)) return {};
    // A key right under its root has the root as parent: the result is then
    // the root name, one backslash and the name, so that it names the
    // sibling again when passed back.
    std::u16string out(p.root_name);
    out += u'\\';
    if (!parent.empty()) {
        out += parent;
        out += u'\\';
    }
    out.append(buf, chars);
    return out;
}

bool create_key(std::u16string_view key, CXError& err) {
    if (key.empty()) return false;
    KeyPath p = parse_key_path(key);
    Key k = 0;
    uint32_t e = !p.root                        ? kInvalidHandle
                 : p.subkey.size() > kMaxSubkey ? kNameTooLong
                                                : store::create_key(p.root, p.subkey, store::kAllAccess, &k);
    if (e) {
        err.set(80291, {key});
        err.set_system(e);
        err.set(80293, {key, u"", system_error_text(e, runtime::french())});
        err.set_system(e);
        err.set_severity(2);
        return false;
    }
    store::close_key(k);
    return true;
}

bool delete_key(std::u16string_view key, CXError& err) {
    if (key.empty()) {
        err.fail(80292);
        return false;
    }
    auto fail = [&](uint32_t code) {
        err.set_system(code);
        err.set_severity(2);
        return false;
    };
    KeyPath p = parse_key_path(key);
    Open probe;
    uint32_t e = probe.path(key, store::kEnumerateSubKeys);
    // A key that does not exist (or cannot, under a root the device does not
    // have or by its path) is already deleted.
    if (e == kNotFound || e == kInvalidHandle || e == kInvalidParameter || e == kBadPathname ||
        e == kNameTooLong)
        return true;
    // A registry that cannot be used (a file that is no registry, busy past
    // the timeout): false, with the system error and no identifier.
    if (e) return fail(e);
    // A root itself is never deleted, not even its subkeys.
    if (p.subkey.empty()) return fail(kAccessDenied);
    // Depth first: while a key has a first subkey, that subkey goes first.
    // The whole deletion is one transaction: a failure on the way leaves
    // every key in place.
    if ((e = store::begin_batch())) return fail(e);
    e = regtool::delete_tree(p.root, p.subkey);
    uint32_t end = store::end_batch(e == 0);
    if (e || end) return fail(e ? e : end);
    return true;
}

// --- Search -----------------------------------------------------------------

bool seek_matches(std::u16string_view candidate, std::u16string_view text, bool whole_word) {
    if (text.empty()) return false;
    std::u16string c = platform::to_upper(candidate), t = platform::to_upper(text);
    for (std::size_t at = c.find(t); at != std::u16string::npos; at = c.find(t, at + 1)) {
        if (!whole_word) return true;
        std::size_t end = at + t.size();
        if ((at == 0 || separator(c[at - 1])) && (end == c.size() || separator(c[end]))) return true;
    }
    return false;
}

namespace {

// The data of a value as the search reads it: the text of the string types
// (the strings of a REG_MULTI_SZ joined by spaces), the number of the
// integer types in decimal as RegistryQueryValue reads it; false for the
// binary types, whose data is not searched.
bool data_text(uint32_t type, std::span<const uint8_t> bytes, std::u16string* out) {
    switch (type) {
    case store::kSz:
    case store::kExpandSz:
        *out = text_of(bytes);
        return true;
    case store::kMultiSz: {
        std::u16string all(bytes.size() / 2, u'\0');
        if (!all.empty()) std::memcpy(all.data(), bytes.data(), all.size() * 2);
        while (!all.empty() && all.back() == u'\0')
            all.pop_back();
        for (char16_t& ch : all)
            if (ch == u'\0') ch = u' ';
        *out = all;
        return true;
    }
    case store::kDword:
    case store::kDwordBigEndian: {
        std::string n = std::to_string(convert_data(type, bytes).integer);
        out->assign(n.begin(), n.end());
        return true;
    }
    default:
        return false;
    }
}

struct Frame {
    Key key = 0;
    std::u16string path;
    uint32_t next = 0;
};

// "parent<TAB>name" of a key path (a root: an empty parent).
std::u16string key_columns(const std::u16string& path) {
    std::size_t cut = path.rfind(u'\\');
    if (cut == std::u16string::npos) return u"\t" + path;
    return path.substr(0, cut) + u'\t' + path.substr(cut + 1);
}

} // namespace

// Each find is one line: the path of the key's parent, a tab and the key's
// name; for a value, a tab and the value name, and when its data matched a
// tab and the data.  A key's values come before its subkeys, and each
// subkey's line before what was found under it (depth first).  Lines are
// separated by CR LF.  An empty text finds nothing.
namespace {
std::u16string seek_in(std::u16string_view key, std::u16string_view text, int32_t options) {
    bool whole = (options & kSeekWholeWord) != 0;
    KeyPath p = parse_key_path(key);
    Frame start;
    if (open_path(key, store::kRead, &start.key)) return {};
    start.path = std::u16string(p.root_name);
    if (!p.subkey.empty()) start.path += u'\\' + std::u16string(p.subkey);
    std::vector<Frame> stack{std::move(start)};
    std::u16string out;
    auto line = [&](const std::u16string& l) {
        if (!out.empty()) out += u"\r\n";
        out += l;
    };
    std::vector<char16_t> name(16384);
    std::vector<uint8_t> data;
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next == 0 && (options & (kSeekValue | kSeekData))) {
            for (uint32_t i = 0;; ++i) {
                uint32_t chars = static_cast<uint32_t>(name.size()), type = 0, size = 0;
                if (store::enum_value(f.key, i, name.data(), &chars, &type, nullptr, &size)) break;
                std::u16string value(name.data(), chars), shown;
                bool data_hit = false;
                if (options & kSeekData) {
                    data.resize(size);
                    chars = static_cast<uint32_t>(name.size());
                    if (!store::enum_value(f.key, i, name.data(), &chars, &type, data.data(), &size)) {
                        data.resize(size);
                        data_hit = data_text(type, data, &shown) && seek_matches(shown, text, whole);
                    }
                }
                bool name_hit = (options & kSeekValue) && seek_matches(value, text, whole);
                if (name_hit || data_hit)
                    line(key_columns(f.path) + u'\t' + value + (data_hit ? u'\t' + shown : std::u16string()));
            }
        }
        char16_t sub[256];
        uint32_t chars = 256;
        if (store::enum_key(f.key, f.next++, sub, &chars)) {
            store::close_key(f.key);
            stack.pop_back();
            continue;
        }
        std::u16string child(sub, chars);
        if ((options & kSeekKey) && seek_matches(child, text, whole)) line(f.path + u'\t' + child);
        if (options & kSeekRecursive) {
            Frame next;
            if (!store::open_key(f.key, child, store::kRead, &next.key)) {
                next.path = f.path + u'\\' + child;
                stack.push_back(std::move(next)); // f is not used after this
            }
        }
    }
    return out;
}
} // namespace

std::u16string seek(std::u16string_view key, std::u16string_view text, int32_t options) {
    if (key.empty() || text.empty()) return {};
    // Finds that outgrow the memory left give the empty string.
    try {
        return seek_in(key, text, options);
    } catch (const std::bad_alloc&) {
        return {};
    }
}

} // namespace kp::registry
