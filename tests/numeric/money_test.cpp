// The 10-byte monetary value, the 128-bit integer beneath, and the euro functions on a table of their own.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <tuple>
#include <vector>

#include "numeric/currency.h"
#include "numeric/int128.h"
#include "numeric/money.h"
#include "support/error_record.h"
#include "support/xorshift.h"

using kp::numeric::int128;
using kp::numeric::Money;
namespace num = kp::numeric;

namespace {

using kp::test::Err;

// clang-format off
Money m(const char* text) { return Money::from_text(text).value(); } // a bad text throws
std::string txt(std::optional<Money> v) { return v ? v->to_text() : "overflow"; }
// clang-format on

const Money kMax = *Money::from_millionths(Money::kMax);
const Money kMin = *Money::from_millionths(Money::kMin);

// Euro, French franc, lira, Irish pound, escudo.
struct Table {
    kp_currency_table t{};
    Table() {
        std::memset(&t, 0, sizeof t);
        for (const char16_t* name : {u"EUR", u"FRF", u"ITL", u"IEP", u"PTE"})
            std::memcpy(t.names[t.count++], name, 6);
        std::copy_n(std::array{1000000, 6559570, 1936270000, 787564, 200482000}.begin(), 5, t.rates);
    }
    kp_currency_table* operator->() { return &t; }
    operator kp_currency_table*() { return &t; }
};

constexpr int32_t kFRF = 1, kITL = 2, kIEP = 3, kPTE = 4;

} // namespace

TEST(Money, BytesTextAndIntegerPart) {
    // Little-endian millionths; the sign is the top bit of the last byte.
    const std::pair<Money, std::array<uint8_t, 10>> bytes[] = {
        {Money::from_int(1), {0x40, 0x42, 0x0F, 0, 0, 0, 0, 0, 0, 0}},
        {Money::from_int(-1), {0xC0, 0xBD, 0xF0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {kMin, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80}},
        {kMax, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}}};
    for (const auto& [v, expected] : bytes) {
        uint8_t b[10];
        v.to_bytes(b);
        EXPECT_EQ(0, std::memcmp(b, expected.data(), 10)) << v.to_text();
        EXPECT_EQ(v, Money::from_bytes(b)) << v.to_text();
    }
    // Decimals past the sixth are cut, not rounded.
    // clang-format off
    const std::pair<const char*, const char*> texts[] = {
        {"0", "0.000000"}, {"-2.5", "-2.500000"}, {"-0.000001", "-0.000001"}, {"1.9999999", "1.999999"},
        {"+5.", "5.000000"}, {".5", "0.500000"}, {"604462909807314587.353087", "604462909807314587.353087"},
        {"-604462909807314587.353088", "-604462909807314587.353088"}};
    // clang-format on
    for (const auto& [in, out] : texts)
        EXPECT_EQ(out, m(in).to_text());
    EXPECT_EQ("0.000000", Money().to_text());
    for (const char* bad :
         {"", "-", ".", "1e5", "12a", " 1", "1 ", "--1", "1.2.3", "0x10", "604462909807314587.353088",
          "-604462909807314587.353089", "99999999999999999999999999999999999999999"})
        EXPECT_FALSE(Money::from_text(bad).has_value()) << bad;
    EXPECT_EQ((std::array<int64_t, 4>{2147, -3, 0, 604462909807314587LL}),
              (std::array{m("2147.999999").integer_part(), m("-3.7").integer_part(), m("-0.5").integer_part(),
                          kMax.integer_part()}));
}

// Expected values from exact decimal arithmetic, truncated at the sixth decimal; operands above 2^63
// millionths take the wide product.
TEST(Money, ArithmeticIsExactAndOverflowIsDetected) {
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
    EXPECT_FALSE(num::round_decimals(kMax, 5) || num::round_decimals(kMin, 5));
    EXPECT_EQ("604462909807314587.000000", txt(num::round_decimals(kMax, 0)));
    EXPECT_EQ("-604462909807314587.000000", txt(num::round_decimals(kMin, 0)));
    // Agrees everywhere with adding the half unit and cutting the decimal text after d digits.
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

// Random 80-bit values: bytes and text round trips, and the product by a whole number against int128's.
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

TEST(CurrencyLookup, DefaultsAndInvalidIndexes) {
    Table t;
    t->default_memory = kFRF;
    t->default_view = kITL;
    EXPECT_EQ(6559570, num::currency_rate(t, 0xFFFF, num::DefaultOf::Memory));
    EXPECT_EQ(1936270000, num::currency_rate(t, 0xFFFF, num::DefaultOf::View));
    EXPECT_EQ(787564, num::currency_rate(t, kIEP, num::DefaultOf::View));
    for (int32_t bad : {0xFFFE, -1, -65537, 5, 64, 65536, INT32_MIN, INT32_MAX})
        EXPECT_FALSE(num::currency_rate(t, bad, num::DefaultOf::View)) << bad;
    t->default_view = 9; // a default past the count is as invalid as the index itself
    EXPECT_FALSE(num::currency_rate(t, 0xFFFF, num::DefaultOf::View));
    // An empty table has no currency; a count above the capacity is held to it.
    t->count = 0;
    EXPECT_FALSE(num::currency_rate(t, 0, num::DefaultOf::View));
    t->count = 60000;
    EXPECT_TRUE(num::currency_rate(t, KP_CURRENCY_CAPACITY - 1, num::DefaultOf::View));
    EXPECT_FALSE(num::currency_rate(t, KP_CURRENCY_CAPACITY, num::DefaultOf::View));
}

TEST(CurrencyLookup, NoTableAnswers80190) {
    Err a, b, c, d;
    num::init_currency(nullptr, 0, u"EUR", m("1"), a.err);
    EXPECT_EQ(-1.0, num::exchange_rate(nullptr, 0, b.err));
    EXPECT_EQ(-1, num::default_currency(nullptr, num::DefaultOf::View, 1, c.err));
    EXPECT_TRUE(num::to_currency(nullptr, m("100"), 0, 6, nullptr, d.err).is_zero());
    for (const Err* e : {&a, &b, &c, &d})
        EXPECT_EQ(80190u, e->id());
    EXPECT_FALSE(num::currency_rate(nullptr, 0, num::DefaultOf::View));
}

TEST(CurrencyInit, ChecksIndexRateAndEuro) {
    Table t;
    Err ok;
    num::init_currency(t, kFRF, u"Francs", m("6.6"), ok.err);
    num::init_currency(t, kPTE, u"TwelveCharsX", m("2147.483647"), ok.err);
    num::init_currency(t, 0, u"EUR", m("1"), ok.err);
    EXPECT_EQ(std::pair(6600000, INT32_MAX), std::pair(t->rates[kFRF], t->rates[kPTE]));
    EXPECT_EQ(0, std::memcmp(t->names[kPTE], u"TwelveCh", 16)); // 8 characters kept, no terminator
    EXPECT_EQ(u"TwelveCh", num::currency_name(t, kPTE, ok.err));
    EXPECT_FALSE(ok.err.failed());
    // clang-format off
    struct Case { int32_t index; const char* rate; uint32_t id; } cases[] = {
        {0, "1.000001", 80191}, {0, "2", 80191}, {5, "1", 80191}, {-1, "1", 80191}, {0xFFFF, "1", 80191},
        {kFRF, "2148", 80192}, {kFRF, "2147.483648", 80192}, {kFRF, "2147.999999", 80192}, {kFRF, "0", 80192},
        {kFRF, "-5", 80192}, {kFRF, "100000000000", 80192}};
    // clang-format on
    const Table pristine;
    for (const Case& c : cases) {
        Table fresh;
        Err e;
        num::init_currency(fresh, c.index, u"X", m(c.rate), e.err);
        EXPECT_EQ(std::pair(c.id, 2), std::pair(e.err.id(), e.err.severity())) << c.index << " " << c.rate;
        EXPECT_EQ(0, std::memcmp(&fresh.t, &pristine.t, sizeof(kp_currency_table))) << "table changed";
    }
    Err e;
    num::init_currency(t, kFRF, u"X", m("2148"), e.err);
    EXPECT_NE(std::u16string_view::npos, e.err.message().find(u"2147"));
}

TEST(CurrencyRate, RealRateNameDefaultsAndFailures) {
    Table t;
    Err e;
    EXPECT_DOUBLE_EQ(6.55957, num::exchange_rate(t, kFRF, e.err));
    EXPECT_DOUBLE_EQ(1.0, num::exchange_rate(t, 0xFFFF, e.err));
    EXPECT_EQ(0, num::default_currency(t, num::DefaultOf::Memory, kFRF, e.err));
    // Out of range, the new default is ignored; kPTE is set last.
    for (std::optional<int32_t> ignored : {std::optional<int32_t>(), std::optional(-1), std::optional(5),
                                           std::optional(0xFFFF), std::optional(kPTE)})
        EXPECT_EQ(kFRF, num::default_currency(t, num::DefaultOf::Memory, ignored, e.err));
    EXPECT_EQ(std::pair(kPTE, 0),
              (std::pair<int, int>(t->default_memory, t->default_view))); // the other stays
    EXPECT_EQ(0, num::default_currency(t, num::DefaultOf::View, kIEP, e.err));
    EXPECT_EQ(u"IEP", num::currency_name(t, 0xFFFF, e.err)); // names follow the display default
    EXPECT_FALSE(e.err.failed());
    Err bad;
    EXPECT_EQ(-1.0, num::exchange_rate(t, 0xFFFE, bad.err));
    EXPECT_EQ(80191u, bad.err.id());
    for (int32_t index : {5, -1, 0xFFFE, 70000}) {
        Err name;
        EXPECT_EQ(u"", num::currency_name(t, index, name.err));
        EXPECT_EQ(80191u, name.err.id());
    }
}

// Expected values from exact decimal arithmetic, truncated at the sixth decimal.
TEST(CurrencyConversion, ExactChangeAndRounding) {
    Table t;
    Err e;
    auto euro = [&](const char* v, int i) { return num::to_euro(t, m(v), i, 6, nullptr, e.err).to_text(); };
    auto cur = [&](const char* v, int i) {
        return num::to_currency(t, m(v), i, 6, nullptr, e.err).to_text();
    };
    // clang-format off
    const std::tuple<const char*, int32_t, const char*> to_euro[] = {
        {"100", kFRF, "15.244901"}, {"-250.5", kFRF, "-38.188478"},
        {"999999999999.999999", kFRF, "152449017237.410378"}, {"1", kITL, "0.000516"},
        {"123456.789012", kIEP, "156757.786049"}, {"0.000001", 0, "0.000001"}}; // the euro's rate copies
    const std::tuple<const char*, int32_t, const char*> to_currency[] = {
        {"100", kFRF, "655.957000"}, {"999999999999.999999", kITL, "1936269999999999.998063"},
        {"-250.5", kIEP, "-197.284782"}, {"123456.789012", kPTE, "24750863.974703"}};
    // clang-format on
    for (const auto& [v, i, expected] : to_euro)
        EXPECT_EQ(expected, euro(v, i));
    for (const auto& [v, i, expected] : to_currency)
        EXPECT_EQ(expected, cur(v, i));
    EXPECT_FALSE(e.err.failed());
    // 100 FRF -> 15.244901 EUR -> 12.006335 IEP (truncated at each step);
    // equal indexes copy the value: no round trip through the euro.
    EXPECT_EQ("12.006335", num::change_currency(t, m("100"), kFRF, kIEP, 6, nullptr, e.err).to_text());
    EXPECT_EQ("100.000001",
              num::change_currency(t, m("100.000001"), kITL, kITL, 6, nullptr, e.err).to_text());
    // The source of a conversion is the memory currency, the target the display one.
    t->default_memory = kFRF;
    t->default_view = kIEP;
    EXPECT_EQ("15.244901", euro("100", 0xFFFF));
    EXPECT_EQ("78.756400", cur("100", 0xFFFF));
    EXPECT_EQ("12.006335", num::change_currency(t, m("100"), 0xFFFF, 0xFFFF, 6, nullptr, e.err).to_text());
    t->default_memory = kITL;
    EXPECT_EQ("100.000001",
              num::change_currency(t, m("100.000001"), 0xFFFF, kITL, 6, nullptr, e.err).to_text());
    // Rounded to 2 or 0 decimals, the difference goes to the argument.
    Table t3;
    Money diff = m("99");
    auto rounded = [&](Money r) { return r.to_text() + " " + diff.to_text(); };
    EXPECT_EQ(rounded(num::to_euro(t3, m("100"), kFRF, 2, &diff, e.err)), "15.240000 0.004901");
    EXPECT_EQ(rounded(num::to_euro(t3, m("-100"), kFRF, 2, &diff, e.err)), "-15.240000 -0.004901");
    EXPECT_EQ(rounded(num::to_currency(t3, m("2.5"), 0, 0, &diff, e.err)), "3.000000 -0.500000");
    EXPECT_EQ(rounded(num::change_currency(t3, m("1.005"), 0, 0, 2, &diff, e.err)), "1.010000 -0.005000");
    num::to_euro(t3, m("100"), kFRF, 6, &diff, e.err);
    EXPECT_TRUE(diff.is_zero());
    EXPECT_FALSE(e.err.failed());
}

TEST(CurrencyConversion, FailuresGiveZero) {
    Table t;
    Money diff = m("7");
    for (int32_t bad : {0xFFFE, -1, 5, 65536}) {
        Err e, e2;
        EXPECT_TRUE(num::to_euro(t, m("100"), bad, 2, &diff, e.err).is_zero() && diff.is_zero());
        EXPECT_TRUE(num::change_currency(t, m("100"), kFRF, bad, 2, nullptr, e2.err).is_zero());
        EXPECT_EQ(std::pair(80191u, 80191u), std::pair(e.err.id(), e2.err.id()));
    }
    Err over, over2; // the largest value in lire does not fit
    EXPECT_TRUE(num::to_currency(t, kMax, kITL, 6, &diff, over.err).is_zero());
    EXPECT_TRUE(num::to_euro(t, kMax, kIEP, 6, nullptr, over2.err).is_zero());
    EXPECT_EQ(std::tuple(534u, 2, 534u),
              std::tuple(over.err.system_code(), over.err.severity(), over2.err.system_code()));
    t->rates[kFRF] = 0; // a zero rate stored by the table's owner cannot divide
    Err zero;
    EXPECT_TRUE(num::to_euro(t, m("1"), kFRF, 6, nullptr, zero.err).is_zero());
    EXPECT_TRUE(zero.err.failed());
}

// The two-halves 128-bit integer of 32-bit x86 against the native one: random operands, carries, sign edges.
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
        ASSERT_EQ((std::array{native(x + y), native(x - y), native(x * y), native(-x), native(x & y),
                              native(x | y)}),
                  (std::array{static_cast<N>(ua + ub), static_cast<N>(ua - ub), static_cast<N>(ua * ub),
                              static_cast<N>(NU(0) - ua), a & b, a | b}));
        ASSERT_EQ((std::array{x < y, x == y, U(x) < U(y)}), (std::array{a < b, a == b, ua < ub}));
        const int n = static_cast<int>(g.next() % 128);
        ASSERT_EQ(native(x << n), static_cast<N>(ua << n));
        ASSERT_EQ(native(x >> n), a >> n);
        ASSERT_EQ(native(S(U(x) >> n)), static_cast<N>(ua >> n));
        // Division where the native type defines it (no zero divisor, no most negative value by -1).
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
