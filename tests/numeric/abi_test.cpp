// The numeric, colour and currency functions called through the component
// module by the reference host.
#include <gtest/gtest.h>

#include "currency_table.h"
#include "support/test_host.h"

using kp::host::CallStatus;
using kp::host::Value;

namespace {

struct Abi : ::testing::Test {
    kp::test::HostFixture fx;
    kp::host::CallOutcome call(const char* name, std::vector<Value> args) {
        kp::host::CallOutcome out = fx.host->call(name, args);
        EXPECT_EQ(CallStatus::Ok, out.status) << name << ": " << out.detail;
        return out;
    }
    void SetUp() override {
        ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error();
        kp::host::reset_currency_table();
    }
    void TearDown() override { kp::host::reset_currency_table(); }
};

Value money(const char* text) {
    uint8_t b[10];
    EXPECT_TRUE(kp::host::currency_from_text(text, b)) << text;
    return Value::currency(b);
}
std::string text(const Value& v) {
    EXPECT_EQ(Value::Kind::Currency, v.kind);
    return kp::host::currency_to_text(v.cy);
}

constexpr int kFRF = 6; // index of the French franc in the host's table
constexpr int kIEP = 7;
constexpr int kITL = 8;

} // namespace

TEST_F(Abi, RandomFollowsTheSeededSequence) {
    call("InitRandom", {Value::integer(1)});
    auto r = call("Random", {Value::integer(100)}); // draw 18467
    ASSERT_EQ(Value::Kind::Int, r.result.kind);
    EXPECT_EQ(18467 * 100 / 32768 + 1, r.result.i);
    auto u = call("Hasard", {}); // draw 6334
    ASSERT_EQ(Value::Kind::Real, u.result.kind);
    EXPECT_DOUBLE_EQ(6334 * (1.0 / 32767), u.result.r);

    auto zero = call("Random", {Value::integer(0)});
    EXPECT_EQ(0, zero.result.i);
    EXPECT_EQ(80260u, zero.error.id);
    EXPECT_EQ(2, zero.error.severity);
    call("InitRandom", {}); // seeds from the clock; just returns
}

TEST_F(Abi, ParityAndNumericTest) {
    EXPECT_TRUE(call("IsEven", {Value::integer(-4)}).result.b);
    EXPECT_TRUE(call("EstImpair", {Value::integer(-3)}).result.b);

    // IsNumeric takes a variant: every kind of value the VM may pass.
    const std::pair<Value, bool> cases[] = {
        {Value::string(u"0.0"), true}, {Value::string(u" 7"), true}, {Value::string(u"abc"), false},
        {Value::integer(0), true},     {Value::real(0.5), true},     {money("1.5"), true},
        {Value::boolean(true), false},
    };
    for (const auto& [v, numeric] : cases) {
        auto out = call("IsNumeric", {v});
        EXPECT_EQ(numeric, out.result.b) << kp::host::utf8(v.s);
        EXPECT_EQ(1, out.error.severity);
    }
}

TEST_F(Abi, Colours) {
    EXPECT_EQ(256, call("RGB", {Value::integer(256), Value::integer(0), Value::integer(0)}).result.i);
    EXPECT_EQ(16777215, call("HSL", {Value::integer(0), Value::integer(0), Value::integer(100)}).result.i);
    auto bad = call("TSL", {Value::integer(361), Value::integer(50), Value::integer(50)});
    EXPECT_EQ(0, bad.result.i);
    EXPECT_EQ(80202u, bad.error.id);
    EXPECT_EQ(240, call("ColorHue", {Value::integer(0xFF0000)}).result.i);
}

TEST_F(Abi, LengthToStringUsesTheVmUnitsAndSeparator) {
    EXPECT_EQ(u"1023 bytes", call("LengthToString", {Value::int64(1023)}).result.s);
    EXPECT_EQ(u"1.50 KB", call("LengthToString", {Value::int64(1536)}).result.s);
    EXPECT_EQ(u"0.00 GB", call("LengthToString", {Value::int64(1536), Value::integer(4)}).result.s);
    auto bad = call("LengthToString", {Value::int64(1), Value::integer(6)});
    EXPECT_EQ(u"", bad.result.s);
    EXPECT_EQ(81507u, bad.error.id);

    fx.host->set_language(0);
    EXPECT_EQ(u"1,50 Ko", call("TailleVersChaîne", {Value::int64(1536)}).result.s);
}

TEST_F(Abi, CurrencyTableOfTheObjectModuleDefaultsAndInit) {
    EXPECT_DOUBLE_EQ(6.55957, call("eExchangeRate", {Value::integer(kFRF)}).result.r);
    EXPECT_DOUBLE_EQ(1.0, call("eExchangeRate", {}).result.r);
    EXPECT_EQ(u"HRK", call("eCurrencyName", {Value::integer(20)}).result.s);
    auto beyond = call("eCurrencyName", {Value::integer(21)});
    EXPECT_EQ(u"", beyond.result.s);
    EXPECT_EQ(80191u, beyond.error.id);
    auto r = call("eExchangeRate", {Value::integer(65534)});
    EXPECT_EQ(-1.0, r.result.r);
    EXPECT_EQ(80191u, r.error.id);

    EXPECT_EQ(0, call("eDefaultViewCurrency", {Value::integer(kFRF)}).result.i);
    EXPECT_EQ(kFRF, call("eDefaultViewCurrency", {}).result.i);
    EXPECT_EQ(u"FRF", call("eCurrencyName", {Value::integer(65535)}).result.s);

    auto high = call("eInitCurrency", {Value::integer(kFRF), Value::string(u"F"), money("2148")});
    EXPECT_EQ(80192u, high.error.id);
    auto ok = call("eInitDevise", {Value::integer(kFRF), Value::string(u"Francs fr"), money("6.6")});
    EXPECT_EQ(1, ok.error.severity);
    EXPECT_EQ(u"Francs f", call("eCurrencyName", {Value::integer(kFRF)}).result.s);
    EXPECT_DOUBLE_EQ(6.6, call("eExchangeRate", {Value::integer(kFRF)}).result.r);
}

TEST_F(Abi, Conversions) {
    EXPECT_EQ("15.240000",
              text(call("eToEuro", {money("100"), Value::integer(kFRF), Value::integer(2)}).result));
    EXPECT_EQ(
        "12.006335",
        text(call("eChangeCurrency", {money("100"), Value::integer(kFRF), Value::integer(kIEP)}).result));
    // Without an index: the memory currency is the source.
    call("eDefaultMemCurrency", {Value::integer(kFRF)});
    EXPECT_EQ("15.244901", text(call("eToEuro", {money("100")}).result));

    auto bad = call("eToEuro", {money("100"), Value::integer(65534)});
    EXPECT_EQ("0.000000", text(bad.result));
    EXPECT_EQ(80191u, bad.error.id);
    auto over = call("eToCurrency", {money("604462909807314587"), Value::integer(kITL)});
    EXPECT_EQ("0.000000", text(over.result));
    EXPECT_EQ(534u, over.error.system_code);

    // The rounding difference goes to the argument passed by reference.
    std::vector<Value> args = {money("100"), Value::integer(kFRF), Value::integer(2),
                               Value::variable(money("99"))};
    auto out = fx.host->call("eToEuro", args);
    ASSERT_EQ(CallStatus::Ok, out.status) << out.detail;
    EXPECT_EQ("15.240000", text(out.result));
    EXPECT_EQ("0.004901", text(*args[3].ref));
}

TEST_F(Abi, RoundDifferenceAsksTheWindow) {
    EXPECT_EQ("0.000000", text(call("eRoundDifference", {Value::integer(0)}).result));
    EXPECT_EQ("0.000000", text(call("eRoundDifference", {Value::integer(4242)}).result)); // unknown window
    uint8_t b[10];
    ASSERT_TRUE(kp::host::currency_from_text("-0.0049", b));
    kp::host::set_window_round_difference(4242, b);
    EXPECT_EQ("-0.004900", text(call("eDifférenceArrondi", {Value::integer(4242)}).result));
    kp::host::forget_window(4242);
}
