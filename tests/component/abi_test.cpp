// Calls through the real module: name resolution, overload choice, results,
// error records and per-thread allocators.
#include <gtest/gtest.h>

#include "support/test_host.h"

namespace {

using kp::host::CallStatus;
using kp::host::Value;

kp::host::CallOutcome call(kp::test::HostFixture& fx, const char* name, std::vector<Value> args) {
    return fx.host->call(name, args);
}

TEST(Abi, NamesResolveWithoutRegardToCaseOrLanguage) {
    kp::test::HostFixture fx;
    for (const char* name : {"ZigouigouiARoulette", "zigouigouiaroulette", "ZIGOUIGOUIAROULETTE"}) {
        auto out = call(fx, name, {Value::integer(-7)});
        ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
        EXPECT_EQ(out.result.kind, Value::Kind::Int);
        EXPECT_EQ(out.result.i, 24053);
        EXPECT_EQ(out.error.severity, 1);
    }
    // French names in UTF-8; accented capitals fold too.
    const std::pair<const char*, const char*> same[] = {{"EntierVersDate", "IntegerToDate"},
                                                        {"HeureVersChaîne", "timetostring"},
                                                        {"heureverschaîne", "TimeToString"},
                                                        {"DATEVERSCHAÎNE", "datetostring"},
                                                        {"EstPair", "ISEVEN"}};
    for (const auto& [name, other] : same) {
        EXPECT_NE(fx.host->find_function(name), nullptr) << name;
        EXPECT_EQ(fx.host->find_function(name), fx.host->find_function(other)) << name;
    }
    EXPECT_NE(fx.host->find_constant("foLecture"), nullptr);
    EXPECT_EQ(fx.host->find_constant("foLecture"), fx.host->find_constant("FOREAD"));
}

TEST(Abi, ResolutionFailuresDoNotCall) {
    kp::test::HostFixture fx;
    EXPECT_EQ(call(fx, "NoSuchFunction", {}).status, CallStatus::UnknownName);
    EXPECT_EQ(call(fx, "ZigouigouiARoulette", {}).status, CallStatus::NoOverload);
    auto out = call(fx, "ZigouigouiARoulette", {Value::integer(1LL << 40)});
    EXPECT_EQ(out.status, CallStatus::BadArgument);
    EXPECT_NE(out.detail.find("does not fit"), std::string::npos);
    EXPECT_EQ(call(fx, "ZigouigouiARoulette", {Value::string(u"x")}).status, CallStatus::NoOverload);
}

// String results go back to the host's allocator after the call; a failure
// travels in the error record.
TEST(Abi, ResultsAreReleasedAndFailuresRecorded) {
    kp::test::HostFixture fx;
    auto before = fx.host->allocator_stats();
    for (int i = 0; i < 50; ++i) {
        auto out = call(fx, "IntegerToDate", {Value::integer(73049 + i)});
        ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
        ASSERT_EQ(out.result.kind, Value::Kind::String);
    }
    auto after = fx.host->allocator_stats();
    EXPECT_EQ(after.live, before.live);
    EXPECT_GT(after.creates, before.creates);
    auto out = call(fx, "DateToInteger", {Value::string(u"2024")});
    ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
    EXPECT_EQ(out.error.severity, 2);
    EXPECT_EQ(out.error.id, 80121u);
    EXPECT_FALSE(out.error.message.empty());
}

} // namespace
