// The display over X11 under an Xvfb of the test's own (openbox managing it for X11Managed),
// checked against xdotool, xprop, xrandr and xmodmap on windows of another client (kp_x11_peer).
#include <X11/keysym.h>

#include <cstdio>
#include <regex>
#include <thread>

#include "system_fixture.h"
#include "x11_keys.h"
#include "xvfb.h"

using kp::host::Value;
using kp::test::Child;
using kp::test::expect_refusals;
using kp::test::I;
using kp::test::run_on;
using kp::test::S;

namespace {

template <bool Managed> struct OnDisplay : ::testing::Test {
    static inline kp::test::Xvfb xvfb;
    static inline Child wm;
    static inline bool started = false;
    static void SetUpTestSuite() {
        started = (!Managed || std::system("command -v openbox >/dev/null 2>&1") == 0) && xvfb.start();
        if (!Managed || !started) return;
        wm.start({"openbox", "--sm-disable"}, {"DISPLAY=" + xvfb.name()}, true);
        started = false;
        for (int k = 0; k < 500 && !started; ++k, usleep(10000))
            started = run_on(xvfb.name(), "xprop -root _NET_SUPPORTING_WM_CHECK").find("window id") !=
                      std::string::npos;
        // Openbox names itself before it manages new windows: a throwaway peer, started again until
        // it is managed, keeps the first test's window from falling in between.
        for (int attempt = 0; started && attempt < 10; ++attempt) {
            Child probe;
            if (!start_peer(probe, {"Probe", "KPProbeClass"}) || managed(std::stoul(probe.line()), 40)) break;
        }
    }
    static void TearDownTestSuite() { wm.stop(), xvfb.stop(); }
    static bool start_peer(Child& c, std::vector<std::string> args) {
        args.insert(args.begin(), KP120_X11_PEER);
        return c.start(kp::test::target_command(args), {"DISPLAY=" + xvfb.name()});
    }
    // Whether the window manager lists `window` among its clients within `tries` polls.
    static bool managed(unsigned long window, int tries) {
        char hex[32];
        std::snprintf(hex, sizeof hex, "0x%lx", window);
        for (int k = 0; k < tries; ++k, usleep(50000))
            if (run_on(xvfb.name(), "xprop -root _NET_CLIENT_LIST").find(hex) != std::string::npos)
                return true;
        return false;
    }

    std::unique_ptr<kp::test::SystemHost> sys;
    Child peer;
    uintptr_t peer_window = 0;
    int64_t pw = 0; // peer_window as a call's argument or result

    void SetUp() override {
        if (Managed && !started) GTEST_SKIP() << "openbox is not installed or did not start";
        ASSERT_TRUE(started) << "Xvfb did not start";
        sys = std::make_unique<kp::test::SystemHost>("x11:" + xvfb.name());
        ASSERT_TRUE(sys->host->loaded() && sys->host->display());
        ASSERT_STREQ("x11", sys->host->display()->kind());
        ASSERT_TRUE(start_peer(peer, {"Peer window", "KPPeerClass"}));
        const std::string id = peer.line();
        ASSERT_FALSE(id.empty()) << "the peer wrote no window identifier";
        peer_window = std::stoul(id), pw = static_cast<int64_t>(peer_window);
        if (!Managed) return;
        ASSERT_TRUE(managed(peer_window, 200)) << "openbox did not manage the peer's window";
        xdo("windowactivate --sync " + std::to_string(peer_window));
    }
    // xdotool, its waits (--sync) bounded.
    std::string xdo(const std::string& args) { return run_on(xvfb.name(), "timeout 10 xdotool " + args); }
};
using X11 = OnDisplay<false>;
using X11Managed = OnDisplay<true>;

TEST_F(X11, ScreenAgainstXrandr) {
    const std::string q = run_on(xvfb.name(), "xrandr --query");
    std::smatch m;
    ASSERT_TRUE(std::regex_search(q, m, std::regex("current (\\d+) x (\\d+)"))) << q;
    EXPECT_EQ(std::stoi(m[1]), sys->integer("SysXRes"));
    EXPECT_EQ(std::stoi(m[2]), sys->integer("SysYRes"));
    EXPECT_EQ(32, sys->integer("SysColorRes")) << "24-bit depth, 32 bits a pixel";
    EXPECT_EQ(800, sys->integer("SysMetric", {I(sys->constant("metCxScreen"))}));
    // No rotation (xrandr lists none) nor DPMS (xset agrees): both refused.
    EXPECT_EQ(std::string::npos, q.find("left")) << q;
    EXPECT_EQ(u"0", sys->text("SysListScreenOrientation"));
    EXPECT_EQ(u"0", sys->text("SysScreenOrientation"));
    EXPECT_TRUE(sys->boolean("SysScreenOrientation", {S(u"0")}));
    EXPECT_NE(std::string::npos, run_on(xvfb.name(), "xset q").find("does not have the DPMS"));
    expect_refusals(*sys, {{"SysScreenOrientation", 0, 50, S(u"90")},
                           {"SysShutdown", 0, 50, I(sys->constant("sysPoweroffScreen"))}});
}

TEST_F(X11, TitlesAgainstXdotoolAndXprop) {
    const std::string id = std::to_string(peer_window);
    auto xprop = [&](const std::string& args) { return run_on(xvfb.name(), "xprop -id " + id + " " + args); };
    // The component reads `title` and finds the window by it.
    auto reads = [&](const std::u16string& title) {
        EXPECT_EQ(title, sys->text("SysWinTitle", {I(pw)}));
        EXPECT_EQ(pw, sys->integer("SysWinHandle", {S(title)}));
    };
    EXPECT_EQ(id, xdo("search --name '^Peer window$'"));
    reads(u"Peer window");
    EXPECT_EQ(pw, sys->integer("SysWinHandle", {S(u"Peer window"), S(u"KPPeerClass")}));
    EXPECT_EQ(0, sys->integer("SysWinHandle", {S(u"Peer window"), S(u"Other")}));
    EXPECT_EQ(0, sys->integer("SysWinHandle", {S(u"Peer")})) << "whole titles only";

    EXPECT_TRUE(sys->boolean("SysWinTitle", {I(pw), S(u"Renamed \u00e9t\u00e9")}));
    EXPECT_EQ("Renamed \xC3\xA9t\xC3\xA9", xdo("getwindowname " + id));
    EXPECT_NE(std::string::npos, xprop("_NET_WM_NAME").find("\"Renamed \xC3\xA9t\xC3\xA9\""));
    // A title in WM_NAME alone, as Latin-1 STRING.
    xprop("-remove _NET_WM_NAME");
    reads(u"Renamed \u00e9t\u00e9");
    xdo("set_window --name 'Set by xdotool' " + id);
    reads(u"Set by xdotool");

    // Titles and classes in any case; a title in WM_NAME alone as COMPOUND_TEXT (as toolkits write
    // titles outside Latin-1).
    EXPECT_EQ(pw, sys->integer("SysWinHandle", {S(u"SET BY xdotool"), S(u"kppeerCLASS")}));
    xprop("-remove _NET_WM_NAME");
    run_on(xvfb.name(),
           "LC_ALL=C.UTF-8 xprop -id " + id + " -f WM_NAME 8t -set WM_NAME '\xC3\x89t\xC3\xA9 \xE2\x98\x83'");
    ASSERT_NE(std::string::npos, xprop("WM_NAME").find("COMPOUND_TEXT"));
    reads(u"\u00c9t\u00e9 \u2603");
    EXPECT_EQ(pw, sys->integer("SysWinHandle", {S(u"\u00e9T\u00c9 \u2603")}));

    // A title of 100,000 characters.
    const std::u16string long_title(100000, u'k');
    EXPECT_TRUE(sys->boolean("SysWinTitle", {I(pw), S(long_title)}));
    reads(long_title);
    EXPECT_EQ(0, sys->integer("SysWinHandle", {S(long_title + u"k")}));
}

TEST_F(X11, FocusAgainstXdotool) {
    const uintptr_t own = sys->host->display()->create_window(u"Own window", u"KPForm", 1);
    ASSERT_NE(0u, own);
    sys->integer("SysWinActive", {I(peer_window)});
    EXPECT_EQ(std::to_string(peer_window), xdo("getwindowfocus"));
    EXPECT_EQ(pw, sys->integer("SysWinActive"));
    EXPECT_EQ(pw, sys->integer("SysSetFocus", {I(own)}));
    EXPECT_EQ(std::to_string(own), xdo("getwindowfocus"));
    xdo("windowfocus --sync " + std::to_string(peer_window));
    EXPECT_EQ(pw, sys->integer("SysWinActive"));
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

    // Each virtual key is pressed while xdotool holds its X key, and no other (nor VK_OEM_102).
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
        for (const auto& [other, name] : keys)
            EXPECT_EQ(other == vk, sys->boolean("KeyPressed", {I(other)})) << name;
        EXPECT_EQ(vk == 0xE2, sys->boolean("KeyPressed", {I(0xE2)}));
    };
    for (const auto& [vk, key] : keys) {
        SCOPED_TRACE(key);
        xdo(std::string("keydown ") + key);
        only(vk);
        xdo(std::string("keyup ") + key);
        EXPECT_FALSE(sys->boolean("KeyPressed", {I(vk)}));
    }
    // VK_OEM_102 is the key whose unshifted symbol is "<" (not the shifted comma of a US keyboard).
    run_on(xvfb.name(), "xmodmap -e 'keysym comma = comma'");
    xdo("keydown less");
    only(0xE2);
    xdo("keyup less");
    run_on(xvfb.name(), "xmodmap -e 'keysym comma = comma less'");
    EXPECT_FALSE(sys->boolean("KeyPressed", {I(0xE2)}));
}

// Every symbol of a virtual key gives that key back (a sided modifier the generic one).
TEST(X11Keys, VirtualKeysAndKeySymbolsBothWays) {
    namespace x = kp::host::x11;
    int mapped = 0;
    for (int vk = 0; vk < 256; ++vk)
        for (unsigned long sym : x::keysyms_of_virtual_key(vk)) {
            const int generic = vk >= 0xA0 && vk <= 0xA5 ? 0x10 + (vk - 0xA0) / 2 : vk;
            EXPECT_EQ(generic, x::virtual_key_of_keysym(sym)) << std::hex << vk << " " << sym;
            ++mapped;
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
    // Once the server has destroyed the window (xwininfo no longer finds it).
    const std::string alive = "xwininfo -id " + std::to_string(peer_window) + " >/dev/null && echo alive";
    for (int k = 0; k < 1000 && run_on(xvfb.name(), alive) == "alive"; ++k)
        usleep(10000);
    std::vector<kp::test::Refusal> rows;
    for (int64_t h : std::initializer_list<int64_t>{pw, 0x12345, 1, 0}) {
        EXPECT_FALSE(sys->boolean("SysValidHandle", {I(h)})) << h;
        rows.push_back({"SysWinTitle", 0, 1400, I(h)});
        rows.push_back({"SysWinShow", 0, 1400, I(h), I(1)});
    }
    expect_refusals(*sys, rows);
    EXPECT_EQ(0, sys->integer("SysWinHandle", {S(u"Peer window")}));

    // Windows that close while lookups go on: the lookups see the others.
    Child stable, many;
    ASSERT_TRUE(start_peer(stable, {"Stable", "KPPeer"}));
    const int64_t stable_window = std::stol(stable.line());
    for (int round = 0; round < 5; ++round) {
        ASSERT_TRUE(start_peer(many, {"--many", "300", "Going"}));
        ASSERT_FALSE(many.line().empty());
        std::thread closer([&] { many.stop(); });
        for (int k = 0; k < 20; ++k)
            EXPECT_EQ(stable_window, sys->integer("SysWinHandle", {S(u"stable")}));
        closer.join();
    }
}

// A window manager's client list, active window and work area take over from the server's view.
TEST_F(X11, WindowManagerPropertiesOfTheRoot) {
    const uintptr_t own = sys->host->display()->create_window(u"Unlisted", u"KPForm", 0);
    const std::string peer = std::to_string(peer_window);
    const std::string props[][3] = {{"_NET_CLIENT_LIST", "32x", peer},
                                    {"_NET_SUPPORTING_WM_CHECK", "32x", peer},
                                    {"_NET_ACTIVE_WINDOW", "32x", peer},
                                    {"_NET_WORKAREA", "32c", "'0, 30, 800, 540'"}};
    for (const auto& [name, format, value] : props)
        run_on(xvfb.name(), "xprop -root -f " + name + " " + format + " -set " + name + " " + value);
    EXPECT_EQ(pw, sys->integer("SysWinHandle", {S(u"Peer window")}));
    EXPECT_EQ(0, sys->integer("SysWinHandle", {S(u"Unlisted")})) << "only the managed windows are listed";
    EXPECT_EQ(pw, sys->integer("SysWinActive"));
    EXPECT_EQ(540, sys->integer("SysMetric", {I(sys->constant("metCyFullScreen"))}));
    EXPECT_EQ(800, sys->integer("SysMetric", {I(sys->constant("metCxFullScreen"))}));
    for (const auto& p : props)
        run_on(xvfb.name(), "xprop -root -remove " + p[0]);
    EXPECT_EQ(static_cast<int64_t>(own), sys->integer("SysWinHandle", {S(u"Unlisted")}));
    EXPECT_EQ(600, sys->integer("SysMetric", {I(sys->constant("metCyFullScreen"))}));
}

// The icon docks in the notification area another client keeps.
TEST_F(X11, NotificationIconDocksInTheTray) {
    expect_refusals(*sys, {{"SysIconAdd", 0, 50, S(u"\\icon.ico")}}); // no notification area yet
    Child tray;
    ASSERT_TRUE(start_peer(tray, {"--tray"}));
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
    expect_refusals(*sys, {{"SysIconModify", 0, 6, S(u"\\icon.ico")}});
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

TEST_F(X11Managed, HiddenWindowsAreFoundByTitle) {
    EXPECT_EQ(pw, sys->integer("SysWinHandle", {S(u"PEER Window")}));
    EXPECT_TRUE(sys->boolean("SysWinShow", {I(peer_window), I(sys->constant("swsHide"))}));
    EXPECT_EQ("", xdo("search --onlyvisible --name '^Peer window$'"));
    EXPECT_EQ(pw, sys->integer("SysWinHandle", {S(u"Peer window")}));
    EXPECT_EQ(pw, sys->integer("SysWinHandle", {S(u"peer window"), S(u"kppeerclass")}));
    EXPECT_TRUE(sys->boolean("SysWinShow", {I(peer_window), I(sys->constant("swsVisible"))}));
    EXPECT_EQ(std::to_string(peer_window), xdo("search --sync --onlyvisible --name '^Peer window$'"));
}

// Each press and release lands where it was asked, whatever the window manager's grab does.
TEST_F(X11Managed, EachClickLandsWhereItWasAsked) {
    const std::string info = run_on(xvfb.name(), "xwininfo -id " + std::to_string(peer_window));
    int x0 = 0, y0 = 0;
    ASSERT_EQ(1, std::sscanf(info.c_str() + info.find("Absolute upper-left X:") + 22, "%d", &x0)) << info;
    ASSERT_EQ(1, std::sscanf(info.c_str() + info.find("Absolute upper-left Y:") + 22, "%d", &y0)) << info;
    const int places[][2] = {{20, 20}, {150, 100}, {40, 130}, {180, 30}, {100, 70}};
    for (int round = 0; round < 3; ++round) {
        for (const auto& p : places)
            ASSERT_TRUE(
                sys->boolean("EmulateMouse", {I(sys->constant("dmLeftClick")), I(x0 + p[0]), I(y0 + p[1])}));
        for (const auto& p : places) {
            const std::string at = std::to_string(x0 + p[0]) + " " + std::to_string(y0 + p[1]);
            EXPECT_EQ("button 1 " + at, peer.line());
            EXPECT_EQ("release 1 " + at, peer.line());
        }
    }
}

// Every character arrives in order through the client's copy of the keymap, left as it was.
TEST_F(X11Managed, EveryCharacterArrivesAndTheKeyboardIsLeftAsItWas) {
    const std::string map_before = run_on(xvfb.name(), "xmodmap -pke");
    std::u16string text = u"a\u00e9B\u20ac";
    std::vector<std::string> expected = {"key a 0", "key eacute 0", "key B 1", "key U20AC 0"};
    for (char16_t c = 0x4E00; c < 0x4E00 + 150; ++c) { // more characters than spare keys
        text.push_back(c);
        char name[16];
        std::snprintf(name, sizeof name, "key U%04X 0", static_cast<unsigned>(c));
        expected.push_back(name);
    }
    text += u"\xD83D\xDE00z\u00e9";
    expected.insert(expected.end(), {"key U0001F600 0", "key z 0", "key eacute 0"});
    EXPECT_TRUE(sys->boolean("EmulateInput", {S(text)}));
    for (const std::string& e : expected)
        ASSERT_EQ(e, peer.line());
    // The spare keys get their empty symbols back a moment after the text.
    std::string map_after;
    for (int k = 0; k < 100 && (map_after = run_on(xvfb.name(), "xmodmap -pke")) != map_before; ++k)
        usleep(50000);
    EXPECT_EQ(map_before, map_after);
}

} // namespace
