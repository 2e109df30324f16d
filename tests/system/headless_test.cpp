// The device functions against the headless handheld: every function,
// every value of the constant families they take, and the failure values
// for handles that are not windows.
#include <unistd.h>

#include <map>

#include "system_fixture.h"

using kp::host::HeadlessDisplay;
using kp::host::Value;
using kp::test::I;
using kp::test::S;

namespace {

struct Headless : ::testing::Test {
    kp::test::SystemHost sys;
    HeadlessDisplay* hd = nullptr;
    void SetUp() override {
        ASSERT_TRUE(sys.host->loaded()) << sys.host->load_error();
        hd = dynamic_cast<HeadlessDisplay*>(sys.host->display());
        ASSERT_NE(hd, nullptr);
    }
    uintptr_t window(const char16_t* title, const char16_t* cls = u"KPWindow", int menus = 0) {
        return hd->create_window(title, cls, menus);
    }
    void expect_error(const char* what, uint32_t code) {
        const auto& e = last_;
        EXPECT_EQ(KP_SEVERITY_ERROR, e.severity) << what;
        EXPECT_EQ(code, e.system_code) << what;
    }
    // Calls and keeps the error record for expect_error.
    Value run(const char* name, std::vector<Value> args = {}) {
        auto out = sys.call(name, std::move(args));
        last_ = out.error;
        return out.result;
    }
    kp::host::ErrorInfo last_;
};

TEST_F(Headless, ScreenOfTheHandheldAndItsOrientations) {
    EXPECT_EQ(240, sys.integer("SysXRes"));
    EXPECT_EQ(320, sys.integer("SysYRes"));
    EXPECT_EQ(16, sys.integer("SysColorRes"));
    EXPECT_EQ(u"0\r\n90\r\n180\r\n270", sys.text("SysListScreenOrientation"));
    // Every Orient value turns the screen; width and height follow.
    for (const char* name : {"Orient90", "Orient180", "Orient270", "Orient0"}) {
        const kp_constant* c = sys.host->find_constant(name);
        ASSERT_NE(c, nullptr);
        const std::u16string o = reinterpret_cast<const char16_t*>(c->value);
        EXPECT_TRUE(sys.boolean("SysScreenOrientation", {S(o)})) << name;
        EXPECT_EQ(o, sys.text("SysScreenOrientation"));
        const bool turned = o == u"90" || o == u"270";
        EXPECT_EQ(turned ? 320 : 240, sys.integer("SysXRes")) << name;
        EXPECT_EQ(turned ? 240 : 320, sys.integer("SysYRes")) << name;
    }
    for (const char16_t* bad : {u"45", u"", u"0 ", u"360", u"-90"}) {
        EXPECT_FALSE(run("SysScreenOrientation", {S(bad)}).b);
        expect_error("bad orientation", 87);
    }
    EXPECT_EQ(u"0", sys.text("SysScreenOrientation"));
}

TEST_F(Headless, EveryMetricOfTheFamily) {
    const std::map<std::string, int32_t> expected = {
        {"metCxHScroll", 13},  {"metCyHScroll", 13},  {"metCxBorder", 1},       {"metCyBorder", 1},
        {"metCxCursor", 32},   {"metCyCursor", 32},   {"metCxFixedFrame", 3},   {"metCyFixedFrame", 3},
        {"metCxDoubleClk", 4}, {"metCyDoubleClk", 4}, {"metCxFullScreen", 240}, {"metCyFullScreen", 268},
        {"metCxIcon", 32},     {"metCyIcon", 32},     {"metCxIconSpacing", 75}, {"metCyIconSpacing", 75},
        {"metCxScreen", 240},  {"metCyScreen", 320},  {"metCxVScroll", 13},     {"metCyVScroll", 13},
        {"metCyCaption", 24},  {"metCyMenu", 26},     {"metMousePresent", 0},
    };
    const auto names = sys.family("met");
    EXPECT_EQ(expected.size(), names.size());
    for (const std::string& n : names) {
        ASSERT_TRUE(expected.count(n)) << n;
        EXPECT_EQ(expected.at(n), sys.integer("SysMetric", {I(sys.constant(n.c_str()))})) << n;
    }
    // Codes of the family without a value, and codes outside it.
    for (int code : {10, 11, 14, 19, 22, 25, 30, 34, 36, -1, 1000}) {
        EXPECT_EQ(-1, run("SysMetric", {I(code)}).i) << code;
        expect_error("unknown metric", 87);
    }
}

TEST_F(Headless, SystemColoursOfEveryElement) {
    const auto names = sys.family("sc");
    int elements = 0;
    for (const std::string& n : names) {
        const int64_t v = sys.constant(n.c_str());
        if (!(v & 0x40000000)) continue; // the dialog flags
        ++elements;
        const int32_t index = static_cast<int32_t>(v & 0xFF);
        EXPECT_EQ(kp::host::default_system_colour(index), sys.integer("SysColor", {I(v)})) << n;
        EXPECT_TRUE(sys.boolean("SysColor", {I(v), I(0x102030 + index)})) << n;
        EXPECT_EQ(0x102030 + index, sys.integer("SysColor", {I(v)})) << n;
        EXPECT_EQ(0x102030 + index, sys.integer("SysColor", {I(index)})) << "bare index " << n;
    }
    EXPECT_EQ(21, elements);
    for (int64_t bad : std::initializer_list<int64_t>{0x40000015, 21, -1, 0x40000100}) {
        EXPECT_EQ(-1, run("SysColor", {I(bad)}).i) << bad;
        expect_error("unknown element", 87);
    }
    for (int64_t colour : std::initializer_list<int64_t>{-1, 0x1000000}) {
        EXPECT_FALSE(run("SysColor", {I(0x40000005), I(colour)}).b) << colour;
        expect_error("bad colour", 87);
    }
}

TEST_F(Headless, WindowsByTitleAndClass) {
    const uintptr_t a = window(u"Alpha", u"KPForm");
    const uintptr_t b = window(u"Beta", u"KPForm");
    const uintptr_t c = window(u"Alpha", u"Other");
    struct Row {
        const char16_t* title;
        const char16_t* cls;
        uintptr_t expected;
    } rows[] = {
        {u"Alpha", nullptr, a}, {u"Beta", nullptr, b},  {u"Alpha", u"Other", c}, {u"Alpha", u"KPForm", a},
        {u"alpha", nullptr, 0}, {u"Gamma", nullptr, 0}, {u"Beta", u"Other", 0},  {u"", u"Other", c},
    };
    for (const Row& r : rows) {
        std::vector<Value> args = {S(r.title)};
        if (r.cls) args.push_back(S(r.cls));
        const Value v = run("SysWinHandle", args);
        EXPECT_EQ(static_cast<int64_t>(r.expected), v.i) << kp::host::utf8(r.title);
        EXPECT_EQ(1, last_.severity) << "not finding a window is no error";
    }
    EXPECT_EQ(u"Beta", sys.text("SysWinTitle", {I(b)}));
    EXPECT_TRUE(sys.boolean("SysWinTitle", {I(b), S(u"Beta 2")}));
    EXPECT_EQ(u"Beta 2", sys.text("SysWinTitle", {I(b)}));
    EXPECT_EQ(static_cast<int64_t>(b), sys.integer("SysWinHandle", {S(u"Beta 2")}));

    // A title of 100,000 characters goes through whole, both ways.
    std::u16string long_title(100000, u'x');
    long_title[99999] = u'\u00e9';
    EXPECT_TRUE(sys.boolean("SysWinTitle", {I(a), S(long_title)}));
    EXPECT_EQ(long_title, sys.text("SysWinTitle", {I(a)}));
    EXPECT_EQ(static_cast<int64_t>(a), sys.integer("SysWinHandle", {S(long_title)}));
}

TEST_F(Headless, ActivationFocusAndShowModes) {
    const uintptr_t a = window(u"A");
    const uintptr_t b = window(u"B");
    EXPECT_EQ(static_cast<int64_t>(b), sys.integer("SysWinActive"));
    EXPECT_EQ(static_cast<int64_t>(b), sys.integer("SysWinActive", {I(a)}));
    EXPECT_EQ(static_cast<int64_t>(a), sys.integer("SysWinActive"));
    EXPECT_EQ(static_cast<int64_t>(a), sys.integer("SysSetFocus", {I(b)}));
    EXPECT_EQ(static_cast<int64_t>(b), sys.integer("SysWinActive"));

    // Every show mode of the sws family, and the ones the family names without a value.
    struct Row {
        int32_t mode;
        bool visible, iconic, active;
    } rows[] = {
        {static_cast<int32_t>(sys.constant("swsHide")), false, false, false},
        {static_cast<int32_t>(sys.constant("swsNormal")), true, false, true},
        {2, true, true, false}, // minimize
        {static_cast<int32_t>(sys.constant("swsActivate")), true, true, true},
        {9, true, false, true}, // restore
        {static_cast<int32_t>(sys.constant("swsHide")), false, false, false},
        {static_cast<int32_t>(sys.constant("swsVisible")), true, false, false},
        {3, true, false, true}, // maximize
        {static_cast<int32_t>(sys.constant("swsRefresh")), true, false, true},
    };
    EXPECT_EQ(5u, sys.family("sws").size());
    for (const Row& r : rows) {
        SCOPED_TRACE(r.mode);
        EXPECT_TRUE(sys.boolean("SysWinShow", {I(a), I(r.mode)}));
        EXPECT_EQ(r.visible, hd->visible(a));
        EXPECT_EQ(r.iconic, sys.boolean("SysIconize", {I(a)}));
        EXPECT_EQ(r.active, sys.integer("SysWinActive") == static_cast<int64_t>(a));
    }
    EXPECT_TRUE(hd->maximized(a));
    for (int mode : {6, 7, 10, -1, 100}) {
        EXPECT_FALSE(run("SysWinShow", {I(a), I(mode)}).b) << mode;
        expect_error("unknown show mode", 87);
    }
}

TEST_F(Headless, HandlesThatAreNotWindowsAndWindowsThatClosed) {
    const uintptr_t w = window(u"Closing", u"KPForm", 2);
    EXPECT_TRUE(sys.boolean("SysValidHandle", {I(w)}));
    ASSERT_TRUE(hd->close_window(w));
    for (int64_t h : std::initializer_list<int64_t>{static_cast<int64_t>(w), 0, 1, 12345, 0x7FFFFFFF, -1}) {
        SCOPED_TRACE(h);
        EXPECT_FALSE(run("SysValidHandle", {I(h)}).b);
        EXPECT_EQ(1, last_.severity) << "an invalid handle is an answer, not an error";
        EXPECT_EQ(u"", run("SysWinTitle", {I(h)}).s);
        expect_error("SysWinTitle", 1400);
        EXPECT_FALSE(run("SysWinTitle", {I(h), S(u"x")}).b);
        expect_error("SysWinTitle set", 1400);
        EXPECT_EQ(0, run("SysWinActive", {I(h)}).i);
        expect_error("SysWinActive", 1400);
        EXPECT_EQ(0, run("SysSetFocus", {I(h)}).i);
        expect_error("SysSetFocus", 1400);
        EXPECT_FALSE(run("SysWinShow", {I(h), I(1)}).b);
        expect_error("SysWinShow", 1400);
        EXPECT_FALSE(run("SysIconize", {I(h)}).b);
        expect_error("SysIconize", 1400);
        EXPECT_EQ(0, run("SysGetMenu", {I(h)}).i);
        expect_error("SysGetMenu", 1400);
        EXPECT_EQ(0, run("SysGetDC", {I(h)}).i);
        expect_error("SysGetDC", 1400);
        EXPECT_FALSE(run("SysReleaseDC", {I(h), I(h)}).b);
        expect_error("SysReleaseDC", 6);
    }
}

TEST_F(Headless, MenusAndDrawingContexts) {
    const uintptr_t w = window(u"Menus", u"KPForm", 3);
    const int64_t menu = sys.integer("SysGetMenu", {I(w)});
    ASSERT_NE(0, menu);
    std::vector<int64_t> subs;
    for (int k = 0; k < 3; ++k) {
        subs.push_back(sys.integer("SysGetSubMenu", {I(menu), I(k)}));
        EXPECT_NE(0, subs.back());
    }
    EXPECT_NE(subs[0], subs[1]);
    for (auto [m, pos, code] : std::initializer_list<std::tuple<int64_t, int, uint32_t>>{
             {menu, 3, 1401u}, {menu, -1, 87u}, {0, 0, 1401u}, {12345, 0, 1401u}}) {
        EXPECT_EQ(0, run("SysGetSubMenu", {I(m), I(pos)}).i) << pos;
        expect_error("submenu", code);
    }
    const uintptr_t bare = window(u"No menu");
    EXPECT_EQ(0, run("SysGetMenu", {I(bare)}).i);
    expect_error("no menu", 1401);

    const int64_t dc = sys.integer("SysGetDC", {I(w)});
    ASSERT_NE(0, dc);
    EXPECT_TRUE(sys.boolean("SysReleaseDC", {I(w), I(dc)}));
    EXPECT_FALSE(run("SysReleaseDC", {I(w), I(dc)}).b) << "released twice";
    expect_error("released twice", 6);
}

TEST_F(Headless, PointerAndMouseActionsOfTheFamily) {
    const uintptr_t w = window(u"Pointer");
    (void)w;
    EXPECT_EQ(120 | (160 << 16), sys.integer("CursorPos"));
    // cpScreen, cpWindow (frame at the top of the work area), cpClient (below the caption).
    EXPECT_TRUE(sys.boolean("EmulateMouse", {I(0), I(10), I(100)}));
    EXPECT_EQ(10 | (100 << 16), sys.integer("CursorPos", {I(sys.constant("cpScreen"))}));
    EXPECT_EQ(10 | (74 << 16), sys.integer("CursorPos", {I(sys.constant("cpWindow"))}));
    EXPECT_EQ(10 | (50 << 16), sys.integer("CursorPos", {I(sys.constant("cpClient"))}));
    // Above the client area the offset is negative: 16 signed bits each.
    EXPECT_TRUE(sys.boolean("EmulateMouse", {I(0), I(5), I(30)}));
    const int64_t p = sys.integer("CursorPos", {I(2)});
    EXPECT_EQ(5, static_cast<int16_t>(p & 0xFFFF));
    EXPECT_EQ(-20, static_cast<int16_t>((p >> 16) & 0xFFFF));
    EXPECT_EQ(-1, run("CursorPos", {I(3)}).i);
    expect_error("unknown origin", 87);

    const std::map<std::string, std::string> names = {
        {"dmLeftClick", "left click"},        {"dmRightClick", "right click"},
        {"dmLeftDoubleClick", "left double"}, {"dmRightDoubleClick", "right double"},
        {"dmLeftButtonDown", "left down"},    {"dmRightButtonDown", "right down"},
        {"dmLeftButtonUp", "left up"},        {"dmRightButtonUp", "right up"},
    };
    const auto family = sys.family("dm");
    EXPECT_EQ(names.size(), family.size());
    int x = 20;
    for (const std::string& n : family) {
        ASSERT_TRUE(names.count(n)) << n;
        EXPECT_TRUE(sys.boolean("EmulateMouse", {I(sys.constant(n.c_str())), I(x), I(40)})) << n;
        EXPECT_EQ(names.at(n) + " " + std::to_string(x) + ",40", hd->events().back());
        EXPECT_TRUE(sys.boolean("EmulateMouse", {I(sys.constant(n.c_str()))})) << n << " at the pointer";
        EXPECT_EQ(names.at(n) + " " + std::to_string(x) + ",40", hd->events().back());
        x += 10;
    }
    // A button held down is a key that is down.
    EXPECT_TRUE(sys.boolean("EmulateMouse", {I(sys.constant("dmLeftButtonDown"))}));
    EXPECT_TRUE(sys.boolean("KeyPressed", {I(sys.constant("kpLButton"))}));
    EXPECT_TRUE(sys.boolean("EmulateMouse", {I(sys.constant("dmLeftButtonUp"))}));
    EXPECT_FALSE(sys.boolean("KeyPressed", {I(sys.constant("kpLButton"))}));

    for (auto [action, px, py] :
         {std::tuple{7, 1, 1}, {0x50000, 1, 1}, {0x10000, 240, 1}, {0x10000, -1, 5}, {0x10000, 5, 320}}) {
        EXPECT_FALSE(run("EmulateMouse", {I(action), I(px), I(py)}).b) << action << " " << px << "," << py;
        expect_error("bad mouse action", 87);
    }
    EXPECT_FALSE(run("EmulateMouse", {I(0)}).b) << "a move needs coordinates";
    expect_error("move without coordinates", 87);
}

TEST_F(Headless, KeysAndTypedText) {
    const uintptr_t w = window(u"Typing");
    // Every kp key: up, then down, then up again.
    const auto keys = sys.family("kp");
    EXPECT_EQ(6u, keys.size());
    for (const std::string& k : keys) {
        const int32_t vk = static_cast<int32_t>(sys.constant(k.c_str()));
        EXPECT_FALSE(sys.boolean("KeyPressed", {I(vk)})) << k;
        hd->set_key(vk, true);
        EXPECT_TRUE(sys.boolean("KeyPressed", {I(vk)})) << k;
        hd->set_key(vk, false);
        EXPECT_FALSE(sys.boolean("KeyPressed", {I(vk)})) << k;
    }
    for (int vk : {0, 255, -3, 1000}) {
        EXPECT_FALSE(run("KeyPressed", {I(vk)}).b) << vk;
        expect_error("bad key", 87);
    }

    EXPECT_TRUE(sys.boolean("EmulateInput", {S(u"abc")}));
    const int64_t shift = sys.constant("diShift"), control = sys.constant("diControl"),
                  alt = sys.constant("diAlt");
    EXPECT_EQ(3u, sys.family("di").size());
    EXPECT_TRUE(sys.boolean("EmulateInput", {S(u"s"), I(control | shift)}));
    EXPECT_TRUE(sys.boolean("EmulateInput", {S(u"\u00e9t\u00e9"), I(alt)}));
    EXPECT_EQ(u"abc<ctrl><shift>s<alt>\u00e9t\u00e9", hd->typed(w));
    EXPECT_FALSE(run("EmulateInput", {S(u"x"), I(8)}).b);
    expect_error("unknown modifier", 87);
    // Nothing has the focus once the window is hidden.
    EXPECT_TRUE(sys.boolean("SysWinShow", {I(w), I(0)}));
    EXPECT_FALSE(run("EmulateInput", {S(u"lost")}).b);
    expect_error("no focus", 50);
}

TEST_F(Headless, NotificationIcon) {
    std::u16string image, tip, balloon;
    EXPECT_FALSE(run("SysIconModify", {S(u"\\a.ico")}).b) << "no icon yet";
    expect_error("modify before add", 6);
    EXPECT_FALSE(run("SysIconDelete").b);
    expect_error("delete before add", 6);
    EXPECT_FALSE(run("SysIconAdd", {S(u"")}).b) << "an icon needs an image";

    EXPECT_TRUE(sys.boolean("SysIconAdd", {S(u"\\a.ico")}));
    ASSERT_TRUE(hd->current_icon(image, tip, balloon));
    EXPECT_EQ(u"\\a.ico", image);
    EXPECT_TRUE(sys.boolean("SysIconAdd", {S(u"\\b.ico"), S(u"tip"), S(u"hello")}));
    ASSERT_TRUE(hd->current_icon(image, tip, balloon));
    EXPECT_EQ((std::vector<std::u16string>{u"\\b.ico", u"tip", u"hello"}),
              (std::vector<std::u16string>{image, tip, balloon}));
    EXPECT_TRUE(sys.boolean("SysIconModify", {S(u""), S(u"new tip")}));
    ASSERT_TRUE(hd->current_icon(image, tip, balloon));
    EXPECT_EQ(u"\\b.ico", image);
    EXPECT_EQ(u"new tip", tip);
    EXPECT_FALSE(run("SysIconDelete", {S(u"\\other.ico")}).b);
    expect_error("delete another image", 6);
    EXPECT_TRUE(sys.boolean("SysIconDelete", {S(u"\\b.ico")}));
    EXPECT_FALSE(hd->current_icon(image, tip, balloon));
    EXPECT_TRUE(sys.boolean("SysIconAdd", {S(u"\\c.ico")}));
    EXPECT_TRUE(sys.boolean("SysIconDelete"));
}

TEST_F(Headless, ColourDialog) {
    EXPECT_EQ(-1, run("SelectColor").i) << "cancelled";
    EXPECT_EQ(1, last_.severity);
    hd->answer_colour_dialog(0x123456);
    EXPECT_EQ(0x123456, sys.integer("SelectColor", {I(0xFF)}));
    // The variable holds the starting colour and receives the chosen one.
    Value var = Value::variable(Value::integer(0x00FF00));
    hd->answer_colour_dialog(0xABCDEF);
    auto out = sys.call("SelectColor", {I(sys.constant("scInit") | sys.constant("scAnyColor")), var});
    EXPECT_EQ(0xABCDEF, out.result.i);
    EXPECT_EQ(0xABCDEF, var.ref->i);
    out = sys.call("SelectColor", {I(1), var});
    EXPECT_EQ(-1, out.result.i);
    EXPECT_EQ(0xABCDEF, var.ref->i) << "a cancelled dialog leaves the variable";
}

TEST_F(Headless, ScreenPowerAndRefusedPowerRequests) {
    EXPECT_TRUE(sys.boolean("SysShutdown", {I(sys.constant("sysPoweroffScreen"))}));
    EXPECT_FALSE(hd->screen_on());
    EXPECT_TRUE(sys.boolean("SysShutdown", {I(sys.constant("sysPoweronScreen"))}));
    EXPECT_TRUE(hd->screen_on());
    // The bus is "none" here: every request to the system's services is refused.
    for (const char* mode : {"sysLogoff", "sysPoweroff", "sysReboot"}) {
        EXPECT_FALSE(run("SysShutdown", {I(sys.constant(mode))}).b) << mode;
        expect_error(mode, 50);
        EXPECT_FALSE(run("SysShutdown", {I(sys.constant(mode)), I(1)}).b) << mode;
        expect_error(mode, 50);
    }
    for (int mode : {0, 6, -1}) {
        EXPECT_FALSE(run("SysShutdown", {I(mode)}).b) << mode;
        expect_error("unknown mode", 87);
    }
    EXPECT_EQ(-1, run("SysStandby").i);
    expect_error("standby delay", 50);
    EXPECT_FALSE(run("SysStandby", {I(sys.constant("sysInactiveStandby"))}).b);
    expect_error("standby", 50);
    EXPECT_FALSE(run("SysStandby", {I(0), I(sys.constant("sysBattery"))}).b);
    expect_error("standby on battery", 50);
    for (auto [delay, source, code] : {std::tuple{-1, 0, 87u}, {0, 3, 87u}, {0, -1, 87u}, {30, 0, 50u}}) {
        EXPECT_FALSE(run("SysStandby", {I(delay), I(source)}).b) << delay << " " << source;
        expect_error("bad standby", code);
    }
    EXPECT_EQ(u"", run("SysIMEI").s);
    expect_error("IMEI", 50);
}

TEST(NoDisplay, EveryDisplayFunctionFailsWithNotSupported) {
    kp::test::SystemHost sys("none");
    ASSERT_TRUE(sys.host->loaded());
    struct Row {
        const char* name;
        std::vector<Value> args;
        Value::Kind kind;
        int64_t failure;
    } rows[] = {
        {"SysXRes", {}, Value::Kind::Int, 0},
        {"SysYRes", {}, Value::Kind::Int, 0},
        {"SysColorRes", {}, Value::Kind::Int, 0},
        {"SysMetric", {I(0)}, Value::Kind::Int, -1},
        {"SysMetric", {I(23)}, Value::Kind::Int, -1},
        {"SysColor", {I(0x40000005)}, Value::Kind::Int, -1},
        {"SysColor", {I(0x40000005), I(0)}, Value::Kind::Bool, 0},
        {"SysWinHandle", {S(u"x")}, Value::Kind::Int, 0},
        {"SysWinActive", {}, Value::Kind::Int, 0},
        {"SysWinActive", {I(5)}, Value::Kind::Int, 0},
        {"SysSetFocus", {I(5)}, Value::Kind::Int, 0},
        {"SysWinShow", {I(5), I(1)}, Value::Kind::Bool, 0},
        {"SysIconize", {I(5)}, Value::Kind::Bool, 0},
        {"SysValidHandle", {I(5)}, Value::Kind::Bool, 0},
        {"SysWinTitle", {I(5)}, Value::Kind::String, 0},
        {"SysGetMenu", {I(5)}, Value::Kind::Int, 0},
        {"SysGetSubMenu", {I(5), I(0)}, Value::Kind::Int, 0},
        {"SysGetDC", {I(5)}, Value::Kind::Int, 0},
        {"SysReleaseDC", {I(5), I(6)}, Value::Kind::Bool, 0},
        {"CursorPos", {}, Value::Kind::Int, -1},
        {"EmulateInput", {S(u"a")}, Value::Kind::Bool, 0},
        {"EmulateMouse", {I(0x10000), I(1), I(1)}, Value::Kind::Bool, 0},
        {"SelectColor", {}, Value::Kind::Int, -1},
        {"SysIconAdd", {S(u"\\a.ico")}, Value::Kind::Bool, 0},
        {"SysListScreenOrientation", {}, Value::Kind::String, 0},
        {"SysScreenOrientation", {}, Value::Kind::String, 0},
        {"SysScreenOrientation", {S(u"90")}, Value::Kind::Bool, 0},
        {"SysShutdown", {I(4)}, Value::Kind::Bool, 0},
    };
    for (Row& r : rows) {
        auto out = sys.call(r.name, r.args);
        SCOPED_TRACE(r.name);
        EXPECT_EQ(r.kind, out.result.kind);
        if (r.kind == Value::Kind::String)
            EXPECT_EQ(u"", out.result.s);
        else if (r.kind == Value::Kind::Bool)
            EXPECT_FALSE(out.result.b);
        else
            EXPECT_EQ(r.failure, out.result.i);
        EXPECT_EQ(KP_SEVERITY_ERROR, out.error.severity);
        EXPECT_EQ(50u, out.error.system_code);
    }
    // Without a display the keys come from the VM's key-state service.
    EXPECT_FALSE(sys.boolean("KeyPressed", {I(27)}));
}

} // namespace
