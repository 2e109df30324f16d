// The numeric and currency functions through the module: kinds of arguments and results, the argument by
// reference, the host's tables, error identifiers (pass-through handlers: unit tests and generic fuzzing).
#include <gtest/gtest.h>

#include <variant>

#include "currency_table.h"
#include "support/test_host.h"

using kp::host::CallStatus;
using kp::host::Value;

namespace {

// clang-format off
Value n(int64_t v) { return Value::integer(v); }
Value s(const char16_t* v) { return Value::string(v); }
// clang-format on
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

// One call, its result (none, a boolean as 0 or 1, a currency as text) and its error (0: none, severity 1).
struct Row {
    const char* name;
    std::vector<Value> args;
    std::variant<std::monostate, int64_t, double, const char16_t*, const char*> result;
    uint32_t error = 0;
};

struct Abi : ::testing::Test {
    kp::test::HostFixture fx;
    kp::host::CallOutcome call(const char* name, std::vector<Value> args) {
        kp::host::CallOutcome out = fx.host->call(name, args);
        EXPECT_EQ(CallStatus::Ok, out.status) << name << ": " << out.detail;
        return out;
    }
    void check(const std::vector<Row>& rows) {
        for (const Row& r : rows) {
            SCOPED_TRACE(r.name);
            const auto out = call(r.name, r.args);
            const Value& v = out.result;
            if (std::holds_alternative<std::monostate>(r.result)) {
                EXPECT_EQ(Value::Kind::None, v.kind);
            } else if (const auto* i = std::get_if<int64_t>(&r.result)) {
                ASSERT_TRUE(v.kind == Value::Kind::Int || v.kind == Value::Kind::Bool);
                EXPECT_EQ(v.kind == Value::Kind::Bool ? v.b : v.i, *i);
            } else if (const auto* d = std::get_if<double>(&r.result)) {
                ASSERT_EQ(Value::Kind::Real, v.kind);
                EXPECT_DOUBLE_EQ(v.r, *d);
            } else if (const auto* t = std::get_if<const char16_t*>(&r.result)) {
                ASSERT_EQ(Value::Kind::String, v.kind);
                EXPECT_EQ(v.s, *t);
            } else {
                EXPECT_EQ(text(v), std::get<const char*>(r.result));
            }
            EXPECT_EQ(std::pair(out.error.id, out.error.severity), std::pair(r.error, r.error ? 2 : 1));
        }
    }
    void SetUp() override {
        ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error();
        kp::host::reset_currency_table();
    }
    void TearDown() override { kp::host::reset_currency_table(); }
};

} // namespace

TEST_F(Abi, ValuesTablesAndByReference) {
    // Random draws the second value of seed 1; IsNumeric takes every kind of value the VM may pass.
    call("InitRandom", {n(1)});
    // clang-format off
    check({
        {"Random", {n(100)}, int64_t{18467 * 100 / 32768 + 1}}, {"Hasard", {}, 6334 * (1.0 / 32767)},
        {"Random", {n(0)}, int64_t{0}, 80260}, {"IsNumeric", {s(u"0.0")}, int64_t{1}},
        {"IsNumeric", {s(u" 7")}, int64_t{1}}, {"IsNumeric", {s(u"abc")}, int64_t{0}},
        {"IsNumeric", {n(0)}, int64_t{1}}, {"IsNumeric", {Value::real(0.5)}, int64_t{1}},
        {"IsNumeric", {money("1.5")}, int64_t{1}}, {"IsNumeric", {Value::boolean(true)}, int64_t{0}},
        {"LengthToString", {Value::int64(1536)}, u"1.50 KB"},
        {"LengthToString", {Value::int64(1536), n(4)}, u"0.00 GB"},
        {"LengthToString", {Value::int64(1), n(6)}, u"", 81507}, {"Min", {Value::real(2.5), n(-3)}, -3.0},
        {"Max", {Value::real(0), n(1), n(2), n(3), n(4), n(5), n(6), n(7), n(8), n(99)}, 99.0},
        {"NumToString", {Value::real(1234.5), s(u"%,.2f")}, u"1,234.50"},
        {"NumériqueVersChaîne", {money("0.125"), s(u"%.2f")}, u"0.13"},
        {"NumToString", {s(u"12.5"), s(u"%.1f")}, u"12.5"},
        {"NumToString", {s(u"douze"), s(u"%.1f")}, u"", 80205}});
    // clang-format on
    call("InitRandom", {}); // seeds from the clock; just returns
    fx.host->set_language(0);
    EXPECT_EQ(u"1,50 Ko", call("TailleVersChaîne", {Value::int64(1536)}).result.s);
    // Without an index the memory currency is the source of a conversion; window 4242 is unknown.
    // clang-format off
    check({
        {"eExchangeRate", {n(kFRF)}, 6.55957}, {"eExchangeRate", {}, 1.0}, {"eCurrencyName", {n(20)}, u"HRK"},
        {"eCurrencyName", {n(21)}, u"", 80191}, {"eExchangeRate", {n(65534)}, -1.0, 80191},
        {"eToEuro", {money("100"), n(kFRF), n(2)}, "15.240000"},
        {"eChangeCurrency", {money("100"), n(kFRF), n(kIEP)}, "12.006335"},
        {"eToEuro", {money("100"), n(65534)}, "0.000000", 80191},
        {"eDefaultMemCurrency", {n(kFRF)}, int64_t{0}}, {"eToEuro", {money("100")}, "15.244901"},
        {"eDefaultViewCurrency", {n(kFRF)}, int64_t{0}}, {"eDefaultViewCurrency", {}, int64_t{kFRF}},
        {"eCurrencyName", {n(65535)}, u"FRF"},
        {"eInitCurrency", {n(kFRF), s(u"F"), money("2148")}, {}, 80192},
        {"eInitDevise", {n(kFRF), s(u"Francs fr"), money("6.6")}, {}},
        {"eCurrencyName", {n(kFRF)}, u"Francs f"}, {"eExchangeRate", {n(kFRF)}, 6.6},
        {"eRoundDifference", {n(0)}, "0.000000"}, {"eRoundDifference", {n(4242)}, "0.000000"}});
    // clang-format on
    // The rounding difference goes to the argument passed by reference.
    kp::host::reset_currency_table(); // the franc's own rate again
    std::vector<Value> args = {money("100"), n(kFRF), n(2), Value::variable(money("99"))};
    auto out = fx.host->call("eToEuro", args);
    ASSERT_EQ(CallStatus::Ok, out.status) << out.detail;
    EXPECT_EQ("15.240000", text(out.result));
    EXPECT_EQ("0.004901", text(*args[3].ref));
    kp::host::set_window_round_difference(4242, money("-0.0049").cy);
    EXPECT_EQ("-0.004900", text(call("eDifférenceArrondi", {n(4242)}).result));
    kp::host::forget_window(4242);
}
