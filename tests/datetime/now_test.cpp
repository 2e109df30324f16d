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

TEST(CurrentTime, PlainAndSmoothedReadings) {
    FakeClock c;
    Smoother s;
    EXPECT_EQ(date_sys(c), u"20240229");
    EXPECT_EQ(time_sys(c, false, s), u"13054237");
    FakeClock c2;
    c2.now.milliseconds = 0;
    Smoother s2;
    EXPECT_EQ(time_sys(c2, true, s2), u"13054200");
    c2.tick += 456; // the clock still reads the same second
    EXPECT_EQ(time_sys(c2, true, s2), u"13054245");
    c2.tick += 1000;
    c2.now.second = 43;
    EXPECT_EQ(time_sys(c2, true, s2), u"13054345");
    Smoother s3;
    const int64_t base = 3600000;
    EXPECT_EQ(s3.next(base, 0xFFFFFF00u), base);
    // The tick wraps around 2^32 without a jump.
    EXPECT_EQ(s3.next(base, 0x100u), base + 512);
    // More than two seconds of drift: the clock's3 reading wins.
    EXPECT_EQ(s3.next(base + 10000, 0x200u), base + 10000);
    EXPECT_EQ(s3.next(base + 10000, 0x200u + 2000), base + 12000);
    // Past midnight: taken again from the clock.
    Smoother late;
    EXPECT_EQ(late.next(86399000, 0), 86399000);
    EXPECT_EQ(late.next(86399000, 1500), 86399000);
}

TEST(SetClock, FieldsInvalidValuesAndRefusal) {
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
    FakeClock c2;
    Err i1, i2, i3;
    EXPECT_FALSE(set_date_sys(u"20230229", c2, i1.err));
    EXPECT_FALSE(set_time_sys(u"2500", c2, i2.err));
    EXPECT_FALSE(set_date_sys(u"", c2, i3.err));
    EXPECT_EQ(std::tuple(i1.id(), i2.id(), i3.id()),
              (std::tuple<uint32_t, uint32_t, uint32_t>(kErrFebruary29, kErrHours, kErrDateLength)));
    EXPECT_EQ(c2.writes, 0);
    // A refusal records the system error.
    FakeClock c3;
    c3.refuse = true;
    Err r1, r2;
    EXPECT_FALSE(set_date_sys(u"20231225", c3, r1.err));
    EXPECT_EQ(r1.rec.severity, 2);
    EXPECT_EQ(r1.rec.system_code, platform::kErrorPrivilegeNotHeld);
    std::u16string msg(r1.rec.message, r1.rec.message_length);
    EXPECT_NE(msg.find(u" (1314)"), std::u16string::npos);
    EXPECT_FALSE(set_time_sys(u"1200", c3, r2.err));
    EXPECT_EQ(r2.rec.system_code, platform::kErrorPrivilegeNotHeld);
    EXPECT_EQ(c3.writes, 0);
}

} // namespace
} // namespace kp::datetime
