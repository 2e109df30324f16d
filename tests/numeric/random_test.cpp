// The device generator's sequence and the Random / InitRandom draws.
#include <gtest/gtest.h>

#include <set>

#include "numeric/random.h"
#include "support/error_record.h"

namespace num = kp::numeric;

namespace {
using kp::test::Err;
int32_t as_int(const num::RandomValue& v) {
    return std::get<int32_t>(v);
}
} // namespace

TEST(RandomGenerator, SequenceSeedsAndDraws) {
    num::rand_seed(1);
    for (int32_t draw : {41, 18467, 6334, 26500})
        EXPECT_EQ(draw, num::rand_next());
    // Results stay 15-bit whatever the seed.
    num::rand_seed(0xFFFFFFFFu);
    for (int i = 0; i < 10000; ++i) {
        const int32_t r = num::rand_next();
        ASSERT_TRUE(r >= 0 && r <= 32767) << r;
    }
    num::init_random(1);
    EXPECT_EQ(18467, num::rand_next());
    num::init_random(-1); // the seed is taken as 32 unsigned bits
    int32_t after_init = num::rand_next();
    num::rand_seed(0xFFFFFFFFu);
    num::rand_next();
    EXPECT_EQ(num::rand_next(), after_init);
    uint32_t ticks[] = {500, 500, 500, 501};
    int calls = 0;
    num::rand_seed(1); // draw(10) then gives 41 * 10 / 32768 = 0
    num::init_random_from_clock([&] { return ticks[std::min(calls++, 3)]; });
    EXPECT_EQ(4, calls);
    // Seeded with (0 + 1) * 501.
    int32_t got = num::rand_next();
    num::rand_seed(501);
    EXPECT_EQ(num::rand_next(), got);
    // Find a seed whose first draw is 32767: the real is then exactly 1.0.
    uint32_t seed = 0;
    for (;; ++seed) {
        num::rand_seed(seed);
        if (num::rand_next() == 32767) break;
    }
    num::rand_seed(seed);
    EXPECT_EQ(1.0, std::get<double>(num::random_unit()));
    num::rand_seed(1);
    EXPECT_DOUBLE_EQ(41 * (1.0 / 32767), std::get<double>(num::random_unit()));
    num::rand_seed(1); // draws 41, 18467, 6334
    Err e;
    EXPECT_EQ(41 * 100 / 32768 + 1, as_int(num::random_upto(100, e.err)));
    EXPECT_EQ(18467 * 100 / 32768 + 1, as_int(num::random_upto(100, e.err)));
    // n of 65536 and more is scaled in 64 bits.
    EXPECT_EQ(int32_t(6334LL * 2000000000 / 32768 + 1), as_int(num::random_upto(2000000000, e.err)));
    EXPECT_FALSE(e.err.failed());

    for (int32_t n : {0, -1, INT32_MIN}) {
        Err bad;
        EXPECT_EQ(0, as_int(num::random_upto(n, bad.err)));
        EXPECT_EQ(80260u, bad.err.id());
        EXPECT_EQ(2, bad.err.severity());
    }
    Err one;
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(1, as_int(num::random_upto(1, one.err)));
    Err e3;
    num::rand_seed(7);
    std::set<int32_t> seen;
    for (int i = 0; i < 2000; ++i) {
        const int32_t v = as_int(num::random_between(-3, 3, e3.err));
        ASSERT_TRUE(v >= -3 && v <= 3) << v;
        seen.insert(v);
    }
    EXPECT_EQ(7u, seen.size());
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ(5, as_int(num::random_between(5, 5, e3.err)));
    // The whole 32-bit range: the span of 2^32 values does not overflow.
    for (int i = 0; i < 1000; ++i)
        (void)as_int(num::random_between(INT32_MIN, INT32_MAX, e3.err));
    num::rand_seed(1);
    EXPECT_EQ(INT32_MIN + int32_t(41LL * 4294967296LL / 32768),
              as_int(num::random_between(INT32_MIN, INT32_MAX, e3.err)));
    EXPECT_FALSE(e3.err.failed());

    Err bad3;
    EXPECT_EQ(0, as_int(num::random_between(2, 1, bad3.err)));
    EXPECT_EQ(80210u, bad3.err.id());
}
