// coders.cpp - dictionary coder (method 2) and short-string coder (method 5).
#include "transforms/coders.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "transforms/bytes.h"
#include "transforms/lzw.h"

namespace kp::transforms {
namespace dictionary {
namespace {

constexpr uint32_t kEscape = 256;
constexpr uint32_t kCtlCode256 = 0, kCtlClear = 1, kCtlWiden = 2, kCtlEnd = 3;
constexpr uint32_t kHashSize = 0x8000;

class BitWriter {
  public:
    explicit BitWriter(std::vector<uint8_t>& out) : out_(out) {}
    void put(uint32_t code, unsigned width) {
        buf_ = (buf_ << width) | code;
        bits_ += width;
        while (bits_ >= 8) {
            bits_ -= 8;
            out_.push_back(static_cast<uint8_t>(buf_ >> bits_));
        }
    }
    void flush() {
        if (bits_ > 0) out_.push_back(static_cast<uint8_t>(buf_ << (8 - bits_)));
        bits_ = 0;
    }

  private:
    std::vector<uint8_t>& out_;
    uint64_t buf_ = 0;
    unsigned bits_ = 0;
};

} // namespace

void encode(std::span<const uint8_t> in, std::vector<uint8_t>& out) {
    const std::size_t n = in.size();
    const std::size_t base = out.size();
    if (n > 0xFFFFFFF0u) {
        append_stored_block(in, out);
        return;
    }
    auto hash = std::make_unique<uint16_t[]>(kHashSize);
    std::vector<uint16_t> prefix(kMaxCodes), length(kMaxCodes);
    std::vector<uint8_t> last(kMaxCodes);
    uint32_t next = 256;
    unsigned width = 9;
    auto clear = [&] {
        std::fill_n(hash.get(), kHashSize, uint16_t{0});
        next = 256;
        width = 9;
    };
    clear();
    for (uint32_t c = 0; c < 256; ++c)
        length[c] = 1;

    out.resize(base + 11);
    BitWriter w(out);
    auto emit = [&](uint32_t code) {
        while (code >= (1u << width)) {
            w.put(kEscape, width);
            w.put(kCtlWiden, width);
            ++width;
        }
        if (code == kEscape) {
            w.put(kEscape, width);
            w.put(kCtlCode256, width);
        } else {
            w.put(code, width);
        }
    };

    const uint8_t* p = in.data();
    std::size_t i = 0;
    while (i < n) {
        if (out.size() - base >= n) break;
        uint32_t cur = p[i++];
        bool room = true;
        uint32_t slot = 0;
        while (i < n) {
            const uint32_t b = p[i];
            uint32_t s = (b ^ (cur * 8u)) & (kHashSize - 1);
            bool found = false;
            room = false;
            for (int probe = 0; probe < 20; ++probe) {
                const uint32_t c = hash[s];
                if (c == 0) {
                    room = true;
                    break;
                }
                if (prefix[c] == cur && last[c] == b) {
                    found = true;
                    break;
                }
                s = (s + 1019) & (kHashSize - 1);
            }
            if (!found) {
                slot = s;
                break;
            }
            cur = hash[s];
            ++i;
        }
        emit(cur);
        if (i >= n || length[cur] + 1u > kMaxString) continue;
        if (next >= kMaxCodes || !room) {
            w.put(kEscape, width);
            w.put(kCtlClear, width);
            clear();
            continue;
        }
        hash[slot] = static_cast<uint16_t>(next);
        prefix[next] = static_cast<uint16_t>(cur);
        last[next] = p[i];
        length[next] = static_cast<uint16_t>(length[cur] + 1);
        ++next;
    }
    w.put(kEscape, width);
    w.put(kCtlEnd, width);
    w.flush();
    if (out.size() - base >= n) {
        out.resize(base);
        append_stored_block(in, out);
        return;
    }
    uint8_t* h = out.data() + base;
    h[0] = 2;
    put_u32(h + 1, static_cast<uint32_t>(out.size() - base - 11));
    put_u32(h + 5, static_cast<uint32_t>(n));
    h[9] = h[10] = 0;
}

bool decode(std::span<const uint8_t> payload, uint32_t length, std::vector<uint8_t>& out) {
    const std::size_t base = out.size();
    if (length == 0) return true;
    std::vector<uint16_t> prefix(kMaxCodes), len(kMaxCodes);
    std::vector<uint8_t> last(kMaxCodes), first(kMaxCodes);
    for (uint32_t c = 0; c < 256; ++c) {
        last[c] = first[c] = static_cast<uint8_t>(c);
        len[c] = 1;
    }
    std::size_t room = std::min<std::size_t>(length, payload.size() * 4 + 4096);
    out.resize(base + room);
    auto fail = [&] {
        out.resize(base);
        return false;
    };

    std::size_t ip = 0;
    uint64_t buf = 0;
    unsigned bits = 0;
    unsigned width = 9;
    auto read = [&](uint32_t& code) {
        while (bits < width && ip < payload.size()) {
            buf = (buf << 8) | payload[ip++];
            bits += 8;
        }
        if (bits < width) return false;
        bits -= width;
        code = static_cast<uint32_t>(buf >> bits) & ((1u << width) - 1u);
        return true;
    };

    constexpr uint32_t kNone = 0xFFFFFFFFu;
    uint32_t next = 256, prev = kNone;
    std::size_t pos = 0;
    while (pos < length) {
        uint32_t code;
        if (!read(code)) return fail();
        if (code == kEscape) {
            uint32_t ctl;
            if (!read(ctl)) return fail();
            if (ctl == kCtlEnd) break;
            if (ctl == kCtlClear) {
                next = 256;
                width = 9;
                prev = kNone;
                continue;
            }
            if (ctl == kCtlWiden) {
                if (width >= 16) return fail();
                ++width;
                continue;
            }
            if (ctl != kCtlCode256) return fail();
        }
        uint32_t c, n;
        if (code < next) {
            c = code;
            n = len[code];
        } else if (code == next && prev != kNone) {
            c = prev;
            n = len[prev] + 1u;
        } else {
            return fail();
        }
        if (n > length - pos) return fail();
        if (pos + n > room) {
            room = std::min<std::size_t>(length, std::max<std::size_t>(room * 2, pos + n));
            out.resize(base + room);
        }
        uint8_t* d = out.data() + base + pos;
        if (c != code) d[n - 1] = first[prev];
        uint8_t* q = d + len[c] - 1;
        while (c >= 256) {
            *q-- = last[c];
            c = prefix[c];
        }
        *q = static_cast<uint8_t>(c);
        if (prev != kNone && next < kMaxCodes && len[prev] + 1u <= kMaxString) {
            prefix[next] = static_cast<uint16_t>(prev);
            last[next] = d[0];
            first[next] = first[prev];
            len[next] = static_cast<uint16_t>(len[prev] + 1);
            ++next;
        }
        pos += n;
        prev = code;
    }
    if (pos != length) return fail();
    out.resize(base + pos);
    return true;
}

} // namespace dictionary

namespace short_string {
namespace {
constexpr std::size_t kMaxRun = 128;
constexpr std::size_t kMinMatch = 3, kMaxMatch = 10, kWindow = 4096;
constexpr unsigned kHashBits = 12;

inline uint32_t hash3(const uint8_t* p) {
    const uint32_t v =
        static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16;
    return (v * 2654435761u) >> (32 - kHashBits);
}
} // namespace

void encode(std::span<const uint8_t> in, std::vector<uint8_t>& out) {
    const std::size_t n = in.size();
    out.push_back(5);
    for (uint64_t v = n;; v >>= 7) {
        if (v < 0x80) {
            out.push_back(static_cast<uint8_t>(v));
            break;
        }
        out.push_back(static_cast<uint8_t>(v | 0x80));
    }
    const uint8_t* p = in.data();
    std::array<int64_t, 1u << kHashBits> last;
    last.fill(-1);
    std::size_t lit = 0; // start of the pending literal run
    auto flush_literals = [&](std::size_t end) {
        while (lit < end) {
            const std::size_t run = std::min(kMaxRun, end - lit);
            out.push_back(static_cast<uint8_t>(run - 1));
            out.insert(out.end(), p + lit, p + lit + run);
            lit += run;
        }
    };
    std::size_t i = 0;
    while (i + kMinMatch <= n) {
        const uint32_t h = hash3(p + i);
        const int64_t cand = last[h];
        last[h] = static_cast<int64_t>(i);
        if (cand >= 0 && i - static_cast<std::size_t>(cand) <= kWindow &&
            std::memcmp(p + cand, p + i, kMinMatch) == 0) {
            std::size_t len = kMinMatch;
            while (len < kMaxMatch && i + len < n && p[cand + len] == p[i + len])
                ++len;
            flush_literals(i);
            const std::size_t off = i - static_cast<std::size_t>(cand) - 1;
            out.push_back(static_cast<uint8_t>(0x80 | ((len - kMinMatch) << 4) | (off >> 8)));
            out.push_back(static_cast<uint8_t>(off));
            for (std::size_t k = 1; k < len && i + k + kMinMatch <= n; ++k)
                last[hash3(p + i + k)] = static_cast<int64_t>(i + k);
            i += len;
            lit = i;
        } else {
            ++i;
        }
    }
    flush_literals(n);
}

bool decode(std::span<const uint8_t> block, std::vector<uint8_t>& out) {
    const std::size_t base = out.size();
    if (block.empty() || block[0] != 5) return false;
    std::size_t ip = 1;
    uint64_t length = 0;
    for (unsigned shift = 0;; shift += 7) {
        if (ip >= block.size() || shift > 28) return false;
        const uint8_t b = block[ip++];
        length |= static_cast<uint64_t>(b & 0x7F) << shift;
        if (!(b & 0x80)) break;
    }
    // A token of two bytes yields at most 10: the rest of the block bounds
    // what the length may claim.
    if (length > (block.size() - ip) * 5 || length > 0xFFFFFFFFu) return false;
    out.resize(base + length);
    uint8_t* d = out.data() + base;
    std::size_t pos = 0;
    while (pos < length) {
        if (ip >= block.size()) break;
        const uint8_t t = block[ip++];
        if (t < 0x80) {
            const std::size_t run = t + 1u;
            if (run > block.size() - ip || run > length - pos) break;
            std::memcpy(d + pos, block.data() + ip, run);
            ip += run;
            pos += run;
        } else {
            if (ip >= block.size()) break;
            const std::size_t len = ((t >> 4) & 7u) + kMinMatch;
            const std::size_t off = ((static_cast<std::size_t>(t & 15u) << 8) | block[ip++]) + 1;
            if (off > pos || len > length - pos) break;
            for (std::size_t k = 0; k < len; ++k, ++pos)
                d[pos] = d[pos - off];
        }
    }
    if (pos != length) {
        out.resize(base);
        return false;
    }
    return true;
}

} // namespace short_string
} // namespace kp::transforms
