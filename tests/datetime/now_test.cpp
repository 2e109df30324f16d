// Current date and time, the smoothed hundredths and setting the clock,
// over a clock the test drives.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "datetime/calendar.h"
#include "datetime/now.h"
#include "platform/win32_error.h"
#include "support/error_record.h"

namespace kp::datetime {
namespace {

class FakeClock : public platform::Clock {
  public:
    platform::SystemTime now{2024, 2, 29, 13, 5, 42, 378, 4};
    uint32_t tick = 1000;
    bool refuse = false;
    mutable int writes = 0;
    mutable platform::SystemTime written{};

    platform::SystemTime local_time() const override { return now; }
    bool set_local_time(const platform::SystemTime& t, uint32_t* error) const override {
        if (refuse) {
            *error = platform::kErrorPrivilegeNotHeld;
            return false;
        }
        ++writes;
        written = t;
        return true;
    }
    uint32_t tick_ms() const override { return tick; }
};

using kp::test::Err;

TEST(CurrentTime, PlainReading) {
    FakeClock c;
    Smoother s;
    EXPECT_EQ(date_sys(c), u"20240229");
    EXPECT_EQ(time_sys(c, false, s), u"13054237");
}

TEST(CurrentTime, SmoothedHundredthsFollowTheTick) {
    FakeClock c;
    c.now.milliseconds = 0;
    Smoother s;
    EXPECT_EQ(time_sys(c, true, s), u"13054200");
    c.tick += 456; // the clock still reads the same second
    EXPECT_EQ(time_sys(c, true, s), u"13054245");
    c.tick += 1000;
    c.now.second = 43;
    EXPECT_EQ(time_sys(c, true, s), u"13054345");
}

TEST(CurrentTime, SmoothingResynchronises) {
    Smoother s;
    const int64_t base = 3600000;
    EXPECT_EQ(s.next(base, 0xFFFFFF00u), base);
    // The tick wraps around 2^32 without a jump.
    EXPECT_EQ(s.next(base, 0x100u), base + 512);
    // More than two seconds of drift: the clock's reading wins.
    EXPECT_EQ(s.next(base + 10000, 0x200u), base + 10000);
    EXPECT_EQ(s.next(base + 10000, 0x200u + 2000), base + 12000);
    // Past midnight: taken again from the clock.
    Smoother late;
    EXPECT_EQ(late.next(86399000, 0), 86399000);
    EXPECT_EQ(late.next(86399000, 1500), 86399000);
}

TEST(SetClock, DateAndTimeReplaceTheirFieldsOnly) {
    FakeClock c;
    Err e;
    auto fields = [&] {
        const auto& w = c.written;
        return std::vector<int>{w.year, w.month, w.day, w.hour, w.minute, w.second, w.milliseconds};
    };
    EXPECT_TRUE(set_date_sys(u"20231225", c, e.err));
    EXPECT_EQ(fields(), (std::vector<int>{2023, 12, 25, 13, 5, 42, 378}));
    EXPECT_TRUE(set_time_sys(u"07080999", c, e.err));
    EXPECT_EQ(fields(), (std::vector<int>{2024, 2, 29, 7, 8, 9, 99})); // hundredths written unscaled
    EXPECT_EQ(e.rec.severity, 1);
}

TEST(SetClock, InvalidValuesNeverReachTheClock) {
    FakeClock c;
    Err e, e2, e3;
    EXPECT_FALSE(set_date_sys(u"20230229", c, e.err));
    EXPECT_FALSE(set_time_sys(u"2500", c, e2.err));
    EXPECT_FALSE(set_date_sys(u"", c, e3.err));
    EXPECT_EQ(std::tuple(e.id(), e2.id(), e3.id()),
              (std::tuple<uint32_t, uint32_t, uint32_t>(kErrFebruary29, kErrHours, kErrDateLength)));
    EXPECT_EQ(c.writes, 0);
}

TEST(SetClock, RefusalRecordsTheSystemError) {
    FakeClock c;
    c.refuse = true;
    Err e;
    EXPECT_FALSE(set_date_sys(u"20231225", c, e.err));
    EXPECT_EQ(e.rec.severity, 2);
    EXPECT_EQ(e.rec.system_code, platform::kErrorPrivilegeNotHeld);
    std::u16string msg(e.rec.message, e.rec.message_length);
    EXPECT_NE(msg.find(u" (1314)"), std::u16string::npos);
    Err e2;
    EXPECT_FALSE(set_time_sys(u"1200", c, e2.err));
    EXPECT_EQ(e2.rec.system_code, platform::kErrorPrivilegeNotHeld);
    EXPECT_EQ(c.writes, 0);
}

} // namespace
} // namespace kp::datetime
