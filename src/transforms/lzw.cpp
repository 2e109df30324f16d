// lzw.cpp - LZW block encoder and decoder (method 4).
#include "transforms/lzw.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "transforms/bytes.h"

namespace kp::transforms {

void append_stored_block(std::span<const uint8_t> in, std::vector<uint8_t>& out) {
    out.push_back(0);
    append_u32(out, static_cast<uint32_t>(in.size()));
    out.insert(out.end(), in.begin(), in.end());
}

void LzwCoder::FreeDeleter::operator()(void* p) const {
    std::free(p);
}

namespace {
// Our lookup table: 131072 slots of 32 bits for at most 65278 entries, half
// full at most.  The 24-bit key (prefix, byte) goes through a bijection of
// 24-bit numbers; its top 17 bits are the home slot, its low 7 bits are kept
// in the slot beside the entry's distance from home (9 bits) and its code
// (16 bits): home, distance and those 7 bits give the key back, so a slot
// compares whole with what a probe expects.  0 is an empty slot (codes are
// 258 and more).  An entry that would lie 512 slots or more from home goes
// to a list of overflows instead.
constexpr uint32_t kLookupSlots = 1u << 17;
constexpr uint32_t kMixFactor = 0x3779B1u; // odd: one to one on 24 bits
// The bijection of the key (prefix << 8 | byte), as the prefix's product
// plus the byte's: only the prefix's waits on the lookup before it.
inline uint32_t mix_pair(uint32_t prefix, uint32_t byte) {
    return (prefix * (kMixFactor << 8) + byte * kMixFactor) & 0xFFFFFFu;
}

// Home slot of (prefix, byte) in the format's hash table, and the k-th
// further probe (k from 0).
inline uint32_t home_slot(uint32_t prefix, uint32_t byte) {
    return ((byte * 256u + prefix) * 2u + 1u) & 0x1FFFFu;
}
inline uint32_t next_probe(uint32_t slot, uint32_t k) {
    return ((slot + k + 1019u) & 0xFFFFu) * 2u;
}
// The longest entry that matches the input from p[i], starting from the
// byte there: its code, with i moved past it.  When the match stops before
// the end, `free` and `mark` say where the entry (code, p[i]) goes in the
// lookup table: its free slot (kLookupSlots: the overflow list) and what
// the slot keeps of the key.
[[gnu::always_inline]] inline uint32_t longest_match(const uint8_t* p, std::size_t n, std::size_t& i,
                                                     const uint16_t* root, const uint32_t* table,
                                                     const std::vector<uint64_t>& overflow, uint32_t& free,
                                                     uint32_t& mark) {
    uint32_t cur = p[i++] + 1u;
    while (i < n) {
        if (cur <= 256) {
            // Single-byte prefixes: the direct table.
            const uint32_t c = root[(cur - 1) << 8 | p[i]];
            if (c == 0) break;
            cur = c;
            ++i;
            continue;
        }
        // Should (cur, p[i]) not be an entry, the next match starts with
        // the pair at i in the direct table: its line is asked for while the
        // lookup waits on its own.
        if (i + 1 < n) __builtin_prefetch(root + (p[i] << 8 | p[i + 1]));
        const uint32_t h = mix_pair(cur, p[i]);
        uint32_t s = h >> 7, want = h & 0x7Fu, v;
        while ((v = table[s]) != 0 && (v & 0xFFFFu) != want) {
            s = (s + 1) & (kLookupSlots - 1);
            want += 0x80u;         // one slot further from home
            if (want >> 16) break; // 512 slots from home: the overflow list
        }
        if (v != 0 && (v & 0xFFFFu) == want) {
            cur = v >> 16;
            ++i;
            continue;
        }
        if (v == 0) {
            free = s;
            mark = want;
            break;
        }
        const auto hit = std::find_if(overflow.begin(), overflow.end(),
                                      [key = cur << 8 | p[i]](uint64_t e) { return e >> 16 == key; });
        if (hit == overflow.end()) {
            free = kLookupSlots;
            break;
        }
        cur = static_cast<uint32_t>(*hit & 0xFFFFu);
        ++i;
    }
    return cur;
}
} // namespace

// The encoder's tables, made at the first block: false when memory fails.
bool LzwCoder::prepare() {
    if (!lookup_) {
        // calloc: the pages of the table are only paid for when touched.
        lookup_.reset(static_cast<uint32_t*>(std::calloc(kLookupSlots, sizeof(uint32_t))));
        if (!lookup_) return false;
        used_.clear();
    }
    taken_.resize(kHashSlots / 64);
    root_.resize(256 * 256);
    return true;
}

// Empties the dictionary's tables.
void LzwCoder::clear_tables() {
    std::fill(taken_.begin(), taken_.end(), uint64_t{0});
    std::fill(root_.begin(), root_.end(), uint16_t{0});
    // The slots in use are emptied one by one, or the whole table when they
    // are many (a short block costs no wipe of the table).
    uint32_t* const table = lookup_.get();
    if (used_.size() > kLookupSlots / 16) {
        std::memset(table, 0, kLookupSlots * sizeof(uint32_t));
    } else {
        for (uint32_t s : used_)
            table[s] = 0;
    }
    used_.clear();
    overflow_.clear();
}

// Records the entry `code` = (cur, byte) where longest_match said it goes.
[[gnu::always_inline]] inline void LzwCoder::add_entry(uint32_t cur, uint32_t byte, uint32_t code,
                                                       uint32_t free, uint32_t mark) {
    if (cur <= 256) {
        root_[(cur - 1) << 8 | byte] = static_cast<uint16_t>(code);
    } else if (free != kLookupSlots) {
        lookup_[free] = code << 16 | mark;
        used_.push_back(free);
    } else {
        overflow_.push_back(static_cast<uint64_t>(cur << 8 | byte) << 16 | code);
    }
}

void LzwCoder::encode(std::span<const uint8_t> in, std::vector<uint8_t>& out) {
    const std::size_t n = in.size();
    if (n < kMinInput || n > 0xFFFFFFF0u) {
        append_stored_block(in, out);
        return;
    }
    if (!prepare()) {
        append_stored_block(in, out);
        return;
    }
    const uint32_t* const table = lookup_.get();
    uint64_t* const taken = taken_.data();
    const uint16_t* const root = root_.data();

    // The coding stops paying once the block (header included) reaches
    // n + 3 bytes; the output area never needs more than that.  It starts
    // at a third of that and grows when the codes reach its end, so that
    // the pages a well-compressed input never reaches are not written (16
    // bytes of slack take the codes written past the end).
    const std::size_t base = out.size();
    const std::size_t limit = n + 3;
    std::size_t room = std::min(limit, n / 3 + 4096);
    out.resize(base + room + 16);
    uint8_t* start = out.data() + base;
    uint8_t* o = start + 11;
    uint8_t* stop = start + room;
    // At the end of the area: false when the block stops paying, else the
    // area grows.
    auto more_room = [&] {
        if (static_cast<std::size_t>(o - start) >= limit) return false;
        const std::size_t at = static_cast<std::size_t>(o - start);
        room = std::min(limit, room * 2);
        out.resize(base + room + 16);
        start = out.data() + base;
        o = start + at;
        stop = start + room;
        return true;
    };

    uint32_t width = 9, threshold = 512, next = kFirstFree;
    double best = 0;
    uint64_t bitbuf = 0;
    unsigned bits = 0;

    auto reset = [&] {
        clear_tables();
        width = 9;
        threshold = 512;
        next = kFirstFree;
        best = 0;
    };
    reset();
    // The whole bytes of the bit buffer go out in one store of eight (the
    // area's slack takes the bytes past them, written over by the next).
    auto emit = [&](uint32_t code) {
        bitbuf |= static_cast<uint64_t>(code) << bits;
        bits += width;
        put_u64(o, bitbuf);
        o += bits >> 3;
        bitbuf >>= bits & ~7u;
        bits &= 7u;
    };
    // Takes a slot of the format's table for (prefix, byte): false when ten
    // further probes find none.
    auto take_slot = [&](uint32_t prefix, uint32_t byte) {
        uint32_t s = home_slot(prefix, byte);
        for (uint32_t k = 0; (taken[s >> 6] >> (s & 63)) & 1u; ++k) {
            if (k >= 10) return false;
            s = next_probe(s, k);
        }
        taken[s >> 6] |= uint64_t{1} << (s & 63);
        return true;
    };

    const uint8_t* p = in.data();
    std::size_t i = 0;
    while (i < n) {
        uint32_t free = 0, mark = 0;
        const uint32_t cur = longest_match(p, n, i, root, table, overflow_, free, mark);
        emit(cur);
        if (o >= stop && !more_room()) break;

        // The entry (match, next byte), or (match, 15) at the end of input.
        const uint32_t byte = i < n ? p[i] : 15u;
        if (next == kMaxCodes) {
            const double ratio = (1.0 - static_cast<double>(o - start - 11) / static_cast<double>(i)) * 100.0;
            best = std::max(best, ratio);
            const double x = (100.0 - best) * 0.01;
            const double tolerance = x < 0.2 ? 0.2 : 0.0;
            if (best > tolerance + ratio) {
                emit(kClear);
                reset();
            }
        } else if (!take_slot(cur, byte)) {
            if (width < 16 && next == threshold) ++width;
            emit(kClear);
            reset();
        } else {
            // No lookup follows the last entry: it only counts.
            if (i < n) add_entry(cur, byte, next, free, mark);
            ++next;
            if (width < 16 && next > threshold) {
                threshold *= 2;
                ++width;
            }
        }
        if (o >= stop && !more_room()) break;
    }
    if (static_cast<std::size_t>(o - start) < limit) {
        emit(kEnd);
        if (bits > 0) *o++ = static_cast<uint8_t>(bitbuf);
    }
    if (static_cast<std::size_t>(o - start) >= limit) {
        out.resize(base);
        append_stored_block(in, out);
        return;
    }
    const std::size_t total = static_cast<std::size_t>(o - start);
    start[0] = 4;
    put_u32(start + 1, static_cast<uint32_t>(total - 11));
    put_u32(start + 5, static_cast<uint32_t>(n));
    start[9] = 0;
    start[10] = 0;
    out.resize(base + total);
}

// Each entry's string is the previous string followed by the first byte of
// the next one, so it lies in the output already: the decoder keeps where
// it was written and copies it, rather than walking prefix chains.
bool LzwCoder::decode(std::span<const uint8_t> payload, uint32_t length, std::vector<uint8_t>& out) {
    const std::size_t base = out.size();
    if (length == 0) return true;
    if (offset_.size() < 512) {
        offset_.assign(512, 0);
        length_.assign(512, 0);
    }
    for (uint32_t c = 1; c <= 256; ++c)
        length_[c] = 1;

    // The output grows with what the codes really produce, never beyond the
    // declared length (plus the slack of the 16-byte copies): a forged
    // length costs nothing.
    constexpr std::size_t kSlack = 16;
    std::size_t room = std::min<std::size_t>(length, payload.size() * 4 + 4096);
    out.resize(base + room + kSlack);
    auto grow = [&](std::size_t need) {
        room = std::min<std::size_t>(length, std::max<std::size_t>(room * 2, need));
        out.resize(base + room + kSlack);
    };

    const uint8_t* in = payload.data();
    const std::size_t np = payload.size();
    std::size_t ip = 0;
    uint64_t buf = 0;
    unsigned bits = 0;
    uint32_t width = 9, threshold = 512, next = kFirstFree;
    constexpr uint32_t kNone = 0xFFFFFFFFu;
    uint32_t prev = kNone;
    std::size_t prev_pos = 0;
    std::size_t pos = 0;

    auto fail = [&] {
        out.resize(base);
        return false;
    };

    while (pos < length) {
        while (bits < 24 && ip < np) {
            buf |= static_cast<uint64_t>(in[ip++]) << bits;
            bits += 8;
        }
        if (bits < width) return fail();
        const uint32_t code = static_cast<uint32_t>(buf & ((1u << width) - 1u));
        buf >>= width;
        bits -= width;

        if (code == kEnd) break;
        if (code == kClear) {
            width = 9;
            threshold = 512;
            next = kFirstFree;
            prev = kNone;
            continue;
        }
        if (code <= 256) {
            if (prev == kNone || code < next) {
                if (pos + 1 > room) grow(pos + 1);
                out[base + pos] = static_cast<uint8_t>(code - 1);
            }
        } else if (prev == kNone) {
            return fail(); // the first code after a clear is a single byte
        }
        uint32_t len = 1;
        if (code > 256) {
            std::size_t from;
            if (code < next) {
                len = length_[code];
                from = offset_[code];
            } else if (code == next) {
                len = length_[prev] + 1; // the previous string and its own first byte
                from = prev_pos;
            } else {
                return fail();
            }
            if (len > length - pos) return fail();
            if (pos + len > room) grow(pos + len);
            uint8_t* d = out.data() + base;
            const std::size_t distance = pos - from;
            if (distance >= kSlack) {
                for (std::size_t k = 0; k < len; k += kSlack)
                    std::memcpy(d + pos + k, d + from + k, kSlack);
            } else {
                for (std::size_t k = 0; k < len; ++k)
                    d[pos + k] = d[from + k];
            }
        }
        if (prev != kNone && next < kMaxCodes) {
            if (next >= offset_.size()) {
                offset_.resize(offset_.size() * 2);
                length_.resize(length_.size() * 2);
            }
            offset_[next] = static_cast<uint32_t>(prev_pos);
            length_[next] = length_[prev] + 1;
            ++next;
            if (width < 16 && next == threshold) {
                threshold *= 2;
                ++width;
            }
        }
        prev = code;
        prev_pos = pos;
        pos += len;
    }
    if (pos != length) return fail();
    out.resize(base + pos);
    return true;
}

} // namespace kp::transforms
