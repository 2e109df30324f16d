// Parity, numeric texts, sizes as text, the device's random sequence, RGB and HSL, colour names.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <tuple>

#include "numeric/colour.h"
#include "numeric/numbers.h"
#include "numeric/random.h"
#include "support/error_record.h"

namespace num = kp::numeric;

namespace {
using kp::test::Err;
const std::u16string kUnits = u"bytes;KB;MB;GB;TB";
std::u16string size(int64_t n, int32_t unit, char16_t dec = u'.') {
    Err e;
    std::u16string s = num::length_to_string(n, unit, kUnits, dec, e.err);
    EXPECT_FALSE(e.err.failed());
    return s;
}
} // namespace

TEST(Parity, NumberAtTheStartAndNumericTexts) {
    for (int32_t n : {-4, 0, INT32_MIN})
        EXPECT_TRUE(num::is_even(n) && !num::is_odd(n)) << n;
    for (int32_t n : {-3, -1, INT32_MAX})
        EXPECT_TRUE(num::is_odd(n) && !num::is_even(n)) << n;
    // clang-format off
    const std::pair<const char16_t*, std::size_t> cases[] = {
        {u"0", 1}, {u"0.0", 3}, {u"-0", 2}, {u"+.5", 3}, {u"5.", 2}, {u"  12abc", 4}, {u"\t\n 7", 4}, {u"1e5", 3},
        {u"1e", 1}, {u"1e+", 1}, {u"2E-3x", 4}, {u"0x10", 1}, {u"", 0}, {u"   ", 0}, {u"abc", 0}, {u".", 0},
        {u"-", 0}, {u"+-1", 0}, {u"- 1", 0}, {u"inf", 0}, {u"nan", 0}, {u"\u00a01", 2}, {u"\u30001.5", 4},
        {u"1,5", 1}, {u".e1", 0}};
    auto conv = [](double v, bool ok = true) { return [=](double& out) { return out = v, ok; }; };
    // clang-format on
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(cases[i].second, num::wcstod_length(cases[i].first)) << "case " << i;
    for (const char16_t* zero : {u"0", u"0.0", u" -0"})
        EXPECT_TRUE(num::is_numeric_text(zero, conv(0)));
    for (const char16_t* no_digit : {u"", u"abc"})
        EXPECT_FALSE(num::is_numeric_text(no_digit, conv(0)));
    EXPECT_TRUE(num::is_numeric_text(u"12", conv(12)));
    EXPECT_FALSE(num::is_numeric_text(u"12", conv(0, false))); // the VM could not convert
    // 100 characters or more: not numeric, and the VM is not even asked.
    bool asked = false;
    auto spy = [&](double& out) { return asked = true, out = 1, true; };
    EXPECT_FALSE(num::is_numeric_text(std::u16string(100, u'1'), spy));
    EXPECT_FALSE(asked);
    EXPECT_TRUE(num::is_numeric_text(std::u16string(99, u'1'), spy));
}

// Unit 0 chooses the unit (terabytes are the last one); 1 to 5 fix it.
// 1023.999 KB rounds up in the text only; bytes are the whole 64-bit size.
TEST(LengthToString, UnitsAndShortLists) {
    // clang-format off
    struct Case { int64_t n; int32_t unit; const char16_t* text; } cases[] = {
        {0, 0, u"0 bytes"}, {1023, 0, u"1023 bytes"}, {1024, 0, u"1.00 KB"}, {1536, 0, u"1.50 KB"},
        {1048575, 0, u"1024.00 KB"}, {1048576, 0, u"1.00 MB"}, {2LL << 30, 0, u"2.00 GB"},
        {3LL << 40, 0, u"3.00 TB"}, {2LL << 50, 0, u"2048.00 TB"}, {-5, 0, u"-5 bytes"},
        {5000000000LL, 1, u"5000000000 bytes"}, {512, 2, u"0.50 KB"}, {1536, 3, u"0.00 MB"},
        {1536LL << 20, 3, u"1536.00 MB"}, {1536LL << 20, 4, u"1.50 GB"}, {1, 5, u"0.00 TB"},
        {INT64_MAX, 5, u"8388608.00 TB"}};
    // clang-format on
    for (const Case& c : cases)
        EXPECT_EQ(size(c.n, c.unit), c.text) << c.n << " unit " << c.unit;
    EXPECT_EQ(u"1,50 KB", size(1536, 0, u','));
    for (int32_t unit : {-1, 6, INT32_MIN, INT32_MAX}) {
        Err e2;
        EXPECT_EQ(u"", num::length_to_string(100, unit, kUnits, u'.', e2.err));
        EXPECT_EQ(std::pair(81507u, 2), std::pair(e2.err.id(), e2.err.severity()));
    }
    Err e2;
    EXPECT_EQ(u"2.00 ", num::length_to_string(2048, 0, u"o;", u'.', e2.err));
    EXPECT_EQ(u"3 o", num::length_to_string(3, 0, u"o", u'.', e2.err));
    EXPECT_EQ(u"1.00 To", num::length_to_string(1LL << 40, 0, u"o;Ko;Mo;Go;To;extra", u'.', e2.err));
    EXPECT_FALSE(e2.err.failed());
}

// InitRandom drops a draw, takes 32 unsigned bits; from the clock it seeds (draw(10) + 1) x the new tick.
TEST(RandomGenerator, SequenceSeedsAndDraws) {
    auto as_int = [](const num::RandomValue& v) { return std::get<int32_t>(v); };
    num::rand_seed(1);
    for (int32_t draw : {41, 18467, 6334, 26500})
        EXPECT_EQ(draw, num::rand_next());
    num::init_random(1);
    EXPECT_EQ(18467, num::rand_next());
    num::init_random(-1);
    const int32_t after_init = num::rand_next();
    num::rand_seed(0xFFFFFFFFu);
    num::rand_next();
    EXPECT_EQ(num::rand_next(), after_init);
    uint32_t ticks[] = {500, 500, 500, 501};
    int calls = 0;
    num::rand_seed(1); // draw(10) then gives 41 * 10 / 32768 = 0
    num::init_random_from_clock([&] { return ticks[std::min(calls++, 3)]; });
    EXPECT_EQ(4, calls);
    const int32_t got = num::rand_next();
    num::rand_seed(501);
    EXPECT_EQ(num::rand_next(), got);
    // A seed whose first draw is 32767: the real is then exactly 1.0.
    uint32_t seed = 0;
    for (num::rand_seed(seed); num::rand_next() != 32767; num::rand_seed(++seed)) {}
    num::rand_seed(seed);
    EXPECT_EQ(1.0, std::get<double>(num::random_unit()));
    num::rand_seed(1);
    EXPECT_DOUBLE_EQ(41 * (1.0 / 32767), std::get<double>(num::random_unit()));
    num::rand_seed(1); // draws 41, 18467, 6334; n of 65536 and more is scaled in 64 bits
    Err e;
    EXPECT_EQ(41 * 100 / 32768 + 1, as_int(num::random_upto(100, e.err)));
    EXPECT_EQ(18467 * 100 / 32768 + 1, as_int(num::random_upto(100, e.err)));
    EXPECT_EQ(int32_t(6334LL * 2000000000 / 32768 + 1), as_int(num::random_upto(2000000000, e.err)));
    // The whole 32-bit range: the span of 2^32 values does not overflow.
    num::rand_seed(1);
    EXPECT_EQ(INT32_MIN + int32_t(41LL * 4294967296LL / 32768),
              as_int(num::random_between(INT32_MIN, INT32_MAX, e.err)));
    EXPECT_EQ(std::pair(1, 5),
              std::pair(as_int(num::random_upto(1, e.err)), as_int(num::random_between(5, 5, e.err))));
    EXPECT_FALSE(e.err.failed());
    for (int32_t n : {0, INT32_MIN}) {
        Err bad;
        EXPECT_EQ(0, as_int(num::random_upto(n, bad.err)));
        EXPECT_EQ(std::pair(80260u, 2), std::pair(bad.err.id(), bad.err.severity()));
    }
    Err bad;
    EXPECT_EQ(0, as_int(num::random_between(2, 1, bad.err)));
    EXPECT_EQ(80210u, bad.err.id());
}

TEST(Colour, PackingKnownColoursAndHueNear360) {
    EXPECT_EQ(0x123456, num::rgb(0x56, 0x34, 0x12));
    EXPECT_EQ(num::rgb(0, 1, 0), num::rgb(256, 0, 0));
    EXPECT_EQ(-1, num::rgb(-1, 0, 0));                      // a negative red is not masked either
    EXPECT_EQ(int32_t(0x80000000u), num::rgb(0, 0, 32768)); // wraps, no overflow trap
    EXPECT_EQ(255, num::rgb_blue(-1));
    Err e;
    const int cases[][4] = {{0, 0, 100, 16777215},    {0, 0, 0, 0},
                            {0, 100, 50, 255},        {360, 100, 50, 255},
                            {240, 100, 50, 0xFF0000}, {200, 0, 50, 0x7F7F7F}};
    for (const auto& c : cases)
        EXPECT_EQ(c[3], num::hsl_to_rgb(c[0], c[1], c[2], e.err)) << c[0] << "," << c[1] << "," << c[2];
    EXPECT_FALSE(e.err.failed());

    // Orange's hue 30.1 rounds down; only the three low bytes count.
    const std::pair<int32_t, std::array<int, 3>> back[] = {{0xFF0000, {240, 100, 50}},
                                                           {num::rgb(255, 128, 0), {30, 100, 50}},
                                                           {num::rgb(128, 128, 128), {0, 0, 50}},
                                                           {int32_t(0xFFFF0000u), {240, 100, 50}}};
    for (const auto& [rgb, hsl] : back) {
        const num::Hsl h = num::rgb_to_hsl(rgb);
        EXPECT_EQ((std::array{h.hue, h.saturation, h.lightness}), hsl) << rgb;
    }
    // r = 255, b = 1: H = 359.76..., rounded to 360, reported as 0.
    EXPECT_EQ(0, num::rgb_to_hsl(num::rgb(255, 0, 1)).hue);
    EXPECT_EQ(359, num::rgb_to_hsl(num::rgb(255, 0, 3)).hue);
}

TEST(Hsl, ErrorsAndRoundTrips) {
    // clang-format off
    struct Case { int h, s, l; uint32_t id; } cases[] = {
        {361, 50, 50, 80202}, {-1, 50, 50, 80202}, {361, 101, 101, 80202}, {10, 101, 101, 80204},
        {10, -1, 50, 80204}, {10, 50, 101, 80203}, {10, 50, -5, 80203}};
    // clang-format on
    for (const Case& c : cases) {
        Err e;
        EXPECT_EQ(0, num::hsl_to_rgb(c.h, c.s, c.l, e.err));
        EXPECT_EQ(std::pair(c.id, 2), std::pair(e.err.id(), e.err.severity()))
            << c.h << "," << c.s << "," << c.l;
    }
    // Both round trips stay within the quantisation of whole degrees and percents.
    int worst = 0;
    Err e2;
    for (int r = 0; r <= 255; r += 5)
        for (int g = 0; g <= 255; g += 5)
            for (int b = 0; b <= 255; b += 5) {
                const num::Hsl h = num::rgb_to_hsl(num::rgb(r, g, b));
                ASSERT_TRUE(h.hue >= 0 && h.hue <= 359 && h.saturation >= 0 && h.saturation <= 100 &&
                            h.lightness >= 0 && h.lightness <= 100);
                const int32_t back = num::hsl_to_rgb(h.hue, h.saturation, h.lightness, e2.err);
                const int d = std::max({std::abs(num::rgb_red(back) - r), std::abs(num::rgb_green(back) - g),
                                        std::abs(num::rgb_blue(back) - b)});
                worst = std::max(worst, d);
                ASSERT_LE(d, 5) << r << "," << g << "," << b;
            }
    EXPECT_GE(worst, 1); // the truncations do show
    for (int h = 0; h <= 360; h += 5)
        for (int s = 30; s <= 100; s += 10)
            for (int l = 30; l <= 70; l += 10) {
                const num::Hsl back = num::rgb_to_hsl(num::hsl_to_rgb(h, s, l, e2.err));
                const int dh = std::abs(back.hue - h);
                ASSERT_TRUE(std::min(dh, 360 - dh) <= 1 && std::abs(back.saturation - s) <= 1 &&
                            back.lightness == l)
                    << h << "," << s << "," << l;
            }
    EXPECT_FALSE(e2.err.failed());
}

TEST(ColourNames, NamesHexadecimalAndMaskColours) {
    const std::pair<const char16_t*, uint32_t> known[] = {
        {u"Rouge", 255},      {u"RED", 255},        {u"vert", 65280},  {u"Green", 65280},
        {u"bLeU", 0xFF0000},  {u"Blue", 0xFF0000},  {u"Noir", 0},      {u"black", 0},
        {u"Blanc", 0xFFFFFF}, {u"WHITE", 0xFFFFFF}, {u"Jaune", 65535}, {u"yellow", 65535},
        {u"Orange", 33023}};
    for (const auto& [name, colour] : known)
        EXPECT_EQ(colour, num::colour_from_name(name));
    for (const char16_t* unknown : {u"", u"Redd", u"Re", u"purple", u"R\u00e9d", u"rouge "})
        EXPECT_EQ(num::kNoColour, num::colour_from_name(unknown));
    // "#F80" reads as the number 0xF80; long digit runs keep their last digits.
    const std::pair<const char16_t*, uint32_t> cases[] = {
        {u"#FF8000", 33023u}, {u"#ff0000", 0x0000FFu}, {u"#123456 trailing", 0x563412u},   {u"#", 0u},
        {u"#zz", 0u},         {u"#F80", 0x800F00u},    {u"#FFFFFFFFFFFF123456", 0x563412u}};
    for (const auto& [name, colour] : cases)
        EXPECT_EQ(colour, num::colour_from_name(name)) << colour;
    // An unknown name is still taken out; only the first bracket goes.
    // clang-format off
    const std::tuple<std::u16string, uint32_t, std::u16string> masks[] = {
        {u"[Red]#,##0.00", 255u, u"#,##0.00"}, {u"0.00[#0000FF] [Blue]", 0xFF0000u, u"0.00 [Blue]"},
        {u"[Mauve]0", num::kNoColour, u"0"}, {u"#,##0", num::kNoColour, u"#,##0"},
        {u"[Red", num::kNoColour, u"[Red"}, {u"Red]", num::kNoColour, u"Red]"}, {u"", num::kNoColour, u""}};
    // clang-format on
    for (auto [mask, colour, rest] : masks) {
        EXPECT_EQ(colour, num::take_mask_colour(mask));
        EXPECT_EQ(rest, mask);
    }
}
