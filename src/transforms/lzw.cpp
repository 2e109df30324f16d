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

void LzwCoder::FreeDeleter::operator()(uint64_t* p) const {
    std::free(p);
}

void LzwCoder::encode(std::span<const uint8_t> in, std::vector<uint8_t>& out) {
    std::lock_guard<std::mutex> lock(mutex_);
    const std::size_t n = in.size();
    if (n < kMinInput || n > 0xFFFFFFF0u) {
        append_stored_block(in, out);
        return;
    }
    if (!slots_) {
        // calloc: the pages of the table are only paid for when touched.
        slots_.reset(static_cast<uint64_t*>(std::calloc(kHashSlots, sizeof(uint64_t))));
        if (!slots_) {
            append_stored_block(in, out);
            return;
        }
        generation_ = 0;
    }
    uint64_t* const slots = slots_.get();

    // The coding stops paying once the block (header included) reaches
    // n + 3 bytes; the output area never needs more than that.
    const std::size_t base = out.size();
    const std::size_t limit = n + 3;
    out.resize(base + limit + 8);
    uint8_t* const start = out.data() + base;
    uint8_t* o = start + 11;
    uint8_t* const stop = start + limit;

    uint32_t width = 9, threshold = 512, next = kFirstFree;
    double best = 0, out_count = 0;
    uint64_t bitbuf = 0;
    unsigned bits = 0;
    uint64_t gen = 0;

    // Every slot empty: a new generation (the table is cleared only when
    // the generations wrap).
    auto reset = [&] {
        if (++generation_ >= 0xFFFF) {
            std::fill_n(slots, kHashSlots, uint64_t{0});
            generation_ = 1;
        }
        gen = generation_ << 40;
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
            out_count += 1;
        }
    };
    auto taken = [&](uint32_t s) { return (slots[s] & 0xFFFF0000000000ull) == gen; };
    // Probes from the home slot of (prefix, byte) to a free slot; returns
    // the free slot, or kHashSlots when ten further probes find none.
    auto free_slot = [&](uint32_t prefix, uint32_t byte) -> uint32_t {
        uint32_t s = ((byte * 256u + prefix) * 2u + 1u) & 0x1FFFFu;
        for (uint32_t k = 0; taken(s); ++k) {
            if (k >= 10) return kHashSlots;
            s = ((s + k + 1019u) & 0xFFFFu) * 2u;
        }
        return s;
    };

    const uint8_t* p = in.data();
    std::size_t i = 0;
    while (i < n) {
        uint32_t cur = p[i++] + 1u;
        uint32_t slot = kHashSlots; // free slot of (cur, p[i]) when the match stops
        while (i < n) {
            const uint32_t b = p[i];
            const uint64_t want = gen | static_cast<uint64_t>(cur) << 24 | static_cast<uint64_t>(b) << 16;
            uint32_t s = ((b * 256u + cur) * 2u + 1u) & 0x1FFFFu;
            uint32_t k = 0;
            uint64_t v;
            bool found = false;
            while (((v = slots[s]) & 0xFFFF0000000000ull) == gen) {
                if ((v & ~uint64_t{0xFFFF}) == want) {
                    found = true;
                    break;
                }
                if (k >= 10) {
                    s = kHashSlots;
                    break;
                }
                s = ((s + k + 1019u) & 0xFFFFu) * 2u;
                ++k;
            }
            if (!found) {
                slot = s;
                break;
            }
            cur = static_cast<uint32_t>(v & 0xFFFF);
            ++i;
        }
        emit(cur);
        if (o >= stop) break;

        // The entry (match, next byte), or (match, 15) at the end of input.
        const uint32_t byte = i < n ? p[i] : 15u;
        if (i >= n) slot = free_slot(cur, byte);
        if (next == kMaxCodes) {
            const double in_count = static_cast<double>(i);
            const double ratio = (1.0 - out_count / in_count) * 100.0;
            best = std::max(best, ratio);
            const double x = (100.0 - best) * 0.01;
            const double tolerance = x < 0.2 ? 0.2 : 0.0;
            if (best > tolerance + ratio) {
                emit(kClear);
                reset();
            }
        } else if (slot == kHashSlots) {
            if (width < 16 && next == threshold) ++width;
            emit(kClear);
            reset();
        } else {
            slots[slot] = gen | static_cast<uint64_t>(cur) << 24 | static_cast<uint64_t>(byte) << 16 | next;
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

bool LzwCoder::decode(std::span<const uint8_t> payload, uint32_t length, std::vector<uint8_t>& out) {
    std::lock_guard<std::mutex> lock(mutex_);
    const std::size_t base = out.size();
    if (length == 0) return true;
    if (prefix_.size() < 512) {
        prefix_.assign(512, 0);
        last_.assign(512, 0);
    }
    if (first_.size() < prefix_.size()) {
        first_.resize(prefix_.size());
        length_.resize(prefix_.size());
    }
    for (uint32_t c = 1; c <= 256; ++c) {
        prefix_[c] = 0;
        last_[c] = first_[c] = static_cast<uint8_t>(c - 1);
        length_[c] = 1;
    }

    // The output grows with what the codes really produce, never beyond the
    // declared length: a forged length costs nothing.
    std::size_t room = std::min<std::size_t>(length, payload.size() * 4 + 4096);
    out.resize(base + room);

    const uint8_t* in = payload.data();
    const std::size_t np = payload.size();
    std::size_t ip = 0;
    uint64_t buf = 0;
    unsigned bits = 0;
    uint32_t width = 9, threshold = 512, next = kFirstFree;
    constexpr uint32_t kNone = 0xFFFFFFFFu;
    uint32_t prev = kNone;
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
        if (prev == kNone) {
            if (code > 256) return fail();
            if (pos + 1 > room) {
                room = std::min<std::size_t>(length, std::max<std::size_t>(room * 2, pos + 1));
                out.resize(base + room);
            }
            out[base + pos++] = static_cast<uint8_t>(code - 1);
            prev = code;
            continue;
        }
        uint32_t len;
        uint32_t c;
        if (code < next) {
            len = length_[code];
            c = code;
        } else if (code == next) {
            len = length_[prev] + 1;
            c = prev;
        } else {
            return fail();
        }
        if (len > length - pos) return fail();
        if (pos + len > room) {
            room = std::min<std::size_t>(length, std::max<std::size_t>(room * 2, pos + len));
            out.resize(base + room);
        }
        uint8_t* d = out.data() + base + pos;
        uint8_t* q = d + length_[c] - 1;
        if (c != code) d[len - 1] = first_[prev]; // string followed by its own first byte
        while (c > 256) {
            *q-- = last_[c];
            c = prefix_[c];
        }
        *q = static_cast<uint8_t>(c - 1);

        if (next < kMaxCodes) {
            if (next >= prefix_.size()) {
                const std::size_t size = prefix_.size() * 2;
                prefix_.resize(size);
                last_.resize(size);
                first_.resize(size);
                length_.resize(size);
            }
            prefix_[next] = static_cast<uint16_t>(prev);
            last_[next] = d[0];
            first_[next] = first_[prev];
            length_[next] = length_[prev] + 1;
            ++next;
            if (width < 16 && next == threshold) {
                threshold *= 2;
                ++width;
            }
        }
        pos += len;
        prev = code;
    }
    if (pos != length) return fail();
    out.resize(base + pos);
    return true;
}

} // namespace kp::transforms
