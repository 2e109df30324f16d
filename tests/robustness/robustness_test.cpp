// Guards of the fuzzing sandbox and regressions of faults found by fuzzing.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "../fuzz/deny_list.h"
#include "datetime/calendar.h"
#include "support/test_host.h"

namespace {

using kp::host::Host;

// A renamed function would silently drop out of the deny-list and the
// generic fuzz target would start processes or set the clock: every entry
// must still name a function of the table and keep one of its overloads out.
// A renamed function would silently drop out of the deny-list and the
// generic fuzz target would start processes or set the clock: every entry
// must still name a function of the table and keep one of its overloads out.
// Reading the clock and the file functions stay fuzzed; only setting the
// clock and the memory-address forms are kept out, and functions outside
// the list never are.
TEST(FuzzDenyList, EntriesNameFunctionsAndKeepOnlyTheirDangerousOverloadsOut) {
    kp::test::HostFixture fx;
    ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error();
    auto denied_count = [](const kp_function& fn) {
        int denied = 0;
        for (uint32_t k = 0; k < KP_IDENT_COUNT(fn.ident); ++k)
            denied += kp::fuzz::denied(fn, fn.overloads[k]);
        return denied;
    };
    for (const kp::fuzz::Denied& d : kp::fuzz::kDenied) {
        const kp_function* fn = fx.host->find_function(d.english);
        ASSERT_TRUE(fn && std::strcmp(fn->english, d.english) == 0)
            << d.english << " is not in the function table";
        EXPECT_GT(denied_count(*fn), 0) << d.english << ": no overload is kept out";
    }
    for (const char* name : {"DateSys", "TimeSys", "Today", "Now", "fRead", "fWrite", "fWriteLine"}) {
        const kp_function* fn = fx.host->find_function(name);
        ASSERT_NE(fn, nullptr) << name;
        const bool file = name[0] == 'f';
        for (uint32_t k = 0; k < KP_IDENT_COUNT(fn->ident); ++k) {
            const kp_overload& ov = fn->overloads[k];
            EXPECT_EQ(kp::fuzz::denied(*fn, ov), file ? kp::fuzz::address_form(ov) : ov.param_count > 0)
                << name << " overload " << k + 1;
        }
        const int denied = denied_count(*fn);
        EXPECT_GT(denied, 0) << name;
        EXPECT_LT(denied, static_cast<int>(KP_IDENT_COUNT(fn->ident))) << name;
    }
    const kp_function* open = fx.host->find_function("fOpen");
    ASSERT_NE(open, nullptr);
    EXPECT_EQ(denied_count(*open), 0);
}

// weekday overflowed on day numbers near the 64-bit limits.
TEST(FuzzRegressions, WeekdayOfExtremeDayNumbers) {
    using kp::datetime::weekday;
    constexpr int64_t hi = std::numeric_limits<int64_t>::max();
    constexpr int64_t lo = std::numeric_limits<int64_t>::min();
    for (int64_t n : {hi, hi - 1, hi - 6, lo, lo + 1, lo + 6}) {
        int32_t w = weekday(n);
        EXPECT_GE(w, 1) << n;
        EXPECT_LE(w, 7) << n;
    }
    // Seven days apart is the same weekday, and the next day the next one.
    EXPECT_EQ(weekday(hi), weekday(hi - 7));
    EXPECT_EQ(weekday(lo), weekday(lo + 7));
    EXPECT_EQ(weekday(hi) % 7 + 1, weekday(hi - 6));
    EXPECT_EQ(weekday(1), 3); // 1 January 1800, a Wednesday
}

} // namespace
