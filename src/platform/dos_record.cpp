// dos_record.cpp - the NDR record of "user.DOSATTRIB" (see dos_record.h).
#include "platform/dos_record.h"

namespace kp::platform::host {

namespace {

constexpr uint32_t kValidAttributes = 0x1, kValidCreateTime = 0x10;

// A little-endian reader over the value, with NDR's alignment taken from
// the value's start.  Reading past the end marks the reader as failed.
class Reader {
  public:
    explicit Reader(std::span<const uint8_t> v, std::size_t pos) : v_(v), pos_(pos) {}
    void align(std::size_t n) { pos_ = (pos_ + n - 1) / n * n; }
    uint64_t take(std::size_t bytes) {
        if (pos_ > v_.size() || v_.size() - pos_ < bytes) {
            ok_ = false;
            pos_ = v_.size() + 1;
            return 0;
        }
        uint64_t x = 0;
        for (std::size_t i = 0; i < bytes; ++i)
            x |= static_cast<uint64_t>(v_[pos_ + i]) << (8 * i);
        pos_ += bytes;
        return x;
    }
    uint32_t u16() { return static_cast<uint32_t>(take(2)); }
    uint32_t u32() { return static_cast<uint32_t>(take(4)); }
    uint64_t u64() { return take(8); } // udlong and NTTIME: aligned on 4
    // Skips a NUL-terminated string.
    void skip_string() {
        while (ok_ && take(1) != 0) {}
    }
    bool ok() const { return ok_; }

  private:
    std::span<const uint8_t> v_;
    std::size_t pos_;
    bool ok_ = true;
};

// The attributes of the text "0x<hex>" (Samba writes it in lower case);
// false when it is not such a number.
bool parse_text(std::span<const uint8_t> text, uint32_t& out) {
    if (text.size() < 3 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X')) return false;
    uint64_t value = 0;
    for (std::size_t i = 2; i < text.size(); ++i) {
        const uint8_t c = text[i];
        int digit;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        else
            return false;
        value = value * 16 + static_cast<uint64_t>(digit);
        if (value > UINT32_MAX) return false;
    }
    out = static_cast<uint32_t>(value);
    return true;
}

void put(std::string& out, uint64_t x, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; ++i)
        out.push_back(static_cast<char>((x >> (8 * i)) & 0xFF));
}

} // namespace

DosRecord parse_dos_record(std::span<const uint8_t> value) {
    DosRecord out;
    std::size_t nul = 0;
    while (nul < value.size() && value[nul] != 0)
        ++nul;
    uint32_t text_bits = 0;
    const bool has_text = parse_text(value.first(nul), text_bits);
    auto from_text = [&] {
        out.has_attributes = has_text;
        out.attributes = has_text ? text_bits : 0;
        return out;
    };
    if (nul + 1 >= value.size()) return from_text(); // the text alone

    Reader r(value, nul + 1);
    r.align(2);
    const uint32_t version = r.u16();
    const uint32_t level = r.u16();
    if (!r.ok() || version != level) return from_text();
    r.align(4);
    uint32_t flags = kValidAttributes | kValidCreateTime, attributes = 0;
    uint64_t create_time = 0;
    switch (version) {
    case 1:
        attributes = r.u32();
        r.u32();               // ea_size
        r.u64(), r.u64();      // size, alloc_size
        create_time = r.u64(); // then change_time
        r.u64();
        break;
    case 2:
        r.u32(); // flags (of the sticky write time)
        attributes = r.u32();
        r.u32(), r.u64(), r.u64(); // ea_size, size, alloc_size
        create_time = r.u64();
        r.u64(), r.u64(); // change_time, write_time
        r.skip_string();  // name
        break;
    case 3:
        flags = r.u32();
        attributes = r.u32();
        r.u32(), r.u64(), r.u64(); // ea_size, size, alloc_size
        create_time = r.u64();
        r.u64(); // change_time
        break;
    case 4:
        flags = r.u32();
        attributes = r.u32();
        r.u64(); // itime
        create_time = r.u64();
        break;
    case 5:
        flags = r.u32();
        attributes = r.u32();
        create_time = r.u64();
        break;
    default:
        return from_text();
    }
    if (!r.ok()) return from_text();
    if (flags & kValidAttributes) {
        out.has_attributes = true;
        out.attributes = attributes;
    } else {
        from_text();
    }
    // Versions 1 and 2 have no flags: a creation time of 0 is none.
    out.has_create_time = (flags & kValidCreateTime) && (version > 2 || create_time != 0);
    out.create_time = out.has_create_time ? create_time : 0;
    return out;
}

std::string make_dos_record(uint32_t attributes, const DosRecord& previous) {
    std::string out;
    out.push_back('\0'); // the empty text
    out.push_back('\0'); // alignment on 2
    put(out, 5, 2);      // version
    put(out, 5, 2);      // the union's discriminant
    put(out, 0, 2);      // alignment on 4
    put(out, kValidAttributes | (previous.has_create_time ? kValidCreateTime : 0), 4);
    put(out, attributes, 4);
    put(out, previous.has_create_time ? previous.create_time : 0, 8);
    return out;
}

} // namespace kp::platform::host
