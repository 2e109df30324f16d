// RGB packing, the HSL model both ways, and colour names.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <tuple>

#include "numeric/colour.h"
#include "support/error_record.h"

namespace num = kp::numeric;

using kp::test::Err;

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
        EXPECT_EQ(c.id, e.err.id()) << c.h << "," << c.s << "," << c.l;
        EXPECT_EQ(2, e.err.severity());
    }
    // Whole cube sampled every 5 levels (52^3 colours): RGB -> HSL -> RGB stays
    // within the quantisation of whole degrees and percents, and so does
    // HSL -> RGB -> HSL.
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
    // "#F80" reads as the number 0xF80; long digit runs keep their last
    // digits, without overflow.
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
