// money.cpp - arithmetic of the 10-byte monetary value.
#include "numeric/money.h"

#include <array>

namespace kp::numeric {

namespace {

constexpr uint128 magnitude(int128 v) {
    return v < 0 ? uint128(0) - static_cast<uint128>(v) : static_cast<uint128>(v);
}

// A magnitude with a sign back to a value in range, or nullopt.
std::optional<Money> with_sign(uint128 mag, bool negative) {
    // The negative range reaches one further than the positive one.
    const uint128 limit = negative ? magnitude(Money::kMin) : static_cast<uint128>(Money::kMax);
    if (mag > limit) return std::nullopt;
    // mag is at most 2^79 here, well inside the 128-bit range.
    return Money::from_millionths(negative ? -static_cast<int128>(mag) : static_cast<int128>(mag));
}

// (a × b) / d for magnitudes below 2^80 and a small divisor: the product can
// reach 160 bits, so it is formed in four 64-bit limbs and divided limb by
// limb.  Returns false when the quotient does not fit 128 bits.
bool mul_div(uint128 a, uint128 b, uint64_t d, uint128& out) {
    const uint64_t a0 = static_cast<uint64_t>(a), a1 = static_cast<uint64_t>(a >> 64);
    const uint64_t b0 = static_cast<uint64_t>(b), b1 = static_cast<uint64_t>(b >> 64);
    std::array<uint64_t, 4> limb{};
    auto accumulate = [&](std::size_t at, uint128 part) {
        for (std::size_t i = at; i < limb.size() && part != 0; ++i) {
            uint128 s = static_cast<uint128>(limb[i]) + static_cast<uint64_t>(part);
            limb[i] = static_cast<uint64_t>(s);
            part = (part >> 64) + (s >> 64);
        }
    };
    accumulate(0, static_cast<uint128>(a0) * b0);
    accumulate(1, static_cast<uint128>(a0) * b1);
    accumulate(1, static_cast<uint128>(a1) * b0);
    accumulate(2, static_cast<uint128>(a1) * b1);
    uint128 rem = 0;
    std::array<uint64_t, 4> q{};
    for (int i = 3; i >= 0; --i) {
        uint128 cur = (rem << 64) | limb[static_cast<std::size_t>(i)];
        q[static_cast<std::size_t>(i)] = static_cast<uint64_t>(cur / d);
        rem = cur % d;
    }
    if (q[2] != 0 || q[3] != 0) return false;
    out = (static_cast<uint128>(q[1]) << 64) | q[0];
    return true;
}

} // namespace

Money Money::from_bytes(const uint8_t* b) {
    uint128 u = 0;
    for (int i = 9; i >= 0; --i)
        u = (u << 8) | b[i];
    // Sign-extend bit 79.
    if (b[9] & 0x80) u |= ~((static_cast<uint128>(1) << 80) - 1);
    return Money(static_cast<int128>(u));
}

void Money::to_bytes(uint8_t* b) const {
    uint128 u = static_cast<uint128>(m_);
    for (int i = 0; i < 10; ++i) {
        b[i] = static_cast<uint8_t>(u);
        u >>= 8;
    }
}

std::string Money::to_text() const {
    uint128 mag = magnitude(m_);
    uint128 units = mag / kScale;
    uint64_t frac = static_cast<uint64_t>(mag % kScale);
    char buf[48];
    char* p = buf + sizeof(buf);
    for (int i = 0; i < 6; ++i) {
        *--p = static_cast<char>('0' + frac % 10);
        frac /= 10;
    }
    *--p = '.';
    do {
        *--p = static_cast<char>('0' + static_cast<int>(units % 10));
        units /= 10;
    } while (units != 0);
    if (m_ < 0) *--p = '-';
    return std::string(p, buf + sizeof(buf));
}

std::optional<Money> Money::from_text(std::string_view t) {
    std::size_t i = 0;
    bool negative = false;
    if (i < t.size() && (t[i] == '-' || t[i] == '+')) negative = t[i++] == '-';
    const uint128 limit = magnitude(kMin); // checked as digits come, so nothing wraps
    uint128 mag = 0;
    bool digits = false;
    for (; i < t.size() && t[i] >= '0' && t[i] <= '9'; ++i) {
        mag = mag * 10 + static_cast<unsigned>(t[i] - '0');
        if (mag > limit) return std::nullopt;
        digits = true;
    }
    mag *= kScale;
    if (mag > limit) return std::nullopt;
    if (i < t.size() && t[i] == '.') {
        ++i;
        int64_t weight = kScale / 10;
        for (; i < t.size() && t[i] >= '0' && t[i] <= '9'; ++i) {
            mag += static_cast<uint128>(weight) * static_cast<unsigned>(t[i] - '0');
            weight /= 10;
            digits = true;
        }
    }
    if (!digits || i != t.size()) return std::nullopt;
    return with_sign(mag, negative);
}

std::optional<Money> add(Money a, Money b) {
    return Money::from_millionths(a.millionths() + b.millionths());
}

std::optional<Money> subtract(Money a, Money b) {
    return Money::from_millionths(a.millionths() - b.millionths());
}

std::optional<Money> negate(Money a) {
    return Money::from_millionths(-a.millionths());
}

std::optional<Money> multiply(Money a, Money b) {
    const bool negative = a.negative() != b.negative();
    const uint128 ma = magnitude(a.millionths()), mb = magnitude(b.millionths());
    constexpr uint128 k63 = static_cast<uint128>(1) << 63;
    uint128 q;
    if (ma < k63 && mb < k63) {
        q = ma * mb / Money::kScale; // below 2^126: no need for the wide product
    } else if (!mul_div(ma, mb, Money::kScale, q)) {
        return std::nullopt;
    }
    return with_sign(q, negative);
}

std::optional<Money> divide(Money a, Money b) {
    if (b.is_zero()) return std::nullopt;
    const bool negative = a.negative() != b.negative();
    // |a| < 2^80, so |a| × 10^6 < 2^100 fits.
    const uint128 q = magnitude(a.millionths()) * Money::kScale / magnitude(b.millionths());
    return with_sign(q, negative);
}

std::optional<Money> round_decimals(Money v, int32_t decimals) {
    if (decimals < 0 || decimals >= 6) return v;
    // Half a unit of the last kept decimal, in millionths.
    static constexpr uint32_t kHalf[6] = {0x7A120, 0xC350, 0x1388, 0x1F4, 0x32, 0x5};
    static constexpr uint32_t kUnit[6] = {1000000, 100000, 10000, 1000, 100, 10};
    const auto d = static_cast<std::size_t>(decimals);
    // Half away from zero: round the magnitude up from the half, then cut the
    // decimals past the kept ones.
    uint128 mag = magnitude(v.millionths()) + kHalf[d];
    mag -= mag % kUnit[d];
    return with_sign(mag, v.negative());
}

} // namespace kp::numeric
