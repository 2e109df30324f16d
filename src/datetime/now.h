// now.h - the current date and time, and setting them, through a clock.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "component/error.h"
#include "platform/clock.h"

namespace kp::datetime {

// Smoothed hundredths: the real-time clock of the device only ticks whole
// seconds, so the time of day is carried forward with the millisecond tick
// from a base taken at the first call, and taken again from the clock when
// the two drift more than two seconds apart or the day ends.
class Smoother {
  public:
    // Milliseconds since midnight for the clock reading `rtc_ms` at tick `now`.
    int64_t next(int64_t rtc_ms, uint32_t now);

  private:
    enum : uint32_t { kHaveTick = 1, kHaveBase = 2 };
    uint32_t flags_ = 0;
    uint32_t tick0_ = 0;
    int64_t base_ = 0;
};

// The smoother of the process (the documented per-process clock state).
Smoother& process_smoother();

// DateSys / Today: "AAAAMMJJ".
std::u16string date_sys(const platform::Clock& clock);
// TimeSys / Now: "HHmmSSCC"; smoothed when `smooth` (the VM's option 9).
std::u16string time_sys(const platform::Clock& clock, bool smooth, Smoother& smoother);

// Setting the clock: the value is validated (its error recorded), then the
// local time is read, its date (or its time) replaced and written back.  A
// refusal of the system records the system error with its text.
bool set_date_sys(std::u16string_view date, const platform::Clock& clock, CXError& err);
// The hundredths go unscaled into the milliseconds (99 sets 99 ms).
bool set_time_sys(std::u16string_view time, const platform::Clock& clock, CXError& err);

} // namespace kp::datetime
