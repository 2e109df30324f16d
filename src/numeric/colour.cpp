// colour.cpp - RGB packing, the HSL model and colour names.
#include "numeric/colour.h"

#include <algorithm>

namespace kp::numeric {

namespace {
constexpr uint32_t kErrHue = 80202;
constexpr uint32_t kErrLightness = 80203;
constexpr uint32_t kErrSaturation = 80204;

// Half away from zero.
int32_t round_half_away(double x) {
    return static_cast<int32_t>(x >= 0 ? x + 0.5 : x - 0.5);
}

char16_t lower(char16_t c) {
    return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

bool same_name(std::u16string_view a, std::u16string_view lower_b) {
    if (a.size() != lower_b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (lower(a[i]) != lower_b[i]) return false;
    return true;
}

int hex_digit(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}
} // namespace

int32_t rgb(int32_t r, int32_t g, int32_t b) {
    const uint32_t v =
        static_cast<uint32_t>(r) + (static_cast<uint32_t>(g) + static_cast<uint32_t>(b) * 256u) * 256u;
    return static_cast<int32_t>(v);
}

Hsl rgb_to_hsl(int32_t colour) {
    const double r = rgb_red(colour) * (1.0 / 255.0);
    const double g = rgb_green(colour) * (1.0 / 255.0);
    const double b = rgb_blue(colour) * (1.0 / 255.0);
    const double mx = std::max({r, g, b});
    const double mn = std::min({r, g, b});
    const double d = mx - mn;
    const double l = (mx + mn) / 2;
    double h = 0, s = 0;
    if (mx != mn) {
        s = l <= 0.5 ? d / (mx + mn) : d / (2 - mx - mn);
        const double rc = (mx - r) / d, gc = (mx - g) / d, bc = (mx - b) / d;
        if (r == mx)
            h = (bc + 6 - gc) * 60;
        else if (g == mx)
            h = (rc + 2 - bc) * 60;
        else
            h = (gc + 4 - rc) * 60;
        if (h < 0) h += 360;
    }
    Hsl out;
    out.hue = round_half_away(h) % 360;
    out.lightness = std::clamp(round_half_away(l * 100), 0, 100);
    out.saturation = std::clamp(round_half_away(s * 100), 0, 100);
    return out;
}

int32_t hsl_to_rgb(int32_t hue, int32_t saturation, int32_t lightness, CXError& err) {
    if (hue < 0 || hue > 360) {
        err.fail(kErrHue);
        return 0;
    }
    if (saturation < 0 || saturation > 100) {
        err.fail(kErrSaturation);
        return 0;
    }
    if (lightness < 0 || lightness > 100) {
        err.fail(kErrLightness);
        return 0;
    }
    if (saturation == 0) {
        const int32_t grey = lightness * 255 / 100;
        return rgb(grey, grey, grey);
    }
    const double l = lightness / 100.0, s = saturation / 100.0;
    const double m2 = l <= 0.5 ? l * (1 + s) : l + s - l * s;
    const double m1 = 2 * l - m2;
    auto v = [&](double x) {
        if (x > 360)
            x -= 360;
        else if (x < 0)
            x += 360;
        double c;
        if (x < 60)
            c = m1 + (m2 - m1) * x / 60;
        else if (x < 180)
            c = m2;
        else if (x < 240)
            c = m1 + (m2 - m1) * (240 - x) / 60;
        else
            c = m1;
        return static_cast<int32_t>(c * 255);
    };
    const double h = hue;
    return rgb(v(h + 120), v(h), v(h - 120));
}

uint32_t colour_from_name(std::u16string_view name) {
    if (!name.empty() && name.front() == u'#') {
        // Digits in the order red, green, blue; more than eight digits keep
        // the last ones (the number is read modulo 2^32) and only the low
        // three bytes make the colour.
        uint32_t v = 0;
        for (std::size_t i = 1; i < name.size(); ++i) {
            const int d = hex_digit(name[i]);
            if (d < 0) break;
            v = (v << 4) | static_cast<uint32_t>(d);
        }
        const uint32_t r = (v >> 16) & 255, g = (v >> 8) & 255, b = v & 255;
        return r | g << 8 | b << 16;
    }
    struct Named {
        std::u16string_view french, english;
        uint32_t colour;
    };
    static constexpr Named kNames[] = {
        {u"rouge", u"red", 0x0000FF},     {u"vert", u"green", 0x00FF00},  {u"bleu", u"blue", 0xFF0000},
        {u"noir", u"black", 0x000000},    {u"blanc", u"white", 0xFFFFFF}, {u"jaune", u"yellow", 0x00FFFF},
        {u"orange", u"orange", 0x0080FF},
    };
    for (const Named& n : kNames)
        if (same_name(name, n.french) || same_name(name, n.english)) return n.colour;
    return kNoColour;
}

uint32_t take_mask_colour(std::u16string& mask) {
    const std::size_t open = mask.find(u'[');
    if (open == std::u16string::npos) return kNoColour;
    const std::size_t close = mask.find(u']', open + 1);
    if (close == std::u16string::npos) return kNoColour;
    const uint32_t colour = colour_from_name(std::u16string_view(mask).substr(open + 1, close - open - 1));
    mask.erase(open, close - open + 1);
    return colour;
}

} // namespace kp::numeric
