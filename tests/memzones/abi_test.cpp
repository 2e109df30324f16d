// The memory-zone functions through the component module: named and default zones, types, failures, size.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <tuple>
#include <unistd.h>

#include "files/files_fixture.h"

using kp::host::CallOutcome;
using kp::host::CallStatus;
using kp::host::Value;
using namespace kp::files::test;

namespace {

struct MemAbi : DeviceTest {
    CallOutcome call(const char* name, std::vector<Value> args) {
        CallOutcome out = fx.host->call(name, args);
        EXPECT_EQ(CallStatus::Ok, out.status) << name << ": " << out.detail;
        return out;
    }
    void SetUp() override {
        ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error();
        call("MemDeleteAll", {});
    }
};

// AddressSanitizer's quarantine hides what the zones give back; ThreadSanitizer's shadow memory
// makes ten million elements exceed the machine.
#ifndef __has_feature
#define __has_feature(x) 0
#endif
constexpr bool kMeasureMemory =
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
    false;
#else
    true;
#endif
constexpr bool kThreadSanitizer =
#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
    true;
#else
    false;
#endif

long resident_kb() {
    std::ifstream f("/proc/self/statm");
    long size = 0, rss = 0;
    f >> size >> rss;
    return rss * (sysconf(_SC_PAGESIZE) / 1024);
}

} // namespace

TEST_F(MemAbi, DefaultZoneRoundTripsEverySimpleType) {
    uint8_t cy[10] = {0x40, 0x42, 0x0F, 0, 0, 0, 0, 0, 0, 0x80}; // a large negative amount
    std::vector<Value> values = {Value::boolean(true),      I(-7),
                                 Value::int64(1LL << 40),   Value::real(2.25),
                                 Value::currency(cy),       S(u"é\U0001F600"),
                                 Value::buffer({0, 1, 255})};
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(static_cast<int64_t>(i + 1), call("MemAdd", {values[i]}).result.i);
    EXPECT_EQ(7, call("MemCount", {}).result.i);
    for (std::size_t i = 0; i < values.size(); ++i) {
        Value got = call("MemRetrieve", {I(static_cast<int64_t>(i + 1))}).result;
        const Value& want = values[i];
        EXPECT_EQ(std::tie(want.kind, want.b, want.i, want.r, want.s, want.bytes),
                  std::tie(got.kind, got.b, got.i, got.r, got.s, got.bytes))
            << i;
        EXPECT_EQ(0, memcmp(want.cy, got.cy, 10)) << i;
    }
}

TEST_F(MemAbi, NamedZonesAreSeparateFromTheDefaultOne) {
    // An existing zone is not created again, without an error; names compare exactly; "" is the default
    // zone; the French names (MemTrie, MemPremier) reach the same functions.
    // clang-format off
    expect_calls({{"MemCreate", {S(u"orders")}, u"true"}, {"MemCreate", {S(u"orders")}, u"false", 1},
                  {"MemExist", {S(u"orders")}, u"true"}, {"MemExist", {S(u"Orders")}, u"false"},
                  {"MemExist", {S(u"")}, u"true"}, {"MemAdd", {S(u"orders"), S(u"first"), I(2)}, u"1"},
                  {"MemAdd", {S(u"orders"), S(u"second"), I(1)}, u"2"}, {"MemAdd", {I(99)}, u"1"},
                  {"MemCount", {S(u"orders")}, u"2"}, {"MemCount", {}, u"1"},
                  {"MemTrie", {S(u"orders")}, u"true"}, {"MemPremier", {S(u"orders")}, u"second"},
                  {"MemKeyVal", {S(u"orders")}, u"1"}, {"MemFirst", {}, u"99"},
                  {"MemDeleteAll", {S(u"orders")}, u"*"}, {"MemCount", {S(u"orders")}, u"0"},
                  {"MemExist", {S(u"orders")}, u"true"}});
    // clang-format on
}

TEST_F(MemAbi, SeekFoundAndPositionThroughTheInterface) {
    // A string first argument names a zone: the values here are numbers.  MemModify(3, "w") makes the key
    // of element 3 its new value; seeking a missing key gives 0 (the position after it: Zone tests).
    for (const char16_t* k : {u"x", u"y", u"x"})
        call("MemAdd", {I(0), S(k)});
    // clang-format off
    expect_calls({{"MemFound", {}, u"false"}, {"MemSeek", {S(u"y")}, u"2"}, {"MemFound", {}, u"true"},
                  {"MemCurrent", {}, u"2"}, {"MemKeyVal", {}, u"y"}, {"MemSeek", {S(u"z")}, u"0"},
                  {"MemSetPosition", {I(3)}, u"true"}, {"MemModify", {I(3), S(u"w")}, u"true"},
                  {"MemSeek", {S(u"w")}, u"3"}, {"MemDelete", {I(1)}, u"true"}, {"MemRetrieve", {I(2)}, u"w"},
                  {"MemNext", {}, u""}, {"MemOut", {}, u"true"}});
    // clang-format on
}

TEST_F(MemAbi, FailuresGiveTheFailureValueAndAnIdentifier) {
    call("MemAdd", {I(1)});
    auto fails = [&](const char* fn, std::vector<Value> args) {
        SCOPED_TRACE(fn);
        CallOutcome out = call(fn, args);
        EXPECT_EQ(std::tuple(80001u, 2, false),
                  std::tuple(out.error.id, out.error.severity, out.error.message.empty()));
        EXPECT_TRUE(out.result.i == 0 && !out.result.b && out.result.s.empty());
    };
    // Positions outside the zone, and zones that do not exist: 80001.
    for (int at : {0, 2, INT32_MIN})
        fails("MemRetrieve", {I(at)});
    fails("MemDelete", {I(INT32_MAX)});
    fails("MemSetPosition", {I(-1)});
    fails("MemModify", {I(5), I(1)});
    for (const char* fn : {"MemCount", "MemFirst", "MemSort", "MemDeleteAll", "MemKeyVal", "MemOut"})
        fails(fn, {S(u"nowhere")});
    for (const char* fn : {"MemAdd", "MemSeek"})
        fails(fn, {S(u"nowhere"), I(1)});
    EXPECT_EQ(1, call("MemCount", {}).result.i); // nothing was lost
}

// Ten million elements fit in 32 bytes each plus slack; emptying the zone gives the memory back.
TEST_F(MemAbi, TenMillionElements) {
    if (kThreadSanitizer) GTEST_SKIP() << "ten million elements exceed memory under ThreadSanitizer";
    const long before = resident_kb();
    kp::host::Host& h = *fx.host;
    const kp_function* add = h.find_function("MemAdd");
    ASSERT_NE(nullptr, add);
    std::vector<Value> args{I(0)};
    for (int64_t i = 0; i < 10000000; ++i) {
        args[0].i = 10000000 - i;
        h.call_overload(*add, 0, args);
    }
    EXPECT_EQ(10000000, call("MemCount", {}).result.i);
    const long grown = resident_kb() - before;
    if (kMeasureMemory) {
        EXPECT_LT(grown, 10000000L * 64 / 1024) << "kB for 10 million elements";
    }
    EXPECT_TRUE(call("MemSort", {}).result.b);
    EXPECT_EQ(1, call("MemFirst", {}).result.i);
    EXPECT_EQ(10000000, call("MemLast", {}).result.i);
    EXPECT_EQ(5000000, call("MemSeek", {I(5000000)}).result.i);
    call("MemDeleteAll", {});
    if (kMeasureMemory) {
        EXPECT_LT(resident_kb() - before, grown / 4);
    }
}
