// The display over X11, under an Xvfb server the test starts, checked
// against xdotool, xprop and xrandr on a window another client (the
// suite's kp_x11_peer) creates.
#include <X11/keysym.h>

#include <regex>
#include <thread>

#include "system_fixture.h"
#include "x11_keys.h"
#include "xvfb.h"

using kp::host::Value;
using kp::test::I;
using kp::test::run_on;
using kp::test::S;

namespace {

struct X11 : ::testing::Test {
    static inline kp::test::Xvfb xvfb;
    static inline bool started = false;
    static void SetUpTestSuite() { started = xvfb.start(); }
    static void TearDownTestSuite() { xvfb.stop(); }

    std::unique_ptr<kp::test::SystemHost> sys;
    kp::test::Child peer;
    uintptr_t peer_window = 0;

    void SetUp() override {
        ASSERT_TRUE(started) << "Xvfb did not start";
        sys = std::make_unique<kp::test::SystemHost>("x11:" + xvfb.name());
        ASSERT_TRUE(sys->host->loaded());
        ASSERT_NE(sys->host->display(), nullptr);
        ASSERT_STREQ("x11", sys->host->display()->kind());
        ASSERT_TRUE(peer.start(kp::test::target_command({KP120_X11_PEER, "Peer window", "KPPeerClass"}),
                               {"DISPLAY=" + xvfb.name()}));
        const std::string id = peer.line();
        ASSERT_FALSE(id.empty()) << "the peer wrote no window identifier";
        peer_window = std::stoul(id);
        ASSERT_NE(0u, peer_window);
    }
    std::string xdo(const std::string& args) { return run_on(xvfb.name(), "xdotool " + args); }
};

TEST_F(X11, ScreenAgainstXrandr) {
    const std::string q = run_on(xvfb.name(), "xrandr --query");
    std::smatch m;
    ASSERT_TRUE(std::regex_search(q, m, std::regex("current (\\d+) x (\\d+)"))) << q;
    EXPECT_EQ(std::stoi(m[1]), sys->integer("SysXRes"));
    EXPECT_EQ(std::stoi(m[2]), sys->integer("SysYRes"));
    EXPECT_EQ(32, sys->integer("SysColorRes")) << "24-bit depth, 32 bits a pixel";
    EXPECT_EQ(800, sys->integer("SysMetric", {I(sys->constant("metCxScreen"))}));
    // The server offers no rotation (xrandr lists none, and refuses one).
    EXPECT_EQ(std::string::npos, q.find("left")) << q;
    EXPECT_EQ(u"0", sys->text("SysListScreenOrientation"));
    EXPECT_EQ(u"0", sys->text("SysScreenOrientation"));
    auto out = sys->call("SysScreenOrientation", {S(u"90")});
    EXPECT_FALSE(out.result.b);
    EXPECT_EQ(50u, out.error.system_code);
    EXPECT_TRUE(sys->boolean("SysScreenOrientation", {S(u"0")}));
    // Nor DPMS: the screen's power cannot be switched (xset agrees).
    EXPECT_NE(std::string::npos, run_on(xvfb.name(), "xset q").find("does not have the DPMS"));
    out = sys->call("SysShutdown", {I(sys->constant("sysPoweroffScreen"))});
    EXPECT_FALSE(out.result.b);
    EXPECT_EQ(50u, out.error.system_code);
}

TEST_F(X11, TitlesAgainstXdotoolAndXprop) {
    const std::string id = std::to_string(peer_window);
    const int64_t peer = static_cast<int64_t>(peer_window);
    auto xprop = [&](const std::string& args) { return run_on(xvfb.name(), "xprop -id " + id + " " + args); };
    // The component reads `title` and finds the window by it.
    auto reads = [&](const std::u16string& title) {
        EXPECT_EQ(title, sys->text("SysWinTitle", {I(peer)}));
        EXPECT_EQ(peer, sys->integer("SysWinHandle", {S(title)}));
    };
    EXPECT_EQ(id, xdo("search --name '^Peer window$'"));
    reads(u"Peer window");
    EXPECT_EQ(peer, sys->integer("SysWinHandle", {S(u"Peer window"), S(u"KPPeerClass")}));
    EXPECT_EQ(0, sys->integer("SysWinHandle", {S(u"Peer window"), S(u"Other")}));
    EXPECT_EQ(0, sys->integer("SysWinHandle", {S(u"Peer")})) << "whole titles only";

    EXPECT_TRUE(sys->boolean("SysWinTitle", {I(peer), S(u"Renamed \u00e9t\u00e9")}));
    EXPECT_EQ("Renamed \xC3\xA9t\xC3\xA9", xdo("getwindowname " + id));
    EXPECT_NE(std::string::npos, xprop("_NET_WM_NAME").find("\"Renamed \xC3\xA9t\xC3\xA9\""));
    // A title in WM_NAME alone, as Latin-1 STRING.
    xprop("-remove _NET_WM_NAME");
    reads(u"Renamed \u00e9t\u00e9");
    xdo("set_window --name 'Set by xdotool' " + id);
    reads(u"Set by xdotool");

    // As Win32's window search: titles and classes in any case; a title in
    // WM_NAME alone as COMPOUND_TEXT (as X toolkits write titles outside
    // Latin-1) read by the same reader.
    EXPECT_EQ(peer, sys->integer("SysWinHandle", {S(u"SET BY xdotool"), S(u"kppeerCLASS")}));
    xprop("-remove _NET_WM_NAME");
    run_on(xvfb.name(),
           "LC_ALL=C.UTF-8 xprop -id " + id + " -f WM_NAME 8t -set WM_NAME '\xC3\x89t\xC3\xA9 \xE2\x98\x83'");
    ASSERT_NE(std::string::npos, xprop("WM_NAME").find("COMPOUND_TEXT"));
    reads(u"\u00c9t\u00e9 \u2603");
    EXPECT_EQ(peer, sys->integer("SysWinHandle", {S(u"\u00e9T\u00c9 \u2603")}));

    // A title of 100,000 characters.
    const std::u16string long_title(100000, u'k');
    EXPECT_TRUE(sys->boolean("SysWinTitle", {I(peer), S(long_title)}));
    reads(long_title);
    EXPECT_EQ(0, sys->integer("SysWinHandle", {S(long_title + u"k")}));
}

TEST_F(X11, FocusAgainstXdotool) {
    const uintptr_t own = sys->host->display()->create_window(u"Own window", u"KPForm", 1);
    ASSERT_NE(0u, own);
    sys->integer("SysWinActive", {I(peer_window)});
    EXPECT_EQ(std::to_string(peer_window), xdo("getwindowfocus"));
    EXPECT_EQ(static_cast<int64_t>(peer_window), sys->integer("SysWinActive"));
    EXPECT_EQ(static_cast<int64_t>(peer_window), sys->integer("SysSetFocus", {I(own)}));
    EXPECT_EQ(std::to_string(own), xdo("getwindowfocus"));
    xdo("windowfocus --sync " + std::to_string(peer_window));
    EXPECT_EQ(static_cast<int64_t>(peer_window), sys->integer("SysWinActive"));
    // Hidden, shown: the map state xdotool searches by.
    EXPECT_TRUE(sys->boolean("SysWinShow", {I(own), I(sys->constant("swsHide"))}));
    EXPECT_EQ("", xdo("search --onlyvisible --name '^Own window$'"));
    EXPECT_TRUE(sys->boolean("SysWinShow", {I(own), I(sys->constant("swsVisible"))}));
    EXPECT_EQ(std::to_string(own), xdo("search --sync --onlyvisible --name '^Own window$'"));
    EXPECT_NE(0, sys->integer("SysGetSubMenu", {I(sys->integer("SysGetMenu", {I(own)})), I(0)}));
    const int64_t dc = sys->integer("SysGetDC", {I(own)});
    EXPECT_NE(0, dc);
    EXPECT_TRUE(sys->boolean("SysReleaseDC", {I(own), I(dc)}));
}

TEST_F(X11, KeysAndClicksReachThePeer) {
    sys->integer("SysWinActive", {I(peer_window)});
    ASSERT_EQ(std::to_string(peer_window), xdo("getwindowfocus"));
    EXPECT_TRUE(sys->boolean("EmulateInput", {S(u"x"), I(sys->constant("diControl"))}));
    EXPECT_EQ("key x 4", peer.line());

    // The peer's window lies at (10, 20), 200 x 150.
    EXPECT_TRUE(sys->boolean("EmulateMouse", {I(sys->constant("dmLeftClick")), I(50), I(60)}));
    EXPECT_TRUE(sys->boolean("EmulateMouse", {I(sys->constant("dmRightClick"))}));
    EXPECT_TRUE(sys->boolean("EmulateMouse", {I(sys->constant("dmLeftDoubleClick")), I(70), I(80)}));
    for (const char* line : {"button 1 50 60", "release 1 50 60", "button 3 50 60", "release 3 50 60",
                             "button 1 70 80", "release 1 70 80", "button 1 70 80", "release 1 70 80"})
        EXPECT_EQ(line, peer.line());
    EXPECT_EQ(static_cast<int64_t>(70 | (80 << 16)), sys->integer("CursorPos"));

    xdo("mousemove 123 234");
    EXPECT_EQ(static_cast<int64_t>(123 | (234 << 16)), sys->integer("CursorPos"));
    EXPECT_EQ(static_cast<int64_t>(113 | (214 << 16)),
              sys->integer("CursorPos", {I(sys->constant("cpClient"))}));
    const std::string loc = xdo("getmouselocation");
    EXPECT_EQ(0u, loc.find("x:123 y:234")) << loc;

    // Every virtual key with an X key: pressed while xdotool holds its key,
    // and no other key of the table then (nor VK_OEM_102, whose "<" is the
    // shifted comma of a US keyboard).
    const std::pair<int, const char*> keys[] = {
        {0x10, "shift"},        {0x24, "Home"},       {0x23, "End"},         {0x21, "Prior"},
        {0x22, "Next"},         {0x2D, "Insert"},     {0x6B, "KP_Add"},      {0x6D, "KP_Subtract"},
        {0x6A, "KP_Multiply"},  {0x6F, "KP_Divide"},  {0x6E, "KP_Decimal"},  {0xBA, "semicolon"},
        {0xBB, "equal"},        {0xBC, "comma"},      {0xBD, "minus"},       {0xBE, "period"},
        {0xBF, "slash"},        {0xC0, "grave"},      {0xDB, "bracketleft"}, {0xDC, "backslash"},
        {0xDD, "bracketright"}, {0xDE, "apostrophe"}, {0x14, "Caps_Lock"},   {0x91, "Scroll_Lock"},
        {0x13, "Pause"},        {0x5B, "Super_L"},    {0x5D, "Menu"},        {0x7B, "F12"},
        {0x2C, "Print"}};
    auto only = [&](int vk) {
        EXPECT_TRUE(sys->boolean("KeyPressed", {I(vk)}));
        for (const auto& [other, name] : keys) {
            if (other != vk) {
                EXPECT_FALSE(sys->boolean("KeyPressed", {I(other)})) << name;
            }
        }
        if (vk != 0xE2) {
            EXPECT_FALSE(sys->boolean("KeyPressed", {I(0xE2)}));
        }
    };
    for (const auto& [vk, key] : keys) {
        SCOPED_TRACE(key);
        xdo(std::string("keydown ") + key);
        only(vk);
        xdo(std::string("keyup ") + key);
        EXPECT_FALSE(sys->boolean("KeyPressed", {I(vk)}));
    }
    // The other way: VK_OEM_102 is the key whose unshifted symbol is "<"
    // (xdotool types "<" as the shifted comma while the comma key has it).
    run_on(xvfb.name(), "xmodmap -e 'keysym comma = comma'");
    xdo("keydown less");
    only(0xE2);
    xdo("keyup less");
    run_on(xvfb.name(), "xmodmap -e 'keysym comma = comma less'");
    EXPECT_FALSE(sys->boolean("KeyPressed", {I(0xE2)}));
}

// The table both ways: every symbol of a virtual key gives that virtual key
// back (the sided modifiers the generic one), and each named key its code.
TEST(X11Keys, VirtualKeysAndKeySymbolsBothWays) {
    namespace x = kp::host::x11;
    int mapped = 0;
    for (int vk = 0; vk < 256; ++vk) {
        for (unsigned long sym : x::keysyms_of_virtual_key(vk)) {
            const int generic = vk >= 0xA0 && vk <= 0xA5 ? 0x10 + (vk - 0xA0) / 2 : vk;
            EXPECT_EQ(generic, x::virtual_key_of_keysym(sym)) << std::hex << vk << " " << sym;
            ++mapped;
        }
    }
    EXPECT_GT(mapped, 150);
    // Symbols the peer test above does not hold (the ones it holds are checked there).
    const std::pair<int, unsigned long> named[] = {{0x2E, XK_Delete},   {0x69, XK_KP_9},    {0x41, XK_a},
                                                   {0x41, XK_A},        {0x39, XK_9},       {0x70, XK_F1},
                                                   {0x87, XK_F24},      {0x10, XK_Shift_R}, {0x12, XK_Alt_L},
                                                   {0x0D, XK_KP_Enter}, {0x24, XK_KP_Home}};
    for (const auto& [vk, sym] : named)
        EXPECT_EQ(vk, x::virtual_key_of_keysym(sym)) << std::hex << sym;
    EXPECT_EQ(0, x::virtual_key_of_keysym(XK_eacute)) << "no key of a US keyboard";
    EXPECT_TRUE(x::keysyms_of_virtual_key(0x07).empty());
}

TEST_F(X11, WindowsThatCloseAndHandlesThatNeverWere) {
    EXPECT_TRUE(sys->boolean("SysValidHandle", {I(peer_window)}));
    peer.stop();
    for (int64_t h : std::initializer_list<int64_t>{static_cast<int64_t>(peer_window), 0x12345, 1, 0}) {
        SCOPED_TRACE(h);
        EXPECT_FALSE(sys->boolean("SysValidHandle", {I(h)}));
        auto out = sys->call("SysWinTitle", {I(h)});
        EXPECT_EQ(u"", out.result.s);
        EXPECT_EQ(1400u, out.error.system_code);
        out = sys->call("SysWinShow", {I(h), I(1)});
        EXPECT_FALSE(out.result.b);
        EXPECT_EQ(1400u, out.error.system_code);
    }
    EXPECT_EQ(0, sys->integer("SysWinHandle", {S(u"Peer window")}));

    // Windows that close while lookups go on: the lookups see the others.
    kp::test::Child stable, many;
    ASSERT_TRUE(stable.start(kp::test::target_command({KP120_X11_PEER, "Stable", "KPPeer"}),
                             {"DISPLAY=" + xvfb.name()}));
    const int64_t stable_window = std::stol(stable.line());
    for (int round = 0; round < 5; ++round) {
        ASSERT_TRUE(many.start(kp::test::target_command({KP120_X11_PEER, "--many", "300", "Going"}),
                               {"DISPLAY=" + xvfb.name()}));
        ASSERT_FALSE(many.line().empty());
        std::thread closer([&] { many.stop(); });
        for (int k = 0; k < 20; ++k)
            EXPECT_EQ(stable_window, sys->integer("SysWinHandle", {S(u"stable")}));
        closer.join();
    }
}

// What a window manager publishes on the root window takes over from the
// bare server's view: the client list, the active window, the work area.
TEST_F(X11, WindowManagerPropertiesOfTheRoot) {
    const uintptr_t own = sys->host->display()->create_window(u"Unlisted", u"KPForm", 0);
    const std::string root = "xprop -root ";
    run_on(xvfb.name(),
           root + "-f _NET_CLIENT_LIST 32x -set _NET_CLIENT_LIST " + std::to_string(peer_window));
    run_on(xvfb.name(), root + "-f _NET_SUPPORTING_WM_CHECK 32x -set _NET_SUPPORTING_WM_CHECK " +
                            std::to_string(peer_window));
    run_on(xvfb.name(),
           root + "-f _NET_ACTIVE_WINDOW 32x -set _NET_ACTIVE_WINDOW " + std::to_string(peer_window));
    run_on(xvfb.name(), root + "-f _NET_WORKAREA 32c -set _NET_WORKAREA '0, 30, 800, 540'");
    EXPECT_EQ(static_cast<int64_t>(peer_window), sys->integer("SysWinHandle", {S(u"Peer window")}));
    EXPECT_EQ(0, sys->integer("SysWinHandle", {S(u"Unlisted")})) << "only the managed windows are listed";
    EXPECT_EQ(static_cast<int64_t>(peer_window), sys->integer("SysWinActive"));
    EXPECT_EQ(540, sys->integer("SysMetric", {I(sys->constant("metCyFullScreen"))}));
    EXPECT_EQ(800, sys->integer("SysMetric", {I(sys->constant("metCxFullScreen"))}));
    for (const char* p :
         {"_NET_CLIENT_LIST", "_NET_SUPPORTING_WM_CHECK", "_NET_ACTIVE_WINDOW", "_NET_WORKAREA"})
        run_on(xvfb.name(), root + "-remove " + p);
    EXPECT_EQ(static_cast<int64_t>(own), sys->integer("SysWinHandle", {S(u"Unlisted")}));
    EXPECT_EQ(600, sys->integer("SysMetric", {I(sys->constant("metCyFullScreen"))}));
}

// The icon docks in the notification area another client keeps.
TEST_F(X11, NotificationIconDocksInTheTray) {
    auto out = sys->call("SysIconAdd", {S(u"\\icon.ico")});
    EXPECT_FALSE(out.result.b) << "no notification area yet";
    EXPECT_EQ(50u, out.error.system_code);
    kp::test::Child tray;
    ASSERT_TRUE(tray.start(kp::test::target_command({KP120_X11_PEER, "--tray"}), {"DISPLAY=" + xvfb.name()}));
    ASSERT_FALSE(tray.line().empty());
    EXPECT_TRUE(
        sys->boolean("SysIconAdd", {S(u"\\icon.ico"), S(u"Orders: 3"), S(u"New order \u00e9 received")}));
    const std::string dock = tray.line();
    ASSERT_EQ(0u, dock.rfind("dock ", 0)) << dock;
    const std::string icon = dock.substr(5);
    EXPECT_EQ("message New order \xC3\xA9 received", tray.line());
    EXPECT_EQ("Orders: 3", xdo("getwindowname " + icon));
    EXPECT_TRUE(sys->boolean("SysIconModify", {S(u""), S(u"Orders: 4")}));
    EXPECT_EQ("Orders: 4", xdo("getwindowname " + icon));
    EXPECT_TRUE(sys->boolean("SysIconDelete"));
    EXPECT_EQ("undock " + icon, tray.line());
    out = sys->call("SysIconModify", {S(u"\\icon.ico")});
    EXPECT_FALSE(out.result.b);
    EXPECT_EQ(6u, out.error.system_code);
}

// Last: the server goes away under the display.
TEST_F(X11, ZDisplayThatGoesAway) {
    peer.stop();
    xvfb.stop();
    EXPECT_EQ(0, sys->integer("SysXRes"));
    EXPECT_EQ(0, sys->integer("SysWinHandle", {S(u"Peer window")}));
    EXPECT_FALSE(sys->boolean("SysValidHandle", {I(peer_window)}));
    EXPECT_FALSE(sys->boolean("EmulateInput", {S(u"a")}));
    EXPECT_EQ(-1, sys->integer("CursorPos"));
    started = false;
}

} // namespace
