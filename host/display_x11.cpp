// display_x11.cpp - the display over X11: Xlib for windows and properties,
// XTest for synthetic keys and clicks, XRandR for the screen's size and
// rotation, DPMS for the screen's power, and the EWMH root properties
// (_NET_CLIENT_LIST, _NET_ACTIVE_WINDOW, _NET_WORKAREA) with the windows'
// _NET_WM_NAME, so that the windows of every client are seen.
//
// Window lookup by title keeps the titles of every listed window over a
// second connection (XCB) that follows their changes, so that a thousand
// windows cost one round trip.  As Win32's window search, it compares titles
// and classes without regard to case and finds hidden windows too.  A title
// is _NET_WM_NAME, else WM_NAME, read by one reader whatever the property's
// encoding (UTF8_STRING, STRING, COMPOUND_TEXT).  Every Xlib call runs under one mutex; X protocol errors
// (a window that closed in between) are trapped and turn into failures, and
// a display that goes away marks the object dead: every later operation
// fails at once.
// The host's headers come first: Xlib's macros (None, Bool) and its
// Display type would otherwise collide with their names.
#include "display.h"
#include "host.h"
// clang-format off
#include <X11/Xlib.h>
#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/Xrandr.h>
#include <X11/extensions/dpms.h>
#include <xcb/xcb.h>
// clang-format on

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <system_error>
#include <thread>
#include <unordered_map>

#include "x11_keyboard.h"
#include "x11_keys.h"
#include "x11_titles.h"

namespace kp::host {

namespace {

// X protocol errors of the calls made under a Trap.
std::atomic<int> g_x_error{0};
int on_x_error(::Display*, XErrorEvent* e) {
    g_x_error = e->error_code ? e->error_code : 1;
    return 0;
}
int on_io_error(::Display*) {
    return 0; // the exit handler below decides what happens
}

std::string to8(std::u16string_view s) {
    return utf8(s);
}

// True when `s` is well-formed UTF-8 (shortest forms, no surrogates).
bool valid_utf8(std::string_view s) {
    for (std::size_t i = 0; i < s.size();) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        const int n = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : -1;
        if (n < 0 || i + n >= s.size() + (n == 0 ? 1 : 0)) return false;
        uint32_t cp = n == 0 ? c : c & (0x3F >> n);
        for (int k = 1; k <= n; ++k) {
            const unsigned char d = static_cast<unsigned char>(s[i + k]);
            if ((d & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (d & 0x3F);
        }
        if ((n == 1 && cp < 0x80) || (n == 2 && (cp < 0x800 || (cp >= 0xD800 && cp < 0xE000))) ||
            (n == 3 && (cp < 0x10000 || cp > 0x10FFFF)))
            return false;
        i += n + 1;
    }
    return true;
}

std::string latin1_to_utf8(std::string_view s) {
    std::string out;
    for (unsigned char c : s) {
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return out;
}

class X11Display final : public Display {
  public:
    X11Display(::Display* dpy, xcb_connection_t* xcb) : dpy_(dpy) {
        root_ = DefaultRootWindow(dpy_);
        screen_ = DefaultScreen(dpy_);
        XSetIOErrorExitHandler(dpy_, &X11Display::on_exit, this);
        const char* names[] = {"_NET_CLIENT_LIST",
                               "_NET_ACTIVE_WINDOW",
                               "_NET_WM_NAME",
                               "_NET_WORKAREA",
                               "UTF8_STRING",
                               "_NET_WM_STATE",
                               "_NET_WM_STATE_MAXIMIZED_VERT",
                               "_NET_WM_STATE_MAXIMIZED_HORZ",
                               "_NET_WM_STATE_HIDDEN",
                               "WM_STATE",
                               "_NET_SUPPORTING_WM_CHECK",
                               "_NET_FRAME_EXTENTS",
                               "_NET_SYSTEM_TRAY_OPCODE",
                               "_NET_SYSTEM_TRAY_MESSAGE_DATA",
                               "_XEMBED_INFO",
                               "COMPOUND_TEXT"};
        XInternAtoms(dpy_, const_cast<char**>(names), static_cast<int>(std::size(names)), False, atoms_);
        int ev = 0, err = 0;
        have_randr_ = XRRQueryExtension(dpy_, &ev, &err);
        int major = 0, minor = 0;
        have_xtest_ = XTestQueryExtension(dpy_, &ev, &err, &major, &minor);
        have_dpms_ = DPMSQueryExtension(dpy_, &ev, &err) && DPMSCapable(dpy_);
        if (xcb)
            titles_ = std::make_unique<x11::TitleCache>(
                xcb, static_cast<xcb_window_t>(root_), static_cast<xcb_atom_t>(atom(kClientList)),
                static_cast<xcb_atom_t>(atom(kNetWmName)), [this](xcb_atom_t type, std::string_view bytes) {
                    // COMPOUND_TEXT goes through Xlib, under its lock.
                    std::lock_guard<std::mutex> xlib(mutex_);
                    return dead_ ? std::string() : title_text(static_cast<Atom>(type), bytes);
                });
    }
    ~X11Display() override {
        keyboard_.stop();
        if (!dead_) {
            for (auto& [id, gc] : gcs_)
                XFreeGC(dpy_, gc.gc);
            for (Window w : own_)
                XDestroyWindow(dpy_, w);
            if (icon_window_) XDestroyWindow(dpy_, icon_window_);
            XCloseDisplay(dpy_);
        }
    }

    const char* kind() const override { return "x11"; }

    bool screen(kp_screen_info& out) override {
        Lock l(this);
        if (!l) return false;
        XWindowAttributes a{};
        if (!XGetWindowAttributes(dpy_, root_, &a)) return false;
        out.width = a.width;
        out.height = a.height;
        out.bits_per_pixel = a.depth == 24 ? 32 : a.depth;
        out.work_area = {0, 0, a.width, a.height};
        std::vector<long> wa = cardinals(root_, atom(kWorkArea));
        if (wa.size() >= 4)
            out.work_area = {int32_t(wa[0]), int32_t(wa[1]), int32_t(wa[0] + wa[2]), int32_t(wa[1] + wa[3])};
        out.orientation = 0;
        out.orientations = 1;
        if (have_randr_) {
            if (XRRScreenConfiguration* c = XRRGetScreenInfo(dpy_, root_)) {
                Rotation current = 0;
                XRRConfigCurrentConfiguration(c, &current);
                const Rotation all = XRRConfigRotations(c, &current);
                out.orientation = rotation_degrees(current);
                out.orientations = all & 0xF;
                XRRFreeScreenConfigInfo(c);
            }
        }
        return l.ok();
    }

    bool set_orientation(int32_t degrees) override {
        Lock l(this);
        if (!l || !have_randr_) return false;
        XRRScreenConfiguration* c = XRRGetScreenInfo(dpy_, root_);
        if (!c) return false;
        Rotation current = 0;
        const SizeID size = XRRConfigCurrentConfiguration(c, &current);
        const Rotation want = static_cast<Rotation>(1u << (degrees / 90));
        const Status s = XRRSetScreenConfig(dpy_, c, root_, size, want, CurrentTime);
        XRRFreeScreenConfigInfo(c);
        return s == Success && l.ok();
    }

    bool metric(int32_t code, int32_t& out) override {
        // A desktop: scroll bars of 16, borders of 1, frames of 3, cursors
        // and icons of 32, a pointing device present.
        switch (code) {
        case 0:
        case 1:
        case 27:
        case 28:
            out = 16;
            return true;
        case 2:
        case 3:
            out = 1;
            return true;
        case 4:
        case 5:
        case 15:
        case 16:
            out = 32;
            return true;
        case 6:
        case 7:
            out = 3;
            return true;
        case 8:
        case 9:
            out = 4;
            return true;
        case 17:
        case 18:
            out = 75;
            return true;
        case 29:
            out = 22;
            return true;
        case 31:
            out = 20;
            return true;
        case 35:
            out = 1;
            return true;
        default:
            break;
        }
        kp_screen_info s{};
        return screen(s) && screen_metric(code, s, out);
    }

    bool screen_power(bool on) override {
        Lock l(this);
        if (!l || !have_dpms_) return false;
        DPMSEnable(dpy_);
        DPMSForceLevel(dpy_, on ? DPMSModeOn : DPMSModeOff);
        return l.ok();
    }

    // The titles and classes are kept by the title cache (see
    // x11_titles.h), compared in memory.
    uintptr_t find_window(const char16_t* title, const char16_t* class_name) override {
        if (dead_ || !titles_) return 0;
        const std::u16string t = title ? x11::folded(to8(title)) : std::u16string(),
                             c = class_name ? x11::folded(to8(class_name)) : std::u16string();
        return titles_->find(title ? &t : nullptr, class_name ? &c : nullptr);
    }

    bool is_window(uintptr_t w) override {
        Lock l(this);
        if (!l || w == 0 || w > 0xFFFFFFFFu) return false;
        XWindowAttributes a{};
        return XGetWindowAttributes(dpy_, static_cast<Window>(w), &a) && l.ok();
    }

    bool window_title(uintptr_t w, std::u16string& out) override {
        Lock l(this);
        if (!l || !valid(w)) return false;
        std::string t;
        if (!text_property(static_cast<Window>(w), atom(kNetWmName), t))
            text_property(static_cast<Window>(w), XA_WM_NAME, t);
        if (!l.ok()) return false;
        out = utf16(t);
        return true;
    }

    bool set_window_title(uintptr_t w, std::u16string_view title) override {
        Lock l(this);
        if (!l || !valid(w)) return false;
        const std::string t = to8(title);
        XChangeProperty(dpy_, static_cast<Window>(w), atom(kNetWmName), atom(kUtf8), 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(t.data()), static_cast<int>(t.size()));
        // WM_NAME in the ICCCM's encodings (STRING when Latin-1 is enough,
        // else COMPOUND_TEXT) for the clients that read no _NET_WM_NAME.
        char* list[1] = {const_cast<char*>(t.c_str())};
        XTextProperty p{};
        if (Xutf8TextListToTextProperty(dpy_, list, 1, XStdICCTextStyle, &p) >= Success) {
            XSetWMName(dpy_, static_cast<Window>(w), &p);
            XFree(p.value);
        }
        return l.ok();
    }

    bool show(uintptr_t id, int32_t mode) override {
        Lock l(this);
        if (!l || !valid(id)) return false;
        const Window w = static_cast<Window>(id);
        switch (mode) {
        case KP_SHOW_HIDE:
            XWithdrawWindow(dpy_, w, screen_);
            break;
        case KP_SHOW_MINIMIZE:
            XIconifyWindow(dpy_, w, screen_);
            break;
        case KP_SHOW_MAXIMIZE:
            XMapRaised(dpy_, w);
            wm_state(w, 1);
            activate_locked(w);
            break;
        case KP_SHOW_NORMAL:
        case KP_SHOW_RESTORE:
            XMapRaised(dpy_, w);
            wm_state(w, 0);
            activate_locked(w);
            break;
        case KP_SHOW_ACTIVATE:
            XMapRaised(dpy_, w);
            activate_locked(w);
            break;
        case KP_SHOW_VISIBLE:
            XMapWindow(dpy_, w);
            break;
        case KP_SHOW_REFRESH:
            XClearArea(dpy_, w, 0, 0, 0, 0, True);
            break;
        default:
            return false;
        }
        return l.ok();
    }

    int32_t is_iconic(uintptr_t w) override {
        Lock l(this);
        if (!l || !valid(w)) return -1;
        std::vector<long> state = cardinals(static_cast<Window>(w), atom(kWmState), atom(kWmState));
        bool iconic = !state.empty() && state[0] == IconicState;
        for (long a : cardinals(static_cast<Window>(w), atom(kNetWmState), XA_ATOM))
            if (static_cast<Atom>(a) == atom(kHidden)) iconic = true;
        return l.ok() ? (iconic ? 1 : 0) : -1;
    }

    uintptr_t active_window() override {
        Lock l(this);
        if (!l) return 0;
        return active_locked();
    }

    uintptr_t activate(uintptr_t id, bool& ok) override {
        Lock l(this);
        ok = false;
        if (!l || !valid(id)) return 0;
        const uintptr_t before = active_locked();
        activate_locked(static_cast<Window>(id));
        ok = l.ok();
        return before;
    }

    bool window_rects(uintptr_t id, kp_rect& frame, kp_rect& client) override {
        Lock l(this);
        if (!l || !valid(id)) return false;
        const Window w = static_cast<Window>(id);
        XWindowAttributes a{};
        if (!XGetWindowAttributes(dpy_, w, &a)) return false;
        int x = 0, y = 0;
        Window child = 0;
        XTranslateCoordinates(dpy_, w, root_, 0, 0, &x, &y, &child);
        client = {x, y, x + a.width, y + a.height};
        frame = client;
        std::vector<long> ext = cardinals(w, atom(kFrameExtents));
        if (ext.size() >= 4)
            frame = {int32_t(x - ext[0]), int32_t(y - ext[2]), int32_t(x + a.width + ext[1]),
                     int32_t(y + a.height + ext[3])};
        return l.ok();
    }

    uintptr_t menu(uintptr_t w) override {
        std::lock_guard<std::mutex> g(menus_mutex_);
        auto it = menus_.find(w);
        return it == menus_.end() ? 0 : it->second.menu;
    }
    uintptr_t sub_menu(uintptr_t m, int32_t position) override {
        std::lock_guard<std::mutex> g(menus_mutex_);
        for (auto& [w, e] : menus_)
            if (e.menu == m && m && position >= 0 && static_cast<std::size_t>(position) < e.subs.size())
                return e.subs[static_cast<std::size_t>(position)];
        return 0;
    }

    uintptr_t get_dc(uintptr_t w) override {
        Lock l(this);
        if (!l || !valid(w)) return 0;
        GC gc = XCreateGC(dpy_, static_cast<Window>(w), 0, nullptr);
        if (!gc || !l.ok()) return 0;
        const uintptr_t id = XGContextFromGC(gc);
        gcs_[id] = {gc, w};
        return id;
    }
    bool release_dc(uintptr_t, uintptr_t dc) override {
        Lock l(this);
        if (!l) return false;
        auto it = gcs_.find(dc);
        if (it == gcs_.end()) return false;
        XFreeGC(dpy_, it->second.gc);
        gcs_.erase(it);
        return true;
    }

    bool pointer(int32_t& x, int32_t& y) override {
        Lock l(this);
        if (!l) return false;
        Window r = 0, c = 0;
        int wx = 0, wy = 0;
        unsigned mask = 0;
        if (!XQueryPointer(dpy_, root_, &r, &c, &x, &y, &wx, &wy, &mask)) return false;
        return l.ok();
    }

    int32_t key_state(int32_t vk) override {
        Lock l(this);
        if (!l) return 0;
        if (vk == 1 || vk == 2 || vk == 4) {
            Window r = 0, c = 0;
            int x = 0, y = 0, wx = 0, wy = 0;
            unsigned mask = 0;
            XQueryPointer(dpy_, root_, &r, &c, &x, &y, &wx, &wy, &mask);
            const unsigned bit = vk == 1 ? Button1Mask : vk == 2 ? Button3Mask : Button2Mask;
            return (mask & bit) ? 0x8000 : 0;
        }
        return keyboard_.key_down(vk) ? 0x8000 : 0;
    }

    bool type_text(std::u16string_view text, int32_t modifiers) override {
        Lock l(this);
        if (!l || !have_xtest_) return false;
        keyboard_.load_keymap();
        std::vector<KeyCode> held;
        auto press = [&](KeySym s) {
            if (KeyCode kc = XKeysymToKeycode(dpy_, s)) {
                XTestFakeKeyEvent(dpy_, kc, True, 0);
                held.push_back(kc);
            }
        };
        if (modifiers & KP_MODIFIER_CONTROL) press(XK_Control_L);
        if (modifiers & KP_MODIFIER_ALT) press(XK_Alt_L);
        if (modifiers & KP_MODIFIER_SHIFT) press(XK_Shift_L);
        bool ok = true;
        for (std::size_t i = 0; i < text.size() && ok; ++i) {
            char32_t c = text[i];
            if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
                text[i + 1] < 0xE000)
                c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
            ok = keyboard_.type_char(c);
        }
        for (auto it = held.rbegin(); it != held.rend(); ++it)
            XTestFakeKeyEvent(dpy_, *it, False, 0);
        XSync(dpy_, False);
        keyboard_.schedule_restore();
        return ok && l.ok();
    }

    // Each event is made where it was asked: the motion, then every button
    // press or release, waits until the server has processed it (the
    // pointer is there, the button's state changed), so that a release is
    // never taken at the place of the next motion, even while a window
    // manager's grab holds the events back for a moment.  Each wait is
    // bounded.
    bool mouse(int32_t action, int32_t x, int32_t y) override {
        Lock l(this);
        if (!l || !have_xtest_) return false;
        bool ok = true;
        XTestFakeMotionEvent(dpy_, screen_, x, y, 0);
        ok = settled([&](int px, int py, unsigned) { return px == x && py == y; });
        auto button = [&](unsigned b, bool down) {
            const unsigned mask = b == 1 ? Button1Mask : Button3Mask;
            XTestFakeButtonEvent(dpy_, b, down ? True : False, 0);
            ok = settled([&](int, int, unsigned m) { return ((m & mask) != 0) == down; }) && ok;
        };
        switch (action) {
        case KP_MOUSE_MOVE:
            break;
        case KP_MOUSE_LEFT_CLICK:
            button(1, true), button(1, false);
            break;
        case KP_MOUSE_LEFT_DOUBLE:
            button(1, true), button(1, false), button(1, true), button(1, false);
            break;
        case KP_MOUSE_LEFT_DOWN:
            button(1, true);
            break;
        case KP_MOUSE_LEFT_UP:
            button(1, false);
            break;
        case KP_MOUSE_RIGHT_CLICK:
            button(3, true), button(3, false);
            break;
        case KP_MOUSE_RIGHT_DOUBLE:
            button(3, true), button(3, false), button(3, true), button(3, false);
            break;
        case KP_MOUSE_RIGHT_DOWN:
            button(3, true);
            break;
        case KP_MOUSE_RIGHT_UP:
            button(3, false);
            break;
        default:
            return false;
        }
        return ok && l.ok();
    }

    // The icon docks in the notification area of the screen (the owner of
    // the _NET_SYSTEM_TRAY_S<n> selection) as a window of its own, embedded
    // with XEmbed: the tooltip is the icon window's title, the balloon a
    // tray message.  The image file is the program's; the icon window shows
    // the screen's default background.  Without a notification area the
    // request fails.
    bool notify_icon(int32_t operation, const char16_t* image, const char16_t* tooltip,
                     const char16_t* balloon) override {
        Lock l(this);
        if (!l) return false;
        const Window tray = tray_owner();
        if (operation == KP_ICON_ADD && !tray) return false;
        if (!Display::notify_icon(operation, image, tooltip, balloon)) return false;
        std::u16string img, tip, msg;
        const bool shown = current_icon(img, tip, msg);
        if (operation == KP_ICON_DELETE || !shown) {
            if (icon_window_) XDestroyWindow(dpy_, icon_window_);
            icon_window_ = 0;
            return l.ok();
        }
        if (operation == KP_ICON_ADD) {
            if (icon_window_) XDestroyWindow(dpy_, icon_window_);
            icon_window_ = XCreateSimpleWindow(dpy_, root_, 0, 0, 22, 22, 0, 0, WhitePixel(dpy_, screen_));
            const long info[2] = {0, 1}; // XEmbed version 0, mapped
            XChangeProperty(dpy_, icon_window_, atom(kXembedInfo), atom(kXembedInfo), 32, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(info), 2);
            tray_message(tray, 0, static_cast<long>(icon_window_), 0, 0); // SYSTEM_TRAY_REQUEST_DOCK
        }
        const std::string t = to8(tip);
        XChangeProperty(dpy_, icon_window_, atom(kNetWmName), atom(kUtf8), 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(t.data()), static_cast<int>(t.size()));
        if (operation == KP_ICON_ADD && balloon && *balloon && tray) {
            const std::string b = to8(balloon);
            // SYSTEM_TRAY_BEGIN_MESSAGE: timeout 10 s, length, id; then the
            // text 20 bytes a message.
            tray_message(tray, 1, 10000, static_cast<long>(b.size()), ++balloon_id_);
            for (std::size_t at = 0; at < b.size(); at += 20) {
                XEvent e{};
                e.xclient.type = ClientMessage;
                e.xclient.window = icon_window_;
                e.xclient.message_type = atom(kTrayMessageData);
                e.xclient.format = 8;
                std::memcpy(e.xclient.data.b, b.data() + at, std::min<std::size_t>(20, b.size() - at));
                XSendEvent(dpy_, tray, False, NoEventMask, &e);
            }
        }
        return l.ok();
    }

    uintptr_t create_window(std::u16string_view title, std::u16string_view class_name,
                            int32_t menus) override {
        Lock l(this);
        if (!l) return 0;
        const Window w = XCreateSimpleWindow(dpy_, root_, 0, 0, 240, 320, 0, BlackPixel(dpy_, screen_),
                                             WhitePixel(dpy_, screen_));
        const std::string t = to8(title), c = to8(class_name);
        XChangeProperty(dpy_, w, atom(kNetWmName), atom(kUtf8), 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(t.data()), static_cast<int>(t.size()));
        XStoreName(dpy_, w, t.c_str());
        XClassHint hint{const_cast<char*>(c.c_str()), const_cast<char*>(c.c_str())};
        XSetClassHint(dpy_, w, &hint);
        XSelectInput(dpy_, w, KeyPressMask | ButtonPressMask);
        XMapWindow(dpy_, w);
        XSync(dpy_, False);
        if (!l.ok()) return 0;
        own_.push_back(w);
        if (menus > 0) {
            std::lock_guard<std::mutex> g(menus_mutex_);
            Menus& m = menus_[w];
            m.menu = (static_cast<uintptr_t>(w) << 8) | 0xFF;
            for (int32_t k = 0; k < std::min(menus, 64); ++k)
                m.subs.push_back((static_cast<uintptr_t>(w) << 8) | static_cast<uintptr_t>(k));
        }
        return w;
    }

    bool close_window(uintptr_t id) override {
        Lock l(this);
        if (!l) return false;
        auto it = std::find(own_.begin(), own_.end(), static_cast<Window>(id));
        if (it == own_.end()) return false;
        XDestroyWindow(dpy_, *it);
        own_.erase(it);
        XSync(dpy_, False);
        std::lock_guard<std::mutex> g(menus_mutex_);
        menus_.erase(id);
        return l.ok();
    }

  private:
    enum AtomIndex {
        kClientList,
        kActive,
        kNetWmName,
        kWorkArea,
        kUtf8,
        kNetWmState,
        kMaxVert,
        kMaxHorz,
        kHidden,
        kWmState,
        kWmCheck,
        kFrameExtents,
        kTrayOpcode,
        kTrayMessageData,
        kXembedInfo,
        kCompoundText,
        kAtomCount
    };
    Atom atom(AtomIndex i) const { return atoms_[i]; }

    // Holds the display, traps protocol errors; false when the display is gone.
    class Lock {
      public:
        explicit Lock(X11Display* d) : d_(d), g_(d->mutex_) {
            if (d_->dead_) return;
            old_ = XSetErrorHandler(on_x_error);
            g_x_error = 0;
            live_ = true;
        }
        ~Lock() {
            if (live_ && !d_->dead_) {
                XSync(d_->dpy_, False);
                XSetErrorHandler(old_);
            }
        }
        explicit operator bool() const { return live_ && !d_->dead_; }
        // No error so far (the requests made are flushed and answered).
        bool ok() {
            if (d_->dead_) return false;
            XSync(d_->dpy_, False);
            return !d_->dead_ && g_x_error == 0;
        }

      private:
        X11Display* d_;
        std::lock_guard<std::mutex> g_;
        int (*old_)(::Display*, XErrorEvent*) = nullptr;
        bool live_ = false;
    };

    static void on_exit(::Display*, void* self) {
        // The connection is lost: Xlib must not exit the process.  Every
        // later call sees dead_ and fails.
        static_cast<X11Display*>(self)->dead_ = true;
    }

    bool valid(uintptr_t w) {
        if (w == 0 || w > 0xFFFFFFFFu) return false;
        XWindowAttributes a{};
        g_x_error = 0;
        const bool ok = XGetWindowAttributes(dpy_, static_cast<Window>(w), &a) != 0;
        XSync(dpy_, False);
        const bool clean = g_x_error == 0;
        g_x_error = 0;
        return ok && clean && !dead_;
    }

    // A 32-bit property's values, whatever type its writer gave it.
    std::vector<long> cardinals(Window w, Atom property, Atom type = AnyPropertyType) {
        std::vector<long> out;
        Atom actual = 0;
        int format = 0;
        unsigned long n = 0, after = 0;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(dpy_, w, property, 0, 4096, False, type, &actual, &format, &n, &after,
                               &data) == Success &&
            data && format == 32) {
            const long* v = reinterpret_cast<const long*>(data);
            out.assign(v, v + n);
        }
        if (data) XFree(data);
        return out;
    }

    // A title property's text as UTF-8; false when the window has no such
    // 8-bit property.  Called under the display's lock.
    bool text_property(Window w, Atom property, std::string& out) {
        Atom actual = 0;
        int format = 0;
        unsigned long n = 0, after = 0;
        unsigned char* data = nullptr;
        bool found = false;
        if (XGetWindowProperty(dpy_, w, property, 0, 1 << 20, False, AnyPropertyType, &actual, &format, &n,
                               &after, &data) == Success &&
            data && format == 8 && actual != None) {
            out = title_text(actual, std::string_view(reinterpret_cast<const char*>(data), n));
            found = true;
        }
        if (data) XFree(data);
        return found;
    }

    // The one reader of titles, whatever their property and encoding:
    // COMPOUND_TEXT through Xlib's converter (called with the display's
    // lock held); 8-bit text that is well-formed UTF-8 as UTF-8 (clients
    // that write UTF-8 under the type STRING); other STRING text as
    // Latin-1; anything else as UTF-8, ill-formed bytes becoming U+FFFD.
    std::string title_text(Atom type, std::string_view bytes) {
        if (type == atom(kCompoundText)) {
            XTextProperty p{};
            std::string copy(bytes);
            p.value = reinterpret_cast<unsigned char*>(copy.data());
            p.encoding = type;
            p.format = 8;
            p.nitems = copy.size();
            char** list = nullptr;
            int n = 0;
            std::string out;
            if (Xutf8TextPropertyToTextList(dpy_, &p, &list, &n) >= Success && list) {
                for (int k = 0; k < n; ++k)
                    out += list[k];
                XFreeStringList(list);
                return out;
            }
            return latin1_to_utf8(bytes);
        }
        if (valid_utf8(bytes)) return std::string(bytes);
        if (type == XA_STRING) return latin1_to_utf8(bytes);
        return utf8(utf16(bytes));
    }

    bool wm_present() {
        std::vector<long> check = cardinals(root_, atom(kWmCheck));
        return !check.empty() && check[0] != 0;
    }

    uintptr_t active_locked() {
        if (wm_present()) {
            std::vector<long> a = cardinals(root_, atom(kActive));
            if (!a.empty()) return static_cast<uintptr_t>(a[0]);
        }
        // No window manager: the top-level window that holds the input focus.
        Window focus = 0;
        int revert = 0;
        XGetInputFocus(dpy_, &focus, &revert);
        if (focus == None || focus == PointerRoot) return 0;
        Window w = focus;
        for (int depth = 0; depth < 64; ++depth) {
            Window r = 0, parent = 0, *children = nullptr;
            unsigned n = 0;
            if (!XQueryTree(dpy_, w, &r, &parent, &children, &n)) return 0;
            if (children) XFree(children);
            if (parent == root_ || parent == 0) return w;
            w = parent;
        }
        return 0;
    }

    void activate_locked(Window w) {
        if (wm_present()) {
            XEvent e{};
            e.xclient.type = ClientMessage;
            e.xclient.window = w;
            e.xclient.message_type = atom(kActive);
            e.xclient.format = 32;
            e.xclient.data.l[0] = 2; // a pager: the request of the user
            e.xclient.data.l[1] = CurrentTime;
            XSendEvent(dpy_, root_, False, SubstructureRedirectMask | SubstructureNotifyMask, &e);
        } else {
            XMapRaised(dpy_, w);
            XSync(dpy_, False);
            XSetInputFocus(dpy_, w, RevertToParent, CurrentTime);
        }
    }

    Window tray_owner() {
        const std::string name = "_NET_SYSTEM_TRAY_S" + std::to_string(screen_);
        return XGetSelectionOwner(dpy_, XInternAtom(dpy_, name.c_str(), False));
    }

    void tray_message(Window tray, long opcode, long a, long b, long c) {
        XEvent e{};
        e.xclient.type = ClientMessage;
        e.xclient.window = icon_window_;
        e.xclient.message_type = atom(kTrayOpcode);
        e.xclient.format = 32;
        e.xclient.data.l[0] = CurrentTime;
        e.xclient.data.l[1] = opcode;
        e.xclient.data.l[2] = a;
        e.xclient.data.l[3] = b;
        e.xclient.data.l[4] = c;
        XSendEvent(dpy_, tray, False, NoEventMask, &e);
    }

    void wm_state(Window w, int maximize) {
        XEvent e{};
        e.xclient.type = ClientMessage;
        e.xclient.window = w;
        e.xclient.message_type = atom(kNetWmState);
        e.xclient.format = 32;
        e.xclient.data.l[0] = maximize; // 1 add, 0 remove
        e.xclient.data.l[1] = static_cast<long>(atom(kMaxVert));
        e.xclient.data.l[2] = static_cast<long>(atom(kMaxHorz));
        e.xclient.data.l[3] = 2;
        XSendEvent(dpy_, root_, False, SubstructureRedirectMask | SubstructureNotifyMask, &e);
    }

    static int32_t rotation_degrees(Rotation r) {
        if (r & RR_Rotate_90) return 90;
        if (r & RR_Rotate_180) return 180;
        if (r & RR_Rotate_270) return 270;
        return 0;
    }

    // Waits, at most half a second, until the pointer's position and
    // buttons as the server has processed them satisfy `done`.
    template <class F> bool settled(F&& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
        for (;;) {
            Window r = 0, c = 0;
            int x = 0, y = 0, wx = 0, wy = 0;
            unsigned mask = 0;
            if (dead_ || !XQueryPointer(dpy_, root_, &r, &c, &x, &y, &wx, &wy, &mask)) return false;
            if (done(x, y, mask)) return true;
            if (std::chrono::steady_clock::now() >= deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    ::Display* dpy_;
    std::unique_ptr<x11::TitleCache> titles_;
    Window root_ = 0;
    int screen_ = 0;
    Atom atoms_[kAtomCount] = {};
    bool have_randr_ = false, have_xtest_ = false, have_dpms_ = false;
    std::atomic<bool> dead_{false};
    std::mutex mutex_;
    std::vector<Window> own_;
    x11::Keyboard keyboard_{dpy_, mutex_, dead_, on_x_error};
    Window icon_window_ = 0;
    long balloon_id_ = 0;
    struct Gc {
        GC gc;
        uintptr_t window;
    };
    std::map<uintptr_t, Gc> gcs_;
    struct Menus {
        uintptr_t menu = 0;
        std::vector<uintptr_t> subs;
    };
    std::mutex menus_mutex_;
    std::map<uintptr_t, Menus> menus_;
};

} // namespace

std::unique_ptr<Display> open_x11_display(const std::string& name, std::string* why) {
    static std::once_flag handlers;
    std::call_once(handlers, [] { XSetIOErrorHandler(on_io_error); });
    ::Display* dpy = XOpenDisplay(name.empty() ? nullptr : name.c_str());
    if (!dpy) {
        if (why) *why = "cannot open X display \"" + name + "\"";
        return nullptr;
    }
    xcb_connection_t* xcb = xcb_connect(name.empty() ? nullptr : name.c_str(), nullptr);
    if (xcb && xcb_connection_has_error(xcb)) {
        xcb_disconnect(xcb);
        xcb = nullptr;
    }
    return std::make_unique<X11Display>(dpy, xcb);
}

} // namespace kp::host
