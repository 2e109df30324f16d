// fuzz_input.h - turns fuzzer bytes into the values the component takes:
// UTF-16 text of any code units (lone surrogates included), very long
// strings, integers at the extremes, reals with their special values.
//
// Text is drawn mostly from single bytes (ASCII and Latin-1, where the
// parsers have their branches) with an escape to any 16-bit unit, so that
// mutations of a seed stay readable and still reach every unit.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace kp::fuzz {

// Appends `n` units, one byte each below 0xF0, any 16-bit unit after 0xF0.
inline void append_units(FuzzedDataProvider& in, std::u16string& out, size_t n) {
    for (size_t k = 0; k < n && in.remaining_bytes(); ++k) {
        uint8_t b = in.ConsumeIntegral<uint8_t>();
        if (b < 0xF0)
            out.push_back(static_cast<char16_t>(b));
        else
            out.push_back(static_cast<char16_t>(in.ConsumeIntegral<uint16_t>()));
    }
}

// Short text of up to `max` units.
inline std::u16string short_text(FuzzedDataProvider& in, size_t max = 48) {
    std::u16string s;
    append_units(in, s, in.ConsumeIntegralInRange<size_t>(0, max));
    return s;
}

// A string argument: usually short, sometimes a value from `dictionary`
// (with a random tail), now and then surrogate halves only or a
// pattern repeated past the 16-bit lengths (up to about 70,000 units).
inline std::u16string text(FuzzedDataProvider& in, const std::vector<std::u16string_view>& dictionary = {}) {
    switch (in.ConsumeIntegralInRange<int>(0, 31)) {
    case 0:
        return u"";
    case 1: {
        std::u16string unit = short_text(in, 8);
        if (unit.empty()) unit.assign(1, u'A');
        size_t total = in.ConsumeIntegralInRange<size_t>(256, 70000);
        std::u16string s;
        s.reserve(total + unit.size());
        while (s.size() < total)
            s += unit;
        return s;
    }
    case 2: {
        std::u16string s;
        size_t n = in.ConsumeIntegralInRange<size_t>(1, 8);
        for (size_t k = 0; k < n; ++k)
            s.push_back(static_cast<char16_t>(0xD800 + in.ConsumeIntegralInRange<uint16_t>(0, 0x7FF)));
        return s;
    }
    case 3:
    case 4:
    case 5:
    case 6:
    case 7:
    case 8:
    case 9:
    case 10:
        if (!dictionary.empty()) {
            std::u16string s(dictionary[in.ConsumeIntegralInRange<size_t>(0, dictionary.size() - 1)]);
            if (in.ConsumeBool()) append_units(in, s, in.ConsumeIntegralInRange<size_t>(0, 12));
            return s;
        }
        [[fallthrough]];
    default:
        return short_text(in);
    }
}

// An integer of `T`, often one of the edges of its range or a small value.
template <typename T> T integer(FuzzedDataProvider& in) {
    constexpr T lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    switch (in.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
        return lo;
    case 1:
        return hi;
    case 2:
        return static_cast<T>(in.ConsumeIntegralInRange<int>(-3, 3));
    case 3:
        return static_cast<T>(in.ConsumeIntegralInRange<int64_t>(0, 10000));
    case 4: {
        // Powers of two and their neighbours: lengths and bit widths.
        int shift = in.ConsumeIntegralInRange<int>(0, std::numeric_limits<T>::digits - 1);
        T v = static_cast<T>(T(1) << shift);
        return static_cast<T>(v + static_cast<T>(in.ConsumeIntegralInRange<int>(-1, 1)));
    }
    default:
        return in.ConsumeIntegral<T>();
    }
}

inline double real(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
        return std::numeric_limits<double>::quiet_NaN();
    case 1:
        return in.ConsumeBool() ? std::numeric_limits<double>::infinity()
                                : -std::numeric_limits<double>::infinity();
    case 2:
        return in.ConsumeBool() ? std::numeric_limits<double>::max() : std::numeric_limits<double>::lowest();
    case 3:
        return std::numeric_limits<double>::denorm_min();
    case 4:
        return static_cast<double>(integer<int64_t>(in));
    default:
        return in.ConsumeFloatingPoint<double>();
    }
}

inline std::vector<uint8_t> bytes(FuzzedDataProvider& in) {
    if (in.ConsumeIntegralInRange<int>(0, 15) == 0) {
        // A long run, past the block sizes of the coders and streams.
        std::vector<uint8_t> v(in.ConsumeIntegralInRange<size_t>(4096, 200000));
        uint8_t b = in.ConsumeIntegral<uint8_t>();
        for (size_t k = 0; k < v.size(); ++k)
            v[k] = static_cast<uint8_t>(b + (k % 7 == 0 ? k : 0));
        return v;
    }
    return in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 512));
}

} // namespace kp::fuzz

#include "component/error.h"
#include "component/runtime.h"
#include "kp120/vm.h"

namespace kp::fuzz {

// An error object over a record of its own, cleared (severity 1).
struct Err {
    kp_error_record rec{};
    CXError err{&rec};
    Err() { rec.severity = 1; }
};

// Regional settings for the mask engine: French, English, all names and
// pictures missing, or names and pictures made from the input.
struct Regional {
    std::u16string text[21];
    kp_regional_settings rs{};
};

inline const kp_regional_settings& regional(FuzzedDataProvider& in, Regional& store) {
    static const kp_regional_settings french = {
        {u"lundi", u"mardi", u"mercredi", u"jeudi", u"vendredi", u"samedi", u"dimanche"},
        {u"janvier", u"f\u00e9vrier", u"mars", u"avril", u"mai", u"juin", u"juillet", u"ao\u00fbt",
         u"septembre", u"octobre", u"novembre", u"d\u00e9cembre"},
        u"dd/MM/yyyy",
        u"HH:mm",
        u',',
        nullptr};
    static const kp_regional_settings empty{};
    switch (in.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
        return empty;
    case 1:
        return kp::runtime::default_regional_settings();
    case 2: {
        for (std::u16string& t : store.text)
            t = short_text(in, 12);
        for (int k = 0; k < 7; ++k)
            store.rs.day_names[k] = store.text[k].c_str();
        for (int k = 0; k < 12; ++k)
            store.rs.month_names[k] = store.text[7 + k].c_str();
        store.rs.short_date = store.text[19].c_str();
        store.rs.time_format = store.text[20].c_str();
        store.rs.decimal_separator = in.ConsumeIntegral<char16_t>();
        return store.rs;
    }
    default:
        return french;
    }
}

} // namespace kp::fuzz
