// currency.cpp - the VM's side of currency values: the 80-bit count of
// millionths from and to decimal text, integers and doubles, with the
// host's own arithmetic (the component has its own).
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "host.h"
#include "host_values.h"

namespace kp::host {

// Currency: 80-bit two's complement little-endian count of millionths.
// The host's arithmetic works on unsigned magnitudes of 16 bytes, little
// endian, wide enough for any decimal text it accepts times a million.
namespace {
using Magnitude = std::array<uint8_t, 16>;

// m = m * mul + add; false when the result leaves 128 bits.
bool multiply_add(Magnitude& m, unsigned mul, unsigned add) {
    uint32_t carry = add;
    for (uint8_t& b : m) {
        const uint32_t t = b * mul + carry;
        b = static_cast<uint8_t>(t);
        carry = t >> 8;
    }
    return carry == 0;
}
// m = m / d; answers the remainder.
unsigned divide(Magnitude& m, unsigned d) {
    uint32_t r = 0;
    for (std::size_t k = m.size(); k-- > 0;) {
        r = (r << 8) | m[k];
        m[k] = static_cast<uint8_t>(r / d);
        r %= d;
    }
    return r;
}
bool is_zero(const Magnitude& m) {
    for (uint8_t b : m)
        if (b) return false;
    return true;
}
// Two's complement of the low ten bytes.
void negate10(uint8_t* b) {
    unsigned carry = 1;
    for (int k = 0; k < 10; ++k) {
        const unsigned t = static_cast<uint8_t>(~b[k]) + carry;
        b[k] = static_cast<uint8_t>(t);
        carry = t >> 8;
    }
}
// The value -m or m as a currency; false when it is out of range (below
// 2^79, or 2^79 exactly for a negative value).
bool currency_store(bool neg, const Magnitude& m, uint8_t (&cy)[10]) {
    for (std::size_t k = 10; k < m.size(); ++k)
        if (m[k]) return false;
    if (m[9] >= 0x80) {
        bool exact = neg && m[9] == 0x80;
        for (int k = 0; k < 9 && exact; ++k)
            exact = m[k] == 0;
        if (!exact) return false;
    }
    std::copy_n(m.begin(), 10, cy);
    if (neg) negate10(cy);
    return true;
}
void put64(Magnitude& m, std::size_t at, uint64_t v) {
    for (std::size_t k = 0; k < 8; ++k)
        m[at + k] = static_cast<uint8_t>(v >> (8 * k));
}
} // namespace

// value * scale millionths.
bool currency_from_integer(int64_t value, unsigned scale, uint8_t (&cy)[10]) {
    const bool neg = value < 0;
    Magnitude m{};
    put64(m, 0, neg ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value));
    return multiply_add(m, scale, 0) && currency_store(neg, m, cy);
}
// A whole number of millionths below 2^80 in magnitude.
bool currency_from_millionths(double millionths, uint8_t (&cy)[10]) {
    constexpr double kTwo64 = 18446744073709551616.0;
    const double a = std::fabs(millionths);
    const double hi = std::floor(a / kTwo64);
    Magnitude m{};
    put64(m, 0, static_cast<uint64_t>(a - hi * kTwo64));
    put64(m, 8, static_cast<uint64_t>(hi));
    return currency_store(millionths < 0, m, cy);
}

bool currency_from_text(std::string_view text, uint8_t (&out)[10]) {
    std::size_t i = 0;
    while (i < text.size() && text[i] == ' ')
        ++i;
    bool neg = false;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) neg = text[i++] == '-';
    Magnitude m{};
    int digits = 0;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
        // Past 2^80 the value is out of range whatever follows.
        if (!multiply_add(m, 10, static_cast<unsigned>(text[i++] - '0')) || m[10] || m[11]) return false;
        ++digits;
    }
    unsigned frac = 0;
    int fdigits = 0;
    bool round_up = false;
    if (i < text.size() && (text[i] == '.' || text[i] == ',')) {
        ++i;
        while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
            if (fdigits < 6)
                frac = frac * 10 + static_cast<unsigned>(text[i] - '0');
            else if (fdigits == 6)
                round_up = text[i] >= '5'; // half away from zero at the seventh decimal
            ++fdigits;
            ++i;
        }
    }
    while (i < text.size() && text[i] == ' ')
        ++i;
    if (i != text.size() || digits + fdigits == 0) return false;
    for (int k = fdigits; k < 6; ++k)
        frac *= 10;
    return multiply_add(m, 1000000, frac + (round_up ? 1 : 0)) && currency_store(neg, m, out);
}

std::string currency_to_text(const uint8_t (&cy)[10]) {
    Magnitude m{};
    std::copy_n(cy, 10, m.begin());
    const bool neg = cy[9] & 0x80;
    if (neg) negate10(m.data()); // 2^79 stays 2^79, read unsigned
    const unsigned frac = divide(m, 1000000);
    std::string w;
    do {
        w.insert(w.begin(), static_cast<char>('0' + divide(m, 10)));
    } while (!is_zero(m));
    char f[8];
    std::snprintf(f, sizeof f, "%06u", frac);
    return (neg ? "-" : "") + w + "." + f;
}

} // namespace kp::host
