// pe_version.cpp - executable kinds and version resources of PE files.
#include "system/pe_version.h"

#include <algorithm>
#include <cstring>

namespace kp::system {

namespace {

uint16_t u16_at(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}
uint32_t u32_at(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

constexpr uint16_t kMz = 0x5A4D;
constexpr uint32_t kPeSignature = 0x00004550;
constexpr uint16_t kPe32 = 0x10B, kPe64 = 0x20B;
constexpr uint32_t kResourceVersion = 16;
constexpr uint32_t kSubdirectory = 0x80000000u;
// The loader's own limit on sections.
constexpr uint32_t kMaxSections = 96;
// A version block's length is a 16-bit word.
constexpr uint32_t kMaxVersionBlock = 0xFFFF;

struct Section {
    uint32_t address, virtual_size, raw_size, raw_offset;
};

// Maps an address of the loaded image to its offset in the file, for a
// range of `length` bytes that the file holds entirely.
std::optional<uint64_t> file_offset(const std::vector<Section>& sections, uint32_t rva, uint32_t length) {
    for (const Section& s : sections) {
        if (rva < s.address) continue;
        const uint64_t into = static_cast<uint64_t>(rva) - s.address;
        if (into + length > s.raw_size) continue;
        return static_cast<uint64_t>(s.raw_offset) + into;
    }
    return std::nullopt;
}

// One entry of a resource directory.
struct DirEntry {
    uint32_t name, target;
};

// The entries of the resource directory at `rva`, or nothing.
std::optional<std::vector<DirEntry>> directory(ByteSource& file, const std::vector<Section>& sections,
                                               uint32_t rva) {
    uint8_t head[16];
    auto at = file_offset(sections, rva, sizeof head);
    if (!at || !file.read(*at, head, sizeof head)) return std::nullopt;
    const uint32_t count = static_cast<uint32_t>(u16_at(head + 12)) + u16_at(head + 14);
    std::vector<uint8_t> raw(static_cast<std::size_t>(count) * 8);
    if (count > 0) {
        auto entries = file_offset(sections, rva + 16u, static_cast<uint32_t>(raw.size()));
        if (rva > UINT32_MAX - 16u || !entries || !file.read(*entries, raw.data(), raw.size()))
            return std::nullopt;
    }
    std::vector<DirEntry> out(count);
    for (uint32_t k = 0; k < count; ++k)
        out[k] = {u32_at(&raw[k * 8]), u32_at(&raw[k * 8 + 4])};
    return out;
}

// The entry with identifier `id` when there is one, else the first.
const DirEntry* pick(const std::vector<DirEntry>& entries, uint32_t id, bool only_id) {
    for (const DirEntry& e : entries)
        if (e.name == id) return &e;
    if (only_id || entries.empty()) return nullptr;
    return &entries.front();
}

// A block of a version resource: length, value length, type, key, value
// and children, each inside the block.
struct VersionBlock {
    std::size_t end = 0;          // one past the block's last byte
    std::u16string key;           // its key
    std::size_t value = 0;        // offset of its value
    std::size_t value_length = 0; // bytes of the value inside the block
    bool text = false;            // the value is text
    std::size_t children = 0;     // offset of its first child
};

std::size_t align4(std::size_t v) {
    return (v + 3) & ~static_cast<std::size_t>(3);
}

bool parse_block(std::span<const uint8_t> data, std::size_t at, std::size_t limit, VersionBlock& b) {
    if (at > limit || limit - at < 6) return false;
    const std::size_t length = u16_at(&data[at]);
    if (length < 6) return false;
    b.end = std::min(limit, at + length);
    const std::size_t value_words = u16_at(&data[at + 2]);
    b.text = u16_at(&data[at + 4]) == 1;
    b.key.clear();
    std::size_t p = at + 6;
    for (; p + 2 <= b.end; p += 2) {
        char16_t c = u16_at(&data[p]);
        if (c == 0) break;
        b.key += c;
    }
    p += 2;
    b.value = std::min(align4(p), b.end);
    const std::size_t value_bytes = b.text ? value_words * 2 : value_words;
    b.value_length = std::min(value_bytes, b.end - b.value);
    b.children = std::min(align4(b.value + b.value_length), b.end);
    return true;
}

bool same_key(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char16_t x = a[i], y = b[i];
        if (x >= u'a' && x <= u'z') x = static_cast<char16_t>(x - 32);
        if (y >= u'a' && y <= u'z') y = static_cast<char16_t>(y - 32);
        if (x != y) return false;
    }
    return true;
}

// The block at the end of `path` ("\A\B"), starting from the root block.
std::optional<VersionBlock> find_block(std::span<const uint8_t> data, std::u16string_view path) {
    VersionBlock block;
    if (!parse_block(data, 0, data.size(), block)) return std::nullopt;
    while (!path.empty()) {
        if (path.front() == u'\\') {
            path.remove_prefix(1);
            continue;
        }
        std::size_t sep = path.find(u'\\');
        std::u16string_view key = path.substr(0, sep);
        path = sep == std::u16string_view::npos ? std::u16string_view() : path.substr(sep);
        bool found = false;
        VersionBlock child;
        for (std::size_t at = block.children; at < block.end;) {
            if (!parse_block(data, at, block.end, child)) break;
            if (same_key(child.key, key)) {
                found = true;
                break;
            }
            at = align4(child.end);
        }
        if (!found) return std::nullopt;
        block = child;
    }
    return block;
}

std::u16string hex4(uint16_t v) {
    static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
    std::u16string s(4, u'0');
    for (int k = 3; k >= 0; --k, v >>= 4)
        s[static_cast<std::size_t>(k)] = kDigits[v & 15];
    return s;
}

} // namespace

bool SpanSource::read(uint64_t offset, void* out, std::size_t count) {
    if (offset > bytes_.size() || bytes_.size() - offset < count) return false;
    if (count) std::memcpy(out, bytes_.data() + offset, count);
    return true;
}

int32_t executable_kind(ByteSource& file) {
    uint8_t dos[64];
    if (!file.read(0, dos, sizeof dos)) return -1;
    if (u16_at(dos) != kMz) return -2;
    if (u16_at(dos + 24) != 64) return 0;
    uint8_t nt[248];
    if (!file.read(u32_at(dos + 60), nt, sizeof nt)) return 3;
    switch (u16_at(nt)) {
    case 0x3357:
    case 0x454C:
    case 0x454E:
    case 0x584C:
        return 1;
    case 0x4550:
        return u16_at(nt + 24) == kPe64 ? 4 : 2;
    case kMz:
        return 0;
    default:
        return 3;
    }
}

std::u16string_view executable_kind_text(int32_t kind) {
    switch (kind) {
    case 0:
        return u"DOS";
    case 1:
        return u"16";
    case 2:
        return u"32";
    case 4:
        return u"64";
    default:
        return u"";
    }
}

bool read_version_resource(ByteSource& file, std::vector<uint8_t>& out) {
    out.clear();
    uint8_t dos[64];
    if (!file.read(0, dos, sizeof dos) || u16_at(dos) != kMz) return false;
    const uint64_t nt = u32_at(dos + 60);
    uint8_t head[24];
    if (!file.read(nt, head, sizeof head) || u32_at(head) != kPeSignature) return false;
    const uint32_t section_count = u16_at(head + 6);
    const uint32_t optional_size = u16_at(head + 20);
    if (section_count > kMaxSections) return false;
    std::vector<uint8_t> optional(optional_size);
    if (!file.read(nt + 24, optional.data(), optional.size()) || optional_size < 2) return false;
    const uint16_t magic = u16_at(optional.data());
    std::size_t dirs;
    if (magic == kPe32)
        dirs = 96;
    else if (magic == kPe64)
        dirs = 112;
    else
        return false;
    // Resources are the third data directory.
    if (optional_size < dirs + 3 * 8 || u32_at(&optional[dirs - 4]) < 3) return false;
    const uint32_t root = u32_at(&optional[dirs + 16]);
    if (root == 0) return false;

    std::vector<uint8_t> table(static_cast<std::size_t>(section_count) * 40);
    if (!file.read(nt + 24 + optional_size, table.data(), table.size())) return false;
    std::vector<Section> sections(section_count);
    for (uint32_t k = 0; k < section_count; ++k) {
        const uint8_t* s = &table[k * 40];
        sections[k] = {u32_at(s + 12), u32_at(s + 8), u32_at(s + 16), u32_at(s + 20)};
    }

    // Type, name, language: three levels, then the data entry.
    auto types = directory(file, sections, root);
    if (!types) return false;
    const DirEntry* type = pick(*types, kResourceVersion, true);
    if (!type || !(type->target & kSubdirectory)) return false;
    auto names = directory(file, sections, root + (type->target & ~kSubdirectory));
    if (!names) return false;
    const DirEntry* name = pick(*names, 1, false);
    if (!name || !(name->target & kSubdirectory)) return false;
    auto languages = directory(file, sections, root + (name->target & ~kSubdirectory));
    if (!languages || languages->empty() || (languages->front().target & kSubdirectory)) return false;
    uint8_t entry[16];
    auto at = file_offset(sections, root + languages->front().target, sizeof entry);
    if (!at || !file.read(*at, entry, sizeof entry)) return false;
    const uint32_t size = std::min(u32_at(entry + 4), kMaxVersionBlock);
    auto data = file_offset(sections, u32_at(entry), size);
    if (!data || size < 6) return false;
    out.resize(size);
    if (!file.read(*data, out.data(), out.size())) {
        out.clear();
        return false;
    }
    return true;
}

std::optional<std::u16string> version_string(std::span<const uint8_t> block, std::u16string_view path) {
    auto b = find_block(block, path);
    if (!b) return std::nullopt;
    std::u16string text;
    for (std::size_t p = b->value; p + 2 <= b->value + b->value_length; p += 2) {
        char16_t c = u16_at(&block[p]);
        if (c == 0) break;
        text += c;
    }
    return text;
}

std::optional<std::u16string> first_translation(std::span<const uint8_t> block) {
    auto b = find_block(block, u"\\VarFileInfo\\Translation");
    if (!b || b->value_length < 4) return std::nullopt;
    return hex4(u16_at(&block[b->value])) + hex4(u16_at(&block[b->value + 2]));
}

std::u16string version_value(std::span<const uint8_t> block, std::u16string_view name) {
    constexpr std::size_t kMaxName = 50, kMaxValue = 199;
    if (name.size() > kMaxName || block.empty()) return {};
    std::optional<std::u16string> value;
    if (auto translation = first_translation(block))
        value = version_string(block, u"\\StringFileInfo\\" + *translation + u"\\" + std::u16string(name));
    if (!value) value = version_string(block, u"\\StringFileInfo\\040904E4\\" + std::u16string(name));
    if (!value) return {};
    if (value->size() > kMaxValue) value->resize(kMaxValue);
    return *value;
}

} // namespace kp::system
