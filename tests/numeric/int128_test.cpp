// The two-halves 128-bit integer that the monetary arithmetic uses on 32-bit
// x86, against the compiler's native 128-bit integer on random operands and
// on the carries, borrows and sign edges.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "numeric/int128.h"

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

struct Gen {
    uint64_t state = 0x9E3779B97F4A7C15ull;
    uint64_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    // Values of every size: full 128 bits, 80 bits, 64, 32, small, edges.
    N value() {
        const N edges[] = {0,
                           1,
                           -1,
                           2,
                           -2,
                           static_cast<N>(kOnes),
                           static_cast<N>(kOnes) + 1,
                           static_cast<N>(NU(1) << 127),
                           static_cast<N>((NU(1) << 127) - 1)};
        const uint64_t pick = next() % 6;
        const N full = static_cast<N>((static_cast<NU>(next()) << 64) | next());
        const N sizes[] = {full,
                           full >> 48,
                           full >> 64,
                           full >> 96,
                           static_cast<N>(next() % 2001) - 1000,
                           edges[next() % 9]};
        return sizes[pick];
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
