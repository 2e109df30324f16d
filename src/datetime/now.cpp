// now.cpp - current date and time, smoothing and setting the clock.
#include "datetime/now.h"

#include "component/runtime.h"
#include "datetime/calendar.h"
#include "datetime/text.h"

namespace kp::datetime {

namespace {

constexpr int64_t kMaxDrift = 2000;

void record_refusal(CXError& err, uint32_t code) {
    err.clear();
    err.set_system(code);
    std::u16string line = system_error_text(code, runtime::french());
    line += u" (";
    text::append_int(line, static_cast<int32_t>(code));
    line += u")";
    err.append_line(line);
    err.set_severity(KP_SEVERITY_ERROR);
}

} // namespace

int64_t Smoother::next(int64_t rtc_ms, uint32_t now) {
    if ((flags_ & (kHaveTick | kHaveBase)) != (kHaveTick | kHaveBase)) {
        tick0_ = now;
        base_ = rtc_ms;
        flags_ |= kHaveTick | kHaveBase;
    }
    int64_t elapsed = static_cast<uint32_t>(now - tick0_);
    int64_t t = base_ + elapsed;
    int64_t drift = elapsed - (rtc_ms - base_);
    if (t > kMsPerDay || drift > kMaxDrift || drift < -kMaxDrift) {
        tick0_ = now;
        base_ = rtc_ms;
        t = rtc_ms;
    }
    return t;
}

Smoother& process_smoother() {
    static Smoother smoother;
    return smoother;
}

std::u16string date_sys(const platform::Clock& clock) {
    platform::SystemTime now = clock.local_time();
    return format_date(now.year, now.month, now.day);
}

std::u16string time_sys(const platform::Clock& clock, bool smooth, Smoother& smoother) {
    platform::SystemTime now = clock.local_time();
    int32_t centi = now.milliseconds / 10;
    if (!smooth) return format_time(now.hour, now.minute, now.second, centi);
    int64_t rtc = ((static_cast<int64_t>(now.hour) * 60 + now.minute) * 60 + now.second) * 1000 + centi * 10;
    int64_t t = smoother.next(rtc, clock.tick_ms());
    return format_time(static_cast<int32_t>(t / 3600000), static_cast<int32_t>(t % 3600000 / 60000),
                       static_cast<int32_t>(t % 60000 / 1000), static_cast<int32_t>(t % 1000 / 10));
}

bool set_date_sys(std::u16string_view date, const platform::Clock& clock, CXError& err) {
    Date d;
    if (!parse_date(date, d, &err)) return false;
    platform::SystemTime t = clock.local_time();
    t.year = d.year;
    t.month = d.month;
    t.day = d.day;
    uint32_t code = 0;
    if (!clock.set_local_time(t, &code)) {
        record_refusal(err, code);
        return false;
    }
    return true;
}

bool set_time_sys(std::u16string_view time, const platform::Clock& clock, CXError& err) {
    Time tm;
    if (!parse_time(time, tm, &err)) return false;
    platform::SystemTime t = clock.local_time();
    t.hour = tm.hour;
    t.minute = tm.minute;
    t.second = tm.second;
    t.milliseconds = tm.hundredths;
    uint32_t code = 0;
    if (!clock.set_local_time(t, &code)) {
        record_refusal(err, code);
        return false;
    }
    return true;
}

} // namespace kp::datetime
