// handlers.cpp - the handlers of the date and time family: each reads its
// arguments, calls one function of calendar.h, masks.h or now.h and hands
// the result back.
#include "component/call.h"
#include "component/runtime.h"
#include "datetime/calendar.h"
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

// An optional parameter the caller left out arrives as a null pointer; the
// function then behaves as its overload without that parameter.
bool given(void** args, int i) {
    return args && args[i];
}

// Duration values travel as signed 64-bit milliseconds under their own type code.
void ret_duration(kp_call_frame* frame, int64_t ms) {
    if (!frame || !frame->values || !frame->values->ops || !frame->values->ops->set_result) return;
    frame->values->ops->set_result(frame->values, frame->result_handle, &ms, KP_T_DURATION);
}

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

// ---- Current date and time ----

KP_HANDLER(DateSys_1) {
    Call call(frame, context, args);
    call.ret_string(date_sys(clock()));
    return 0;
}
KP_HANDLER(DateSys_2) {
    Call call(frame, context, args);
    set_date_sys(call.str(0), clock(), call.error());
    return 0;
}
KP_HANDLER(Today_1) {
    return DateSys_1(frame, context, args);
}
KP_HANDLER(Today_2) {
    return DateSys_2(frame, context, args);
}

KP_HANDLER(TimeSys_1) {
    Call call(frame, context, args);
    call.ret_string(time_sys(clock(), smooth(), process_smoother()));
    return 0;
}
KP_HANDLER(TimeSys_2) {
    Call call(frame, context, args);
    set_time_sys(call.str(0), clock(), call.error());
    return 0;
}
KP_HANDLER(Now_1) {
    return TimeSys_1(frame, context, args);
}
KP_HANDLER(Now_2) {
    return TimeSys_2(frame, context, args);
}

// ---- Day numbers and integer times ----

KP_HANDLER(IntegerToDate_1) {
    Call call(frame, context, args);
    call.ret_string(integer_to_date(call.i32(0), {}, call.error()));
    return 0;
}
KP_HANDLER(IntegerToDate_2) {
    Call call(frame, context, args);
    call.ret_string(integer_to_date(call.i32(0), given(args, 1) ? call.str(1) : u"", call.error()));
    return 0;
}
KP_HANDLER(IntegerToDay_1) {
    Call call(frame, context, args);
    call.ret_int(weekday(call.i32(0)));
    return 0;
}
KP_HANDLER(IntegerToTime_1) {
    Call call(frame, context, args);
    call.ret_string(integer_to_time(call.i32(0), call.error()));
    return 0;
}
KP_HANDLER(TimeToInteger_1) {
    Call call(frame, context, args);
    call.ret_int(time_to_integer(call.str(0), call.error()));
    return 0;
}
KP_HANDLER(DateToInteger_1) {
    Call call(frame, context, args);
    call.ret_int(date_to_integer(call.str(0), false, call.error()));
    return 0;
}
KP_HANDLER(DateToInteger_2) {
    Call call(frame, context, args);
    call.ret_int(date_to_integer(call.str(0), given(args, 1) && call.boolean(1), call.error()));
    return 0;
}

// ---- Validation ----

KP_HANDLER(DateValid_1) {
    Call call(frame, context, args);
    call.ret_bool(date_valid(call.str(0)));
    return 0;
}
KP_HANDLER(DateIsValid_1) {
    return DateValid_1(frame, context, args);
}
KP_HANDLER(TimeValid_1) {
    Call call(frame, context, args);
    call.ret_int(time_valid(call.str(0)));
    return 0;
}
KP_HANDLER(TimeIsValid_1) {
    return TimeValid_1(frame, context, args);
}

// ---- Weeks and weekdays ----

KP_HANDLER(WeekNumber_1) {
    Call call(frame, context, args);
    call.ret_int(date_week_number(call.str(0), call.error()));
    return 0;
}
KP_HANDLER(DateToWeekNumber_1) {
    return WeekNumber_1(frame, context, args);
}
KP_HANDLER(IntegerToWeekNumber_1) {
    Call call(frame, context, args);
    call.ret_int(integer_week_number(call.i32(0), call.error()));
    return 0;
}
KP_HANDLER(DateToDay_1) {
    Call call(frame, context, args);
    call.ret_int(date_to_day(call.str(0), call.error()));
    return 0;
}

// ---- Names ----

KP_HANDLER(IntegerToDayInAlpha_1) {
    Call call(frame, context, args);
    call.ret_string(integer_to_day_in_alpha(call.i32(0), runtime::regional_settings()));
    return 0;
}
KP_HANDLER(IntegerToMonthInAlpha_1) {
    Call call(frame, context, args);
    call.ret_string(integer_to_month_in_alpha(call.i32(0), runtime::regional_settings(), call.error()));
    return 0;
}
KP_HANDLER(DateToDayInAlpha_1) {
    Call call(frame, context, args);
    call.ret_string(date_to_day_in_alpha(call.str(0), runtime::regional_settings(), call.error()));
    return 0;
}
KP_HANDLER(DateToMonthInAlpha_1) {
    Call call(frame, context, args);
    call.ret_string(date_to_month_in_alpha(call.str(0), runtime::regional_settings(), call.error()));
    return 0;
}

// ---- Differences, Age, Easter, time zones ----

KP_HANDLER(DateDifference_1) {
    Call call(frame, context, args);
    call.ret_int(date_difference(call.str(0), call.str(1), call.error()));
    return 0;
}
KP_HANDLER(TimeDifference_1) {
    Call call(frame, context, args);
    call.ret_int(time_difference(call.str(0), call.str(1), call.error()));
    return 0;
}
KP_HANDLER(DateTimeDifference_1) {
    Call call(frame, context, args);
    call.ret_string(date_time_difference(call.str(0), call.str(1), call.error()));
    return 0;
}
KP_HANDLER(Age_1) {
    Call call(frame, context, args);
    call.ret_string(age(call.str(0), date_sys(clock())));
    return 0;
}
KP_HANDLER(Age_2) {
    Call call(frame, context, args);
    call.ret_string(given(args, 1) ? age(call.str(0), call.str(1)) : age(call.str(0), date_sys(clock())));
    return 0;
}
KP_HANDLER(Easter_1) {
    Call call(frame, context, args);
    call.ret_string(easter(call.str(0)));
    return 0;
}
KP_HANDLER(Easter_2) {
    Call call(frame, context, args);
    call.ret_string(easter(call.i32(0)));
    return 0;
}
KP_HANDLER(DateTimeUTCToLocal_1) {
    Call call(frame, context, args);
    call.ret_string(date_time_utc_to_local(call.str(0), call.error()));
    return 0;
}
KP_HANDLER(DateTimeLocalToUTC_1) {
    Call call(frame, context, args);
    call.ret_string(date_time_local_to_utc(call.str(0), call.error()));
    return 0;
}

// ---- Masks ----

KP_HANDLER(DateToString_1) {
    Call call(frame, context, args);
    call.ret_string(date_to_string(call.str(0), nullptr, runtime::regional_settings(), call.error()));
    return 0;
}
KP_HANDLER(DateToString_2) {
    Call call(frame, context, args);
    std::u16string_view mask = call.str(1);
    call.ret_string(date_to_string(call.str(0), given(args, 1) ? &mask : nullptr,
                                   runtime::regional_settings(), call.error()));
    return 0;
}
KP_HANDLER(TimeToString_1) {
    Call call(frame, context, args);
    call.ret_string(time_to_string(call.str(0), nullptr, runtime::regional_settings(), call.error()));
    return 0;
}
KP_HANDLER(TimeToString_2) {
    Call call(frame, context, args);
    std::u16string_view mask = call.str(1);
    call.ret_string(time_to_string(call.str(0), given(args, 1) ? &mask : nullptr,
                                   runtime::regional_settings(), call.error()));
    return 0;
}
KP_HANDLER(StringToDate_1) {
    Call call(frame, context, args);
    call.ret_string(string_to_date(call.str(0), nullptr, runtime::regional_settings()));
    return 0;
}
KP_HANDLER(StringToDate_2) {
    Call call(frame, context, args);
    std::u16string_view mask = call.str(1);
    call.ret_string(
        string_to_date(call.str(0), given(args, 1) ? &mask : nullptr, runtime::regional_settings()));
    return 0;
}
KP_HANDLER(DurationToString_1) {
    Call call(frame, context, args);
    call.ret_string(duration_to_string(call.i64(0), call.i32(1)));
    return 0;
}
KP_HANDLER(DurationToString_2) {
    Call call(frame, context, args);
    if (given(args, 1))
        call.ret_string(duration_to_string(call.i64(0), call.str(1), duration_letters()));
    else
        call.ret_string(duration_to_string(call.i64(0), kDurationMilli));
    return 0;
}
KP_HANDLER(StringToDuration_1) {
    Call call(frame, context, args);
    ret_duration(frame, string_to_duration(call.str(0), call.i32(1)));
    return 0;
}
KP_HANDLER(StringToDuration_2) {
    Call call(frame, context, args);
    if (given(args, 1))
        ret_duration(frame, string_to_duration(call.str(0), call.str(1), duration_letters()));
    else
        ret_duration(frame, string_to_duration(call.str(0), kDurationMilli));
    return 0;
}

} // namespace kp::handlers
