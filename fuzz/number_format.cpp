// number_format.cpp - NumToString's format reader and conversions over any
// format text and value.  Checks: a refused format gives the empty string
// and error 80001; an accepted ASCII format without grouping gives what
// snprintf gives for the same conversion; no result outgrows its format.
// The format's first bracketed colour name is taken out first, as
// NumToString does.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "component/error.h"
#include "fuzz_input.h"
#include "numeric/colour.h"
#include "numeric/format.h"

using kp::numeric::Money;
using kp::numeric::NumberFormat;
using kp::numeric::NumberValue;

namespace {

NumberValue value(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
        return NumberValue::int32(in.ConsumeIntegral<int32_t>());
    case 1:
        return NumberValue::int64(in.ConsumeIntegral<int64_t>());
    case 2: {
        const double specials[] = {0.0, -0.0, INFINITY, -INFINITY, NAN, 1e308, 5e-324, 0.5, 2.5};
        if (in.ConsumeBool()) return NumberValue::real(specials[in.ConsumeIntegralInRange<int>(0, 8)]);
        return NumberValue::real(in.ConsumeFloatingPoint<double>());
    }
    default: {
        using kp::numeric::int128;
        const int128 m = (static_cast<int128>(in.ConsumeIntegral<int16_t>()) << 64) |
                         static_cast<int128>(in.ConsumeIntegral<uint64_t>());
        return NumberValue::currency(*Money::from_millionths(m));
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const NumberValue v = value(in);
    std::u16string format;
    kp::fuzz::append_units(in, format, in.ConsumeIntegralInRange<size_t>(0, 12000));

    kp_error_record rec{};
    rec.severity = KP_SEVERITY_NONE;
    kp::CXError e(&rec);
    const std::u16string out = kp::numeric::num_to_string(v, format, e);

    kp::numeric::take_mask_colour(format);
    NumberFormat f;
    const bool ok = kp::numeric::parse_number_format(format, f);
    if (!ok) {
        if (!out.empty() || rec.id != 80001) std::abort();
        return 0;
    }
    if (rec.id != 0 && rec.id != 80205) std::abort();
    if (out.size() > format.size() + 2u * kp::numeric::kMaxFormatWidth + 400u) std::abort();
    if (!f.has_conversion || f.group || v.kind == NumberValue::Kind::Currency || rec.id) return 0;

    // The same conversion through snprintf, when the format is plain ASCII.
    std::string c;
    for (char16_t u : format) {
        if (u == 0 || u > 0x7E) return 0;
        c.push_back(static_cast<char>(u));
    }
    const bool integer = f.type == 'd' || f.type == 'u' || f.type == 'x' || f.type == 'X' || f.type == 'o';
    if (integer) {
        const std::size_t at = c.size() - f.after.size() - 1; // the type letter
        c.insert(at, "ll");
    }
    static char expect[16384];
    int n;
    if (integer) {
        long long s = v.kind == NumberValue::Kind::Real ? static_cast<long long>(v.d) : v.i;
        if (f.type != 'd' && v.kind == NumberValue::Kind::Int32)
            n = std::snprintf(expect, sizeof expect, c.c_str(),
                              static_cast<unsigned long long>(static_cast<uint32_t>(s)));
        else
            n = std::snprintf(expect, sizeof expect, c.c_str(), s);
    } else {
        n = std::snprintf(expect, sizeof expect, c.c_str(),
                          v.kind == NumberValue::Kind::Real ? v.d : static_cast<double>(v.i));
    }
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof expect) return 0;
    if (out.size() != static_cast<std::size_t>(n)) std::abort();
    for (int i = 0; i < n; ++i)
        if (out[static_cast<std::size_t>(i)] != static_cast<unsigned char>(expect[i])) std::abort();
    return 0;
}
