// date_parsers.cpp - the readers of date, time and date-time strings: the
// validation of "AAAAMMJJ" and "HHmmSSCC" values, StringToDate with and
// without a mask, regional pictures, differences, ages, day numbers and the
// time-zone conversions.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <string>

#include "datetime/calendar.h"
#include "datetime/masks.h"
#include "datetime/pictures.h"
#include "fuzz_input.h"

namespace {

using namespace kp::datetime;

const std::vector<std::u16string_view> kDictionary = {
    u"20240229",       u"18000101",           u"15821015",
    u"15821004",       u"00000101",           u"99991231",
    u"2359",           u"23595999",           u"2024022912000000",
    u"JJ/MM/AAAA",     u"AAAA-MM-JJ",         u"JJJJ JJ MMMM AAAA",
    u"MMM AA",         u"UseSystemMask",      u"dd/MM/yyyy",
    u"d MMMM yyyy",    u"'le' dddd d MMM yy", u"29/02/2024",
    u"1 janvier 1900", u"Feb 3, 2021",
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    kp::fuzz::Regional store;
    const kp_regional_settings& rs = kp::fuzz::regional(in, store);
    const int op = in.ConsumeIntegralInRange<int>(0, 7);
    const std::u16string a = kp::fuzz::text(in, kDictionary);
    const std::u16string b = kp::fuzz::text(in, kDictionary);
    kp::fuzz::Err e;
    switch (op) {
    case 0: {
        Date d;
        Time t;
        parse_date(a, d, &e.err);
        parse_time(a, t, &e.err);
        parse_time(a, t, nullptr);
        parse_date_time(a, d, t);
        break;
    }
    case 1: {
        std::u16string_view mask = b;
        string_to_date(a, nullptr, rs);
        string_to_date(a, &mask, rs);
        break;
    }
    case 2:
        parse_date_picture(a, b, rs);
        break;
    case 3:
        date_to_integer(a, in.ConsumeBool(), e.err);
        time_to_integer(a, e.err);
        date_week_number(a, e.err);
        date_to_day(a, e.err);
        time_valid(a);
        date_valid(a);
        break;
    case 4:
        date_difference(a, b, e.err);
        time_difference(a, b, e.err);
        date_time_difference(a, b, e.err);
        break;
    case 5:
        age(a, b);
        age(a, a);
        easter(a);
        break;
    case 6:
        date_time_utc_to_local(a, e.err);
        date_time_local_to_utc(a, e.err);
        break;
    default: {
        const int32_t n = kp::fuzz::integer<int32_t>(in);
        integer_to_date(n, a, e.err);
        integer_to_time(n, e.err);
        integer_week_number(n, e.err);
        date_of(kp::fuzz::integer<int64_t>(in));
        weekday(kp::fuzz::integer<int64_t>(in));
        day_number(kp::fuzz::integer<int32_t>(in), kp::fuzz::integer<int32_t>(in),
                   kp::fuzz::integer<int32_t>(in));
        easter(kp::fuzz::integer<int32_t>(in));
        break;
    }
    }
    return 0;
}
