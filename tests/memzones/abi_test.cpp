// The memory-zone functions through the component module: named and default zones, types, failures, size.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <tuple>
#include <unistd.h>

#include "support/test_host.h"

using kp::host::CallOutcome;
using kp::host::CallStatus;
using kp::host::Value;

namespace {

struct MemAbi : ::testing::Test {
    kp::test::HostFixture fx;
    CallOutcome call(const char* name, std::vector<Value> args) {
        CallOutcome out = fx.host->call(name, args);
        EXPECT_EQ(CallStatus::Ok, out.status) << name << ": " << out.detail;
        return out;
    }
    void SetUp() override {
        ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error();
        call("MemDeleteAll", {});
    }
    static Value S(const char16_t* s) { return Value::string(s); }
    static Value I(int64_t i) { return Value::integer(i); }
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
    EXPECT_TRUE(call("MemCreate", {S(u"orders")}).result.b);
    EXPECT_FALSE(call("MemCreate", {S(u"orders")}).result.b); // exists: false, no error
    EXPECT_TRUE(call("MemExist", {S(u"orders")}).result.b);
    EXPECT_FALSE(call("MemExist", {S(u"Orders")}).result.b); // names compare exactly
    EXPECT_TRUE(call("MemExist", {S(u"")}).result.b);        // the default zone
    call("MemAdd", {S(u"orders"), S(u"first"), I(2)});
    call("MemAdd", {S(u"orders"), S(u"second"), I(1)});
    call("MemAdd", {I(99)});
    EXPECT_EQ(2, call("MemCount", {S(u"orders")}).result.i);
    EXPECT_EQ(1, call("MemCount", {}).result.i);
    // French names reach the same functions.
    EXPECT_TRUE(call("MemTrie", {S(u"orders")}).result.b);
    EXPECT_EQ(u"second", call("MemPremier", {S(u"orders")}).result.s);
    EXPECT_EQ(1, call("MemKeyVal", {S(u"orders")}).result.i);
    EXPECT_EQ(99, call("MemFirst", {}).result.i);
    call("MemDeleteAll", {S(u"orders")});
    EXPECT_EQ(0, call("MemCount", {S(u"orders")}).result.i);
    EXPECT_TRUE(call("MemExist", {S(u"orders")}).result.b);
}

TEST_F(MemAbi, SeekFoundAndPositionThroughTheInterface) {
    // A string first argument names a zone: the values here are numbers.
    for (const char16_t* k : {u"x", u"y", u"x"})
        call("MemAdd", {I(0), S(k)});
    EXPECT_FALSE(call("MemFound", {}).result.b);
    EXPECT_EQ(2, call("MemSeek", {S(u"y")}).result.i);
    EXPECT_TRUE(call("MemFound", {}).result.b);
    EXPECT_EQ(2, call("MemCurrent", {}).result.i);
    EXPECT_EQ(u"y", call("MemKeyVal", {}).result.s);
    EXPECT_EQ(0, call("MemSeek", {S(u"z")}).result.i); // the position after it: Zone tests
    EXPECT_TRUE(call("MemSetPosition", {I(3)}).result.b);
    EXPECT_TRUE(call("MemModify", {I(3), S(u"w")}).result.b); // the key becomes the value
    EXPECT_EQ(3, call("MemSeek", {S(u"w")}).result.i);
    EXPECT_TRUE(call("MemDelete", {I(1)}).result.b);
    EXPECT_EQ(u"w", call("MemRetrieve", {I(2)}).result.s);
    EXPECT_EQ(u"", call("MemNext", {}).result.s);
    EXPECT_TRUE(call("MemOut", {}).result.b);
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
