// The device functions on the headless handheld and with no display: what the component
// computes, and every refusal's failure value and system error.
#include "system_fixture.h"

using kp::host::HeadlessDisplay;
using kp::host::Value;
using kp::test::expect_refusals;
using kp::test::I;
using kp::test::Refusal;
using kp::test::S;

namespace {

struct Headless : ::testing::Test {
    kp::test::SystemHost sys;
    HeadlessDisplay* hd = nullptr;
    void SetUp() override {
        hd = dynamic_cast<HeadlessDisplay*>(sys.host->display());
        ASSERT_NE(hd, nullptr);
    }
    int64_t window(const char16_t* title, const char16_t* cls = u"KPWindow", int menus = 0) {
        return static_cast<int64_t>(hd->create_window(title, cls, menus));
    }
};

TEST_F(Headless, WhatTheComponentComputes) {
    EXPECT_EQ(u"0\r\n90\r\n180\r\n270", sys.text("SysListScreenOrientation"));
    for (const char16_t* o : {u"90", u"180", u"270", u"0"}) {
        EXPECT_TRUE(sys.boolean("SysScreenOrientation", {S(o)}));
        EXPECT_EQ(o, sys.text("SysScreenOrientation"));
    }
    // An element as its flagged code or its bare index: the same colour.
    for (int64_t index : {0, 5, 20}) {
        EXPECT_TRUE(sys.boolean("SysColor", {I(0x40000000 | index), I(0x102030 + index)}));
        EXPECT_EQ(0x102030 + index, sys.integer("SysColor", {I(index)})) << index;
    }
    // An empty title looks for the class alone.
    window(u"Alpha", u"KPForm");
    const int64_t other = window(u"Alpha", u"Other");
    EXPECT_EQ(other, sys.integer("SysWinHandle", {S(u""), S(u"Other")}));
    const int64_t w = window(u"Pointer");

    // The pointer from the screen, the frame (top of the work area), the client area; 16 signed bits each.
    EXPECT_TRUE(sys.boolean("EmulateMouse", {I(0), I(10), I(100)}));
    for (auto [origin, y] : {std::pair{0, 100}, {1, 74}, {2, 50}})
        EXPECT_EQ(10 | (y << 16), sys.integer("CursorPos", {I(origin)})) << origin;
    EXPECT_TRUE(sys.boolean("EmulateMouse", {I(0), I(5), I(30)}));
    EXPECT_EQ(0xFFEC0005u, static_cast<uint32_t>(sys.integer("CursorPos", {I(2)})));
    // Every mouse action, at a place and at the pointer.
    const std::pair<int64_t, const char*> actions[] = {{0x10000, "left click"},   {0x20000, "left double"},
                                                       {0x30000, "left down"},    {0x40000, "left up"},
                                                       {0x100000, "right click"}, {0x200000, "right double"},
                                                       {0x300000, "right down"},  {0x400000, "right up"}};
    for (const auto& [action, event] : actions)
        for (auto args : {std::vector<Value>{I(action), I(20), I(40)}, {I(action)}}) {
            EXPECT_TRUE(sys.boolean("EmulateMouse", args));
            EXPECT_EQ(std::string(event) + " 20,40", hd->events().back());
        }

    for (const char* mode : {"sysPoweroffScreen", "sysPoweronScreen"}) {
        EXPECT_TRUE(sys.boolean("SysShutdown", {I(sys.constant(mode))}));
        EXPECT_EQ(hd->screen_on(), std::string(mode) == "sysPoweronScreen");
    }
    for (int mode : {0, 1, 2, 3, 4, 5, 8, 9})
        EXPECT_TRUE(sys.boolean("SysWinShow", {I(w), I(mode)})) << mode;
}

TEST_F(Headless, ColourDialogAndItsVariable) {
    auto out = sys.call("SelectColor");
    EXPECT_EQ(std::tie(out.result.i, out.error.severity), std::make_tuple(-1, 1)) << "cancelled: no error";
    hd->answer_colour_dialog(0x123456);
    EXPECT_EQ(0x123456, sys.integer("SelectColor", {I(0xFF)}));
    Value var = Value::variable(Value::integer(0x00FF00));
    hd->answer_colour_dialog(0xABCDEF);
    EXPECT_EQ(0xABCDEF, sys.integer("SelectColor", {I(0x3), var}));
    EXPECT_EQ(0xABCDEF, var.ref->i);
    EXPECT_EQ(-1, sys.integer("SelectColor", {I(1), var}));
    EXPECT_EQ(0xABCDEF, var.ref->i) << "a cancelled dialog leaves the variable";
}

TEST_F(Headless, RefusedCallsGiveTheirFailureValueAndError) {
    const int64_t w = window(u"Menus", u"KPForm", 3), bare = window(u"No menu");
    const int64_t menu = sys.integer("SysGetMenu", {I(w)});
    const int64_t dc = sys.integer("SysGetDC", {I(w)});
    ASSERT_TRUE(sys.boolean("SysReleaseDC", {I(w), I(dc)}));
    const int64_t closed = window(u"Closing");
    ASSERT_TRUE(hd->close_window(static_cast<uintptr_t>(closed)));

    std::vector<Refusal> rows = {{"SysGetSubMenu", 0, 1401, I(menu), I(3)},
                                 {"SysGetSubMenu", 0, 87, I(menu), I(-1)},
                                 {"SysGetSubMenu", 0, 1401, I(12345), I(0)},
                                 {"SysGetMenu", 0, 1401, I(bare)},
                                 {"SysReleaseDC", 0, 6, I(w), I(dc)},
                                 {"CursorPos", -1, 87, I(3)},
                                 {"EmulateMouse", 0, 87, I(0)},
                                 {"EmulateInput", 0, 87, S(u"x"), I(8)},
                                 {"SysIconModify", 0, 6, S(u"\\a.ico")},
                                 {"SysIconDelete", 0, 6},
                                 {"SysIconAdd", 0, 50, S(u"")},
                                 {"SysStandby", -1, 50},
                                 {"SysStandby", 0, 50, I(sys.constant("sysInactiveStandby"))},
                                 {"SysIMEI", 0, 50}};
    for (const char16_t* o : {u"45", u"", u"0 ", u"360", u"-90"})
        rows.push_back({"SysScreenOrientation", 0, 87, S(o)});
    for (int code : {10, 11, 14, 19, 22, 25, 30, 34, 36, -1, 1000})
        rows.push_back({"SysMetric", -1, 87, I(code)});
    for (int64_t element : {0x40000015, 21, -1, 0x40000100})
        rows.push_back({"SysColor", -1, 87, I(element)});
    for (int64_t colour : {-1, 0x1000000})
        rows.push_back({"SysColor", 0, 87, I(0x40000005), I(colour)});
    for (int mode : {6, 7, 10, -1, 100})
        rows.push_back({"SysWinShow", 0, 87, I(w), I(mode)});
    for (auto [action, x, y] :
         {std::tuple{7, 1, 1}, {0x50000, 1, 1}, {0x10000, 240, 1}, {0x10000, -1, 5}, {0x10000, 5, 320}})
        rows.push_back({"EmulateMouse", 0, 87, I(action), I(x), I(y)});
    for (int vk : {0, 255, -3, 1000})
        rows.push_back({"KeyPressed", 0, 87, I(vk)});
    // The system bus is "none": every request to the system's services is refused.
    for (const char* mode : {"sysLogoff", "sysPoweroff", "sysReboot"}) {
        rows.push_back({"SysShutdown", 0, 50, I(sys.constant(mode))});
        rows.push_back({"SysShutdown", 0, 50, I(sys.constant(mode)), I(1)});
    }
    for (int mode : {0, 6, -1})
        rows.push_back({"SysShutdown", 0, 87, I(mode)});
    for (auto [delay, source, code] :
         {std::tuple{0, 1, 50u} /* sysBattery */, {-1, 0, 87u}, {0, 3, 87u}, {0, -1, 87u}, {30, 0, 50u}})
        rows.push_back({"SysStandby", 0, code, I(delay), I(source)});
    // Handles that are not windows, among them one that closed.
    for (int64_t h : {closed, int64_t{0}, int64_t{1}, int64_t{12345}, int64_t{0x7FFFFFFF}, int64_t{-1}}) {
        for (const char* name :
             {"SysWinTitle", "SysWinActive", "SysSetFocus", "SysIconize", "SysGetMenu", "SysGetDC"})
            rows.push_back({name, 0, 1400, I(h)});
        rows.push_back({"SysWinTitle", 0, 1400, I(h), S(u"x")});
        rows.push_back({"SysWinShow", 0, 1400, I(h), I(1)});
        rows.push_back({"SysReleaseDC", 0, 6, I(h), I(h)});
        auto out = sys.call("SysValidHandle", {I(h)});
        EXPECT_EQ(std::tie(out.result.b, out.error.severity), std::make_tuple(false, 1)) << h << ": no error";
    }
    expect_refusals(sys, rows);
    // Nothing has the focus once the window is hidden.
    ASSERT_TRUE(sys.boolean("SysWinShow", {I(w), I(0)}));
    ASSERT_TRUE(sys.boolean("SysWinShow", {I(bare), I(0)}));
    expect_refusals(sys, {{"EmulateInput", 0, 50, S(u"lost")}});
}

TEST(NoDisplay, EveryDisplayFunctionFailsWithNotSupported) {
    kp::test::SystemHost sys("none");
    std::vector<Refusal> rows = {{"SysMetric", -1, 50, I(0)},
                                 {"SysMetric", -1, 50, I(23)},
                                 {"SysColor", -1, 50, I(0x40000005)},
                                 {"SysColor", 0, 50, I(0x40000005), I(0)},
                                 {"SysWinHandle", 0, 50, S(u"x")},
                                 {"SysWinShow", 0, 50, I(5), I(1)},
                                 {"SysGetSubMenu", 0, 50, I(5), I(0)},
                                 {"SysReleaseDC", 0, 50, I(5), I(6)},
                                 {"CursorPos", -1, 50},
                                 {"EmulateInput", 0, 50, S(u"a")},
                                 {"EmulateMouse", 0, 50, I(0x10000), I(1), I(1)},
                                 {"SelectColor", -1, 50},
                                 {"SysIconAdd", 0, 50, S(u"\\a.ico")},
                                 {"SysScreenOrientation", 0, 50, S(u"90")},
                                 {"SysShutdown", 0, 50, I(4)}};
    for (const char* name : {"SysXRes", "SysYRes", "SysColorRes", "SysWinActive", "SysListScreenOrientation",
                             "SysScreenOrientation"})
        rows.push_back({name, 0, 50});
    for (const char* name : {"SysWinActive", "SysSetFocus", "SysIconize", "SysValidHandle", "SysWinTitle",
                             "SysGetMenu", "SysGetDC"})
        rows.push_back({name, 0, 50, I(5)});
    expect_refusals(sys, rows);
    // Without a display the keys come from the VM's key-state service.
    EXPECT_FALSE(sys.boolean("KeyPressed", {I(27)}));
}

} // namespace
