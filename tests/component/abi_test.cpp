// Calls through the real module: name resolution, overload choice, results,
// error records and per-thread allocators.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/test_host.h"

namespace {

using kp::host::CallStatus;
using kp::host::Value;

TEST(Abi, ZigouigouiARouletteEndToEnd) {
    kp::test::HostFixture fx;
    for (const char* name : {"ZigouigouiARoulette", "zigouigouiaroulette", "ZIGOUIGOUIAROULETTE"}) {
        std::vector<Value> args{Value::integer(-7)};
        auto out = fx.host->call(name, args);
        ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
        EXPECT_EQ(out.result.kind, Value::Kind::Int);
        EXPECT_EQ(out.result.i, 24053);
        EXPECT_EQ(out.error.severity, 1);
    }
}

TEST(Abi, ResolutionFailuresDoNotCall) {
    kp::test::HostFixture fx;
    std::vector<Value> none;
    EXPECT_EQ(fx.host->call("NoSuchFunction", none).status, CallStatus::UnknownName);
    EXPECT_EQ(fx.host->call("ZigouigouiARoulette", none).status, CallStatus::NoOverload);
    std::vector<Value> big{Value::integer(1LL << 40)};
    auto out = fx.host->call("ZigouigouiARoulette", big);
    EXPECT_EQ(out.status, CallStatus::BadArgument);
    EXPECT_NE(out.detail.find("does not fit"), std::string::npos);
    std::vector<Value> text{Value::string(u"x")};
    EXPECT_EQ(fx.host->call("ZigouigouiARoulette", text).status, CallStatus::NoOverload);
}

TEST(Abi, UnprovidedFunctionsAreRefusedByName) {
    kp::test::HostFixture fx;
    int refused = 0;
    for (const kp_function& fn : fx.host->functions()) {
        if (!(fn.attributes & KP_ATTR_NOT_PROVIDED)) continue;
        const kp_overload& ov = fn.overloads[0];
        if (ov.handler) continue;
        std::vector<Value> args;
        for (int k = 0; k < ov.param_count; ++k) {
            uint16_t t = ov.params[k] & 0xFF;
            args.push_back(t == KP_T_STRING || t == KP_T_STRING_RESULT ? Value::string(u"a")
                           : t == KP_T_ANY                             ? Value::integer(1)
                                                                       : Value::integer(0));
        }
        auto out = fx.host->call(kp::host::Host::name_utf8(fn.english), args);
        if (out.status == CallStatus::NotProvided) ++refused;
        EXPECT_NE(out.status, CallStatus::Ok) << kp::host::Host::name_utf8(fn.english);
    }
    EXPECT_GT(refused, 100);
}

TEST(Abi, FrenchNamesInUtf8) {
    kp::test::HostFixture fx;
    ASSERT_NE(fx.host->find_function("EntierVersDate"), nullptr);
    EXPECT_EQ(fx.host->find_function("HeureVersChaîne"), fx.host->find_function("timetostring"));
    EXPECT_EQ(fx.host->find_function("heureverschaîne"), fx.host->find_function("TimeToString"));
    EXPECT_NE(fx.host->find_constant("foLecture"), nullptr);
    EXPECT_EQ(fx.host->find_constant("foLecture"), fx.host->find_constant("FOREAD"));
}

TEST(Abi, StringResultsReleasedAfterTheCall) {
    kp::test::HostFixture fx;
    auto before = fx.host->allocator_stats();
    for (int i = 0; i < 50; ++i) {
        std::vector<Value> args{Value::integer(73049 + i)};
        auto out = fx.host->call("IntegerToDate", args);
        ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
        ASSERT_EQ(out.result.kind, Value::Kind::String);
    }
    auto after = fx.host->allocator_stats();
    EXPECT_EQ(after.live, before.live); // nothing leaked on either side
    EXPECT_GT(after.creates, before.creates);
}

TEST(Abi, FailureTravelsInTheErrorRecord) {
    kp::test::HostFixture fx;
    std::vector<Value> args{Value::string(u"2024")};
    auto out = fx.host->call("DateToInteger", args);
    ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
    EXPECT_EQ(out.error.severity, 2);
    EXPECT_EQ(out.error.id, 80121u);
    EXPECT_FALSE(out.error.message.empty());
}

TEST(Abi, TwoThreadsWithTheirOwnAllocators) {
    kp::test::HostFixture fx(1, /*per_thread=*/true);
    std::atomic<int> failures{0};
    auto work = [&](int base) {
        for (int i = 0; i < 2000; ++i) {
            std::vector<Value> args{Value::integer(base + i % 1000)};
            auto out = fx.host->call("IntegerToDate", args);
            if (out.status != CallStatus::Ok || out.result.kind != Value::Kind::String ||
                out.result.s.size() != 8)
                failures++;
            std::vector<Value> z{Value::integer(i)};
            if (fx.host->call("ZigouigouiARoulette", z).result.i != 24053) failures++;
        }
    };
    std::thread a(work, 73049), b(work, 36525);
    a.join();
    b.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(fx.host->allocator_stats().live, 0u);
}

} // namespace
