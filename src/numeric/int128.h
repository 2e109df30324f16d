// int128.h - 128-bit integers for the monetary arithmetic, whose 80-bit
// values and their products need more than 64 bits.
//
// Where the compiler has a native 128-bit integer (x86-64) int128 and
// uint128 are that type.  On 32-bit x86 they are Wide128, two 64-bit halves
// with the same arithmetic: two's complement modulo 2^128, division
// truncating toward zero, the remainder taking the dividend's sign, right
// shifts of signed values arithmetic.  Wide128 is defined everywhere, so
// that its tests compare it with the native type where there is one.
#pragma once

#include <concepts>
#include <cstdint>
#include <type_traits>

namespace kp::numeric {

template <bool Signed> class Wide128 {
  public:
    uint64_t lo = 0, hi = 0;

    constexpr Wide128() = default;
    // From any integer, sign-extended when the source is signed.
    template <std::integral T>
    constexpr Wide128(T v) // NOLINT: converts implicitly, as a built-in integer does
        : lo(static_cast<uint64_t>(v)), hi(std::is_signed_v<T> && v < 0 ? ~uint64_t{0} : 0) {}
    // From a floating-point value, truncated toward zero (|v| below 2^127).
    template <std::floating_point F> explicit Wide128(F v) {
        constexpr F kTwo64 = static_cast<F>(18446744073709551616.0);
        const F m = v < 0 ? -v : v;
        // Dividing by a power of two is exact, so is taking the high part off.
        hi = static_cast<uint64_t>(m / kTwo64);
        lo = static_cast<uint64_t>(m - static_cast<F>(hi) * kTwo64);
        if (v < 0) *this = -*this;
    }
    // Between the signed and the unsigned type: the same 128 bits.
    constexpr explicit Wide128(const Wide128<!Signed>& o) : lo(o.lo), hi(o.hi) {}
    static constexpr Wide128 from_halves(uint64_t high, uint64_t low) {
        Wide128 r;
        r.hi = high;
        r.lo = low;
        return r;
    }

    // To a narrower integer: the low bits, as a built-in conversion keeps them.
    template <std::integral T> constexpr explicit operator T() const {
        if constexpr (std::is_same_v<T, bool>)
            return lo != 0 || hi != 0;
        else
            return static_cast<T>(lo);
    }

    constexpr bool negative() const { return Signed && (hi >> 63) != 0; }

    friend constexpr Wide128 operator~(Wide128 a) { return from_halves(~a.hi, ~a.lo); }
    friend constexpr Wide128 operator-(Wide128 a) { return ~a + Wide128(1); }
    friend constexpr Wide128 operator+(Wide128 a, Wide128 b) {
        const uint64_t low = a.lo + b.lo;
        return from_halves(a.hi + b.hi + (low < a.lo ? 1 : 0), low);
    }
    friend constexpr Wide128 operator-(Wide128 a, Wide128 b) {
        return from_halves(a.hi - b.hi - (a.lo < b.lo ? 1 : 0), a.lo - b.lo);
    }
    friend constexpr Wide128 operator*(Wide128 a, Wide128 b) {
        // The low halves' full 128-bit product from 32-bit pieces, then the
        // cross products, which only reach the high half.
        const uint64_t a0 = a.lo & 0xFFFFFFFFu, a1 = a.lo >> 32, b0 = b.lo & 0xFFFFFFFFu, b1 = b.lo >> 32;
        const uint64_t p00 = a0 * b0, p01 = a0 * b1, p10 = a1 * b0, p11 = a1 * b1;
        const uint64_t mid = (p00 >> 32) + (p01 & 0xFFFFFFFFu) + (p10 & 0xFFFFFFFFu);
        const uint64_t low = (p00 & 0xFFFFFFFFu) | (mid << 32);
        const uint64_t high = p11 + (p01 >> 32) + (p10 >> 32) + (mid >> 32) + a.lo * b.hi + a.hi * b.lo;
        return from_halves(high, low);
    }
    friend constexpr Wide128 operator/(Wide128 a, Wide128 b) { return divide(a, b, false); }
    friend constexpr Wide128 operator%(Wide128 a, Wide128 b) { return divide(a, b, true); }
    friend constexpr Wide128 operator&(Wide128 a, Wide128 b) { return from_halves(a.hi & b.hi, a.lo & b.lo); }
    friend constexpr Wide128 operator|(Wide128 a, Wide128 b) { return from_halves(a.hi | b.hi, a.lo | b.lo); }
    friend constexpr Wide128 operator^(Wide128 a, Wide128 b) { return from_halves(a.hi ^ b.hi, a.lo ^ b.lo); }
    template <std::integral N> friend constexpr Wide128 operator<<(Wide128 a, N count) {
        const unsigned n = static_cast<unsigned>(count) & 127u;
        if (n == 0) return a;
        if (n >= 64) return from_halves(a.lo << (n - 64), 0);
        return from_halves((a.hi << n) | (a.lo >> (64 - n)), a.lo << n);
    }
    template <std::integral N> friend constexpr Wide128 operator>>(Wide128 a, N count) {
        const unsigned n = static_cast<unsigned>(count) & 127u;
        if (n == 0) return a;
        const uint64_t fill = a.negative() ? ~uint64_t{0} : 0;
        if (n >= 64) return from_halves(fill, n == 64 ? a.hi : (a.hi >> (n - 64)) | (fill << (128 - n)));
        return from_halves((a.hi >> n) | (fill << (64 - n)), (a.lo >> n) | (a.hi << (64 - n)));
    }

    friend constexpr bool operator==(Wide128 a, Wide128 b) { return a.hi == b.hi && a.lo == b.lo; }
    friend constexpr bool operator<(Wide128 a, Wide128 b) {
        if (a.hi != b.hi) {
            if constexpr (Signed)
                return static_cast<int64_t>(a.hi) < static_cast<int64_t>(b.hi);
            else
                return a.hi < b.hi;
        }
        return a.lo < b.lo;
    }
    friend constexpr bool operator>(Wide128 a, Wide128 b) { return b < a; }
    friend constexpr bool operator<=(Wide128 a, Wide128 b) { return !(b < a); }
    friend constexpr bool operator>=(Wide128 a, Wide128 b) { return !(a < b); }

    constexpr Wide128& operator+=(Wide128 b) { return *this = *this + b; }
    constexpr Wide128& operator-=(Wide128 b) { return *this = *this - b; }
    constexpr Wide128& operator*=(Wide128 b) { return *this = *this * b; }
    constexpr Wide128& operator/=(Wide128 b) { return *this = *this / b; }
    constexpr Wide128& operator%=(Wide128 b) { return *this = *this % b; }
    constexpr Wide128& operator&=(Wide128 b) { return *this = *this & b; }
    constexpr Wide128& operator|=(Wide128 b) { return *this = *this | b; }
    template <std::integral N> constexpr Wide128& operator<<=(N n) { return *this = *this << n; }
    template <std::integral N> constexpr Wide128& operator>>=(N n) { return *this = *this >> n; }

  private:
    // Quotient or remainder of magnitudes, one bit at a time (a division by
    // zero gives 0, where the built-in type would trap).
    static constexpr Wide128 divide(Wide128 a, Wide128 b, bool remainder) {
        const bool neg_a = a.negative(), neg_b = b.negative();
        Wide128<false> n(neg_a ? -a : a), d(neg_b ? -b : b), q, r;
        if (d.lo == 0 && d.hi == 0) return Wide128();
        if (n.hi == 0 && d.hi == 0) {
            q = Wide128<false>(n.lo / d.lo);
            r = Wide128<false>(n.lo % d.lo);
        } else {
            for (int i = 127; i >= 0; --i) {
                r = (r << 1) | ((n >> i) & Wide128<false>(1));
                if (!(r < d)) {
                    r = r - d;
                    q = q | (Wide128<false>(1) << i);
                }
            }
        }
        if (remainder) return neg_a ? -Wide128(r) : Wide128(r);
        return neg_a != neg_b ? -Wide128(q) : Wide128(q);
    }
};

#if defined(__SIZEOF_INT128__)
using int128 = __int128;
using uint128 = unsigned __int128;
#else
using int128 = Wide128<true>;
using uint128 = Wide128<false>;
#endif

} // namespace kp::numeric
