// The clipboard on an X11 display: the component (loaded by the reference
// host, DISPLAY naming the test's own Xvfb) against xclip as the other
// client, and the X11 clipboard itself against owners that misbehave and a
// display that goes away.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/clipboard.h"
#include "platform/codepage.h"
#include "platform/win32_error.h"
#include "support/test_host.h"
#include "x11_support.h"

// Xlib last: its macros (None, Status, ...) clash with names of the headers above.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

namespace {

namespace clip = kp::platform::clipboard;
using kp::host::CallStatus;
using kp::host::Value;
using Clock = std::chrono::steady_clock;

// One server for the whole binary, named by DISPLAY before the component
// first uses its clipboard.
class TestDisplay : public testing::Environment {
  public:
    void SetUp() override {
        if (!kp::test::have_program("Xvfb") || !kp::test::have_program("xclip")) return;
        server_ = std::make_unique<kp::test::Xvfb>();
        if (server_->running()) setenv("DISPLAY", server_->name().c_str(), 1);
    }
    void TearDown() override { server_.reset(); }
    static std::string name() { return server_ && server_->running() ? server_->name() : std::string(); }

  private:
    static inline std::unique_ptr<kp::test::Xvfb> server_;
};
[[maybe_unused]] testing::Environment* const kDisplay = testing::AddGlobalTestEnvironment(new TestDisplay);

#define NEED_DISPLAY()                                                                                       \
    if (TestDisplay::name().empty()) GTEST_SKIP() << "Xvfb or xclip is not installed"

std::string xclip_out(const char* target = "UTF8_STRING") {
    return kp::test::run_output(TestDisplay::name(),
                                std::string("timeout 5 xclip -o -selection clipboard -t ") + target +
                                    " 2>/dev/null");
}
// The window that owns the clipboard now.
unsigned long clipboard_owner();

// xclip takes the clipboard from a process it leaves behind: wait until it
// owns it.
int xclip_put(const std::string& arguments, const std::string& input) {
    const unsigned long before = clipboard_owner();
    const int rc = kp::test::run_input(TestDisplay::name(), "xclip -selection clipboard " + arguments, input);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (clipboard_owner() == before && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return rc;
}
void xclip_in(const std::string& data, const char* target = "UTF8_STRING") {
    xclip_put(std::string("-i -t ") + target, data);
}

std::vector<uint8_t> png(uint32_t w, uint32_t h) {
    std::vector<uint8_t> b = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
    for (uint32_t v : {w, h})
        for (int k = 3; k >= 0; --k)
            b.push_back(static_cast<uint8_t>(v >> (8 * k)));
    b.insert(b.end(),
             {8, 2, 0, 0, 0, 0x90, 0x77, 0x53, 0xDE, 0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82});
    return b;
}

struct Fixture {
    kp::test::HostFixture fx;
    kp::host::CallOutcome call(const char* name, std::vector<Value> args = {}) {
        return fx.host->call(name, args);
    }
};

TEST(X11Clipboard, TextPutByTheComponentIsReadByXclipByteForByte) {
    NEED_DISPLAY();
    Fixture f;
    struct Case {
        Value value;
        std::string utf8;
    };
    const Case cases[] = {
        {Value::string(u"plain text"), "plain text"},
        {Value::string(u"\xE9t\xE9 \x65E5\x672C \xD83D\xDE00"),
         "\xC3\xA9t\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80"},
        {Value::string(u"lines\r\nand\ttabs"), "lines\r\nand\ttabs"},
        {Value::string(u"lone \xD800 surrogate"), "lone \xEF\xBF\xBD surrogate"}, // UTF-8 cannot carry it
        {Value::string(u""), ""},
        {Value::buffer({'h', 0, 'i', 0, 0, 0, 'x', 0}), "hi"}, // bytes as Unicode text, up to the terminator
    };
    for (const Case& c : cases) {
        auto out = f.call("ToClipboard", {c.value});
        ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
        EXPECT_TRUE(out.result.b);
        EXPECT_EQ(xclip_out(), c.utf8);
        EXPECT_EQ(xclip_out("text/plain\\;charset=utf-8"), c.utf8);
        // The owner reads its own text back as it was put, lone surrogates included.
        const std::u16string own = c.value.kind == Value::Kind::String ? c.value.s : u"hi";
        EXPECT_EQ(f.call("Clipboard").result.s, own);
        EXPECT_TRUE(f.call("ClipboardFormat", {Value::integer(1)}).result.b);
        EXPECT_FALSE(f.call("ClipboardFormat", {Value::integer(2)}).result.b);
        EXPECT_EQ(f.call("ClipboardWidth").result.i, -1);
    }
    const std::string targets = xclip_out("TARGETS");
    for (const char* t : {"TARGETS", "UTF8_STRING", "text/plain;charset=utf-8"})
        EXPECT_NE(targets.find(t), std::string::npos) << t;
}

TEST(X11Clipboard, TableToClipboardServesTheTableText) {
    NEED_DISPLAY();
    Fixture f;
    auto t = std::make_shared<kp::host::TableControl>();
    t->columns = {{u"Nom", true}, {u"Qt\xE9", true}};
    t->rows = {{Value::string(u"caf\xE9"), Value::integer(2)}, {Value::string(u"th\xE9"), Value::integer(3)}};
    const Value control = Value::integer(static_cast<int64_t>(f.fx.host->add_control(t)));
    ASSERT_TRUE(f.call("TableToClipboard", {control}).result.b);
    EXPECT_EQ(xclip_out(), "Nom\tQt\xC3\xA9\r\ncaf\xC3\xA9\t2\r\nth\xC3\xA9\t3");
    ASSERT_TRUE(
        f.call("TableToClipboard", {control, Value::integer(1), Value::string(u";"), Value::string(u"\n")})
            .result.b);
    EXPECT_EQ(xclip_out(), "caf\xC3\xA9;2\nth\xC3\xA9;3");
}

TEST(X11Clipboard, TextPutByXclipIsReadByTheComponent) {
    NEED_DISPLAY();
    Fixture f;
    struct Case {
        std::string bytes;
        const char* target;
        std::u16string text;
    };
    const Case cases[] = {
        {"from xclip", "UTF8_STRING", u"from xclip"},
        {"\xC3\xBCn\xC3\xAF \xF0\x9F\x98\x80", "UTF8_STRING", u"\xFCn\xEF \xD83D\xDE00"},
        {"bad \xFF\xFE bytes \xC3", "UTF8_STRING", u"bad \xFFFD\xFFFD bytes \xFFFD"}, // not UTF-8
        {"\xED\xA0\x80 alone", "UTF8_STRING", u"\xFFFD alone"},                       // an encoded surrogate
        {"cut\0here", "UTF8_STRING", u"cut"}, // the text ends at a zero
        {"caf\xE9", "STRING", u"caf\xE9"},    // Latin-1 from an old owner
    };
    for (const Case& c : cases) {
        xclip_in(c.bytes, c.target);
        auto out = f.call("PressePapier");
        EXPECT_EQ(out.result.s, c.text) << c.bytes;
        EXPECT_EQ(out.error.severity, KP_SEVERITY_NONE);
        EXPECT_TRUE(f.call("ClipboardFormat", {Value::integer(1)}).result.b);
        EXPECT_FALSE(f.call("ClipboardFormat", {Value::integer(2)}).result.b);
    }
}

TEST(X11Clipboard, ImagesPutByXclipGiveTheirSize) {
    NEED_DISPLAY();
    Fixture f;
    const std::string dir = f.fx.dir.path().string();
    std::vector<uint8_t> bmp = {'B', 'M', 0, 0, 0, 0,  0, 0, 0, 0,    54,   0,    0,
                                0,   40,  0, 0, 0, 21, 0, 0, 0, 0xF6, 0xFF, 0xFF, 0xFF};
    bmp.resize(54, 0);
    struct Case {
        std::vector<uint8_t> bytes;
        const char* target;
        int64_t w, h;
    };
    for (const Case& c : {Case{png(640, 480), "image/png", 640, 480},
                          Case{png(1, 65535), "image/png", 1, 65535}, Case{bmp, "image/bmp", 21, 10}}) {
        const std::string file = dir + "/image";
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(c.bytes.data()),
                   static_cast<std::streamsize>(c.bytes.size()));
        ASSERT_EQ(xclip_put(std::string("-t ") + c.target + " -i " + file, ""), 0);
        EXPECT_EQ(f.call("ClipboardWidth").result.i, c.w) << c.target;
        EXPECT_EQ(f.call("PressePapierHauteur").result.i, c.h) << c.target;
        EXPECT_TRUE(f.call("ClipboardFormat", {Value::integer(2)}).result.b);
        EXPECT_FALSE(f.call("ClipboardFormat", {Value::integer(1)}).result.b);
        auto text = f.call("Clipboard");
        EXPECT_EQ(text.result.s, u"");
        EXPECT_EQ(text.error.severity, KP_SEVERITY_NONE);
    }
}

TEST(X11Clipboard, HundredMegabytesBothWays) {
    NEED_DISPLAY();
    Fixture f;
    // The component to xclip: 50 M characters, 100 MB of UTF-8, in pieces.
    const std::u16string big(50u * 1024 * 1024, u'\xE9');
    auto put = f.call("ToClipboard", {Value::string(big)});
    ASSERT_TRUE(put.result.b);
    const std::string got = xclip_out();
    EXPECT_EQ(got.size(), big.size() * 2);
    EXPECT_TRUE(got.size() == big.size() * 2 && got.find_first_not_of("\xC3\xA9") == std::string::npos &&
                got.substr(0, 2) == "\xC3\xA9");
    // xclip to the component.
    const std::string file = f.fx.dir.path().string() + "/big.txt";
    {
        std::ofstream out(file, std::ios::binary);
        const std::string line(1024 * 1024, 'x');
        for (int k = 0; k < 100; ++k)
            out << line;
    }
    ASSERT_EQ(xclip_put("-i " + file, ""), 0);
    // Read through a clipboard of the component's kind whose wait for each
    // piece is long enough for a loaded machine: xclip serves 100 MB in
    // pieces of its own pace, and the component's 2 s bound is a bound, not
    // a speed this test should measure.
    auto cb = clip::make_x11_clipboard(TestDisplay::name(), 60000);
    ASSERT_TRUE(cb);
    ASSERT_TRUE(cb->open());
    std::vector<uint8_t> block;
    EXPECT_TRUE(cb->get_data(13, block)) << kp::platform::last_error();
    EXPECT_TRUE(cb->close());
    const std::u16string text = clip::text_of_block(block);
    EXPECT_EQ(text.size(), 100u * 1024 * 1024);
    EXPECT_EQ(text.find_first_not_of(u'x'), std::u16string::npos);
}

// ---- misbehaving owners, through the clipboard object itself ------------

// A client that takes the clipboard and then never answers (or starts an
// incremental answer and stops).
class SilentOwner {
  public:
    enum class Mode { Never, IncrThenNothing };
    SilentOwner(const std::string& display, Mode mode) : mode_(mode) {
        dpy_ = XOpenDisplay(display.c_str());
        if (!dpy_) return;
        win_ = XCreateSimpleWindow(dpy_, DefaultRootWindow(dpy_), 0, 0, 1, 1, 0, 0, 0);
        const Atom clipboard = XInternAtom(dpy_, "CLIPBOARD", False);
        XSetSelectionOwner(dpy_, clipboard, win_, CurrentTime);
        XSync(dpy_, False);
        thread_ = std::thread([this] { run(); });
    }
    ~SilentOwner() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        if (dpy_) XCloseDisplay(dpy_);
    }
    bool ok() const { return dpy_ != nullptr; }

  private:
    void run() {
        const Atom incr = XInternAtom(dpy_, "INCR", False);
        while (!stop_) {
            while (XPending(dpy_)) {
                XEvent ev;
                XNextEvent(dpy_, &ev);
                if (ev.type != SelectionRequest || mode_ == Mode::Never) continue;
                const XSelectionRequestEvent& r = ev.xselectionrequest;
                const long size = 1 << 20;
                XChangeProperty(dpy_, r.requestor, r.property, incr, 32, PropModeReplace,
                                reinterpret_cast<const unsigned char*>(&size), 1);
                XEvent reply{};
                reply.xselection.type = SelectionNotify;
                reply.xselection.requestor = r.requestor;
                reply.xselection.selection = r.selection;
                reply.xselection.target = r.target;
                reply.xselection.property = r.property;
                reply.xselection.time = r.time;
                XSendEvent(dpy_, r.requestor, False, 0, &reply);
                XFlush(dpy_);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    Mode mode_;
    ::Display* dpy_ = nullptr;
    Window win_ = 0;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

TEST(X11Clipboard, AnOwnerThatNeverAnswersCostsABoundedWait) {
    NEED_DISPLAY();
    for (auto mode : {SilentOwner::Mode::Never, SilentOwner::Mode::IncrThenNothing}) {
        auto cb = clip::make_x11_clipboard(TestDisplay::name(), 300);
        ASSERT_TRUE(cb);
        SilentOwner owner(TestDisplay::name(), mode);
        ASSERT_TRUE(owner.ok());
        const auto t0 = Clock::now();
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
        EXPECT_LT(Clock::now() - t0, std::chrono::seconds(5));
        if (mode == SilentOwner::Mode::Never) {
            EXPECT_EQ(code, kp::platform::kErrorTimeout);
        }
        // Taking the clipboard back works at once.
        ASSERT_TRUE(cb->open());
        EXPECT_TRUE(cb->empty());
        EXPECT_TRUE(cb->set_data(13, clip::block_of_text(u"mine again")));
        EXPECT_TRUE(cb->close());
        EXPECT_EQ(xclip_out(), "mine again");
    }
}

TEST(X11Clipboard, TheComponentReportsATimeoutAsTheSystemError) {
    NEED_DISPLAY();
    Fixture f;
    SilentOwner owner(TestDisplay::name(), SilentOwner::Mode::Never);
    ASSERT_TRUE(owner.ok());
    const auto t0 = Clock::now();
    auto out = f.call("Clipboard");
    EXPECT_EQ(out.result.s, u"");
    EXPECT_EQ(out.error.system_code, 1460u);
    EXPECT_EQ(out.error.severity, KP_SEVERITY_ERROR);
    EXPECT_FALSE(f.call("ClipboardFormat", {Value::integer(1)}).result.b);
    EXPECT_EQ(f.call("ClipboardWidth").result.i, -1);
    EXPECT_LT(Clock::now() - t0, std::chrono::seconds(15));
}

TEST(X11Clipboard, TwoClientsOfOneDisplay) {
    NEED_DISPLAY();
    auto a = clip::make_x11_clipboard(TestDisplay::name());
    auto b = clip::make_x11_clipboard(TestDisplay::name());
    ASSERT_TRUE(a && b);
    const std::u16string text = u"\xD83D\xDE00 shared \xD800";
    ASSERT_TRUE(a->open() && a->empty() && a->set_data(13, clip::block_of_text(text)) && a->close());
    std::vector<uint8_t> got;
    ASSERT_TRUE(b->open());
    ASSERT_TRUE(b->get_data(13, got));
    b->close();
    EXPECT_EQ(clip::text_of_block(got), u"\xD83D\xDE00 shared \xFFFD");
    // The owner keeps formats that other clients are not offered.
    ASSERT_TRUE(a->open() && a->set_data(49200, std::vector<uint8_t>{1, 2, 3}));
    EXPECT_TRUE(a->is_format_available(49200));
    EXPECT_FALSE(b->is_format_available(49200));
    ASSERT_TRUE(a->get_data(49200, got));
    a->close();
    EXPECT_EQ(got, (std::vector<uint8_t>{1, 2, 3}));
    ASSERT_TRUE(b->open());
    EXPECT_FALSE(b->get_data(49200, got));
    b->close();
    // Another client taking the selection ends the first one's ownership.
    ASSERT_TRUE(b->open() && b->empty() && b->set_data(13, clip::block_of_text(u"b's")) && b->close());
    ASSERT_TRUE(a->open());
    ASSERT_TRUE(a->get_data(13, got));
    EXPECT_FALSE(a->get_data(49200, got));
    a->close();
    EXPECT_FALSE(a->is_format_available(49200));
}

TEST(X11Clipboard, ADisplayThatGoesAway) {
    NEED_DISPLAY();
    kp::test::Xvfb server;
    ASSERT_TRUE(server.running());
    auto cb = clip::make_x11_clipboard(server.name(), 500);
    ASSERT_TRUE(cb);
    ASSERT_TRUE(cb->open() && cb->empty() && cb->set_data(13, clip::block_of_text(u"soon gone")) &&
                cb->close());
    server.stop();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    std::vector<uint8_t> out;
    kp::platform::set_last_error(0);
    EXPECT_FALSE(cb->is_format_available(13));
    bool opened = cb->open();
    if (opened) { // the loss may be noticed by the first request only
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

// ---- the owner's answers, as another Xlib client asks for them ---------

// A client that converts the CLIPBOARD selection into properties of its own
// window.
class Requestor {
  public:
    struct Answer {
        bool ok = false; // the owner answered with a property
        Atom type = None;
        int format = 0;
        std::vector<long> items; // format 32
        std::string bytes;       // format 8
    };
    explicit Requestor(const std::string& display) {
        dpy_ = XOpenDisplay(display.c_str());
        if (dpy_) win_ = XCreateSimpleWindow(dpy_, DefaultRootWindow(dpy_), 0, 0, 1, 1, 0, 0, 0);
    }
    ~Requestor() {
        if (dpy_) XCloseDisplay(dpy_);
    }
    Atom atom(const char* name) { return XInternAtom(dpy_, name, False); }
    void set_atoms(Atom property, Atom type, const std::vector<Atom>& atoms) {
        std::vector<long> l(atoms.begin(), atoms.end());
        XChangeProperty(dpy_, win_, property, type, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(l.data()), static_cast<int>(l.size()));
    }
    Answer read(Atom property) {
        Answer a;
        unsigned long n = 0, after = 0;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(dpy_, win_, property, 0, 1 << 20, False, AnyPropertyType, &a.type, &a.format,
                               &n, &after, &data) == Success &&
            data) {
            if (a.format == 32)
                a.items.assign(reinterpret_cast<long*>(data), reinterpret_cast<long*>(data) + n);
            if (a.format == 8) a.bytes.assign(reinterpret_cast<char*>(data), n);
            a.ok = a.type != None;
        }
        if (data) XFree(data);
        return a;
    }
    // Converts `target` into `property` (None: an obsolete request).
    Answer convert(const char* target, Atom property) {
        XConvertSelection(dpy_, atom("CLIPBOARD"), atom(target), property, win_, CurrentTime);
        XFlush(dpy_);
        const auto deadline = Clock::now() + std::chrono::seconds(5);
        while (Clock::now() < deadline) {
            XEvent ev;
            if (XCheckTypedWindowEvent(dpy_, win_, SelectionNotify, &ev)) {
                if (ev.xselection.property == None) return {};
                return read(ev.xselection.property);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return {};
    }

  private:
    ::Display* dpy_ = nullptr;
    Window win_ = 0;
};

TEST(X11Clipboard, TheOwnerAnswersTimestampMultipleAndLatin1) {
    NEED_DISPLAY();
    auto cb = clip::make_x11_clipboard(TestDisplay::name());
    ASSERT_TRUE(cb);
    const std::u16string text = u"\xE9t\xE9 \x65E5 \xD83D\xDE00 end";
    ASSERT_TRUE(cb->open() && cb->empty() && cb->set_data(13, clip::block_of_text(text)) && cb->close());
    EXPECT_EQ(xclip_out("STRING"), "\xE9t\xE9 ? ? end") << "Latin-1, one '?' a character outside it";
    Requestor r(TestDisplay::name());
    const Atom p = r.atom("KP_TEST"), list = r.atom("KP_LIST");
    const Requestor::Answer targets = r.convert("TARGETS", p);
    for (const char* t : {"TIMESTAMP", "MULTIPLE", "STRING", "UTF8_STRING"})
        EXPECT_NE(std::count(targets.items.begin(), targets.items.end(), static_cast<long>(r.atom(t))), 0)
            << t;
    const Requestor::Answer stamp = r.convert("TIMESTAMP", p);
    ASSERT_TRUE(stamp.ok);
    EXPECT_EQ(stamp.type, r.atom("INTEGER"));
    ASSERT_EQ(stamp.items.size(), 1u);
    EXPECT_NE(stamp.items[0], 0) << "the time the selection was taken, not CurrentTime";
    // MULTIPLE: each pair converted on its own; a pair that fails gets None.
    const Atom p1 = r.atom("KP_P1"), p2 = r.atom("KP_P2"), p3 = r.atom("KP_P3"), p4 = r.atom("KP_P4");
    r.set_atoms(
        list, r.atom("ATOM_PAIR"),
        {r.atom("UTF8_STRING"), p1, r.atom("STRING"), p2, r.atom("image/png"), p3, r.atom("TIMESTAMP"), p4});
    const Requestor::Answer multiple = r.convert("MULTIPLE", list);
    ASSERT_TRUE(multiple.ok);
    EXPECT_EQ(multiple.items,
              (std::vector<long>{static_cast<long>(r.atom("UTF8_STRING")), static_cast<long>(p1),
                                 static_cast<long>(r.atom("STRING")), static_cast<long>(p2),
                                 static_cast<long>(r.atom("image/png")), 0,
                                 static_cast<long>(r.atom("TIMESTAMP")), static_cast<long>(p4)}));
    EXPECT_EQ(r.read(p1).bytes, kp::platform::to_utf8(text));
    EXPECT_EQ(r.read(p2).bytes, "\xE9t\xE9 ? ? end");
    EXPECT_FALSE(r.read(p3).ok);
    EXPECT_EQ(r.read(p4).items, stamp.items);
    EXPECT_FALSE(r.convert("MULTIPLE", None).ok) << "MULTIPLE needs its property";
}

// A clipboard manager (the freedesktop protocol): it owns CLIPBOARD_MANAGER,
// and asked for SAVE_TARGETS it converts the clipboard's UTF8_STRING, takes
// the clipboard and serves the text it kept; a silent one never answers.
class ClipboardManager {
  public:
    ClipboardManager(const std::string& display, bool answers) : answers_(answers) {
        dpy_ = XOpenDisplay(display.c_str());
        if (!dpy_) return;
        win_ = XCreateSimpleWindow(dpy_, DefaultRootWindow(dpy_), 0, 0, 1, 1, 0, 0, 0);
        XSetSelectionOwner(dpy_, XInternAtom(dpy_, "CLIPBOARD_MANAGER", False), win_, CurrentTime);
        XSync(dpy_, False);
        thread_ = std::thread([this] { run(); });
    }
    ~ClipboardManager() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        if (dpy_) XCloseDisplay(dpy_);
    }
    bool ok() const { return dpy_ != nullptr; }

  private:
    void reply(const XSelectionRequestEvent& r, Atom property) {
        XEvent out{};
        out.xselection.type = SelectionNotify;
        out.xselection.requestor = r.requestor;
        out.xselection.selection = r.selection;
        out.xselection.target = r.target;
        out.xselection.property = property;
        out.xselection.time = r.time;
        XSendEvent(dpy_, r.requestor, False, 0, &out);
        XFlush(dpy_);
    }
    void run() {
        const Atom clipboard = XInternAtom(dpy_, "CLIPBOARD", False),
                   save = XInternAtom(dpy_, "SAVE_TARGETS", False),
                   utf8 = XInternAtom(dpy_, "UTF8_STRING", False), kept = XInternAtom(dpy_, "KP_KEPT", False);
        XSelectionRequestEvent pending{};
        std::string text;
        while (!stop_) {
            while (XPending(dpy_)) {
                XEvent ev;
                XNextEvent(dpy_, &ev);
                if (ev.type == SelectionRequest && ev.xselectionrequest.target == save && answers_) {
                    pending = ev.xselectionrequest;
                    XConvertSelection(dpy_, clipboard, utf8, kept, win_, CurrentTime);
                    XFlush(dpy_);
                } else if (ev.type == SelectionNotify && ev.xselection.selection == clipboard &&
                           pending.requestor) {
                    Atom type;
                    int format;
                    unsigned long n, after;
                    unsigned char* data = nullptr;
                    XGetWindowProperty(dpy_, win_, kept, 0, 1 << 20, True, AnyPropertyType, &type, &format,
                                       &n, &after, &data);
                    if (data) text.assign(reinterpret_cast<char*>(data), n), XFree(data);
                    XSetSelectionOwner(dpy_, clipboard, win_, CurrentTime);
                    reply(pending, pending.property);
                    pending.requestor = 0;
                } else if (ev.type == SelectionRequest && ev.xselectionrequest.selection == clipboard &&
                           ev.xselectionrequest.target == utf8) {
                    const XSelectionRequestEvent& r = ev.xselectionrequest;
                    XChangeProperty(dpy_, r.requestor, r.property, utf8, 8, PropModeReplace,
                                    reinterpret_cast<const unsigned char*>(text.data()),
                                    static_cast<int>(text.size()));
                    reply(r, r.property);
                } else if (ev.type == SelectionRequest && ev.xselectionrequest.target != save) {
                    reply(ev.xselectionrequest, None);
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    bool answers_;
    ::Display* dpy_ = nullptr;
    Window win_ = 0;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

TEST(X11Clipboard, TextOutlivesItsOwnerThroughTheClipboardManager) {
    NEED_DISPLAY();
    const std::u16string text = u"kept \xE9t\xE9 \xD83D\xDE00";
    for (bool answers : {true, false}) {
        SCOPED_TRACE(answers ? "a manager that answers" : "a manager that never answers");
        ClipboardManager manager(TestDisplay::name(), answers);
        ASSERT_TRUE(manager.ok());
        auto cb = clip::make_x11_clipboard(TestDisplay::name(), 300);
        ASSERT_TRUE(cb);
        ASSERT_TRUE(cb->open() && cb->empty() && cb->set_data(13, clip::block_of_text(text)) && cb->close());
        const auto t0 = Clock::now();
        cb.reset();
        EXPECT_LT(Clock::now() - t0, std::chrono::seconds(5));
        if (answers) {
            EXPECT_EQ(xclip_out(), kp::platform::to_utf8(text));
        }
    }
}

// The thread's wake-up descriptor cannot be made (no descriptor left): no
// clipboard (the device store serves instead), rather than one whose calls
// wait for a thread that never wakes.
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

unsigned long clipboard_owner() {
    ::Display* d = XOpenDisplay(TestDisplay::name().c_str());
    if (!d) return 0;
    const unsigned long owner = XGetSelectionOwner(d, XInternAtom(d, "CLIPBOARD", False));
    XCloseDisplay(d);
    return owner;
}

} // namespace
