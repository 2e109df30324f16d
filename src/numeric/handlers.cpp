// handlers.cpp - the handlers of the numeric, colour and currency functions.
// Each adapts the arguments, calls one implementation and hands back the result.
#include "component/call.h"
#include "numeric/colour.h"
#include "numeric/currency.h"
#include "numeric/numbers.h"
#include "numeric/random.h"
#include "platform/clock.h"

namespace kp::handlers {

namespace {

void ret_random(Call& call, const numeric::RandomValue& r) {
    kp_variant v;
    variant::init(&v);
    if (const double* d = std::get_if<double>(&r))
        variant::set_real(&v, *d);
    else
        variant::set_int(&v, std::get<int32_t>(r));
    call.ret_variant(&v);
    variant::destroy(&v);
}

// The device's tick count (milliseconds, modulo 2^32).
uint32_t tick_count() {
    return platform::system_clock().tick_ms();
}

numeric::Money money(const Call& call, int i) {
    return numeric::Money::from_bytes(call.currency(i).b);
}

void ret_money(Call& call, numeric::Money m) {
    CurrencyBytes out;
    m.to_bytes(out.b);
    call.ret_currency(out);
}

// The flagged last argument of the conversions: the caller's monetary
// variable, which receives the rounding difference.
void store_difference(void** args, int i, numeric::Money diff) {
    if (args && args[i]) diff.to_bytes(static_cast<uint8_t*>(args[i]));
}

// A conversion with or without rounding and its difference.  A missing
// table goes to the conversion too, which fails with 80190 and zeroes the
// difference.
template <typename Convert>
void convert(kp_call_frame* frame, kp_call_context* context, void** args, Convert&& fn) {
    Call call(frame, context, args);
    ret_money(call, fn(call, numeric::currency_table(call.error())));
}

using OneWay = numeric::Money (*)(const kp_currency_table*, numeric::Money, int32_t, int32_t, numeric::Money*,
                                  CXError&);

// The four forms of eToEuro and eToCurrency: the amount, then the currency
// index, the decimals and the variable that receives the rounding
// difference; what a form leaves out takes its default.
template <OneWay F, int Count> int32_t one_way(kp_call_frame* frame, kp_call_context* context, void** args) {
    convert(frame, context, args, [=](Call& c, kp_currency_table* t) {
        const int32_t index = Count >= 2 ? c.i32(1) : numeric::kDefaultCurrency;
        const int32_t decimals = Count >= 3 ? c.i32(2) : numeric::kNoRounding;
        numeric::Money diff;
        numeric::Money r = F(t, money(c, 0), index, decimals, Count >= 4 ? &diff : nullptr, c.error());
        if constexpr (Count >= 4) store_difference(args, 3, diff);
        return r;
    });
    return 0;
}

} // namespace

// Random / InitRandom
KP_HANDLER(Random_1) {
    Call call(frame, context, args);
    ret_random(call, numeric::random_unit());
    return 0;
}
KP_HANDLER(Random_2) {
    Call call(frame, context, args);
    ret_random(call, numeric::random_upto(call.i32(0), call.error()));
    return 0;
}
KP_HANDLER(Random_3) {
    Call call(frame, context, args);
    ret_random(call, numeric::random_between(call.i32(0), call.i32(1), call.error()));
    return 0;
}
KP_HANDLER(InitRandom_1) {
    Call call(frame, context, args);
    numeric::init_random_from_clock(tick_count);
    return 0;
}
KP_HANDLER(InitRandom_2) {
    Call call(frame, context, args);
    numeric::init_random(call.i32(0));
    return 0;
}

// Parity and the numeric test
KP_HANDLER(IsEven_1) {
    Call call(frame, context, args);
    call.ret_bool(numeric::is_even(call.i32(0)));
    return 0;
}
KP_HANDLER(IsOdd_1) {
    Call call(frame, context, args);
    call.ret_bool(numeric::is_odd(call.i32(0)));
    return 0;
}
KP_HANDLER(IsNumeric_1) {
    Call call(frame, context, args);
    call.ret_bool(numeric::is_numeric(call.variant(0)));
    return 0;
}

// Colours
KP_HANDLER(RGB_1) {
    Call call(frame, context, args);
    call.ret_int(numeric::rgb(call.i32(0), call.i32(1), call.i32(2)));
    return 0;
}
KP_HANDLER(RGBRed_1) {
    Call call(frame, context, args);
    call.ret_int(numeric::rgb_red(call.i32(0)));
    return 0;
}
KP_HANDLER(RGBGreen_1) {
    Call call(frame, context, args);
    call.ret_int(numeric::rgb_green(call.i32(0)));
    return 0;
}
KP_HANDLER(RGBBlue_1) {
    Call call(frame, context, args);
    call.ret_int(numeric::rgb_blue(call.i32(0)));
    return 0;
}
KP_HANDLER(HSL_1) {
    Call call(frame, context, args);
    call.ret_int(numeric::hsl_to_rgb(call.i32(0), call.i32(1), call.i32(2), call.error()));
    return 0;
}
KP_HANDLER(ColorHue_1) {
    Call call(frame, context, args);
    call.ret_int(numeric::rgb_to_hsl(call.i32(0)).hue);
    return 0;
}
KP_HANDLER(ColorSaturation_1) {
    Call call(frame, context, args);
    call.ret_int(numeric::rgb_to_hsl(call.i32(0)).saturation);
    return 0;
}
KP_HANDLER(ColorLightness_1) {
    Call call(frame, context, args);
    call.ret_int(numeric::rgb_to_hsl(call.i32(0)).lightness);
    return 0;
}

// Sizes
KP_HANDLER(LengthToString_1) {
    Call call(frame, context, args);
    call.ret_string(numeric::length_to_string(call.i64(0), numeric::kSizeAuto, call.error()));
    return 0;
}
KP_HANDLER(LengthToString_2) {
    Call call(frame, context, args);
    call.ret_string(numeric::length_to_string(call.i64(0), call.i32(1), call.error()));
    return 0;
}

// Currency
KP_HANDLER(eInitCurrency_1) {
    Call call(frame, context, args);
    if (kp_currency_table* t = numeric::currency_table(call.error()))
        numeric::init_currency(t, call.i32(0), call.str(1), money(call, 2), call.error());
    return 0;
}

KP_HANDLER(eExchangeRate_1) {
    Call call(frame, context, args);
    kp_currency_table* t = numeric::currency_table(call.error());
    call.ret_real(t ? numeric::exchange_rate(t, numeric::kDefaultCurrency, call.error()) : -1.0);
    return 0;
}
KP_HANDLER(eExchangeRate_2) {
    Call call(frame, context, args);
    kp_currency_table* t = numeric::currency_table(call.error());
    call.ret_real(t ? numeric::exchange_rate(t, call.i32(0), call.error()) : -1.0);
    return 0;
}

KP_HANDLER(eToEuro_1) {
    return one_way<numeric::to_euro, 1>(frame, context, args);
}
KP_HANDLER(eToEuro_2) {
    return one_way<numeric::to_euro, 2>(frame, context, args);
}
KP_HANDLER(eToEuro_3) {
    return one_way<numeric::to_euro, 3>(frame, context, args);
}
KP_HANDLER(eToEuro_4) {
    return one_way<numeric::to_euro, 4>(frame, context, args);
}
KP_HANDLER(eToCurrency_1) {
    return one_way<numeric::to_currency, 1>(frame, context, args);
}
KP_HANDLER(eToCurrency_2) {
    return one_way<numeric::to_currency, 2>(frame, context, args);
}
KP_HANDLER(eToCurrency_3) {
    return one_way<numeric::to_currency, 3>(frame, context, args);
}
KP_HANDLER(eToCurrency_4) {
    return one_way<numeric::to_currency, 4>(frame, context, args);
}

KP_HANDLER(eChangeCurrency_1) {
    convert(frame, context, args, [](Call& c, kp_currency_table* t) {
        return numeric::change_currency(t, money(c, 0), c.i32(1), c.i32(2), numeric::kNoRounding, nullptr,
                                        c.error());
    });
    return 0;
}
KP_HANDLER(eChangeCurrency_2) {
    convert(frame, context, args, [](Call& c, kp_currency_table* t) {
        return numeric::change_currency(t, money(c, 0), c.i32(1), c.i32(2), c.i32(3), nullptr, c.error());
    });
    return 0;
}
KP_HANDLER(eChangeCurrency_3) {
    convert(frame, context, args, [args](Call& c, kp_currency_table* t) {
        numeric::Money diff;
        numeric::Money r =
            numeric::change_currency(t, money(c, 0), c.i32(1), c.i32(2), c.i32(3), &diff, c.error());
        store_difference(args, 4, diff);
        return r;
    });
    return 0;
}

KP_HANDLER(eDefaultMemCurrency_1) {
    Call call(frame, context, args);
    kp_currency_table* t = numeric::currency_table(call.error());
    call.ret_int(t ? numeric::default_currency(t, numeric::DefaultOf::Memory, std::nullopt, call.error())
                   : -1);
    return 0;
}
KP_HANDLER(eDefaultMemCurrency_2) {
    Call call(frame, context, args);
    kp_currency_table* t = numeric::currency_table(call.error());
    call.ret_int(t ? numeric::default_currency(t, numeric::DefaultOf::Memory, call.i32(0), call.error())
                   : -1);
    return 0;
}
KP_HANDLER(eDefaultViewCurrency_1) {
    Call call(frame, context, args);
    kp_currency_table* t = numeric::currency_table(call.error());
    call.ret_int(t ? numeric::default_currency(t, numeric::DefaultOf::View, std::nullopt, call.error()) : -1);
    return 0;
}
KP_HANDLER(eDefaultViewCurrency_2) {
    Call call(frame, context, args);
    kp_currency_table* t = numeric::currency_table(call.error());
    call.ret_int(t ? numeric::default_currency(t, numeric::DefaultOf::View, call.i32(0), call.error()) : -1);
    return 0;
}

KP_HANDLER(eCurrencyName_1) {
    Call call(frame, context, args);
    kp_currency_table* t = numeric::currency_table(call.error());
    call.ret_string(t ? numeric::currency_name(t, numeric::kDefaultCurrency, call.error())
                      : std::u16string());
    return 0;
}
KP_HANDLER(eCurrencyName_2) {
    Call call(frame, context, args);
    kp_currency_table* t = numeric::currency_table(call.error());
    call.ret_string(t ? numeric::currency_name(t, call.i32(0), call.error()) : std::u16string());
    return 0;
}

KP_HANDLER(eRoundDifference_1) {
    Call call(frame, context, args);
    ret_money(call, numeric::round_difference(call.handle(0)));
    return 0;
}

} // namespace kp::handlers
