// The zone list itself: positions at both ends, deletion under the current position, seek, sort order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "memzones/zones.h"
#include "support/error_record.h"

using kp::memzones::Element;
using kp::memzones::Item;
using kp::memzones::Zone;

namespace {

Item money(int64_t millionths) {
    uint8_t b[10];
    // Ten little-endian bytes, the two above the 64-bit value sign-extended.
    const uint64_t m = static_cast<uint64_t>(millionths);
    for (int i = 0; i < 10; ++i)
        b[i] = static_cast<uint8_t>(i < 8 ? m >> (8 * i) : (millionths < 0 ? 0xFF : 0));
    return Item::currency(b);
}

const auto R = [](double v) { return Item::real(v); };
const auto L = [](int64_t v) { return Item::int64(v); };
const auto T = [](const char16_t* s) { return Item::string(s); };
const auto I = [](int32_t v) { return Item::integer(v); };
const auto NaN = [] { return R(std::numeric_limits<double>::quiet_NaN()); };
constexpr double kInf = std::numeric_limits<double>::infinity();

// Zone of integers 10, 20, ... (keys are the values).
Zone tens(int n) {
    Zone z;
    for (int i = 1; i <= n; ++i)
        z.add(I(10 * i), Item::same_as_value());
    return z;
}

const auto value_of = [](const Element* el) { return el ? static_cast<int>(el->value.integer_value()) : -1; };

} // namespace

TEST(Zone, NavigationAtBothEnds) {
    // {zone size, steps}: each step a move (First Last Next Previous) and the position it reaches (0: out).
    const std::pair<int, const char*> cases[] = {
        {3, "N1N2"},     // next from a fresh zone starts at the first
        {3, "P0N1"},     // previous from a fresh zone stays before
        {3, "L3N0N0P3"}, // past the end then back
        {3, "F1P0P0N1"}, // past the start then forward
        {1, "F1N0P1P0"}, {0, "F0L0N0P0"},
    };
    for (const auto& [size, steps] : cases) {
        Zone z = tens(size);
        EXPECT_TRUE(z.out()) << steps;
        for (const char* s = steps; *s; s += 2) {
            const Element* el = *s == 'F'   ? z.first()
                                : *s == 'L' ? z.last()
                                : *s == 'N' ? z.next()
                                            : z.previous();
            const int at = s[1] - '0';
            SCOPED_TRACE(std::string(steps) + " step " + std::to_string((s - steps) / 2));
            EXPECT_EQ(std::tuple(at ? 10 * at : -1, at == 0, at),
                      std::tuple(value_of(el), z.out(), z.current()));
        }
    }
}

TEST(Zone, DeletionKeepsTheCurrentElementOrTheNextOne) {
    // {current, removed, current after (0: outside), its value}
    const int cases[][4] = {
        {3, 1, 2, 30}, // before the current: same element, lower number
        {3, 3, 3, 40}, // the current: the following one takes its number
        {3, 5, 3, 30}, // after: nothing moves
        {5, 5, 0, -1}, // the current and last: after the end
    };
    for (const auto& [at, remove, current, value] : cases) {
        Zone z = tens(5);
        z.set_position(at);
        z.remove(remove);
        EXPECT_EQ(std::tuple(current, value), std::tuple(z.current(), value_of(z.current_element())))
            << at << "/" << remove;
    }
    // Deleting the current element inside a loop visits every other one once.
    Zone z = tens(6);
    std::vector<int> kept;
    for (const Element* el = z.first(); el; el = z.current_element()) {
        if (el->value.integer_value() % 20 == 0)
            z.remove(z.current());
        else {
            kept.push_back(value_of(el));
            z.next();
        }
    }
    EXPECT_EQ((std::vector<int>{10, 30, 50}), kept);
    EXPECT_EQ(3, z.count());
}

TEST(Zone, SeekFindsTheFirstEqualKeyAcrossNumberTypes) {
    Zone z;
    const int64_t big = int64_t{1} << 60; // 2^60 + 1 and 2^60 are the same real
    Item keys[] = {I(2), R(2.5), money(2500000), T(u"2"), Item::boolean(true), NaN(), L(big + 1)};
    for (Item& k : keys)
        z.add(T(u"v"), std::move(k));
    const double big_real = static_cast<double>(big);
    const std::pair<Item, int> cases[] = {
        {L(2), 1},        {R(2.0), 1},    {money(2000000), 1}, {money(2500000), 2}, {R(2.5), 2},
        {T(u"2"), 4},     {I(1), 5},      {NaN(), 6},          {L(big + 1), 7},     {L(big), 0},
        {R(big_real), 0}, {T(u"2.5"), 0}, {I(3), 0},           {Item(), 0},
    };
    for (const auto& [key, expect] : cases) {
        z.set_position(3);
        // A failed seek does not move the position.
        EXPECT_EQ((std::tuple{z.seek(key), z.found(), z.current()}),
                  std::tuple(expect, expect != 0, expect ? expect : 3));
    }
}

TEST(Zone, SortIsStableAndOrdersMixedKeys) {
    Zone z;
    // Values number the insertion order; ties (5 and 5.0, "b" twice) keep it.
    const Item bytes = Item::buffer(std::vector<uint8_t>{1});
    Item keys[] = {
        T(u"b"),      I(5),   NaN(), money(-1500000), T(u"B"), R(5.0), bytes.clone(),
        T(u"\u00e9"), Item(), L(-2), R(-kInf),        T(u"b"), T(u""), Item::boolean(true),
    };
    for (int v = 0; v < static_cast<int>(std::size(keys)); ++v)
        z.add(I(v), std::move(keys[v]));
    z.sort();
    std::vector<int> order;
    for (const Element* el = z.first(); el; el = z.next())
        order.push_back(value_of(el));
    // empty; numbers -inf, -2, -1.5, true, 5, 5.0, NaN; strings "", "B", "b", "b", "é"; buffers.
    EXPECT_EQ((std::vector<int>{8, 10, 9, 3, 13, 1, 5, 2, 12, 4, 0, 11, 7, 6}), order);
}

// The sort against std::stable_sort on random keys with many ties (-0 and 0, NaN, integers beyond a
// real's precision); one round in three has numbers only, which the sort gathers by another way.
TEST(Zone, SortAgreesWithAPlainStableSort) {
    std::mt19937_64 rng(27);
    bool numbers_only = false;
    auto random_key = [&]() -> Item {
        const int64_t small = static_cast<int64_t>(rng() % 7) - 3;
        static const int kNumberKinds[] = {1, 2, 3, 5, 6, 7, 8, 11};
        const std::function<Item()> kinds[] = {
            [] { return Item(); },
            [&] { return I(static_cast<int32_t>(small)); },
            [&] { return Item::int64((int64_t{1} << 60) + small); },
            [&] { return Item::real(static_cast<double>(small) / 2); },
            [&] { return Item::real((rng() & 1) ? -0.0 : std::numeric_limits<double>::quiet_NaN()); },
            [&] { return money(small * 500000); },
            [&] { return Item::boolean(rng() & 1); },
            [&] {
                return Item::real(
                    std::ldexp(static_cast<double>(rng() >> 11), static_cast<int>(rng() % 80) - 40) *
                    ((rng() & 1) ? -1 : 1));
            },
            [&] { return Item::int64(static_cast<int64_t>(rng())); },
            [&] {
                return Item::string(std::u16string(1 + rng() % 2, static_cast<char16_t>(u'a' + rng() % 3)));
            },
            [&] { return Item::buffer(std::vector<uint8_t>(rng() % 3, static_cast<uint8_t>(rng() % 2))); },
            [] { return Item::real(static_cast<double>(int64_t{1} << 60)); }};
        return kinds[numbers_only ? kNumberKinds[rng() % 8] : rng() % 12]();
    };
    for (int round = 0; round < 30; ++round) {
        numbers_only = round % 3 == 2;
        Zone z, copy;
        const int n = 1 + static_cast<int>(rng() % 3000);
        for (int i = 0; i < n; ++i) {
            Item k = random_key();
            copy.add(I(i), k.clone());
            z.add(I(i), std::move(k));
        }
        std::vector<int> expected(static_cast<std::size_t>(n));
        std::iota(expected.begin(), expected.end(), 0);
        std::stable_sort(expected.begin(), expected.end(), [&](int a, int b) {
            return compare(copy.at(a + 1).key(), copy.at(b + 1).key()) < 0;
        });
        z.sort();
        std::vector<int> got;
        for (int i = 1; i <= n; ++i)
            got.push_back(value_of(&z.at(i)));
        ASSERT_EQ(expected, got) << round;
    }
}

TEST(Zone, SortDuringIterationFollowsTheCurrentElement) {
    Zone z;
    for (int v : {4, 1, 3, 2})
        z.add(I(v), Item::same_as_value());
    z.set_position(3); // the element 3
    z.sort();
    EXPECT_EQ(std::tuple(3, 3), std::tuple(z.current(), value_of(z.current_element())));
    EXPECT_EQ(std::tuple(4, -1), (std::tuple{value_of(z.next()), value_of(z.next())}));
    // Outside, the position stays outside.
    z.sort();
    EXPECT_EQ(std::tuple(true, 4), (std::tuple{z.out(), value_of(z.previous())}));
}

TEST(Zone, ClearForgetsPositionAndFound) {
    Zone z = tens(3);
    z.seek(I(20));
    ASSERT_TRUE(z.found());
    z.clear();
    EXPECT_EQ(std::tuple(0, false, true), std::tuple(z.count(), z.found(), z.out()));
    EXPECT_EQ(-1, value_of(z.next()));
}

TEST(Zone, ValuesOfNoSimpleTypeAreRefused) {
    kp::test::Err e;
    kp_variant v{};
    v.type = KP_T_PROCEDURE; // no conversion hook answers in this process
    Item out = I(1);
    EXPECT_FALSE(kp::memzones::item_from_variant(&v, out, e.err));
    EXPECT_EQ(std::tuple(80014u, KP_SEVERITY_ERROR), std::tuple(e.id(), e.rec.severity));
}

TEST(Zone, NumericKeysCompareExactlyAcrossTypes) {
    // Near the ends of int64 and a millionth apart: no pair equal through a rounded long double.
    const int64_t max = std::numeric_limits<int64_t>::max(), min = std::numeric_limits<int64_t>::min();
    const double two63 = 9223372036854775808.0;
    const std::tuple<Item, Item, int> cases[] = {
        {L(max), L(max - 1), 1},     {L(min), L(min + 1), -1},       {L(max), R(two63), -1},
        {R(-two63), L(min), 0},      {R(-two63), L(min + 1), -1},    {money(1000001), I(1), 1},
        {money(999999), R(1.0), -1}, {money(-1500000), R(-1.5), 0},  {money(-1500001), R(-1.5), -1},
        {R(0.25), money(250000), 0}, {R(kInf), L(max), 1},           {R(-kInf), money(-1), -1},
        {R(1e30), money(1), 1},      {Item::boolean(true), I(1), 0},
    };
    for (const auto& [a, b, expect] : cases) {
        EXPECT_EQ(std::tuple(expect, -expect), std::tuple(compare(a, b), compare(b, a)));
    }
}
