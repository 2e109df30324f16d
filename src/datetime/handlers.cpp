// handlers.cpp - the handlers of the date and time family: each reads its
// arguments, calls one function of calendar.h, masks.h, durations.h or now.h and hands
// the result back.
#include "component/bind.h"
#include "component/call.h"
#include "component/runtime.h"
#include "datetime/calendar.h"
#include "datetime/durations.h"
#include "datetime/masks.h"
#include "datetime/now.h"
#include "platform/clock.h"

namespace kp::handlers {

namespace {

using namespace kp::datetime;

const platform::Clock& clock() {
    return platform::system_clock();
}

bool smooth() {
    return runtime::query_option(KP_OPTION_SMOOTH_TIME);
}

const kp_regional_settings& names() {
    return runtime::regional_settings();
}

// A duration result: signed 64-bit milliseconds under their own type code.
struct Duration {
    int64_t ms = 0;
};

// The VM's letters of duration masks (messages 28577 to 28581), at most four
// characters each, with J H M S L where a message is missing.
DurationLetters duration_letters() {
    DurationLetters l;
    std::u16string* fields[5] = {&l.day, &l.hour, &l.minute, &l.second, &l.milli};
    for (uint32_t k = 0; k < 5; ++k) {
        std::u16string text;
        if (message_text(28577 + k, text) && !text.empty()) *fields[k] = text.substr(0, 4);
    }
    return l;
}

} // namespace

} // namespace kp::handlers

namespace kp::bind {
template <> struct Result<handlers::Duration> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_DURATION; }
    static void put(Call& c, const handlers::Duration& d) { c.ret_typed(&d.ms, KP_T_DURATION); }
};
} // namespace kp::bind

namespace kp::handlers {

// ---- Current date and time ----

KP_BIND(DateSys_1, [] { return date_sys(clock()); })
KP_BIND(DateSys_2, [](std::u16string_view date, CXError& e) { set_date_sys(date, clock(), e); })
KP_HANDLER(Today_1) {
    return DateSys_1(frame, context, args);
}
KP_HANDLER(Today_2) {
    return DateSys_2(frame, context, args);
}

KP_BIND(TimeSys_1, [] { return time_sys(clock(), smooth(), process_smoother()); })
KP_BIND(TimeSys_2, [](std::u16string_view time, CXError& e) { set_time_sys(time, clock(), e); })
KP_HANDLER(Now_1) {
    return TimeSys_1(frame, context, args);
}
KP_HANDLER(Now_2) {
    return TimeSys_2(frame, context, args);
}

// ---- Day numbers and integer times ----

// An optional parameter the caller left out makes the function behave as
// its overload without that parameter.
KP_BIND(IntegerToDate_1, [](int32_t n, CXError& e) { return integer_to_date(n, {}, e); })
KP_BIND(IntegerToDate_2, [](int32_t n, std::optional<std::u16string_view> part, CXError& e) {
    return integer_to_date(n, part.value_or(u""), e);
})
KP_BIND(IntegerToDay_1, integer_to_day)
KP_BIND(IntegerToTime_1, integer_to_time)
KP_BIND(TimeToInteger_1, time_to_integer)
KP_BIND(DateToInteger_1, [](std::u16string_view d, CXError& e) { return date_to_integer(d, false, e); })
KP_BIND(DateToInteger_2, [](std::u16string_view d, std::optional<bool> day_of_year, CXError& e) {
    return date_to_integer(d, day_of_year.value_or(false), e);
})

// ---- Validation ----

KP_BIND(DateValid_1, date_valid)
KP_BIND(DateIsValid_1, date_valid)
KP_BIND(TimeValid_1, time_valid)
KP_BIND(TimeIsValid_1, time_valid)

// ---- Weeks and weekdays ----

KP_BIND(WeekNumber_1, date_week_number)
KP_BIND(DateToWeekNumber_1, date_week_number)
KP_BIND(IntegerToWeekNumber_1, integer_week_number)
KP_BIND(DateToDay_1, date_to_day)

// ---- Names ----

KP_BIND(IntegerToDayInAlpha_1, [](int32_t n, CXError& e) { return integer_to_day_in_alpha(n, names(), e); })
KP_BIND(IntegerToMonthInAlpha_1,
        [](int32_t n, CXError& e) { return integer_to_month_in_alpha(n, names(), e); })
KP_BIND(DateToDayInAlpha_1,
        [](std::u16string_view d, CXError& e) { return date_to_day_in_alpha(d, names(), e); })
KP_BIND(DateToMonthInAlpha_1,
        [](std::u16string_view d, CXError& e) { return date_to_month_in_alpha(d, names(), e); })

// ---- Differences, Age, Easter, time zones ----

KP_BIND(DateDifference_1, date_difference)
KP_BIND(TimeDifference_1, time_difference)
KP_BIND(DateTimeDifference_1, date_time_difference)
// The reference date defaults to today.
KP_BIND(Age_1, [](std::u16string_view birth) { return age(birth, date_sys(clock())); })
KP_BIND(Age_2, [](std::u16string_view birth, std::optional<std::u16string_view> reference) {
    return reference ? age(birth, *reference) : age(birth, date_sys(clock()));
})
KP_BIND(Easter_1, [](std::u16string_view year) { return easter(year); })
KP_BIND(Easter_2, [](int32_t year) { return easter(year); })
KP_BIND(DateTimeUTCToLocal_1, date_time_utc_to_local)
KP_BIND(DateTimeLocalToUTC_1, date_time_local_to_utc)

// ---- Masks ----

namespace {
// A mask left out gives the function's default mask.
const std::u16string_view* mask_of(const std::optional<std::u16string_view>& mask) {
    return mask ? &*mask : nullptr;
}
} // namespace

KP_BIND(DateToString_1,
        [](std::u16string_view d, CXError& e) { return date_to_string(d, nullptr, names(), e); })
KP_BIND(DateToString_2, [](std::u16string_view d, std::optional<std::u16string_view> mask, CXError& e) {
    return date_to_string(d, mask_of(mask), names(), e);
})
KP_BIND(TimeToString_1,
        [](std::u16string_view t, CXError& e) { return time_to_string(t, nullptr, names(), e); })
KP_BIND(TimeToString_2, [](std::u16string_view t, std::optional<std::u16string_view> mask, CXError& e) {
    return time_to_string(t, mask_of(mask), names(), e);
})
KP_BIND(StringToDate_1, [](std::u16string_view s) { return string_to_date(s, nullptr, names()); })
KP_BIND(StringToDate_2, [](std::u16string_view s, std::optional<std::u16string_view> mask) {
    return string_to_date(s, mask_of(mask), names());
})
KP_BIND(DurationToString_1, [](int64_t ms, int32_t form) { return duration_to_string(ms, form); })
KP_BIND(DurationToString_2, [](int64_t ms, std::optional<std::u16string_view> mask) {
    return mask ? duration_to_string(ms, *mask, duration_letters()) : duration_to_string(ms, kDurationMilli);
})
KP_BIND(StringToDuration_1,
        [](std::u16string_view s, int32_t form) { return Duration{string_to_duration(s, form)}; })
KP_BIND(StringToDuration_2, [](std::u16string_view s, std::optional<std::u16string_view> mask) {
    return Duration{mask ? string_to_duration(s, *mask, duration_letters())
                         : string_to_duration(s, kDurationMilli)};
})

} // namespace kp::handlers
