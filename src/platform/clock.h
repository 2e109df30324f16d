// clock.h - the system clock: local time, setting it, a monotonic tick and
// time-zone conversion.
//
// Times travel as SystemTime, the device's broken-down time structure
// (calendar fields plus milliseconds).  Time-zone conversion uses the C
// library's time-zone database, so the TZ environment variable is honoured
// and daylight-saving transitions are those of the zone's rules.
#pragma once

#include <cstdint>

namespace kp::platform {

struct SystemTime {
    int32_t year = 0;
    int32_t month = 0; // 1..12
    int32_t day = 0;   // 1..31
    int32_t hour = 0;
    int32_t minute = 0;
    int32_t second = 0;
    int32_t milliseconds = 0;
    int32_t day_of_week = 0; // 0 Sunday .. 6 Saturday (as the device reports it)
};

// The clock behind the date and time functions.  The component uses
// system_clock(); tests give their own.
class Clock {
  public:
    virtual ~Clock() = default;
    // Current local time.
    virtual SystemTime local_time() const = 0;
    // Sets the local time; false with the Win32 code in *error when the
    // system refuses (no privilege, out of range) and nothing changed.
    virtual bool set_local_time(const SystemTime& t, uint32_t* error) const = 0;
    // Milliseconds from an arbitrary origin, monotonic; wraps at 2^32 like
    // the device's tick count.
    virtual uint32_t tick_ms() const = 0;
};

// The operating system's clock (stateless).
const Clock& system_clock();

// Time-zone conversion of a broken-down time through the current zone
// (re-read from TZ at every call).  Years before 1601 are outside the
// device's time range and fail, as do fields out of range.  Milliseconds are
// carried over unchanged.  False on failure.
bool utc_to_local(const SystemTime& utc, SystemTime& local);
bool local_to_utc(const SystemTime& local, SystemTime& utc);

} // namespace kp::platform
