// The clipboard on the test's own Xvfb: the component against xclip, and the X11 clipboard
// against Xlib clients (misbehaving owners, a requestor, a clipboard manager, a lost display).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "clipboard/clipboard_util.h"
#include "platform/clipboard.h"
#include "platform/codepage.h"
#include "platform/win32_error.h"
#include "support/test_host.h"
#include "system/xvfb.h"

// Xlib last: its macros (None, Status, ...) clash with names of the headers above.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

namespace {

namespace clip = kp::platform::clipboard;
using kp::host::Value;
using kp::test::put;
using kp::test::take;
using Fixture = kp::test::ClipboardHost;

// One server for the binary, in DISPLAY before the component first uses its clipboard.
class TestDisplay : public testing::Environment {
  public:
    void SetUp() override {
        if (std::system("command -v xclip >/dev/null 2>&1") != 0 || !server_.start("320x240x24")) return;
        name_ = server_.name();
        setenv("DISPLAY", name_.c_str(), 1);
    }
    void TearDown() override { server_.stop(); }
    static const std::string& name() { return name_; }

  private:
    static inline kp::test::Xvfb server_;
    static inline std::string name_;
};
[[maybe_unused]] testing::Environment* const kDisplay = testing::AddGlobalTestEnvironment(new TestDisplay);

#define NEED_DISPLAY()                                                                                       \
    if (TestDisplay::name().empty()) GTEST_SKIP() << "Xvfb or xclip is not installed"

// xclip's copy of the clipboard as `target`, byte for byte.
std::string xclip_out(const std::string& target = "UTF8_STRING") {
    return kp::test::run_on(TestDisplay::name(), "timeout 5 xclip -o -selection clipboard -t " + target,
                            true);
}

// The window that owns the clipboard now.
unsigned long clipboard_owner() {
    ::Display* d = XOpenDisplay(TestDisplay::name().c_str());
    if (!d) return 0;
    const unsigned long owner = XGetSelectionOwner(d, XInternAtom(d, "CLIPBOARD", False));
    XCloseDisplay(d);
    return owner;
}

// xclip takes the clipboard as `target` in a process left behind; waits until it owns it.
void xclip_in(const std::string& data, const std::string& target = "UTF8_STRING") {
    static kp::test::TempDir dir;
    const std::string file = (dir.path() / "in").string();
    std::ofstream(file, std::ios::binary) << data;
    const unsigned long before = clipboard_owner();
    kp::test::run_on(TestDisplay::name(),
                     "xclip -selection clipboard -t '" + target + "' -i " + file + " >/dev/null");
    for (int k = 0; k < 1000 && clipboard_owner() == before; ++k)
        usleep(5000);
}

TEST(X11Clipboard, TextPutByTheComponentIsReadByXclipByteForByte) {
    NEED_DISPLAY();
    Fixture f;
    const std::pair<std::u16string, std::string> cases[] = {
        {u"plain text", "plain text"},
        {u"\xE9t\xE9 \x65E5\x672C \xD83D\xDE00",
         "\xC3\xA9t\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80"},
        {u"lines\r\nand\ttabs", "lines\r\nand\ttabs"},
        {u"lone \xD800 surrogate", "lone \xEF\xBF\xBD surrogate"}, // UTF-8 cannot carry it
        {u"", ""}};
    for (const auto& [text, utf8] : cases) {
        ASSERT_TRUE(f.call("ToClipboard", {Value::string(text)}).result.b);
        EXPECT_EQ(xclip_out(), utf8);
        EXPECT_EQ(xclip_out("text/plain\\;charset=utf-8"), utf8);
        // The owner reads its own text back as it was put, lone surrogates included.
        EXPECT_EQ(f.call("Clipboard").result.s, text);
        EXPECT_EQ(f.shown(), "1 1 0 -1x-1");
    }
}

TEST(X11Clipboard, TextAndImagesPutByXclipAreReadByTheComponent) {
    NEED_DISPLAY();
    Fixture f;
    auto str = [](const std::vector<uint8_t>& b) { return std::string(b.begin(), b.end()); };
    const char* text_shown = "1 1 0 -1x-1";
    const std::tuple<std::string, const char*, std::u16string, const char*> cases[] = {
        {"from xclip", "UTF8_STRING", u"from xclip", text_shown},
        {"\xC3\xBCn\xC3\xAF \xF0\x9F\x98\x80", "UTF8_STRING", u"\xFCn\xEF \xD83D\xDE00", text_shown},
        {"bad \xFF\xFE bytes \xC3", "UTF8_STRING", u"bad \xFFFD\xFFFD bytes \xFFFD", text_shown}, // not UTF-8
        {"\xED\xA0\x80 alone", "UTF8_STRING", u"\xFFFD alone", text_shown}, // an encoded surrogate
        {std::string("cut\0here", 8), "UTF8_STRING", u"cut", text_shown},   // the text ends at a zero
        {"caf\xE9", "STRING", u"caf\xE9", text_shown},                      // Latin-1 from an old owner
        {str(kp::test::png_header(640, 480)), "image/png", u"", "0 0 1 640x480"},
        {str(kp::test::png_header(1, 65535)), "image/png", u"", "0 0 1 1x65535"},
        {str(kp::test::dib_header(21, -10, true)), "image/bmp", u"", "0 0 1 21x10"}};
    for (const auto& [bytes, target, text, shown] : cases) {
        xclip_in(bytes, target);
        auto out = f.call("PressePapier");
        EXPECT_EQ(std::tie(out.result.s, out.error.severity), std::make_tuple(text, KP_SEVERITY_NONE))
            << bytes;
        EXPECT_EQ(f.shown(), shown) << target;
    }
}

TEST(X11Clipboard, HundredMegabytesBothWays) {
    NEED_DISPLAY();
    Fixture f;
    // The component to xclip: 50 M characters, 100 MB of UTF-8, in pieces.
    const std::u16string big(50u * 1024 * 1024, u'\xE9');
    ASSERT_TRUE(f.call("ToClipboard", {Value::string(big)}).result.b);
    const std::string got = xclip_out();
    EXPECT_TRUE(got.size() == big.size() * 2 && got.find_first_not_of("\xC3\xA9") == std::string::npos &&
                got.compare(0, 2, "\xC3\xA9") == 0)
        << got.size();
    // xclip to the component.
    xclip_in(std::string(100u * 1024 * 1024, 'x'));
    // A 60 s wait for each piece: the component's 2 s bound is no speed for a loaded machine.
    auto cb = clip::make_x11_clipboard(TestDisplay::name(), 60000);
    ASSERT_TRUE(cb);
    std::vector<uint8_t> block;
    EXPECT_TRUE(take(*cb, 13, block)) << kp::platform::last_error();
    const std::u16string text = clip::text_of_block(block);
    EXPECT_TRUE(text.size() == 100u * 1024 * 1024 && text.find_first_not_of(u'x') == std::u16string::npos)
        << text.size();
}

// Answers that come while the clipboard's thread is flushing its own requests are read by Xlib
// then, into its queue: the thread must handle them before it waits on the connection again.
// xclip answers at once, so over many reads some answers land in that moment.
TEST(X11Clipboard, AnswersThatArriveDuringAFlushAreNotLeftWaiting) {
    NEED_DISPLAY();
    xclip_in("quick answer");
    // A waiting answer would end its read with 1460 after this bound, not with slowness.
    auto cb = clip::make_x11_clipboard(TestDisplay::name(), 30000);
    ASSERT_TRUE(cb);
    std::vector<uint8_t> block;
    int read = 0;
    for (; read < 5000 && take(*cb, 13, block) && clip::text_of_block(block) == u"quick answer"; ++read) {}
    EXPECT_EQ(read, 5000) << kp::platform::last_error();
}

// ---- other Xlib clients ----------------------------------------------

// A client with a window, owning `owns` if given; a thread hands `handler` every event.
class XClient {
  public:
    using Handler = std::function<void(XClient&, const XEvent&)>;
    explicit XClient(const char* owns = nullptr, Handler handler = {}) {
        dpy = XOpenDisplay(TestDisplay::name().c_str());
        if (!dpy) return;
        win = XCreateSimpleWindow(dpy, DefaultRootWindow(dpy), 0, 0, 1, 1, 0, 0, 0);
        if (owns) XSetSelectionOwner(dpy, atom(owns), win, CurrentTime);
        XSync(dpy, False);
        if (handler)
            thread_ = std::thread([this, handler] {
                for (XEvent ev; !stop_; std::this_thread::sleep_for(std::chrono::milliseconds(5)))
                    while (XPending(dpy)) {
                        XNextEvent(dpy, &ev);
                        handler(*this, ev);
                    }
            });
    }
    ~XClient() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        if (dpy) XCloseDisplay(dpy);
    }
    Atom atom(const char* name) { return XInternAtom(dpy, name, False); }
    // Tells the requestor of `r` that its answer is in `property` (None: refused).
    void reply(const XSelectionRequestEvent& r, Atom property) {
        XEvent out{};
        out.xselection = {SelectionNotify, 0,        True,     dpy,   r.requestor,
                          r.selection,     r.target, property, r.time};
        XSendEvent(dpy, r.requestor, False, 0, &out);
        XFlush(dpy);
    }
    ::Display* dpy = nullptr;
    Window win = 0;

  private:
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// An owner that never answers, or one that starts an incremental answer and stops.
std::unique_ptr<XClient> silent_owner(bool incremental) {
    if (!incremental) return std::make_unique<XClient>("CLIPBOARD");
    return std::make_unique<XClient>("CLIPBOARD", [](XClient& c, const XEvent& ev) {
        if (ev.type != SelectionRequest) return;
        const XSelectionRequestEvent& r = ev.xselectionrequest;
        const long size = 1 << 20;
        XChangeProperty(c.dpy, r.requestor, r.property, c.atom("INCR"), 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(&size), 1);
        c.reply(r, r.property);
    });
}

TEST(X11Clipboard, AnOwnerThatNeverAnswersGivesATimeout) {
    NEED_DISPLAY();
    for (bool incremental : {false, true}) {
        auto cb = clip::make_x11_clipboard(TestDisplay::name(), 300);
        ASSERT_TRUE(cb);
        const auto owner = silent_owner(incremental);
        ASSERT_TRUE(owner->dpy);
        kp::platform::set_last_error(0);
        EXPECT_FALSE(cb->is_format_available(13));
        const uint32_t code = kp::platform::last_error();
        ASSERT_TRUE(cb->open());
        std::vector<uint8_t> out;
        EXPECT_FALSE(cb->get_data(13, out));
        EXPECT_EQ(kp::platform::last_error(), kp::platform::kErrorTimeout);
        int32_t w, h;
        EXPECT_FALSE(cb->bitmap_size(w, h));
        EXPECT_TRUE(cb->close());
        EXPECT_EQ(incremental ? kp::platform::kErrorTimeout : code, kp::platform::kErrorTimeout);
        // Taking the clipboard back works at once.
        EXPECT_TRUE(put(*cb, 13, clip::block_of_text(u"mine again")));
        EXPECT_EQ(xclip_out(), "mine again");
    }
}

// What one client puts the other reads; a private format stays with the owner.
TEST(X11Clipboard, TwoClientsOfOneDisplay) {
    NEED_DISPLAY();
    auto a = clip::make_x11_clipboard(TestDisplay::name()), b = clip::make_x11_clipboard(TestDisplay::name());
    ASSERT_TRUE(a && b);
    std::vector<uint8_t> got;
    ASSERT_TRUE(put(*a, 13, clip::block_of_text(u"a's")) && a->open() &&
                a->set_data(49200, std::vector<uint8_t>{1, 2, 3}));
    EXPECT_TRUE(a->is_format_available(49200));
    EXPECT_FALSE(b->is_format_available(49200));
    ASSERT_TRUE(a->get_data(49200, got) && a->close());
    EXPECT_EQ(got, (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_FALSE(take(*b, 49200, got));
    EXPECT_TRUE(take(*b, 13, got));
    EXPECT_EQ(clip::text_of_block(got), u"a's");
    // Another client taking the selection ends the first one's ownership.
    ASSERT_TRUE(put(*b, 13, clip::block_of_text(u"b's")));
    EXPECT_TRUE(take(*a, 13, got));
    EXPECT_EQ(clip::text_of_block(got), u"b's");
    EXPECT_FALSE(take(*a, 49200, got) || a->is_format_available(49200));
}

TEST(X11Clipboard, ADisplayThatGoesAway) {
    NEED_DISPLAY();
    kp::test::Xvfb server;
    ASSERT_TRUE(server.start("320x240x24"));
    auto cb = clip::make_x11_clipboard(server.name(), 500);
    ASSERT_TRUE(cb);
    ASSERT_TRUE(put(*cb, 13, clip::block_of_text(u"soon gone")));
    server.stop();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    std::vector<uint8_t> out;
    kp::platform::set_last_error(0);
    EXPECT_FALSE(cb->is_format_available(13));
    if (cb->open()) { // the loss may be noticed by the first request only
        EXPECT_FALSE(cb->get_data(13, out));
        EXPECT_EQ(kp::platform::last_error(), clip::kErrorNotReady);
        cb->close();
    }
    EXPECT_FALSE(cb->open());
    EXPECT_EQ(kp::platform::last_error(), clip::kErrorNotReady);
    // A display that cannot be reached at all gives no clipboard.
    EXPECT_EQ(clip::make_x11_clipboard(":59999"), nullptr);
    EXPECT_EQ(kp::platform::last_error(), clip::kErrorNotReady);
}

// The owner's answer to a requestor converting CLIPBOARD into a property of its window.
struct Answer {
    bool ok = false; // the owner answered with a property
    Atom type = None;
    std::vector<long> items; // format 32
    std::string bytes;       // format 8
};
Answer read(XClient& r, Atom property) {
    Answer a;
    int format = 0;
    unsigned long n = 0, after = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(r.dpy, r.win, property, 0, 1 << 20, False, AnyPropertyType, &a.type, &format, &n,
                           &after, &data) == Success &&
        data) {
        if (format == 32) a.items.assign(reinterpret_cast<long*>(data), reinterpret_cast<long*>(data) + n);
        if (format == 8) a.bytes.assign(reinterpret_cast<char*>(data), n);
        a.ok = a.type != None;
    }
    if (data) XFree(data);
    return a;
}
// Converts `target` into `property` (None: an obsolete request), with a safety deadline.
Answer convert(XClient& r, const char* target, Atom property) {
    XConvertSelection(r.dpy, r.atom("CLIPBOARD"), r.atom(target), property, r.win, CurrentTime);
    XFlush(r.dpy);
    for (int k = 0; k < 5000; ++k, usleep(2000)) {
        XEvent ev;
        if (XCheckTypedWindowEvent(r.dpy, r.win, SelectionNotify, &ev))
            return ev.xselection.property == None ? Answer{} : read(r, ev.xselection.property);
    }
    return {};
}

TEST(X11Clipboard, TheOwnerAnswersTimestampMultipleAndLatin1) {
    NEED_DISPLAY();
    auto cb = clip::make_x11_clipboard(TestDisplay::name());
    ASSERT_TRUE(cb);
    const std::u16string text = u"\xE9t\xE9 \x65E5 \xD83D\xDE00 end";
    ASSERT_TRUE(put(*cb, 13, clip::block_of_text(text)));
    EXPECT_EQ(xclip_out("STRING"), "\xE9t\xE9 ? ? end") << "Latin-1, one '?' a character outside it";
    XClient r;
    ASSERT_TRUE(r.dpy);
    const Atom p = r.atom("KP_TEST"), list = r.atom("KP_LIST");
    const Answer targets = convert(r, "TARGETS", p);
    for (const char* t : {"TIMESTAMP", "MULTIPLE", "STRING", "UTF8_STRING"})
        EXPECT_NE(std::count(targets.items.begin(), targets.items.end(), static_cast<long>(r.atom(t))), 0)
            << t;
    const Answer stamp = convert(r, "TIMESTAMP", p);
    ASSERT_EQ(stamp.type, r.atom("INTEGER"));
    ASSERT_EQ(stamp.items.size(), 1u);
    EXPECT_NE(stamp.items[0], 0) << "the time the selection was taken, not CurrentTime";
    // MULTIPLE: each pair converted on its own; a pair that fails gets None.
    std::vector<long> pairs;
    for (const char* a :
         {"UTF8_STRING", "KP_P1", "STRING", "KP_P2", "image/png", "KP_P3", "TIMESTAMP", "KP_P4"})
        pairs.push_back(static_cast<long>(r.atom(a)));
    XChangeProperty(r.dpy, r.win, list, r.atom("ATOM_PAIR"), 32, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(pairs.data()), static_cast<int>(pairs.size()));
    const Answer multiple = convert(r, "MULTIPLE", list);
    ASSERT_TRUE(multiple.ok);
    pairs[5] = None;
    EXPECT_EQ(multiple.items, pairs);
    EXPECT_EQ(read(r, r.atom("KP_P1")).bytes, kp::platform::to_utf8(text));
    EXPECT_EQ(read(r, r.atom("KP_P2")).bytes, "\xE9t\xE9 ? ? end");
    EXPECT_FALSE(read(r, r.atom("KP_P3")).ok);
    EXPECT_EQ(read(r, r.atom("KP_P4")).items, stamp.items);
    EXPECT_FALSE(convert(r, "MULTIPLE", None).ok) << "MULTIPLE needs its property";
}

// A freedesktop clipboard manager: on SAVE_TARGETS it takes the text and the clipboard.
std::unique_ptr<XClient> clipboard_manager(bool answers) {
    return std::make_unique<XClient>("CLIPBOARD_MANAGER", [answers, pending = XSelectionRequestEvent{},
                                                           text = std::string()](XClient& c,
                                                                                 const XEvent& ev) mutable {
        const Atom clipboard = c.atom("CLIPBOARD"), save = c.atom("SAVE_TARGETS"),
                   utf8 = c.atom("UTF8_STRING"), kept = c.atom("KP_KEPT");
        const XSelectionRequestEvent& r = ev.xselectionrequest;
        if (ev.type == SelectionRequest && r.target == save && answers) {
            pending = r;
            XConvertSelection(c.dpy, clipboard, utf8, kept, c.win, CurrentTime);
            XFlush(c.dpy);
        } else if (ev.type == SelectionNotify && ev.xselection.selection == clipboard && pending.requestor) {
            text = read(c, kept).bytes;
            XSetSelectionOwner(c.dpy, clipboard, c.win, CurrentTime);
            c.reply(pending, pending.property);
            pending.requestor = 0;
        } else if (ev.type == SelectionRequest && r.selection == clipboard && r.target == utf8) {
            XChangeProperty(c.dpy, r.requestor, r.property, utf8, 8, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(text.data()),
                            static_cast<int>(text.size()));
            c.reply(r, r.property);
        } else if (ev.type == SelectionRequest && r.target != save) {
            c.reply(r, None);
        }
    });
}

TEST(X11Clipboard, TextOutlivesItsOwnerThroughTheClipboardManager) {
    NEED_DISPLAY();
    const std::u16string text = u"kept \xE9t\xE9 \xD83D\xDE00";
    for (bool answers : {true, false}) {
        SCOPED_TRACE(answers ? "a manager that answers" : "a manager that never answers");
        const auto manager = clipboard_manager(answers);
        ASSERT_TRUE(manager->dpy);
        auto cb = clip::make_x11_clipboard(TestDisplay::name(), 300);
        ASSERT_TRUE(cb);
        ASSERT_TRUE(put(*cb, 13, clip::block_of_text(text)));
        cb.reset(); // returns, whether the manager answers or not
        EXPECT_EQ(answers ? xclip_out() : "", answers ? kp::platform::to_utf8(text) : "");
    }
}

// No descriptor left for the thread's wake-up: no clipboard, not one whose calls never return.
TEST(X11Clipboard, NoDescriptorForTheThreadGivesNoClipboard) {
    NEED_DISPLAY();
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
    rlimit low = old;
    low.rlim_cur = std::min<rlim_t>(old.rlim_cur, 1024);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    std::vector<int> fds;
    for (int fd; (fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
        fds.push_back(fd);
    ::close(fds.back()); // one left: the display's connection takes it
    fds.pop_back();
    kp::platform::set_last_error(0);
    std::unique_ptr<clip::Clipboard> cb = clip::make_x11_clipboard(TestDisplay::name(), 300);
    const uint32_t code = kp::platform::last_error();
    for (int fd : fds)
        ::close(fd);
    setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_EQ(cb, nullptr);
    EXPECT_NE(code, 0u);
    if (cb) (void)cb.release(); // its calls would never return: left alone
}

} // namespace
