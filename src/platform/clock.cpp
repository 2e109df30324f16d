// clock.cpp - the system clock over clock_gettime / clock_settime and the
// C library's time-zone routines.
#include "platform/clock.h"

#include <cerrno>
#include <ctime>

#include "platform/win32_error.h"

namespace kp::platform {

namespace {

SystemTime from_tm(const std::tm& tm, int32_t ms) {
    SystemTime t;
    t.year = tm.tm_year + 1900;
    t.month = tm.tm_mon + 1;
    t.day = tm.tm_mday;
    t.hour = tm.tm_hour;
    t.minute = tm.tm_min;
    t.second = tm.tm_sec;
    t.milliseconds = ms;
    t.day_of_week = tm.tm_wday;
    return t;
}

// The device's time range starts in 1601 and ends in 30827.
bool fields_valid(const SystemTime& t) {
    return t.year >= 1601 && t.year <= 30827 && t.month >= 1 && t.month <= 12 && t.day >= 1 && t.day <= 31 &&
           t.hour >= 0 && t.hour < 24 && t.minute >= 0 && t.minute < 60 && t.second >= 0 && t.second < 60 &&
           t.milliseconds >= 0 && t.milliseconds < 1000;
}

std::tm to_tm(const SystemTime& t) {
    std::tm tm{};
    tm.tm_year = t.year - 1900;
    tm.tm_mon = t.month - 1;
    tm.tm_mday = t.day;
    tm.tm_hour = t.hour;
    tm.tm_min = t.minute;
    tm.tm_sec = t.second;
    tm.tm_isdst = -1;
    return tm;
}

class OsClock final : public Clock {
  public:
    SystemTime local_time() const override {
        timespec ts{};
        clock_gettime(CLOCK_REALTIME, &ts);
        tzset();
        std::tm tm{};
        localtime_r(&ts.tv_sec, &tm);
        return from_tm(tm, static_cast<int32_t>(ts.tv_nsec / 1000000));
    }

    bool set_local_time(const SystemTime& t, uint32_t* error) const override {
        if (!fields_valid(t)) {
            if (error) *error = kErrorInvalidParameter;
            set_last_error(kErrorInvalidParameter);
            return false;
        }
        std::tm tm = to_tm(t);
        errno = 0;
        time_t secs = mktime(&tm);
        if (secs == static_cast<time_t>(-1) && errno != 0) {
            uint32_t code = set_last_error_from_errno();
            if (error) *error = code;
            return false;
        }
        timespec ts{};
        ts.tv_sec = secs;
        ts.tv_nsec = static_cast<long>(t.milliseconds) * 1000000L;
        if (clock_settime(CLOCK_REALTIME, &ts) != 0) {
            uint32_t code = set_last_error_from_errno();
            if (error) *error = code;
            return false;
        }
        return true;
    }

    uint32_t tick_ms() const override {
        timespec ts{};
        clock_gettime(CLOCK_MONOTONIC, &ts);
        uint64_t ms = static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec / 1000000);
        return static_cast<uint32_t>(ms);
    }
};

const OsClock kOsClock;

} // namespace

const Clock& system_clock() {
    return kOsClock;
}

bool utc_to_local(const SystemTime& utc, SystemTime& local) {
    if (!fields_valid(utc)) return false;
    std::tm tm = to_tm(utc);
    tm.tm_isdst = 0;
    time_t secs = timegm(&tm);
    // timegm normalises out-of-range days (31 April); the device refuses them.
    if (tm.tm_mday != utc.day || tm.tm_mon != utc.month - 1) return false;
    tzset();
    std::tm out{};
    if (!localtime_r(&secs, &out)) return false;
    local = from_tm(out, utc.milliseconds);
    return fields_valid(local);
}

bool local_to_utc(const SystemTime& local, SystemTime& utc) {
    if (!fields_valid(local)) return false;
    std::tm tm = to_tm(local);
    errno = 0;
    time_t secs = mktime(&tm);
    if (secs == static_cast<time_t>(-1) && errno != 0) return false;
    std::tm out{};
    if (!gmtime_r(&secs, &out)) return false;
    utc = from_tm(out, local.milliseconds);
    return fields_valid(utc);
}

} // namespace kp::platform
