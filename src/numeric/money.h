// money.h - the monetary value: a signed fixed-point number of millionths
// held in 10 bytes of two's complement (1.0 is 1000000, the sign is the top
// bit of the last byte).
//
// Every operation is exact to the millionth: multiplication and division
// truncate toward zero at the sixth decimal, and a result that does not fit
// the 80 bits gives no value (std::nullopt) instead of wrapping.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "numeric/int128.h"

namespace kp::numeric {

class Money {
  public:
    static constexpr int64_t kScale = 1000000; // millionths in one unit
    // The 80-bit range, in millionths.
    static constexpr int128 kMax = (static_cast<int128>(1) << 79) - 1;
    static constexpr int128 kMin = -(static_cast<int128>(1) << 79);

    constexpr Money() = default;

    // From a 32-bit whole number of units (always fits).
    static constexpr Money from_int(int32_t units) { return Money(static_cast<int128>(units) * kScale); }
    // From a count of millionths; nullopt outside the 80-bit range.
    static constexpr std::optional<Money> from_millionths(int128 m) {
        if (m < kMin || m > kMax) return std::nullopt;
        return Money(m);
    }
    // From / to the 10 bytes as they travel (little-endian two's complement).
    static Money from_bytes(const uint8_t* bytes10);
    void to_bytes(uint8_t* bytes10) const;

    constexpr int128 millionths() const { return m_; }
    // The integer part (truncated toward zero), in units.
    constexpr int64_t integer_part() const { return static_cast<int64_t>(m_ / kScale); }
    constexpr bool is_zero() const { return m_ == 0; }
    constexpr bool negative() const { return m_ < 0; }

    // Decimal text: an optional "-", the integer digits, "." and exactly six
    // decimals ("-2.500000", "0.000000").
    std::string to_text() const;
    // Reads an optional sign, digits, and an optional "." with decimals;
    // decimals past the sixth are dropped (truncation).  nullopt on anything
    // else (no digits, stray characters) or when the value does not fit.
    static std::optional<Money> from_text(std::string_view text);

    friend constexpr bool operator==(Money a, Money b) { return a.m_ == b.m_; }

  private:
    constexpr explicit Money(int128 m) : m_(m) {}
    int128 m_ = 0;
};

std::optional<Money> add(Money a, Money b);
std::optional<Money> subtract(Money a, Money b);
std::optional<Money> negate(Money a);
// a × b, truncated to the millionth.
std::optional<Money> multiply(Money a, Money b);
// a ÷ b, truncated to the millionth; nullopt when b is zero.
std::optional<Money> divide(Money a, Money b);

// Rounds half away from zero to `decimals` decimals (0 to 5).  Six decimals
// or more, and a negative count, leave the value as it is.
std::optional<Money> round_decimals(Money v, int32_t decimals);

} // namespace kp::numeric
