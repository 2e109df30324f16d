// colour.h - colour values (red + green×256 + blue×65536), the HSL model
// and colour names.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "component/error.h"

namespace kp::numeric {

// Returned by the colour-name reader for a name it does not know.
constexpr uint32_t kNoColour = 0xFBADC0DE;

// r + (g + b×256)×256, components not masked: a component above 255 spills
// into the next byte (RGB(256, 0, 0) == RGB(0, 1, 0)).  Wraps modulo 2^32.
int32_t rgb(int32_t r, int32_t g, int32_t b);
inline int32_t rgb_red(int32_t c) {
    return c & 255;
}
inline int32_t rgb_green(int32_t c) {
    return (c >> 8) & 255;
}
inline int32_t rgb_blue(int32_t c) {
    return (c >> 16) & 255;
}

struct Hsl {
    int32_t hue;        // 0..359
    int32_t saturation; // 0..100
    int32_t lightness;  // 0..100
};
// The HSL triple of a colour (only its three low bytes are read).
Hsl rgb_to_hsl(int32_t colour);
// HSL(h, s, l): checks the hue (0..360, else 80202), then the saturation
// (0..100, else 80204), then the lightness (0..100, else 80203); a failed
// check gives 0 (black).
int32_t hsl_to_rgb(int32_t hue, int32_t saturation, int32_t lightness, CXError& err);

// A colour name: "#RRGGBB" (hexadecimal digits up to the first other
// character) or one of the French and English names, without regard to
// case; kNoColour for anything else.
uint32_t colour_from_name(std::u16string_view name);
// Reads the first colour between "[" and "]" of a numeric display mask and
// removes it, brackets included; kNoColour (mask untouched) when there is none.
uint32_t take_mask_colour(std::u16string& mask);

} // namespace kp::numeric
