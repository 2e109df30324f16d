// The date and time functions through the module: arguments, results, failure values and error records.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <variant>
#include <vector>

#include "support/test_host.h"

namespace {

using kp::host::CallOutcome;
using kp::host::CallStatus;
using kp::host::Value;

// clang-format off
Value s(const char16_t* v) { return Value::string(v); }
Value n(int64_t v) { return Value::integer(v); }
// clang-format on

// One call, its result (a text, or a number: booleans as 0 and 1) and its error (0: none, severity 1).
struct Row {
    const char* name;
    std::vector<Value> args;
    std::variant<const char16_t*, int64_t> result;
    uint32_t error = 0;
    int overload = -1; // 1: the second overload, parameters left out
};

class DateTimeAbi : public ::testing::Test {
  protected:
    kp::test::HostFixture fx{1};

    CallOutcome call(const char* name, std::vector<Value> args, int overload = -1) {
        CallOutcome out = overload < 0
                              ? fx.host->call(name, args)
                              : fx.host->call_overload(*fx.host->find_function(name), overload, args);
        EXPECT_EQ(out.status, CallStatus::Ok) << name << ": " << out.detail;
        return out;
    }
    std::u16string text(const char* name, std::vector<Value> args) {
        return call(name, std::move(args)).result.s;
    }
    void check(const std::vector<Row>& rows) {
        for (const Row& r : rows) {
            SCOPED_TRACE(r.name);
            CallOutcome out = call(r.name, r.args, r.overload);
            if (const auto* t = std::get_if<const char16_t*>(&r.result))
                EXPECT_EQ(out.result.s, std::u16string(*t));
            else
                EXPECT_EQ(out.result.kind == Value::Kind::Bool ? out.result.b : out.result.i,
                          std::get<int64_t>(r.result));
            EXPECT_EQ(std::pair(out.error.id, out.error.severity), std::pair(r.error, r.error ? 2 : 1));
        }
    }
};

// The handlers with logic of their own.  Only refused clock values are tried (a valid one would move the
// machine's clock).  Mask letters: D for days in English, J in French.  Left-out parameters: the short form.
TEST_F(DateTimeAbi, ResultsFailureValuesLanguageAndToday) {
    // clang-format off
    const std::vector<Row> rows = {
        {"DateSys", {s(u"20230229")}, u"", 80127}, {"TimeSys", {s(u"126000")}, u"", 80130},
        {"Today", {s(u"2023")}, u"", 80121}, {"Now", {s(u"12:00")}, u"", 80128},
        {"DateToInteger", {s(u"20241231"), Value::boolean(true)}, int64_t{366}},
        {"IntegerToDate", {n(73049), s(u"Y")}, u"2000"}, {"Age", {s(u"99991231")}, u""}, // after today
        {"Easter", {n(2024)}, u"20240331"}, {"Easter", {s(u"2025")}, u"20250420"},
        {"DateToString", {s(u"20240105"), s(u"JJJJ JJ MMMM AAAA")}, u"Friday 05 January 2024"},
        {"DateToString", {s(u"20240105"), s(u"UseSystemMask")}, u"1/5/24"},
        {"TimeToString", {s(u"13054217"), s(u"UseSystemMask")}, u"1:05 PM"},
        {"DurationToString", {Value::int64(-90061001), n(0)}, u"-1010101001"},
        {"DurationToString", {Value::int64(90061234), s(u"D HH:MM:SS.LLL")}, u"1 01:01:01.234"},
        {"StringToDuration", {s(u"2 00:00:01.5"), s(u"D HH:MM:SS.L")}, int64_t{2 * 86400000LL + 1500}},
        {"StringToDuration", {s(u"-1010101001"), n(0)}, int64_t{-90061001}},
        {"DateToString", {s(u"20240105")}, u"05/01/2024", 0, 1},
        {"TimeToString", {s(u"1230")}, u"12:30:00:00", 0, 1},
        {"StringToDate", {s(u"05/01/2024")}, u"20240105", 0, 1}, {"IntegerToDate", {n(1)}, u"18000101", 0, 1},
        {"DateToInteger", {s(u"18000102")}, int64_t{2}, 0, 1},
        {"DurationToString", {Value::int64(1001)}, u"0000001001", 0, 1},
        {"StringToDuration", {s(u"0000001001")}, int64_t{1001}, 0, 1}};
    // clang-format on
    check(rows);
    EXPECT_EQ(text("Age", {s(u"18000101")}).size(), 8u);
    EXPECT_EQ(call("Age", {s(u"18000101")}, 1).result.s.size(), 8u);
    fx.host->set_language(0);
    // clang-format off
    const std::vector<Row> rows2 = {
        {"DateToString", {s(u"20240705"), s(u"JJJ JJ MMM AAAA")}, u"ven. 05 juil. 2024"},
        {"DateToString", {s(u"20240105"), s(u"UseSystemMask")}, u"05/01/2024"},
        {"StringToDate", {s(u"05/01/2024"), s(u"UseSystemMask")}, u"20240105"},
        {"DateToMonthInAlpha", {s(u"20240815")}, u"août"},
        {"DurationToString", {Value::int64(90061234), s(u"J j, HHhMM")}, u"1 j, 01h01"}};
    // clang-format on
    check(rows2);
    for (const char* name : {"DateSys", "Today"})
        EXPECT_TRUE(call("DateIsValid", {Value::string(text(name, {}))}).result.b) << name;
    for (bool smooth : {false, true}) {
        fx.host->set_smooth_time(smooth);
        for (const char* name : {"TimeSys", "Now"}) {
            const std::u16string t = text(name, {});
            EXPECT_TRUE(t.size() == 8 && call("TimeValid", {Value::string(t)}).result.i == 1) << name;
        }
    }
    const std::u16string local = text("DateTimeUTCToLocal", {s(u"2024070112000000")});
    EXPECT_EQ(text("DateTimeLocalToUTC", {Value::string(local)}), u"2024070112000000");
}

} // namespace
