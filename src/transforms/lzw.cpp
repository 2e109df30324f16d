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
// 98304 slots for at most 65278 entries: two thirds full at most.
constexpr uint32_t kLookupSlots = 3u << 15;
constexpr std::size_t kSlotBytes = 5; // key 24 bits (prefix, byte), code 16 bits
// A slot as a number: key in bits 0-23, code in bits 24-39.
inline uint64_t read_slot(const uint8_t* table, uint32_t s) {
    uint64_t v;
    std::memcpy(&v, table + std::size_t{s} * kSlotBytes, sizeof v); // the table has 3 bytes of slack
    return v;
}

// Home slot of (prefix, byte) in the format's hash table, and the k-th
// further probe (k from 0).
inline uint32_t home_slot(uint32_t prefix, uint32_t byte) {
    return ((byte * 256u + prefix) * 2u + 1u) & 0x1FFFFu;
}
inline uint32_t next_probe(uint32_t slot, uint32_t k) {
    return ((slot + k + 1019u) & 0xFFFFu) * 2u;
}
inline uint32_t lookup_home(uint32_t key) {
    return static_cast<uint32_t>((static_cast<uint64_t>(key * 0x9E3779B1u) * kLookupSlots) >> 32);
}
} // namespace

void LzwCoder::encode(std::span<const uint8_t> in, std::vector<uint8_t>& out) {
    std::lock_guard<std::mutex> lock(mutex_);
    const std::size_t n = in.size();
    if (n < kMinInput || n > 0xFFFFFFF0u) {
        append_stored_block(in, out);
        return;
    }
    if (!lookup_) {
        // calloc: the pages of the table are only paid for when touched.
        lookup_.reset(static_cast<uint8_t*>(std::calloc(kLookupSlots * kSlotBytes + 8, 1)));
        if (!lookup_) {
            append_stored_block(in, out);
            return;
        }
        used_.clear();
    }
    uint8_t* const table = lookup_.get();
    taken_.resize(kHashSlots / 64);
    uint64_t* const taken = taken_.data();
    root_.resize(256 * 256);
    uint16_t* const root = root_.data();

    // The coding stops paying once the block (header included) reaches
    // n + 3 bytes; the output area never needs more than that.
    const std::size_t base = out.size();
    const std::size_t limit = n + 3;
    out.resize(base + limit + 8);
    uint8_t* const start = out.data() + base;
    uint8_t* o = start + 11;
    uint8_t* const stop = start + limit;

    uint32_t width = 9, threshold = 512, next = kFirstFree;
    double best = 0;
    uint64_t bitbuf = 0;
    unsigned bits = 0;

    auto reset = [&] {
        std::fill_n(taken, kHashSlots / 64, uint64_t{0});
        std::fill_n(root, 256 * 256, uint16_t{0});
        // The slots in use are emptied one by one, or the whole table when
        // they are many (a short block costs no wipe of the table).
        if (used_.size() > kLookupSlots / 16) {
            std::memset(table, 0, kLookupSlots * kSlotBytes);
        } else {
            for (uint32_t s : used_)
                std::memset(table + std::size_t{s} * kSlotBytes, 0, kSlotBytes);
        }
        used_.clear();
        width = 9;
        threshold = 512;
        next = kFirstFree;
        best = 0;
    };
    reset();
    auto emit = [&](uint32_t code) {
        bitbuf |= static_cast<uint64_t>(code) << bits;
        bits += width;
        while (bits > 7) {
            *o++ = static_cast<uint8_t>(bitbuf);
            bitbuf >>= 8;
            bits -= 8;
        }
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
        uint32_t cur = p[i++] + 1u;
        uint32_t free = 0; // our table's free slot for (cur, p[i]) when the match stops
        while (i < n) {
            if (cur <= 256) {
                // Single-byte prefixes: the direct table.
                const uint32_t c = root[(cur - 1) << 8 | p[i]];
                if (c == 0) break;
                cur = c;
                ++i;
                continue;
            }
            const uint32_t key = cur << 8 | p[i];
            uint32_t s = lookup_home(key);
            uint64_t v;
            uint32_t k;
            while ((k = static_cast<uint32_t>((v = read_slot(table, s)) & 0xFFFFFFu)) != key && k != 0)
                s = s + 1 == kLookupSlots ? 0 : s + 1;
            if (k == 0) {
                free = s;
                break;
            }
            cur = static_cast<uint32_t>(v >> 24) & 0xFFFFu;
            ++i;
        }
        emit(cur);
        if (o >= stop) break;

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
            if (i >= n) {
            } else if (cur <= 256) {
                root[(cur - 1) << 8 | byte] = static_cast<uint16_t>(next);
            } else {
                const uint64_t slot = static_cast<uint64_t>(next) << 24 | (cur << 8 | byte);
                std::memcpy(table + std::size_t{free} * kSlotBytes, &slot, kSlotBytes); // little-endian order
                used_.push_back(free);
            }
            ++next;
            if (width < 16 && next > threshold) {
                threshold *= 2;
                ++width;
            }
        }
        if (o >= stop) break;
    }
    if (o < stop) {
        emit(kEnd);
        if (bits > 0) *o++ = static_cast<uint8_t>(bitbuf);
    }
    if (o >= stop) {
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
    std::lock_guard<std::mutex> lock(mutex_);
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
