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
TEST(FuzzDenyList, EveryEntryNamesAFunctionAndDeniesSomething) {
    kp::test::HostFixture fx;
    ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error();
    for (const kp::fuzz::Denied& d : kp::fuzz::kDenied) {
        const kp_function* fn = nullptr;
        for (const kp_function& f : fx.host->functions())
            if (std::strcmp(f.english, d.english) == 0) fn = &f;
        ASSERT_NE(fn, nullptr) << d.english << " is not in the function table";
        int denied = 0;
        for (uint32_t k = 0; k < KP_IDENT_COUNT(fn->ident); ++k)
            denied += kp::fuzz::denied(*fn, fn->overloads[k]);
        EXPECT_GT(denied, 0) << d.english << ": no overload is kept out";
    }
}

// Reading the clock and the file functions stay fuzzed; only setting the
// clock and the memory-address forms are kept out.
TEST(FuzzDenyList, ReadingOverloadsStayFuzzed) {
    kp::test::HostFixture fx;
    ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error();
    for (const char* name : {"DateSys", "TimeSys", "Today", "Now", "fRead", "fWrite", "fWriteLine"}) {
        const kp_function* fn = fx.host->find_function(name);
        ASSERT_NE(fn, nullptr) << name;
        int allowed = 0, denied = 0;
        for (uint32_t k = 0; k < KP_IDENT_COUNT(fn->ident); ++k) {
            const kp_overload& ov = fn->overloads[k];
            bool out = kp::fuzz::denied(*fn, ov);
            (out ? denied : allowed)++;
            if (std::strcmp(name, "fRead") == 0 || std::strcmp(name, "fWrite") == 0 ||
                std::strcmp(name, "fWriteLine") == 0)
                EXPECT_EQ(out, kp::fuzz::address_form(ov)) << name << " overload " << k + 1;
            else
                EXPECT_EQ(out, ov.param_count > 0) << name << " overload " << k + 1;
        }
        EXPECT_GT(allowed, 0) << name;
        EXPECT_GT(denied, 0) << name;
    }
    // Functions outside the list are never kept out.
    const kp_function* open = fx.host->find_function("fOpen");
    ASSERT_NE(open, nullptr);
    for (uint32_t k = 0; k < KP_IDENT_COUNT(open->ident); ++k)
        EXPECT_FALSE(kp::fuzz::denied(*open, open->overloads[k]));
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
