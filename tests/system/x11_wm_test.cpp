// The display over X11 with a window manager (openbox) on the test's own
// Xvfb, against xdotool, xmodmap and the suite's kp_x11_peer: hidden
// windows found by title, clicks that land where they were asked, text typed
// character for character with the keyboard map left as it was.
#include <cstdio>

#include "system_fixture.h"
#include "xvfb.h"

using kp::test::Child;
using kp::test::I;
using kp::test::run_on;
using kp::test::S;

namespace {

struct X11Managed : ::testing::Test {
    static inline kp::test::Xvfb xvfb;
    static inline kp::test::Child wm;
    static inline bool started = false;
    static void SetUpTestSuite() {
        if (std::system("command -v openbox >/dev/null 2>&1") != 0 || !xvfb.start()) return;
        wm.start({"openbox", "--sm-disable"}, {"DISPLAY=" + xvfb.name()}, true);
        for (int k = 0; k < 500 && !started; ++k) {
            started = run_on(xvfb.name(), "xprop -root _NET_SUPPORTING_WM_CHECK").find("window id") !=
                      std::string::npos;
            if (!started) usleep(10000);
        }
        // Openbox names itself before it manages new windows: a first window
        // mapped in between stays unmanaged.  A throwaway peer, started again
        // until the manager takes it, makes the first test's window a
        // window like the others.
        for (int attempt = 0; started && attempt < 10; ++attempt) {
            Child probe;
            if (!probe.start(kp::test::target_command({KP120_X11_PEER, "Probe", "KPProbeClass"}),
                             {"DISPLAY=" + xvfb.name()}) ||
                managed(std::stoul(probe.line()), 40))
                break;
        }
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
    static void TearDownTestSuite() {
        wm.stop();
        xvfb.stop();
    }

    std::unique_ptr<kp::test::SystemHost> sys;
    kp::test::Child peer;
    uintptr_t peer_window = 0;

    void SetUp() override {
        if (!started) GTEST_SKIP() << "openbox is not installed or did not start";
        sys = std::make_unique<kp::test::SystemHost>("x11:" + xvfb.name());
        ASSERT_TRUE(peer.start(kp::test::target_command({KP120_X11_PEER, "Managed peer", "KPPeerClass"}),
                               {"DISPLAY=" + xvfb.name()}));
        peer_window = std::stoul(peer.line());
        ASSERT_TRUE(managed(peer_window, 200)) << "openbox did not manage the peer's window";
        xdo("windowactivate --sync " + std::to_string(peer_window));
    }
    // xdotool, its waits (--sync) bounded.
    std::string xdo(const std::string& args) { return run_on(xvfb.name(), "timeout 10 xdotool " + args); }
};

TEST_F(X11Managed, HiddenWindowsAreFoundByTitle) {
    EXPECT_EQ(static_cast<int64_t>(peer_window), sys->integer("SysWinHandle", {S(u"MANAGED Peer")}));
    EXPECT_TRUE(sys->boolean("SysWinShow", {I(peer_window), I(sys->constant("swsHide"))}));
    EXPECT_EQ("", xdo("search --onlyvisible --name '^Managed peer$'"));
    EXPECT_EQ(static_cast<int64_t>(peer_window), sys->integer("SysWinHandle", {S(u"Managed peer")}));
    EXPECT_EQ(static_cast<int64_t>(peer_window),
              sys->integer("SysWinHandle", {S(u"managed peer"), S(u"kppeerclass")}));
    EXPECT_TRUE(sys->boolean("SysWinShow", {I(peer_window), I(sys->constant("swsVisible"))}));
    EXPECT_EQ(std::to_string(peer_window), xdo("search --sync --onlyvisible --name '^Managed peer$'"));
}

// Clicks at different places, one after the other: each press and its
// release at the place asked, whatever the window manager's grab does.
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

// Every character arrives, in order, as the receiving client reads it with
// its own copy of the keyboard map; the map is the same before and after.
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
