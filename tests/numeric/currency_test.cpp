// The euro functions on a rate table of their own.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <tuple>

#include "numeric/currency.h"
#include "support/error_record.h"

using kp::numeric::Money;
namespace num = kp::numeric;

namespace {

using kp::test::Err;
Money m(const char* text) {
    return Money::from_text(text).value();
}

// Euro, French franc, lira, Irish pound, escudo.
struct Table {
    kp_currency_table t{};
    Table() {
        std::memset(&t, 0, sizeof t);
        // clang-format off
        const struct { const char16_t* name; int32_t rate; } rows[] = {
            {u"EUR", 1000000}, {u"FRF", 6559570}, {u"ITL", 1936270000}, {u"IEP", 787564},
            {u"PTE", 200482000}};
        // clang-format on
        for (const auto& r : rows) {
            t.rates[t.count] = r.rate;
            std::memcpy(t.names[t.count], r.name, std::char_traits<char16_t>::length(r.name) * 2);
            ++t.count;
        }
    }
    kp_currency_table* operator->() { return &t; }
    operator kp_currency_table*() { return &t; }
};

constexpr int32_t kFRF = 1, kITL = 2, kIEP = 3, kPTE = 4;

} // namespace

TEST(CurrencyLookup, DefaultsAndInvalidIndexes) {
    Table t;
    t->default_memory = kFRF;
    t->default_view = kITL;
    EXPECT_EQ(6559570, num::currency_rate(t, 0xFFFF, num::DefaultOf::Memory));
    EXPECT_EQ(1936270000, num::currency_rate(t, 0xFFFF, num::DefaultOf::View));
    EXPECT_EQ(787564, num::currency_rate(t, kIEP, num::DefaultOf::View));
    for (int32_t bad : {0xFFFE, -1, -65537, 5, 64, 65536, INT32_MIN, INT32_MAX})
        EXPECT_FALSE(num::currency_rate(t, bad, num::DefaultOf::View)) << bad;
    // A default that points past the count is as invalid as the index itself.
    t->default_view = 9;
    EXPECT_FALSE(num::currency_rate(t, 0xFFFF, num::DefaultOf::View));
    // An empty table has no currency at all, and a count above the capacity
    // is held to it.
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
    // The euro's own rate copies the value.
    // clang-format off
    const std::tuple<const char*, int32_t, const char*> to_euro[] = {
        {"100", kFRF, "15.244901"}, {"-250.5", kFRF, "-38.188478"},
        {"999999999999.999999", kFRF, "152449017237.410378"}, {"1", kITL, "0.000516"},
        {"123456.789012", kIEP, "156757.786049"}, {"0.000001", 0, "0.000001"}};
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
        Err e;
        EXPECT_TRUE(num::to_euro(t, m("100"), bad, 2, &diff, e.err).is_zero());
        EXPECT_EQ(80191u, e.err.id());
        EXPECT_TRUE(diff.is_zero());
        Err e2;
        EXPECT_TRUE(num::change_currency(t, m("100"), kFRF, bad, 2, nullptr, e2.err).is_zero());
        EXPECT_EQ(80191u, e2.err.id());
    }

    // Overflow: the largest value in lire does not fit.
    const Money big = *Money::from_millionths(Money::kMax);
    Err over, over2;
    EXPECT_TRUE(num::to_currency(t, big, kITL, 6, &diff, over.err).is_zero());
    EXPECT_TRUE(num::to_euro(t, big, kIEP, 6, nullptr, over2.err).is_zero());
    EXPECT_EQ(std::tuple(534u, 2, 534u),
              std::tuple(over.err.system_code(), over.err.severity(), over2.err.system_code()));
    // A zero rate stored in the table by its owner cannot divide.
    t->rates[kFRF] = 0;
    Err zero;
    EXPECT_TRUE(num::to_euro(t, m("1"), kFRF, 6, nullptr, zero.err).is_zero());
    EXPECT_TRUE(zero.err.failed());
}
