// handlers.cpp - the handlers of the numeric, colour and currency functions.
// Each adapts the arguments, calls one implementation and hands back the result.
#include "component/bind.h"
#include "component/call.h"
#include "numeric/colour.h"
#include "numeric/currency.h"
#include "numeric/numbers.h"
#include "numeric/random.h"
#include "platform/clock.h"

namespace kp::handlers {

namespace {

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

// The currency table, or null with 80190 recorded (the failure values
// below are the functions' own).
kp_currency_table* table(CXError& e) {
    return numeric::currency_table(e);
}

} // namespace

} // namespace kp::handlers

namespace kp::bind {
// Monetary values travel as the 10 bytes of CurrencyBytes.
template <> struct Arg<numeric::Money> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return c == KP_T_CURRENCY; }
    static numeric::Money read(Call& c, int i) { return numeric::Money::from_bytes(c.currency(i).b); }
};
template <> struct Result<numeric::Money> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_CURRENCY; }
    static void put(Call& c, const numeric::Money& m) {
        CurrencyBytes out;
        m.to_bytes(out.b);
        c.ret_currency(out);
    }
};
// Random's any value: a real, or an integer.
template <> struct Result<numeric::RandomValue> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_ANY; }
    static void put(Call& c, const numeric::RandomValue& r) {
        variant::Value v;
        if (const double* d = std::get_if<double>(&r))
            variant::set_real(v.get(), *d);
        else
            variant::set_int(v.get(), std::get<int32_t>(r));
        c.ret_variant(v.get());
    }
};
} // namespace kp::bind

namespace kp::handlers {

// Random / InitRandom
KP_BIND(Random_1, numeric::random_unit)
KP_BIND(Random_2, numeric::random_upto)
KP_BIND(Random_3, numeric::random_between)
KP_BIND(InitRandom_1, [] { numeric::init_random_from_clock(tick_count); })
KP_BIND(InitRandom_2, numeric::init_random)

// Parity and the numeric test
KP_BIND(IsEven_1, numeric::is_even)
KP_BIND(IsOdd_1, numeric::is_odd)
KP_BIND(IsNumeric_1, [](kp_variant* v) { return numeric::is_numeric(v); })

// Colours
KP_BIND(RGB_1, numeric::rgb)
KP_BIND(RGBRed_1, numeric::rgb_red)
KP_BIND(RGBGreen_1, numeric::rgb_green)
KP_BIND(RGBBlue_1, numeric::rgb_blue)
KP_BIND(HSL_1, numeric::hsl_to_rgb)
KP_BIND(ColorHue_1, [](int32_t c) { return numeric::rgb_to_hsl(c).hue; })
KP_BIND(ColorSaturation_1, [](int32_t c) { return numeric::rgb_to_hsl(c).saturation; })
KP_BIND(ColorLightness_1, [](int32_t c) { return numeric::rgb_to_hsl(c).lightness; })

// Sizes
KP_BIND(LengthToString_1,
        [](int64_t size, CXError& e) { return numeric::length_to_string(size, numeric::kSizeAuto, e); })
KP_BIND(LengthToString_2,
        [](int64_t size, int32_t unit, CXError& e) { return numeric::length_to_string(size, unit, e); })

// Currency
KP_BIND(eInitCurrency_1, [](int32_t index, std::u16string_view name, numeric::Money rate, CXError& e) {
    if (kp_currency_table* t = table(e)) numeric::init_currency(t, index, name, rate, e);
})

KP_BIND(eExchangeRate_1, [](CXError& e) {
    kp_currency_table* t = table(e);
    return t ? numeric::exchange_rate(t, numeric::kDefaultCurrency, e) : -1.0;
})
KP_BIND(eExchangeRate_2, [](int32_t index, CXError& e) {
    kp_currency_table* t = table(e);
    return t ? numeric::exchange_rate(t, index, e) : -1.0;
})

// The forms with the variable that receives the rounding difference write
// through the argument vector: hand-written.
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

// A missing table goes to the conversion too, which fails with 80190.
KP_BIND(eChangeCurrency_1, [](numeric::Money v, int32_t from, int32_t to, CXError& e) {
    return numeric::change_currency(table(e), v, from, to, numeric::kNoRounding, nullptr, e);
})
KP_BIND(eChangeCurrency_2, [](numeric::Money v, int32_t from, int32_t to, int32_t decimals, CXError& e) {
    return numeric::change_currency(table(e), v, from, to, decimals, nullptr, e);
})
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

KP_BIND(eDefaultMemCurrency_1, [](CXError& e) {
    kp_currency_table* t = table(e);
    return t ? numeric::default_currency(t, numeric::DefaultOf::Memory, std::nullopt, e) : -1;
})
KP_BIND(eDefaultMemCurrency_2, [](int32_t index, CXError& e) {
    kp_currency_table* t = table(e);
    return t ? numeric::default_currency(t, numeric::DefaultOf::Memory, index, e) : -1;
})
KP_BIND(eDefaultViewCurrency_1, [](CXError& e) {
    kp_currency_table* t = table(e);
    return t ? numeric::default_currency(t, numeric::DefaultOf::View, std::nullopt, e) : -1;
})
KP_BIND(eDefaultViewCurrency_2, [](int32_t index, CXError& e) {
    kp_currency_table* t = table(e);
    return t ? numeric::default_currency(t, numeric::DefaultOf::View, index, e) : -1;
})

KP_BIND(eCurrencyName_1, [](CXError& e) {
    kp_currency_table* t = table(e);
    return t ? numeric::currency_name(t, numeric::kDefaultCurrency, e) : std::u16string();
})
KP_BIND(eCurrencyName_2, [](int32_t index, CXError& e) {
    kp_currency_table* t = table(e);
    return t ? numeric::currency_name(t, index, e) : std::u16string();
})

KP_BIND(eRoundDifference_1, numeric::round_difference)

} // namespace kp::handlers
