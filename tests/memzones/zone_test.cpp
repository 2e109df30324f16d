// The zone list itself: positions at both ends, deletion under the current
// position, seek, and the key order of the sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "component/error.h"
#include "memzones/zones.h"

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

// Zone of integers 10, 20, ... (keys are the values).
Zone tens(int n) {
    Zone z;
    for (int i = 1; i <= n; ++i)
        z.add(Item::integer(10 * i), Item::same_as_value());
    return z;
}

int value_of(const Element* el) {
    return el ? static_cast<int>(el->value.integer_value()) : -1;
}

} // namespace

TEST(Zone, NavigationAtBothEnds) {
    // Each step: a move, the value reached (-1: outside), MemOut, MemCurrent.
    enum Move { First, Last, Next, Prev };
    struct Step {
        Move move;
        int value;
        bool out;
        int current;
    };
    struct Case {
        const char* name;
        int size;
        std::vector<Step> steps;
    };
    const std::vector<Case> cases = {
        {"next from a fresh zone starts at the first", 3, {{Next, 10, false, 1}, {Next, 20, false, 2}}},
        {"previous from a fresh zone stays before", 3, {{Prev, -1, true, 0}, {Next, 10, false, 1}}},
        {"past the end then back",
         3,
         {{Last, 30, false, 3}, {Next, -1, true, 0}, {Next, -1, true, 0}, {Prev, 30, false, 3}}},
        {"past the start then forward",
         3,
         {{First, 10, false, 1}, {Prev, -1, true, 0}, {Prev, -1, true, 0}, {Next, 10, false, 1}}},
        {"one element",
         1,
         {{First, 10, false, 1}, {Next, -1, true, 0}, {Prev, 10, false, 1}, {Prev, -1, true, 0}}},
        {"empty zone",
         0,
         {{First, -1, true, 0}, {Last, -1, true, 0}, {Next, -1, true, 0}, {Prev, -1, true, 0}}},
    };
    for (const Case& c : cases) {
        Zone z = tens(c.size);
        EXPECT_TRUE(z.out()) << c.name;
        int k = 0;
        for (const Step& s : c.steps) {
            const Element* el = s.move == First  ? z.first()
                                : s.move == Last ? z.last()
                                : s.move == Next ? z.next()
                                                 : z.previous();
            EXPECT_EQ(s.value, value_of(el)) << c.name << " step " << k;
            EXPECT_EQ(s.out, z.out()) << c.name << " step " << k;
            EXPECT_EQ(s.current, z.current()) << c.name << " step " << k;
            ++k;
        }
    }
}

TEST(Zone, DeletionKeepsTheCurrentElementOrTheNextOne) {
    struct Case {
        int at, remove, current_after; // current_after 0: outside
        int value_after;
    };
    const Case cases[] = {
        {3, 1, 2, 30}, // before the current: same element, lower number
        {3, 3, 3, 40}, // the current: the following one takes its number
        {3, 5, 3, 30}, // after: nothing moves
        {5, 5, 0, -1}, // the current and last: after the end
    };
    for (const Case& c : cases) {
        Zone z = tens(5);
        z.set_position(c.at);
        z.remove(c.remove);
        EXPECT_EQ(c.current_after, z.current()) << c.at << "/" << c.remove;
        EXPECT_EQ(c.value_after, value_of(z.current_element())) << c.at << "/" << c.remove;
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
    z.add(Item::string(u"a"), Item::integer(2));
    z.add(Item::string(u"b"), Item::real(2.5));
    z.add(Item::string(u"c"), money(2500000));
    z.add(Item::string(u"d"), Item::string(u"2"));
    z.add(Item::string(u"e"), Item::boolean(true));
    z.add(Item::string(u"f"), Item::real(std::nan("")));
    const int64_t big = int64_t{1} << 60; // 2^60 + 1 and 2^60 are the same real
    z.add(Item::string(u"g"), Item::int64(big + 1));
    struct Case {
        Item key;
        int expect;
    };
    Case cases[] = {
        {Item::int64(2), 1},
        {Item::real(2.0), 1},
        {money(2000000), 1},
        {money(2500000), 2},
        {Item::real(2.5), 2},
        {Item::string(u"2"), 4},
        {Item::integer(1), 5},
        {Item::real(std::nan("")), 6},
        {Item::int64(big + 1), 7},
        {Item::int64(big), 0},
        {Item::real(static_cast<double>(big)), 0},
        {Item::string(u"2.5"), 0},
        {Item::integer(3), 0},
        {Item(), 0},
    };
    for (const Case& c : cases) {
        z.set_position(3);
        EXPECT_EQ(c.expect, z.seek(c.key));
        EXPECT_EQ(c.expect != 0, z.found());
        // A failed seek does not move the position.
        EXPECT_EQ(c.expect ? c.expect : 3, z.current());
    }
}

TEST(Zone, SortIsStableAndOrdersMixedKeys) {
    Zone z;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    // Values number the insertion order.
    Item keys[] = {Item::string(u"b"),
                   Item::integer(5),
                   Item::real(nan),
                   money(-1500000) /* -1.5 */,
                   Item::string(u"B"),
                   Item::real(5.0) /* equals 5: stays after element 1 */,
                   Item::buffer(std::vector<uint8_t>{1}),
                   Item::string(u"\u00e9"),
                   Item(),
                   Item::int64(-2),
                   Item::real(-std::numeric_limits<double>::infinity()),
                   Item::string(u"b") /* equal to element 0 */,
                   Item::string(u""),
                   Item::boolean(true)};
    for (int v = 0; v < static_cast<int>(std::size(keys)); ++v)
        z.add(Item::integer(v), std::move(keys[v]));
    z.sort();
    std::vector<int> order;
    for (const Element* el = z.first(); el; el = z.next())
        order.push_back(value_of(el));
    // empty; numbers -inf, -2, -1.5, true, 5, 5.0, NaN; strings "", "B", "b",
    // "b", "é"; buffers.
    EXPECT_EQ((std::vector<int>{8, 10, 9, 3, 13, 1, 5, 2, 12, 4, 0, 11, 7, 6}), order);
}

// The sort against a plain stable sort by the key order, on random keys of
// every kind with many ties (small integers, their reals and currency
// values, -0 and 0, NaN, integers beyond a real's precision); one round in
// three has numbers only (no NaN), which the sort gathers by another way.
TEST(Zone, SortAgreesWithAPlainStableSort) {
    std::mt19937_64 rng(27);
    bool numbers_only = false;
    auto random_key = [&]() -> Item {
        const int64_t small = static_cast<int64_t>(rng() % 7) - 3;
        static const int kNumberKinds[] = {1, 2, 3, 5, 6, 7, 8, 11};
        switch (numbers_only ? kNumberKinds[rng() % 8] : static_cast<int>(rng() % 12)) {
        case 0:
            return Item();
        case 1:
            return Item::integer(static_cast<int32_t>(small));
        case 2:
            return Item::int64((int64_t{1} << 60) + small);
        case 3:
            return Item::real(static_cast<double>(small) / 2);
        case 4:
            return Item::real((rng() & 1) ? -0.0 : std::numeric_limits<double>::quiet_NaN());
        case 5:
            return money(small * 500000);
        case 6:
            return Item::boolean(rng() & 1);
        case 7:
            return Item::real(
                std::ldexp(static_cast<double>(rng() >> 11), static_cast<int>(rng() % 80) - 40) *
                ((rng() & 1) ? -1 : 1));
        case 8:
            return Item::int64(static_cast<int64_t>(rng()));
        case 9:
            return Item::string(std::u16string(1 + rng() % 2, static_cast<char16_t>(u'a' + rng() % 3)));
        case 10:
            return Item::buffer(std::vector<uint8_t>(rng() % 3, static_cast<uint8_t>(rng() % 2)));
        default:
            return Item::real(static_cast<double>(int64_t{1} << 60));
        }
    };
    for (int round = 0; round < 30; ++round) {
        numbers_only = round % 3 == 2;
        Zone z, copy;
        const int n = 1 + static_cast<int>(rng() % 3000);
        for (int i = 0; i < n; ++i) {
            Item k = random_key();
            copy.add(Item::integer(i), k.clone());
            z.add(Item::integer(i), std::move(k));
        }
        std::vector<int> expected(static_cast<std::size_t>(n));
        for (int i = 0; i < n; ++i)
            expected[static_cast<std::size_t>(i)] = i;
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
        z.add(Item::integer(v), Item::same_as_value());
    z.set_position(3); // the element 3
    z.sort();
    EXPECT_EQ(3, z.current());
    EXPECT_EQ(3, value_of(z.current_element()));
    EXPECT_EQ(4, value_of(z.next()));
    EXPECT_EQ(-1, value_of(z.next()));
    // Outside, the position stays outside.
    z.sort();
    EXPECT_TRUE(z.out());
    EXPECT_EQ(4, value_of(z.previous()));
}

TEST(Zone, ClearForgetsPositionAndFound) {
    Zone z = tens(3);
    z.seek(Item::integer(20));
    ASSERT_TRUE(z.found());
    z.clear();
    EXPECT_EQ(0, z.count());
    EXPECT_FALSE(z.found());
    EXPECT_TRUE(z.out());
    EXPECT_EQ(-1, value_of(z.next()));
}

TEST(Zone, ValuesOfNoSimpleTypeAreRefused) {
    kp_error_record rec{};
    rec.severity = KP_SEVERITY_NONE;
    kp::CXError e(&rec);
    kp_variant v{};
    v.type = KP_T_PROCEDURE; // no conversion hook answers in this process
    Item out = Item::integer(1);
    EXPECT_FALSE(kp::memzones::item_from_variant(&v, out, e));
    EXPECT_EQ(80014u, rec.id);
    EXPECT_EQ(KP_SEVERITY_ERROR, rec.severity);
}

TEST(Zone, NumericKeysCompareExactlyAcrossTypes) {
    // Near the ends of 64-bit integers and at a millionth's distance: no
    // pair may come out equal through a rounded intermediate, whatever the
    // width of the target's long double.
    const int64_t max = std::numeric_limits<int64_t>::max(), min = std::numeric_limits<int64_t>::min();
    const double two63 = 9223372036854775808.0;
    struct Case {
        Item a, b;
        int expect;
    };
    Case cases[] = {
        {Item::int64(max), Item::int64(max - 1), 1},
        {Item::int64(min), Item::int64(min + 1), -1},
        {Item::int64(max), Item::real(two63), -1},
        {Item::real(-two63), Item::int64(min), 0},
        {Item::real(-two63), Item::int64(min + 1), -1},
        {money(1000001), Item::integer(1), 1},
        {money(999999), Item::real(1.0), -1},
        {money(-1500000), Item::real(-1.5), 0},
        {money(-1500001), Item::real(-1.5), -1},
        {Item::real(0.25), money(250000), 0},
        {Item::real(std::numeric_limits<double>::infinity()), Item::int64(max), 1},
        {Item::real(-std::numeric_limits<double>::infinity()), money(-1), -1},
        {Item::real(1e30), money(1), 1},
        {Item::boolean(true), Item::integer(1), 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.expect, compare(c.a, c.b));
        EXPECT_EQ(-c.expect, compare(c.b, c.a));
    }
}
