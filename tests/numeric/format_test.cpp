// NumToString against the C library, currency digits, grouping, refused formats; Min and Max.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "component/error.h"
#include "numeric/format.h"
#include "support/error_record.h"

using kp::numeric::Money;
using kp::numeric::NumberValue;

namespace {

using kp::test::Err;

// clang-format off
std::u16string u16(const std::string& s) { return std::u16string(s.begin(), s.end()); }
NumberValue money(const char* text) { return NumberValue::currency(Money::from_text(text).value()); }
// clang-format on
std::string narrow(const std::u16string& s) {
    std::string out;
    for (char16_t c : s)
        out.push_back(c < 0x80 ? static_cast<char>(c) : '?');
    return out;
}

std::string run(const NumberValue& v, const std::string& format, uint32_t* id = nullptr) {
    Err r;
    std::string out = narrow(kp::numeric::num_to_string(v, u16(format), r.err));
    if (id) *id = r.rec.id;
    return out;
}

} // namespace

TEST(NumToString, AgreesWithSnprintfOnRandomConversions) {
    std::mt19937_64 rng(20261124);
    const char types[] = "duxXoeEfgG";
    int compared = 0, refused = 0;
    for (int n = 0; n < 100000; ++n) {
        std::string conversion;
        for (char flag : {'-', '+', ' ', '0'})
            if ((rng() & 3) == 0) conversion += flag;
        const int width = (rng() & 1) ? static_cast<int>(rng() % 40) : 0;
        const int precision = (rng() & 1) ? static_cast<int>(rng() % 25) : -1;
        const char type = types[rng() % 10];
        if (width) conversion += std::to_string(width);
        if (precision >= 0) conversion += "." + std::to_string(precision);
        const bool integer_type = type == 'd' || type == 'u' || type == 'x' || type == 'X' || type == 'o';
        // A 4- or 8-byte integer, or a real: infinities, NaN, eighths (ties), 53 bits x 2^-150 to 2^49.
        const int kind = static_cast<int>(rng() % 3), pick = static_cast<int>(rng() % 20);
        const double d =
            pick == 0   ? std::numeric_limits<double>::infinity() * ((rng() & 1) ? -1 : 1)
            : pick == 1 ? std::nan("")
            : pick == 2 ? static_cast<double>(rng() % 2000) / 8 - 125
                        : std::ldexp(static_cast<double>(rng() >> 11), static_cast<int>(rng() % 200) - 150) *
                              ((rng() & 1) ? -1 : 1);
        const NumberValue v = kind == 0   ? NumberValue::int32(static_cast<int32_t>(rng()))
                              : kind == 1 ? NumberValue::int64(static_cast<int64_t>(rng()) >> (rng() % 64))
                                          : NumberValue::real(d);
        const std::string prefix = "<", suffix = "> 100%% sure";
        const std::string format = prefix + "%" + conversion + type + suffix;
        char expect[8192];
        const std::string cfmt = prefix + "%" + conversion + (integer_type ? "ll" : "") + type + suffix;
        bool fits = true;
        if (integer_type) {
            int64_t s = v.i;
            if (v.kind == NumberValue::Kind::Real) {
                fits = std::isfinite(v.d) && v.d < 9223372036854775808.0 && v.d >= -9223372036854775808.0;
                s = fits ? static_cast<int64_t>(v.d) : 0;
            }
            const unsigned long long u = v.kind == NumberValue::Kind::Int32 ? static_cast<uint32_t>(s) : s;
            if (type == 'd') std::snprintf(expect, sizeof expect, cfmt.c_str(), static_cast<long long>(s));
            if (type != 'd') std::snprintf(expect, sizeof expect, cfmt.c_str(), u);
        } else {
            const double d = v.kind == NumberValue::Kind::Real ? v.d : static_cast<double>(v.i);
            std::snprintf(expect, sizeof expect, cfmt.c_str(), d);
        }
        uint32_t id = 0;
        const std::string got = run(v, format, &id);
        ASSERT_EQ(fits ? std::pair(std::string(expect), 0u) : std::pair(std::string(), 80205u),
                  std::pair(got, id))
            << format << " value " << v.i << " / " << v.d;
        ++(fits ? compared : refused);
    }
    EXPECT_GT(compared, 95000);
    EXPECT_GT(refused, 100);
}

// Currency: exact digits, never through a real; half away from zero; the integer part for the integer
// conversions; without a conversion the exact value without trailing zeros.
TEST(NumToString, CurrencyDigitsAndDefaultText) {
    // clang-format off
    struct Case { const char *value, *format, *expect; };
    const Case cases[] = {
        {"0.3", "%.20f", "0.30000000000000000000"}, {"123456789012.345678", "%f", "123456789012.345678"},
        {"123456789012.345678", "%.3f", "123456789012.346"}, {"604462909807.314587", "%.0f", "604462909807"},
        {"-604462909807.314588", "%.6f", "-604462909807.314588"}, {"2.5", "%.0f", "3"},
        {"-2.5", "%.0f", "-3"}, {"0.125", "%.2f", "0.13"}, {"-0.004", "%.2f", "-0.00"},
        {"9.999999", "%.5f", "10.00000"}, {"123456789012.345678", "%e", "1.234568e+11"},
        {"123456789012.345678", "%.17E", "1.23456789012345678E+11"}, {"0.000001", "%e", "1.000000e-06"},
        {"999999.9999995", "%.3e", "1.000e+06"}, {"0", "%e", "0.000000e+00"}, {"0", "%g", "0"},
        {"100000", "%g", "100000"}, {"1000000", "%g", "1e+06"}, {"0.0001", "%g", "0.0001"},
        {"0.00001", "%G", "1E-05"}, {"1234.5", "%.2g", "1.2e+03"}, {"2.5", "%.1g", "3"},
        {"123456789012.345678", "%.18g", "123456789012.345678"}, {"-1234567.891", "%,.2f", "-1,234,567.89"},
        {"1234.5", "%+012.2f", "+00001234.50"}, {"1234.5", "%0,12.2f", "0,001,234.50"},
        {"1234.5", "%-10.1f|", "1234.5    |"}, {"1234.5", "% .1f", " 1234.5"},
        {"1234.5", "Total: %.2f EUR", "Total: 1234.50 EUR"}, {"-1234.99", "%d", "-1234"},
        {"255.9", "%x", "ff"}, {"-1", "%u", "18446744073709551615"}, {"-2.500000", "", "-2.5"},
        {"3", "abc %% def", "3"}, {"0.000001", "", "0.000001"}};
    // clang-format on
    for (const Case& c : cases)
        EXPECT_EQ(c.expect, run(money(c.value), c.format)) << c.value << " " << c.format;
    const auto max = NumberValue::currency(*Money::from_millionths(Money::kMax));
    const auto min = NumberValue::currency(*Money::from_millionths(Money::kMin));
    EXPECT_EQ("604462909807314587.353087 -604462909807314587.353088", run(max, "%f") + " " + run(min, "%f"));
    EXPECT_EQ("-604,462,909,807,314,587 6.0446290980731458735309e+17",
              run(min, "%,.0f") + " " + run(max, "%.22e"));
    // The first bracketed colour name leaves the mask, known or not.
    // clang-format off
    struct Case2 { NumberValue v; const char *format, *expect; };
    const Case2 defaults[] = {
        {NumberValue::real(0.1), "", "0.1"}, {NumberValue::real(1e20), "", "1e+20"},
        {NumberValue::real(-0.0), "", "-0"},
        {NumberValue::real(std::numeric_limits<double>::infinity()), "", "inf"},
        {NumberValue::int32(-2147483647 - 1), "", "-2147483648"},
        {NumberValue::int64(INT64_MIN), "", "-9223372036854775808"},
        {NumberValue::int32(-1), "%x", "ffffffff"}, {NumberValue::int64(-1), "%x", "ffffffffffffffff"},
        {NumberValue::real(-2.9), "%d", "-2"}, {NumberValue::real(2.9), "%05d", "00002"},
        {NumberValue::int32(1234), "%0,8d", "0,001,234"}, {NumberValue::int32(1234), "%0,6d", "01,234"},
        {NumberValue::int32(-1234), "%0,7d", "-01,234"}, {NumberValue::int32(1234567), "%,d", "1,234,567"},
        {NumberValue::int32(123), "%,d", "123"}, {NumberValue::int32(1234), "%,.6d", "001,234"},
        // Grouping with sign flags, padding, shortest and exponent forms, a carry (as Python's "," option).
        {NumberValue::int32(1234567), "% ,d", " 1,234,567"}, {NumberValue::int64(-1234567), "%+,12d", "  -1,234,567"},
        {NumberValue::real(1234567.891), "%-,14.2f|", "1,234,567.89  |"}, {NumberValue::real(123456), "%,g", "123,456"},
        {NumberValue::real(1234567), "%,G", "1.23457E+06"}, {NumberValue::real(-1234.5), "%+0,10.1f", "-001,234.5"},
        {NumberValue::real(1234.5), "% 0,13.2e", " 0,001.23e+03"}, {NumberValue::real(999999.5), "%,.0f", "1,000,000"},
        {NumberValue::real(-0.5), "%,.0f", "-0"},
        {NumberValue::real(std::nan("")), "%0,10f", "       nan"}, {NumberValue::int32(5), "%%%d%%", "%5%"},
        {NumberValue::int32(5), "\xc3\xa9%d", "??5"}, // text outside ASCII is kept (shown as ? here)
        {NumberValue::real(-1234.5), "[Red]%.2f", "-1234.50"},
        {NumberValue::int32(7), "%d [Vert] [Bleu]", "7  [Bleu]"},
        {NumberValue::int32(7), "[#FF8000]%03d[", "007["}, {NumberValue::int32(7), "[nothing known]%d", "7"},
        {NumberValue::int32(7), "[%d]", "7"}, {NumberValue::int32(7), "[%d", "[7"}};
    // clang-format on
    for (const Case2& c : defaults)
        EXPECT_EQ(c.expect, run(c.v, c.format)) << c.format;
}

TEST(NumToString, WrongFormatsAreRefusedWithTheirPosition) {
    // clang-format off
    struct Case { std::string format; std::size_t position; };
    std::vector<Case> cases = {
        {"%n", 2}, {"%i", 2}, {"%s", 2}, {"%c", 2}, {"%p", 2}, {"%a", 2}, {"%A", 2}, {"%F", 2}, {"%ld", 2},
        {"%lld", 2}, {"%hd", 2}, {"%I64d", 2}, {"%*d", 2}, {"%.*f", 3}, {"%#x", 2}, {"%'d", 2}, {"%", 1},
        {"abc%", 4}, {"%5", 1}, {"%-", 1}, {"%d%d", 3}, {"%f and %e", 8}, {"%,x", 3}, {"%,o", 3}, {"%1$d", 3},
        {"%2147483648d", 5}, {"%.2147483648f", 6}, {"%2001d", 5}, {"%.2001f", 6}, {"%q", 2},
        {"%\xc3\xa9", 2}};
    // clang-format on
    for (const Case& c : cases) {
        Err r;
        std::u16string f = u16(c.format);
        if (c.format == "%\xc3\xa9") f = u"%\u00e9";
        EXPECT_EQ(u"", kp::numeric::num_to_string(NumberValue::int32(5), f, r.err)) << c.format;
        EXPECT_EQ(80001u, r.rec.id) << c.format;
        EXPECT_EQ(KP_SEVERITY_ERROR, r.rec.severity);
        kp::numeric::NumberFormat nf;
        std::size_t at = 0;
        EXPECT_FALSE(kp::numeric::parse_number_format(f, nf, &at));
        EXPECT_EQ(c.position, at) << c.format;
    }
    // Every letter that is not a conversion of the list.
    for (char16_t c = 0x20; c < 0x7F; ++c) {
        const std::u16string f = std::u16string(u"%") + c;
        kp::numeric::NumberFormat nf;
        const bool ok = kp::numeric::parse_number_format(f, nf);
        EXPECT_EQ(std::u16string(u"duxXoeEfgG%").find(c) != std::u16string::npos, ok) << static_cast<char>(c);
    }
    // The widest accepted conversion, and 10,000 characters of text around one.
    EXPECT_EQ(1u + 309u + 1u + 2000u, run(NumberValue::real(-1e308), "%2000.2000f").size());
    EXPECT_EQ(2000u, run(NumberValue::int32(7), "%-2000.2000d").size());
    const std::string text(10000, 'x');
    EXPECT_EQ(text + "42" + text, run(NumberValue::int32(42), text + "%d" + text));
    uint32_t id = 0;
    EXPECT_EQ("", run(NumberValue::int32(42), text + "%d%" + text, &id));
    EXPECT_EQ(80001u, id);
}

TEST(MinMax, LeastAndGreatestOfTheGivenValues) {
    const double nan = std::nan("");
    const double inf = std::numeric_limits<double>::infinity();
    // clang-format off
    struct Case { std::vector<double> v; double min, max; };
    const std::vector<Case> cases = {
        {{1, 2}, 1, 2}, {{3, -1, 7, 7, 0.5, -8, 2, 9, 4, 1}, -8, 9}, {{nan, 2, 1}, 1, 2},
        {{-inf, inf}, -inf, inf}, {{5}, 5, 5}, {{}, 0, 0}};
    // clang-format on
    for (const Case& c : cases) {
        EXPECT_EQ(c.min, kp::numeric::min_of(c.v));
        EXPECT_EQ(c.max, kp::numeric::max_of(c.v));
    }
    const double all_nan[] = {nan, nan}, zeros[] = {0.0, -0.0}; // among equal values the first wins
    EXPECT_TRUE(std::isnan(kp::numeric::min_of(all_nan)));
    EXPECT_FALSE(std::signbit(kp::numeric::min_of(zeros)));
    EXPECT_FALSE(std::signbit(kp::numeric::max_of(zeros)));
}
