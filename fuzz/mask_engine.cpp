// mask_engine.cpp - formatting by date, time and regional masks: DateToString
// and TimeToString with any mask and value, the picture engine behind
// "UseSystemMask", token replacement, name abbreviation and the day and
// month name functions.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <string>

#include "datetime/masks.h"
#include "datetime/pictures.h"
#include "fuzz_input.h"

namespace {

using namespace kp::datetime;

const std::vector<std::u16string_view> kDictionary = {
    u"20240229",          u"18000101",          u"99991231",        u"23595999",    u"1200",
    u"JJ/MM/AAAA",        u"JJJJ JJ MMMM AAAA", u"jjj mmm aa",      u"HH:MM:SS:CC", u"HH h MM AP",
    u"UseSystemMask",     u"dddd d MMMM yyyy",  u"'d' dd \"x\" yy", u"h:mm:ss tt",  u"HH'h'mm",
    u"DDDD DD MMMM YYYY", u"juillet",           u"MMMMMMMM",
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    kp::fuzz::Regional store;
    const kp_regional_settings& rs = kp::fuzz::regional(in, store);
    const int op = in.ConsumeIntegralInRange<int>(0, 4);
    const std::u16string value = kp::fuzz::text(in, kDictionary);
    const std::u16string mask = kp::fuzz::text(in, kDictionary);
    const std::u16string_view mask_view = mask;
    kp::fuzz::Err e;
    switch (op) {
    case 0:
        date_to_string(value, nullptr, rs, e.err);
        date_to_string(value, &mask_view, rs, e.err);
        break;
    case 1:
        time_to_string(value, nullptr, rs, e.err);
        time_to_string(value, &mask_view, rs, e.err);
        break;
    case 2: {
        Date d{in.ConsumeIntegralInRange<int32_t>(0, 9999), in.ConsumeIntegralInRange<int32_t>(1, 12),
               in.ConsumeIntegralInRange<int32_t>(1, 31)};
        Time t{in.ConsumeIntegralInRange<int32_t>(0, 99), in.ConsumeIntegralInRange<int32_t>(0, 59),
               in.ConsumeIntegralInRange<int32_t>(0, 59), in.ConsumeIntegralInRange<int32_t>(0, 99)};
        format_date_picture(d, mask, rs);
        format_time_picture(t, mask);
        break;
    }
    case 3: {
        std::u16string s = value;
        // Callers always name a token; an empty one would match everywhere.
        if (!mask.empty()) replace_token(s, mask, kp::fuzz::short_text(in, 16));
        abbreviate(value);
        break;
    }
    default: {
        const int32_t n = kp::fuzz::integer<int32_t>(in);
        integer_to_day_in_alpha(n, rs, e.err);
        integer_to_month_in_alpha(n, rs, e.err);
        date_to_day_in_alpha(value, rs, e.err);
        date_to_month_in_alpha(value, rs, e.err);
        day_name(rs, n);
        month_name(rs, n);
        break;
    }
    }
    return 0;
}
