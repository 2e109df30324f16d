// params_test.cpp - saved parameters: pure rules, round trips in both stores, their layout, deletion.
#include <gtest/gtest.h>
#include <pthread.h>

#include <bit>
#include <cmath>
#include <tuple>

#include "files/files_fixture.h"
#include "files/params.h"
#include "platform/registry_store.h"

namespace kp::files::params {
namespace {

TEST(ParamRules, PathsSplitAtTheLastSeparator) {
    const std::tuple<std::u16string, std::u16string, std::u16string> cases[] = {
        {u"size", u"", u"size"},         {u"win/size", u"win", u"size"}, {u"win.size", u"win", u"size"},
        {u"a\\b/c.d", u"a\\b\\c", u"d"}, {u"\\top", u"", u"top"},        {u"group\\", u"group", u""},
    };
    for (const auto& [name, group, leaf] : cases) {
        ParamPath p = split_path(name);
        EXPECT_EQ(p.group, group);
        EXPECT_EQ(p.name, leaf);
    }
}

TEST(ParamRules, EscapingAndSections) {
    const std::pair<std::u16string, std::u16string> cases[] = {{u"a b", u"a\\_b"},
                                                               {u"C:\\dir\\f", u"C:\\\\dir\\\\f"},
                                                               {u"l1\r\nl2\tx", u"l1\\r\\nl2\\tx"},
                                                               {u" \\_", u"\\_\\\\_"},
                                                               {u"", u""}};
    for (const auto& [plain, escaped] : cases) {
        EXPECT_EQ(escape(plain), escaped);
        EXPECT_EQ(unescape(escaped), plain);
    }
    // Any other escaped character stays as it is, a trailing "\" too.
    EXPECT_EQ(unescape(u"\\x\\0\\"), u"\\x\\0\\");
    EXPECT_EQ(section_of(u""), u"Global");
    EXPECT_EQ(section_of(u"\\"), u"Global");
    EXPECT_EQ(section_of(u"\\win\\my-form\tx y"), u"win_my_form_x_y");
}

TEST(ParamRules, RealsAsTheShortestTextThatReadsBack) {
    for (double v : {0.1, -0.0, 1e300, 5e-324, 3.141592653589793, 123456789012345678.0, HUGE_VAL}) {
        Param out;
        ASSERT_TRUE(convert_to(Param::string(real_text(v)), Param::Kind::Real, out));
        EXPECT_EQ(std::signbit(out.r), std::signbit(v));
        EXPECT_EQ(out.r, v) << std::string(real_text(v).begin(), real_text(v).end());
    }
    EXPECT_EQ(real_text(0.1), u"0.1");
}

TEST(ParamRules, ConversionsToTheDefaultsKind) {
    using K = Param::Kind;
    using P = Param;
    // clang-format off
    const std::tuple<Param, K, bool, Param> cases[] = {
        {P::string(u"42"), K::Int, true, P::integer(42)}, {P::string(u" -7 "), K::Int, true, P::integer(-7)},
        {P::string(u"4.5"), K::Int, false, {}},           {P::string(u"3000000000"), K::Int, false, {}},
        {P::string(u"3000000000"), K::Int64, true, P::int64(3000000000)},
        {P::string(u"9223372036854775807"), K::Int64, true, P::int64(INT64_MAX)},
        {P::string(u"1"), K::Bool, true, P::boolean(true)},
        {P::string(u"0"), K::Bool, true, P::boolean(false)},
        {P::string(u"yes"), K::Bool, false, {}},          {P::integer(1), K::Bool, true, P::boolean(true)},
        {P::string(u"2,5"), K::Real, true, P::real(2.5)}, {P::integer(12), K::Text, true, P::string(u"12")},
        {P::string(u"ab"), K::Bytes, true, P::buffer({'a', 'b'})}, {P::buffer({1, 2}), K::Int, false, {}}};
    // clang-format on
    for (const auto& [value, kind, ok, want] : cases) {
        Param out;
        EXPECT_EQ(convert_to(value, kind, out), ok);
        EXPECT_TRUE(!ok || out == want);
    }
}

using files::test::DeviceTest;
using files::test::I;
using files::test::kAny;
using files::test::S;
using kp::host::CallOutcome;
using kp::host::Value;

class Params : public DeviceTest {
  protected:
    // The store lives as long as the component: every test sets its mode.
    std::u16string init(int32_t mode, const char16_t* location = nullptr) {
        std::vector<Value> args{I(mode)};
        if (location) args.push_back(S(location));
        CallOutcome r = call("InitParameter", args);
        EXPECT_EQ(r.status, kp::host::CallStatus::Ok) << r.detail;
        return r.result.s;
    }
    CallOutcome save(const std::u16string& name, Value v) { return call("SaveParameter", {S(name), v}); }
    Value load(const std::u16string& name) { return call("LoadParameter", {S(name)}).result; }
    Value load(const std::u16string& name, Value fallback) {
        return call("LoadParameter", {S(name), fallback}).result;
    }
    CallOutcome remove(const std::u16string& name) { return call("DeleteParameter", {S(name)}); }

    // Saves each kind of value and reads it back, without and with a default.
    void round_trips(bool typed_without_default) {
        std::vector<uint8_t> bytes;
        for (int b = 1; b < 256; ++b)
            bytes.push_back(static_cast<uint8_t>(b));
        const std::vector<std::pair<std::u16string, Value>> values = {
            {u"int", I(-2147483647 - 1)},
            {u"g/int64", Value::int64(INT64_MIN + 1)},
            {u"g/yes", Value::boolean(true)},
            {u"g/no", Value::boolean(false)},
            {u"g.sub/real", Value::real(0.1)},
            {u"g.sub/tiny", Value::real(-4.9e-324)},
            {u"text", S(u" lead, trail \\ tab\t CR\r LF\n \u00e9 = [x] ;")},
            {u"buffer", Value::buffer(bytes)}};
        for (auto& [name, v] : values)
            EXPECT_EQ(save(name, v).error.severity, 1) << std::string(name.begin(), name.end());
        for (auto& [name, v] : values) {
            SCOPED_TRACE(std::string(name.begin(), name.end()));
            Value zero;
            zero.kind = v.kind;
            Value got = load(name, zero);
            // The real by its bits: the sign of a zero and the last digit count.
            EXPECT_EQ(std::tie(got.kind, got.i, got.b, got.s, got.bytes),
                      std::tie(v.kind, v.i, v.b, v.s, v.bytes));
            EXPECT_EQ(std::bit_cast<uint64_t>(got.r), std::bit_cast<uint64_t>(v.r));
        }
        if (typed_without_default) {
            EXPECT_EQ(std::tuple(load(u"int").kind, load(u"buffer").bytes),
                      std::tuple(Value::Kind::Int, bytes));
        } else {
            EXPECT_EQ(load(u"int").s, u"-2147483648");
        }
        EXPECT_EQ(load(u"text").s, values[6].second.s);
        EXPECT_EQ(load(u"missing", S(u"dflt")).s, u"dflt");
        EXPECT_EQ(load(u"missing").s, u"");
        // A stored value of the wrong kind gives the default.
        EXPECT_EQ(load(u"text", I(5)).i, 5);
        EXPECT_EQ(load(u"text", Value::real(1.5)).r, 1.5);
    }
};

TEST_F(Params, InitParameterKeepsModeAndLocationAndRefusesOtherModes) {
    init(0);
    EXPECT_EQ(init(3, u"\\cfg\\app.ini"), u"0\t");
    EXPECT_EQ(init(0), u"3\t\\cfg\\app.ini");
    for (int32_t mode : {1, 2, -1, 4})
        expect_calls({{"InitParameter", {I(mode)}, u"", kAny, 80700}});
    EXPECT_EQ(init(0), u"0\t") << "a refused mode changes nothing";
}

TEST_F(Params, EveryKindRoundTripsInTheRegistryAndInAnIniFile) {
    for (int32_t mode : {0, 3}) {
        SCOPED_TRACE(mode);
        init(mode);
        round_trips(mode == 0);
    }
    // The default file is named after the project, at the root of the device.
    std::string file = get("kp120.ini");
    EXPECT_NE(file.find("[Global]\r\nint = -2147483648\r\n"), std::string::npos) << file;
    EXPECT_NE(file.find("[g]\r\nint64 = -9223372036854775807\r\nyes = 1\r\nno = 0\r\n"), std::string::npos);
    EXPECT_NE(file.find("[g_sub]\r\nreal = 0.1\r\n"), std::string::npos);
    EXPECT_NE(file.find("text = \\_lead,\\_trail\\_\\\\\\_tab\\t\\_CR\\r\\_LF\\n\\_\xE9\\_=\\_[x]\\_;\r\n"),
              std::string::npos);
    std::filesystem::remove(host_path("kp120.ini"));
}

TEST_F(Params, RegistryLayoutAndRoots) {
    init(0, u"hkey_local_machine\\Software\\Acme");
    save(u"win/pos.x", I(7));
    init(0);
    save(u"top", S(u"t"));
    save(u"b", Value::boolean(true));
    save(u"r", Value::real(2.5));
    save(u"q", Value::int64(-2));

    namespace reg = platform::registry;
    reg::use_database((fx.dir.path() / "registry.sqlite3").string());
    using Bytes = std::vector<uint8_t>;
    const reg::Key cu = reg::kCurrentUser;
    const std::u16string user = u"Software\\kp120";
    const std::tuple<reg::Key, std::u16string, std::u16string, Bytes, uint32_t> cases[] = {
        {reg::kLocalMachine, u"Software\\Acme\\win\\pos", u"x", {7, 0, 0, 0}, reg::kDword},
        {cu, user, u"top", {'t', 0, 0, 0}, reg::kSz},
        {cu, user, u"b", {1, 0, 0, 0}, reg::kDword},
        {cu, user, u"r", {'2', 0, '.', 0, '5', 0, 0, 0}, reg::kSz},
        {cu, user, u"q", {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, kRegQword}};
    for (const auto& [root, key, name, want, want_type] : cases) {
        SCOPED_TRACE(std::string(name.begin(), name.end()));
        reg::Key k = 0;
        Bytes data(256);
        uint32_t size = 256, type = 0;
        ASSERT_EQ(reg::open_key(root, key, reg::kQueryValue, &k), 0u);
        EXPECT_EQ(reg::query_value(k, name, &type, data.data(), &size), 0u);
        reg::close_key(k);
        EXPECT_EQ(std::tuple(Bytes(data.begin(), data.begin() + size), type), std::tuple(want, want_type));
    }
    reg::use_database("");
}

TEST_F(Params, LongIniValuesAreReadInTwoStepsUpTo65535Characters) {
    init(3, u"\\long.ini");
    for (std::size_t n : {1022u, 1023u, 1024u, 5000u, 65535u}) {
        std::u16string v(n, u'x');
        save(u"v", S(v));
        EXPECT_EQ(load(u"v").s, v) << n;
    }
    save(u"v", S(std::u16string(70000, u'y')));
    EXPECT_EQ(load(u"v").s, std::u16string(65535, u'y'));
}

TEST_F(Params, UnchangedValuesAreNotWrittenAgain) {
    init(3, u"\\same.ini");
    save(u"k", S(u"a b"));
    std::filesystem::permissions(host_path("same.ini"), std::filesystem::perms::owner_read);
    EXPECT_EQ(save(u"k", S(u"a b")).error.severity, 1) << "same value: nothing to write";
    expect_calls({{"SaveParameter", {S(u"k"), S(u"changed")}, u"*", kAny, 80294, 5}});
    EXPECT_EQ(load(u"k").s, u"a b");
}

TEST_F(Params, DeleteRemovesAValueOrAWholeGroup) {
    for (int32_t mode : {0, 3}) {
        SCOPED_TRACE(mode);
        init(mode, mode ? u"\\del.ini" : u"Software\\DelTest");
        save(u"form/a", I(1));
        save(u"form/b", I(2));
        save(u"form/inner/c", I(3));
        save(u"other", I(4));
        auto gone = [&](const char16_t* name) { return load(name, I(-1)).i == -1; };
        EXPECT_EQ((std::tuple{remove(u"form/a").result.b, gone(u"form/a"), gone(u"form/b")}),
                  std::tuple(true, true, false));
        // A group goes whole; the registry group takes its subkeys along, an INI section is flat.
        EXPECT_EQ(
            (std::tuple{remove(u"form").result.b, gone(u"form/b"), gone(u"form/inner/c"), gone(u"other")}),
            std::tuple(true, true, mode == 0, false));
        EXPECT_TRUE(remove(u"never/saved").result.b);
        expect_calls({{"DeleteParameter", {S(u"")}, u"false", kAny, 80800},
                      {"SaveParameter", {S(u""), I(1)}, u"*", kAny, 80800}});
    }
}

// A group 600 registry levels deep is deleted without recursion, on a 192 KiB stack.
TEST_F(Params, DeleteTakesADeepGroupOnASmallStack) {
    init(0, u"Software\\DeepTest");
    std::u16string group = u"deep";
    for (int i = 0; i < 600; ++i)
        group += u"/d";
    save(group + u"/v", I(1));
    ASSERT_EQ(load(group + u"/v", I(-1)).i, 1);
    std::pair<decltype(this), bool> job{this, false}; // the fixture, and whether the group went
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 192 * 1024);
    pthread_t th;
    auto run = [](void* p) -> void* {
        auto* j = static_cast<decltype(&job)>(p);
        j->second = j->first->remove(u"deep").result.b;
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&th, &attr, run, &job), 0);
    pthread_join(th, nullptr);
    pthread_attr_destroy(&attr);
    EXPECT_TRUE(job.second);
    EXPECT_EQ(load(group + u"/v", I(-1)).i, -1);
}

TEST_F(Params, DeleteWithoutANameTakesTheHostsCurrentObject) {
    init(0);
    save(u"WinMain/width", I(640));
    save(u"WinOther/width", I(320));
    expect_calls({{"DeleteParameter", {}, u"false", kAny, 80800}}); // no current object
    fx.host->set_current_object(u"WinMain");
    EXPECT_TRUE(call("DeleteParameter", {}).result.b);
    fx.host->set_current_object(u"");
    EXPECT_EQ(load(u"WinMain/width", I(0)).i, 0);
    EXPECT_EQ(load(u"WinOther/width", I(0)).i, 320);
}

} // namespace
} // namespace kp::files::params
