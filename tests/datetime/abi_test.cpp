// The date and time functions called through the component module, as the
// VM calls them.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_host.h"

namespace {

using kp::host::CallOutcome;
using kp::host::CallStatus;
using kp::host::Value;

class DateTimeAbi : public ::testing::Test {
  protected:
    kp::test::HostFixture fx{1};

    CallOutcome call(const char* name, std::vector<Value> args) {
        CallOutcome out = fx.host->call(name, args);
        EXPECT_EQ(out.status, CallStatus::Ok) << name << ": " << out.detail;
        return out;
    }
    std::u16string text(const char* name, std::vector<Value> args) {
        return call(name, std::move(args)).result.s;
    }
    int64_t number(const char* name, std::vector<Value> args) { return call(name, std::move(args)).result.i; }
};

Value s(const char16_t* v) {
    return Value::string(v);
}
Value n(int64_t v) {
    return Value::integer(v);
}

TEST_F(DateTimeAbi, TablesCarryEveryHandler) {
    std::istringstream names(
        "DateSys TimeSys IntegerToDate IntegerToDay IntegerToTime TimeToInteger TimeToString DateToInteger "
        "DateToString DateValid WeekNumber IntegerToDayInAlpha IntegerToWeekNumber IntegerToMonthInAlpha "
        "TimeValid DateDifference TimeDifference DateTimeDifference StringToDate Today Now DateIsValid "
        "TimeIsValid DateToDay DateToDayInAlpha DateToMonthInAlpha DateToWeekNumber StringToDuration "
        "DurationToString Age Easter DateTimeUTCToLocal DateTimeLocalToUTC");
    for (std::string name; names >> name;) {
        const kp_function* fn = fx.host->find_function(name.c_str());
        ASSERT_NE(fn, nullptr) << name;
        for (uint32_t k = 0; k < KP_IDENT_COUNT(fn->ident); ++k)
            EXPECT_NE(fn->overloads[k].handler, nullptr) << name << " overload " << k + 1;
    }
}

TEST_F(DateTimeAbi, CurrentDateAndTime) {
    for (const char* name : {"DateSys", "Today"}) {
        std::u16string d = text(name, {});
        ASSERT_EQ(d.size(), 8u) << name;
        EXPECT_TRUE(call("DateIsValid", {Value::string(d)}).result.b) << name;
    }
    for (bool smooth : {false, true}) {
        fx.host->set_smooth_time(smooth);
        for (const char* name : {"TimeSys", "Now"}) {
            std::u16string t = text(name, {});
            ASSERT_EQ(t.size(), 8u) << name;
            EXPECT_EQ(number("TimeValid", {Value::string(t)}), 1) << name;
        }
    }
}

TEST_F(DateTimeAbi, SettingAnInvalidValueRecordsTheValidationError) {
    // Only refused values are tried: a valid one would move the machine's clock.
    CallOutcome d = call("DateSys", {s(u"20230229")});
    EXPECT_EQ(d.error.id, 80127u);
    EXPECT_EQ(d.error.severity, 2);
    CallOutcome t = call("TimeSys", {s(u"126000")});
    EXPECT_EQ(t.error.id, 80130u);
    EXPECT_EQ(call("Today", {s(u"2023")}).error.id, 80121u);
    EXPECT_EQ(call("Now", {s(u"12:00")}).error.id, 80128u);
}

// Integer and string results, and the failure value of each result type.
TEST_F(DateTimeAbi, DayNumbersAndTimes) {
    EXPECT_EQ(number("DateToInteger", {s(u"20000101")}), 73049);
    EXPECT_EQ(number("DateToInteger", {s(u"20241231"), Value::boolean(true)}), 366);
    EXPECT_EQ(text("IntegerToDate", {n(73049), s(u"Y")}), u"2000");
    EXPECT_EQ(number("IntegerToDay", {n(73049)}), 6);
    EXPECT_EQ(text("IntegerToTime", {n(9000000)}), u"25000000");
    EXPECT_EQ(number("DateToWeekNumber", {s(u"20241230")}), 53);

    EXPECT_EQ(text("IntegerToDate", {n(6937804)}), u"207950123");
    EXPECT_EQ(number("IntegerToDay", {n(-657413)}), -6);
    CallOutcome bad = call("IntegerToDate", {n(std::numeric_limits<int32_t>::min())});
    EXPECT_EQ(bad.result.s, u"");
    EXPECT_EQ(bad.error.id, 80132u);
    EXPECT_EQ(call("IntegerToDayInAlpha", {n(-657414)}).error.id, 80132u);
    CallOutcome inv = call("DateToInteger", {s(u"15820810")});
    EXPECT_EQ(inv.result.i, -1);
    EXPECT_EQ(inv.error.id, 80124u);
    EXPECT_EQ(call("IntegerToWeekNumber", {n(-1000000)}).error.id, 80132u);
}

TEST_F(DateTimeAbi, ValidationIsSilent) {
    CallOutcome d = call("DateValid", {s(u"19000229")});
    EXPECT_FALSE(d.result.b);
    EXPECT_EQ(d.error.severity, 1);
    EXPECT_TRUE(call("DateIsValid", {s(u"15000229")}).result.b);
    CallOutcome t = call("TimeValid", {s(u"2400")});
    EXPECT_EQ(t.result.i, 0);
    EXPECT_EQ(t.error.severity, 1);
    EXPECT_EQ(number("TimeIsValid", {s(u"235959")}), 1);
}

TEST_F(DateTimeAbi, DifferencesAgeEaster) {
    EXPECT_EQ(number("DateDifference", {s(u"20240101"), s(u"20240301")}), 60);
    EXPECT_EQ(text("DateTimeDifference", {s(u"2024010112"), s(u"2024010112")}), u"+000000000000000");
    CallOutcome bad = call("DateDifference", {s(u"2024"), s(u"20240301")});
    EXPECT_EQ(bad.result.i, -1);
    EXPECT_EQ(bad.error.id, 80134u);
    EXPECT_EQ(call("TimeDifference", {s(u"99"), s(u"1230")}).error.id, 80135u);
    EXPECT_EQ(text("Age", {s(u"99991231")}), u""); // after today
    EXPECT_EQ(text("Age", {s(u"18000101")}).size(), 8u);
    EXPECT_EQ(text("Easter", {n(2024)}), u"20240331");
    EXPECT_EQ(text("Easter", {s(u"2025")}), u"20250420");
}

TEST_F(DateTimeAbi, TimeZoneConversion) {
    std::u16string local = text("DateTimeUTCToLocal", {s(u"2024070112000000")});
    ASSERT_EQ(local.size(), 16u);
    EXPECT_EQ(text("DateTimeLocalToUTC", {Value::string(local)}), u"2024070112000000");
    CallOutcome bad = call("DateTimeUTCToLocal", {s(u"20240230")});
    EXPECT_EQ(bad.result.s, u"");
    EXPECT_EQ(bad.error.id, 80051u);
}

TEST_F(DateTimeAbi, MasksAndNamesFollowTheInterfaceLanguage) {
    EXPECT_EQ(text("DateToString", {s(u"20240105")}), u"05/01/2024");
    EXPECT_EQ(text("DateToString", {s(u"20240105"), s(u"JJJJ JJ MMMM AAAA")}), u"Friday 05 January 2024");
    EXPECT_EQ(text("DateToString", {s(u"20240105"), s(u"UseSystemMask")}), u"1/5/24");
    EXPECT_EQ(text("TimeToString", {s(u"13054217"), s(u"UseSystemMask")}), u"1:05 PM");
    fx.host->set_language(0);
    EXPECT_EQ(text("DateToString", {s(u"20240705"), s(u"JJJ JJ MMM AAAA")}), u"ven. 05 juil. 2024");
    EXPECT_EQ(text("DateToString", {s(u"20240105"), s(u"UseSystemMask")}), u"05/01/2024");
    EXPECT_EQ(text("StringToDate", {s(u"05/01/2024"), s(u"UseSystemMask")}), u"20240105");
    EXPECT_EQ(text("DateToMonthInAlpha", {s(u"20240815")}), u"août");
    CallOutcome bad = call("DateToString", {s(u"2024010"), s(u"JJ")});
    EXPECT_EQ(bad.result.s, u"");
    EXPECT_EQ(bad.error.id, 80121u);
}

TEST_F(DateTimeAbi, Durations) {
    EXPECT_EQ(text("DurationToString", {Value::int64(-90061001), n(0)}), u"-1010101001");
    // The mask letters are the VM's: D for days in English, J in French.
    EXPECT_EQ(text("DurationToString", {Value::int64(90061234), s(u"D HH:MM:SS.LLL")}), u"1 01:01:01.234");
    EXPECT_EQ(number("StringToDuration", {s(u"2 00:00:01.5"), s(u"D HH:MM:SS.L")}), 2 * 86400000LL + 1500);
    fx.host->set_language(0);
    EXPECT_EQ(text("DurationToString", {Value::int64(90061234), s(u"J j, HHhMM")}), u"1 j, 01h01");
    fx.host->set_language(1);
    EXPECT_EQ(
        text("DurationToString", {Value::int64(std::numeric_limits<int64_t>::min()), n(0)}).substr(0, 4),
        u"-106");
    EXPECT_EQ(number("StringToDuration", {s(u"-1010101001"), n(0)}), -90061001);
    EXPECT_EQ(number("StringToDuration", {s(u"123"), n(0)}), 0);
}

TEST_F(DateTimeAbi, LeftOutParametersMeanTheShortForm) {
    auto second_overload = [&](const char* name, std::vector<Value> args) {
        const kp_function* fn = fx.host->find_function(name);
        EXPECT_NE(fn, nullptr);
        CallOutcome out = fx.host->call_overload(*fn, 1, args);
        EXPECT_EQ(out.status, CallStatus::Ok) << name << ": " << out.detail;
        return out;
    };
    EXPECT_EQ(second_overload("DateToString", {s(u"20240105")}).result.s, u"05/01/2024");
    EXPECT_EQ(second_overload("TimeToString", {s(u"1230")}).result.s, u"12:30:00:00");
    EXPECT_EQ(second_overload("StringToDate", {s(u"05/01/2024")}).result.s, u"20240105");
    EXPECT_EQ(second_overload("IntegerToDate", {n(1)}).result.s, u"18000101");
    EXPECT_EQ(second_overload("DateToInteger", {s(u"18000102")}).result.i, 2);
    EXPECT_EQ(second_overload("Age", {s(u"18000101")}).result.s.size(), 8u);
    EXPECT_EQ(second_overload("DurationToString", {Value::int64(1001)}).result.s, u"0000001001");
    EXPECT_EQ(second_overload("StringToDuration", {s(u"0000001001")}).result.i, 1001);
}

} // namespace
