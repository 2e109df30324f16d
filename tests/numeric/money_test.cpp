// The 10-byte monetary value: bytes, text, exact arithmetic, overflow, rounding.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "numeric/int128.h"
#include "numeric/money.h"
#include "support/xorshift.h"

using kp::numeric::int128;
using kp::numeric::Money;
namespace num = kp::numeric;

namespace {

Money m(const char* text) {
    auto v = Money::from_text(text);
    EXPECT_TRUE(v.has_value()) << text;
    return v.value_or(Money());
}

std::string txt(std::optional<Money> v) {
    return v ? v->to_text() : "overflow";
}

const Money kMax = *Money::from_millionths(Money::kMax);
const Money kMin = *Money::from_millionths(Money::kMin);

} // namespace

TEST(Money, BytesTextAndIntegerPart) {
    uint8_t b[10];
    Money::from_int(1).to_bytes(b);
    const uint8_t one[10] = {0x40, 0x42, 0x0F, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(0, memcmp(b, one, 10));

    Money::from_int(-1).to_bytes(b);
    const uint8_t minus_one[10] = {0xC0, 0xBD, 0xF0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(0, memcmp(b, minus_one, 10));

    // The sign is the top bit of the last byte; the extremes survive the trip.
    for (Money v : {kMax, kMin, m("-0.000001"), m("123456789.987654")}) {
        v.to_bytes(b);
        EXPECT_EQ(v, Money::from_bytes(b)) << v.to_text();
    }
    kMin.to_bytes(b);
    EXPECT_EQ(0x80, b[9]);
    EXPECT_EQ("0.000000", Money().to_text());
    EXPECT_EQ("-2.500000", m("-2.5").to_text());
    EXPECT_EQ("-0.000001", m("-0.000001").to_text());
    EXPECT_EQ("604462909807314587.353087", kMax.to_text());
    EXPECT_EQ("-604462909807314587.353088", kMin.to_text());
    EXPECT_EQ(kMin, m("-604462909807314587.353088"));
    // Decimals past the sixth are cut, not rounded.
    EXPECT_EQ("1.999999", m("1.9999999").to_text());
    EXPECT_EQ("5.000000", m("+5.").to_text());
    EXPECT_EQ("0.500000", m(".5").to_text());
    for (const char* bad : {"", "-", ".", "1e5", "12a", " 1", "1 ", "--1", "1.2.3", "0x10"})
        EXPECT_FALSE(Money::from_text(bad).has_value()) << bad;
    EXPECT_FALSE(Money::from_text("604462909807314587.353088").has_value());
    EXPECT_FALSE(Money::from_text("-604462909807314587.353089").has_value());
    EXPECT_FALSE(Money::from_text("99999999999999999999999999999999999999999").has_value());
    EXPECT_EQ(2147, m("2147.999999").integer_part());
    EXPECT_EQ(-3, m("-3.7").integer_part());
    EXPECT_EQ(0, m("-0.5").integer_part());
    EXPECT_EQ(604462909807314587LL, kMax.integer_part());
}

// Expected values computed with exact decimal arithmetic, truncated at the
// sixth decimal.
TEST(Money, ArithmeticIsExactAndOverflowIsDetected) {
    // Operands above 2^63 millionths take the wide product.
    const Money one = m("1"), tiny = m("0.000001"), minus_one = m("-1");
    // clang-format off
    const std::pair<std::optional<Money>, const char*> cases[] = {
        {num::multiply(m("100"), m("6.55957")), "655.957000"}, {num::multiply(m("0.01"), m("6.55957")), "0.065595"},
        {num::multiply(m("-250.5"), m("6.55957")), "-1643.172285"}, {num::divide(m("100"), m("6.55957")), "15.244901"},
        {num::divide(m("-250.5"), m("6.55957")), "-38.188478"}, {num::divide(m("0.01"), m("1936.27")), "0.000005"},
        {num::multiply(m("123456789012345.678901"), m("4567.891234")), "563937184307281344.429656"},
        {num::multiply(m("-98765432109876.543210"), m("3.000001")), "-296296395095061.739506"},
        {num::divide(kMax, m("1.5")), "402975273204876391.568724"},
        {num::multiply(kMin, one), "-604462909807314587.353088"}, {num::divide(kMax, one), "604462909807314587.353087"},
        {num::negate(*Money::from_millionths(-Money::kMax)), "604462909807314587.353087"},
        {num::add(kMax, tiny), "overflow"}, {num::subtract(kMin, tiny), "overflow"}, {num::negate(kMin), "overflow"},
        {num::multiply(kMax, m("2")), "overflow"}, {num::multiply(kMin, kMin), "overflow"},
        {num::multiply(kMin, minus_one), "overflow"}, {num::divide(kMax, m("0.5")), "overflow"},
        {num::divide(kMin, minus_one), "overflow"}, {num::divide(one, Money()), "overflow"}};
    // clang-format on
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(cases[i].second, txt(cases[i].first)) << "case " << i;
}

TEST(Money, RoundingEdgesAndTheTextCut) {
    // clang-format off
    struct Case { const char* value; int decimals; const char* expected; } cases[] = {
        {"2.5", 0, "3.000000"}, {"-2.5", 0, "-3.000000"}, {"1.005", 2, "1.010000"},
        {"-1.005", 2, "-1.010000"}, {"1.004999", 2, "1.000000"}, {"2.4999995", 0, "2.000000"},
        {"0.000005", 5, "0.000010"}, {"0.000004", 5, "0.000000"}, {"123.456789", 3, "123.457000"},
        {"-0.4", 0, "0.000000"}, {"9.99995", 4, "10.000000"}, {"1.234567", 6, "1.234567"},
        {"1.234567", 9, "1.234567"}, {"1.234567", -1, "1.234567"}};
    // clang-format on
    for (const Case& c : cases)
        EXPECT_EQ(c.expected, txt(num::round_decimals(m(c.value), c.decimals)))
            << c.value << " " << c.decimals;
    EXPECT_FALSE(num::round_decimals(kMax, 5));
    EXPECT_FALSE(num::round_decimals(kMin, 5));
    EXPECT_EQ("604462909807314587.000000", txt(num::round_decimals(kMax, 0)));
    EXPECT_EQ("-604462909807314587.000000", txt(num::round_decimals(kMin, 0)));
    // The rounding adds the half unit and cuts the decimal text after d digits;
    // the arithmetic must agree with that text procedure everywhere.
    const int64_t half[6] = {500000, 50000, 5000, 500, 50, 5};
    kp::test::XorShift g;
    for (int i = 0; i < 20000; ++i) {
        const uint64_t seed = g.next();
        int128 raw = static_cast<int64_t>(seed) >> (seed % 40);
        Money v = *Money::from_millionths(raw);
        int d = static_cast<int>(i % 6);
        Money mag = v.negative() ? *num::negate(v) : v;
        std::string t = num::add(mag, *Money::from_millionths(half[d]))->to_text();
        t = t.substr(0, t.find('.') + (d ? d + 1 : 0));
        Money expect = *Money::from_text(t);
        if (v.negative()) expect = *num::negate(expect);
        ASSERT_EQ(expect, num::round_decimals(v, d)) << v.to_text() << " d=" << d;
    }
}

// Random 80-bit values: bytes and text round trips, and multiplication by a
// whole number (which takes the wide product for large values) against the
// plain 128-bit product.
TEST(Money, RandomValuesRoundTripAndScaleExactly) {
    kp::test::XorShift g;
    for (int i = 0; i < 20000; ++i) {
        uint8_t b[10];
        const uint64_t lo = g.next(), hi = g.next();
        std::memcpy(b, &lo, 8);
        std::memcpy(b + 8, &hi, 2);
        Money v = Money::from_bytes(b);
        uint8_t back[10];
        v.to_bytes(back);
        ASSERT_EQ(0, std::memcmp(b, back, 10));
        ASSERT_EQ(v, Money::from_text(v.to_text())) << v.to_text();

        const int32_t k = static_cast<int32_t>(g.next() % 2001) - 1000;
        const int128 exact = v.millionths() * k;
        auto product = num::multiply(v, Money::from_int(k));
        if (exact > Money::kMax || exact < Money::kMin)
            ASSERT_FALSE(product) << v.to_text() << " x " << k;
        else
            ASSERT_EQ(exact, product->millionths()) << v.to_text() << " x " << k;
    }
}

// The two-halves 128-bit integer that the monetary arithmetic uses on 32-bit
// x86, against the compiler's native 128-bit integer on random operands and
// on the carries, borrows and sign edges.
namespace {

using kp::numeric::Wide128;
using S = Wide128<true>;
using U = Wide128<false>;

constexpr uint64_t kOnes = ~uint64_t{0};

// Compile-time checks hold in every build.
static_assert((S(1) << 79) - S(1) == S::from_halves(0x7FFF, kOnes));
static_assert(-(S(1) << 79) < S(0));
static_assert(S(-7) / S(2) == S(-3) && S(-7) % S(2) == S(-1) && S(7) % S(-2) == S(1));
static_assert((S(-1) >> 100) == S(-1) && (U(S(-1)) >> 127) == U(1));
static_assert(static_cast<int64_t>(S(-5) * S(1000000)) == -5000000);
static_assert(U(S(-1)) > U(0) && S(-1) < S(0));

#if defined(__SIZEOF_INT128__)

using N = __int128;
using NU = unsigned __int128;

N native(S v) {
    return static_cast<N>((static_cast<NU>(v.hi) << 64) | v.lo);
}
S wide(N v) {
    return S::from_halves(static_cast<uint64_t>(static_cast<NU>(v) >> 64), static_cast<uint64_t>(v));
}

// Values of every size: full 128 bits, 80 bits, 64, 32, small, edges.
struct Gen : kp::test::XorShift {
    N value() {
        // clang-format off
        const N edges[] = {0, 1, -1, 2, -2, static_cast<N>(kOnes), static_cast<N>(kOnes) + 1,
                           static_cast<N>(NU(1) << 127), static_cast<N>((NU(1) << 127) - 1)};
        const N full = static_cast<N>((static_cast<NU>(next()) << 64) | next());
        const N sizes[] = {full, full >> 48, full >> 64, full >> 96, static_cast<N>(next() % 2001) - 1000,
                           edges[next() % 9]};
        // clang-format on
        return sizes[next() % 6];
    }
};

TEST(Wide128, ArithmeticMatchesTheNativeType) {
    Gen g;
    for (int i = 0; i < 200000; ++i) {
        const N a = g.value(), b = g.value();
        const S x = wide(a), y = wide(b);
        const NU ua = static_cast<NU>(a), ub = static_cast<NU>(b);
        ASSERT_EQ(native(x + y), static_cast<N>(ua + ub));
        ASSERT_EQ(native(x - y), static_cast<N>(ua - ub));
        ASSERT_EQ(native(x * y), static_cast<N>(ua * ub));
        ASSERT_EQ(native(-x), static_cast<N>(NU(0) - ua));
        ASSERT_EQ(native(x & y), a & b);
        ASSERT_EQ(native(x | y), a | b);
        ASSERT_EQ(x < y, a < b);
        ASSERT_EQ(x == y, a == b);
        ASSERT_EQ(U(x) < U(y), ua < ub);
        const int n = static_cast<int>(g.next() % 128);
        ASSERT_EQ(native(x << n), static_cast<N>(ua << n));
        ASSERT_EQ(native(x >> n), a >> n);
        ASSERT_EQ(native(S(U(x) >> n)), static_cast<N>(ua >> n));
        // Division where the native type defines it (no zero divisor, no
        // overflow of the most negative value by -1).
        if (b != 0 && !(b == -1 && a == static_cast<N>(NU(1) << 127))) {
            ASSERT_EQ(native(x / y), a / b);
            ASSERT_EQ(native(x % y), a % b);
        }
        if (ub != 0) {
            ASSERT_EQ(native(S(U(x) / U(y))), static_cast<N>(ua / ub));
            ASSERT_EQ(native(S(U(x) % U(y))), static_cast<N>(ua % ub));
        }
        ASSERT_EQ(static_cast<int64_t>(x), static_cast<int64_t>(a));
        ASSERT_EQ(static_cast<uint8_t>(x), static_cast<uint8_t>(a));
    }
}

TEST(Wide128, ConversionsFromBuiltInIntegers) {
    for (int64_t v : {int64_t{0}, int64_t{-1}, INT64_MIN, INT64_MAX, int64_t{-1000000}})
        EXPECT_EQ(native(S(v)), static_cast<N>(v));
    EXPECT_EQ(native(S(kOnes)), static_cast<N>(kOnes)); // unsigned: no sign extension
    EXPECT_EQ(native(S(int32_t{-3})), -3);
    EXPECT_EQ(native(S(uint32_t{0xFFFFFFFFu})), static_cast<N>(0xFFFFFFFFu));
    for (double d : {0.0, -0.9, 1.5, -2.5e6, 6.0e23, -6.0e23, 1.8446744073709552e19, -3.4e38 / 2})
        EXPECT_EQ(native(S(d)), static_cast<N>(d)) << d;
    EXPECT_TRUE(static_cast<bool>(S::from_halves(1, 0)));
    EXPECT_FALSE(static_cast<bool>(S(0)));
}

#else

TEST(Wide128, ArithmeticMatchesTheNativeType) {
    GTEST_SKIP() << "32-bit x86 has no native 128-bit integer to compare with: Wide128 is the int128 of this "
                    "build, checked here by the compile-time cases and by the monetary tests";
}

#endif

} // namespace
