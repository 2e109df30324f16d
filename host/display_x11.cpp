// display_x11.cpp - the display over X11: Xlib for windows and properties,
// XTest for synthetic keys and clicks, XRandR for the screen's size and
// rotation, DPMS for the screen's power, and the EWMH root properties
// (_NET_CLIENT_LIST, _NET_ACTIVE_WINDOW, _NET_WORKAREA) with the windows'
// _NET_WM_NAME, so that the windows of every client are seen.
//
// Window lookup by title keeps the titles of every listed window over a
// second connection (XCB) that follows their changes, so that a thousand
// windows cost one round trip.  Every Xlib call runs under one mutex; X protocol errors
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
#include <cstring>
#include <map>
#include <unordered_map>

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

class X11Display final : public Display {
  public:
    X11Display(::Display* dpy, xcb_connection_t* xcb) : dpy_(dpy), xcb_(xcb) {
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
                               "_XEMBED_INFO"};
        XInternAtoms(dpy_, const_cast<char**>(names), static_cast<int>(std::size(names)), False, atoms_);
        int ev = 0, err = 0;
        have_randr_ = XRRQueryExtension(dpy_, &ev, &err);
        int major = 0, minor = 0;
        have_xtest_ = XTestQueryExtension(dpy_, &ev, &err, &major, &minor);
        have_dpms_ = DPMSQueryExtension(dpy_, &ev, &err) && DPMSCapable(dpy_);
    }
    ~X11Display() override {
        if (!dead_) {
            for (auto& [id, gc] : gcs_)
                XFreeGC(dpy_, gc.gc);
            for (Window w : own_)
                XDestroyWindow(dpy_, w);
            if (icon_window_) XDestroyWindow(dpy_, icon_window_);
            release_spares();
            XCloseDisplay(dpy_);
        }
        if (xcb_) xcb_disconnect(xcb_);
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

    // Titles and classes of the top-level windows are kept over the XCB
    // connection, which listens to the windows' property changes: a lookup
    // asks the server for the window list only (one round trip, after
    // which every change made before it has arrived as an event), reads
    // again the windows whose title or class changed and the new ones (all
    // at once), and compares in memory.
    uintptr_t find_window(const char16_t* title, const char16_t* class_name) override {
        if (dead_ || !xcb_) return 0;
        const std::string t = title ? to8(title) : std::string(),
                          c = class_name ? to8(class_name) : std::string();
        std::lock_guard<std::mutex> guard(xcb_mutex_);
        if (xcb_connection_has_error(xcb_)) return 0;
        const std::vector<xcb_window_t> list = xcb_top_level_windows();
        while (xcb_generic_event_t* e = xcb_poll_for_queued_event(xcb_)) {
            if ((e->response_type & 0x7F) == XCB_PROPERTY_NOTIFY) {
                const auto* p = reinterpret_cast<xcb_property_notify_event_t*>(e);
                if (p->atom == atom(kNetWmName) || p->atom == XCB_ATOM_WM_NAME ||
                    p->atom == XCB_ATOM_WM_CLASS)
                    if (auto it = cache_.find(p->window); it != cache_.end()) it->second.fresh = false;
            }
            free(e);
        }
        refresh(list);
        for (xcb_window_t w : list) {
            auto it = cache_.find(w);
            if (it == cache_.end()) continue;
            const Cached& k = it->second;
            if (title && (k.has_net ? k.net : k.wm) != t) continue;
            if (class_name && k.instance != c && k.cls != c) continue;
            return w;
        }
        return 0;
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
        if (!utf8_property(static_cast<Window>(w), atom(kNetWmName), t)) {
            XTextProperty p{};
            if (XGetWMName(dpy_, static_cast<Window>(w), &p) && p.value) {
                char** list = nullptr;
                int n = 0;
                if (Xutf8TextPropertyToTextList(dpy_, &p, &list, &n) >= Success && n > 0 && list) t = list[0];
                if (list) XFreeStringList(list);
                XFree(p.value);
            }
        }
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
        std::vector<KeySym> syms = keysyms_of(vk);
        if (syms.empty()) return 0;
        char keys[32] = {};
        XQueryKeymap(dpy_, keys);
        for (KeySym s : syms) {
            const KeyCode kc = XKeysymToKeycode(dpy_, s);
            if (kc && (keys[kc / 8] & (1 << (kc % 8)))) return 0x8000;
        }
        return 0;
    }

    bool type_text(std::u16string_view text, int32_t modifiers) override {
        Lock l(this);
        if (!l || !have_xtest_) return false;
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
            ok = type_char(c);
        }
        for (auto it = held.rbegin(); it != held.rend(); ++it)
            XTestFakeKeyEvent(dpy_, *it, False, 0);
        XSync(dpy_, False);
        return ok && l.ok();
    }

    bool mouse(int32_t action, int32_t x, int32_t y) override {
        Lock l(this);
        if (!l || !have_xtest_) return false;
        XTestFakeMotionEvent(dpy_, screen_, x, y, 0);
        auto button = [&](unsigned b, bool down) { XTestFakeButtonEvent(dpy_, b, down ? True : False, 0); };
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
        XSync(dpy_, False);
        return l.ok();
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

    bool utf8_property(Window w, Atom property, std::string& out) {
        Atom actual = 0;
        int format = 0;
        unsigned long n = 0, after = 0;
        unsigned char* data = nullptr;
        bool found = false;
        // Some clients write _NET_WM_NAME as STRING: any 8-bit text is taken as UTF-8.
        if (XGetWindowProperty(dpy_, w, property, 0, 1 << 20, False, AnyPropertyType, &actual, &format, &n,
                               &after, &data) == Success &&
            data && format == 8) {
            out.assign(reinterpret_cast<const char*>(data), n);
            found = true;
        }
        if (data) XFree(data);
        return found;
    }

    struct Cached {
        std::string net, wm, instance, cls;
        bool has_net = false, fresh = false;
    };

    // Reads the properties of the listed windows that are new or changed,
    // all requests first; forgets the windows no longer listed.
    void refresh(const std::vector<xcb_window_t>& list) {
        std::unordered_map<xcb_window_t, Cached> kept;
        kept.reserve(list.size());
        struct Pending {
            xcb_window_t w;
            xcb_get_property_cookie_t net, wm, cls;
        };
        std::vector<Pending> pending;
        const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        for (xcb_window_t w : list) {
            auto it = cache_.find(w);
            if (it != cache_.end() && it->second.fresh) {
                kept.emplace(w, std::move(it->second));
                continue;
            }
            if (it == cache_.end()) xcb_change_window_attributes(xcb_, w, XCB_CW_EVENT_MASK, &mask);
            constexpr uint32_t kWords = 1 << 18; // titles up to a megabyte
            pending.push_back(
                {w, xcb_get_property(xcb_, 0, w, atom(kNetWmName), XCB_GET_PROPERTY_TYPE_ANY, 0, kWords),
                 xcb_get_property(xcb_, 0, w, XCB_ATOM_WM_NAME, XCB_GET_PROPERTY_TYPE_ANY, 0, kWords),
                 xcb_get_property(xcb_, 0, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 1024)});
        }
        for (Pending& p : pending) {
            Cached k;
            bool gone = false;
            k.has_net = text_reply(p.net, k.net, &gone);
            text_reply(p.wm, k.wm, &gone, true);
            std::string all;
            text_reply(p.cls, all, &gone);
            // WM_CLASS: the instance name, NUL, the class name, NUL.
            const std::size_t nul = all.find('\0');
            k.instance = all.substr(0, nul);
            if (nul != std::string::npos) {
                k.cls = all.substr(nul + 1);
                if (!k.cls.empty() && k.cls.back() == '\0') k.cls.pop_back();
            }
            k.fresh = true;
            if (!gone) kept.emplace(p.w, std::move(k));
        }
        cache_ = std::move(kept);
    }

    // An 8-bit property's text; false when the window has no such property
    // (*gone when the window no longer exists).  With `latin1`, a STRING
    // property is converted to UTF-8.
    bool text_reply(xcb_get_property_cookie_t cookie, std::string& out, bool* gone, bool latin1 = false) {
        xcb_generic_error_t* error = nullptr;
        xcb_get_property_reply_t* r = xcb_get_property_reply(xcb_, cookie, &error);
        if (error) {
            *gone = true;
            free(error);
        }
        if (!r) return false;
        const bool present = r->type != XCB_NONE && r->format == 8;
        if (present) {
            const auto* v = static_cast<const unsigned char*>(xcb_get_property_value(r));
            const std::size_t n = static_cast<std::size_t>(xcb_get_property_value_length(r));
            out.clear();
            if (r->type == XCB_ATOM_STRING && latin1) {
                // STRING is Latin-1: compared as UTF-8.
                for (std::size_t i = 0; i < n; ++i) {
                    if (v[i] < 0x80) {
                        out.push_back(static_cast<char>(v[i]));
                    } else {
                        out.push_back(static_cast<char>(0xC0 | (v[i] >> 6)));
                        out.push_back(static_cast<char>(0x80 | (v[i] & 0x3F)));
                    }
                }
            } else {
                out.assign(reinterpret_cast<const char*>(v), n);
            }
        }
        free(r);
        return present;
    }

    // The windows of the window manager's client list, else (no window
    // manager) the root's children; both asked for at once.
    std::vector<xcb_window_t> xcb_top_level_windows() {
        const xcb_window_t root = static_cast<xcb_window_t>(root_);
        auto list_cookie =
            xcb_get_property(xcb_, 0, root, atom(kClientList), XCB_GET_PROPERTY_TYPE_ANY, 0, 1 << 16);
        auto tree_cookie = xcb_query_tree(xcb_, root);
        std::vector<xcb_window_t> out;
        if (xcb_get_property_reply_t* r = xcb_get_property_reply(xcb_, list_cookie, nullptr)) {
            if (r->format == 32) {
                const auto* v = static_cast<const xcb_window_t*>(xcb_get_property_value(r));
                out.assign(v, v + xcb_get_property_value_length(r) / 4);
            }
            free(r);
        }
        if (xcb_query_tree_reply_t* r = xcb_query_tree_reply(xcb_, tree_cookie, nullptr)) {
            if (out.empty()) {
                const xcb_window_t* v = xcb_query_tree_children(r);
                out.assign(v, v + xcb_query_tree_children_length(r));
            }
            free(r);
        }
        return out;
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

    // Key symbols of a virtual-key code.
    static std::vector<KeySym> keysyms_of(int32_t vk) {
        if ((vk >= 'A' && vk <= 'Z')) return {static_cast<KeySym>(XK_a + (vk - 'A'))};
        if (vk >= '0' && vk <= '9') return {static_cast<KeySym>(XK_0 + (vk - '0'))};
        if (vk >= 112 && vk <= 123) return {static_cast<KeySym>(XK_F1 + (vk - 112))};
        switch (vk) {
        case 8:
            return {XK_BackSpace};
        case 9:
            return {XK_Tab};
        case 13:
            return {XK_Return, XK_KP_Enter};
        case 16:
            return {XK_Shift_L, XK_Shift_R};
        case 17:
            return {XK_Control_L, XK_Control_R};
        case 18:
            return {XK_Alt_L, XK_Alt_R, XK_Meta_L};
        case 27:
            return {XK_Escape};
        case 32:
            return {XK_space};
        case 37:
            return {XK_Left};
        case 38:
            return {XK_Up};
        case 39:
            return {XK_Right};
        case 40:
            return {XK_Down};
        case 46:
            return {XK_Delete};
        default:
            return {};
        }
    }

    // One character through XTest: its key, with Shift when the character
    // is the key's shifted symbol; a character no key carries is put on a
    // spare key for the time of the stroke.
    bool type_char(char32_t c) {
        KeySym sym;
        if (c == u'\n' || c == u'\r')
            sym = XK_Return;
        else if (c == u'\t')
            sym = XK_Tab;
        else if (c == u'\b')
            sym = XK_BackSpace;
        else if (c < 0x20)
            return true; // other control characters type nothing
        else if (c < 0x100)
            sym = c;
        else
            sym = 0x01000000 | c;
        KeyCode kc = XKeysymToKeycode(dpy_, sym);
        bool remapped = false;
        if (!kc) {
            kc = spare_key(sym);
            if (!kc) return false;
            remapped = true;
        }
        const bool shifted = !remapped && XkbKeycodeToKeysym(dpy_, kc, 0, 0) != sym &&
                             XkbKeycodeToKeysym(dpy_, kc, 0, 1) == sym;
        const KeyCode shift = shifted ? XKeysymToKeycode(dpy_, XK_Shift_L) : 0;
        if (shift) XTestFakeKeyEvent(dpy_, shift, True, 0);
        XTestFakeKeyEvent(dpy_, kc, True, 0);
        XTestFakeKeyEvent(dpy_, kc, False, 0);
        if (shift) XTestFakeKeyEvent(dpy_, shift, False, 0);
        XSync(dpy_, False);
        return true;
    }

    // A key for a symbol no key carries: one of the keys without symbols,
    // taken in turn.  The symbol stays on it (clients read the mapping
    // when they handle the key, after the stroke) until the key's turn
    // comes again or the display closes.
    KeyCode spare_key(KeySym sym) {
        for (auto& [kc, s] : spares_)
            if (s == sym) return kc;
        if (spares_.empty()) {
            int min = 0, max = 0, per = 0;
            XDisplayKeycodes(dpy_, &min, &max);
            KeySym* map = XGetKeyboardMapping(dpy_, static_cast<KeyCode>(min), max - min + 1, &per);
            for (int k = max; k >= min && map; --k) {
                bool empty = true;
                for (int j = 0; j < per; ++j)
                    if (map[(k - min) * per + j] != NoSymbol) empty = false;
                if (empty && spares_.size() < 8) spares_.emplace_back(static_cast<KeyCode>(k), NoSymbol);
            }
            if (map) XFree(map);
            if (spares_.empty()) return 0;
        }
        auto& slot = spares_[next_spare_++ % spares_.size()];
        KeySym pair[2] = {sym, sym};
        XChangeKeyboardMapping(dpy_, slot.first, 2, pair, 1);
        XSync(dpy_, False);
        slot.second = sym;
        return slot.first;
    }

    void release_spares() {
        for (auto& [kc, s] : spares_) {
            if (s == NoSymbol) continue;
            KeySym none[2] = {NoSymbol, NoSymbol};
            XChangeKeyboardMapping(dpy_, kc, 2, none, 1);
        }
    }

    ::Display* dpy_;
    xcb_connection_t* xcb_;
    Window root_ = 0;
    int screen_ = 0;
    Atom atoms_[kAtomCount] = {};
    bool have_randr_ = false, have_xtest_ = false, have_dpms_ = false;
    std::atomic<bool> dead_{false};
    std::mutex mutex_;
    std::mutex xcb_mutex_;
    std::unordered_map<xcb_window_t, Cached> cache_;
    std::vector<Window> own_;
    std::vector<std::pair<KeyCode, KeySym>> spares_;
    Window icon_window_ = 0;
    long balloon_id_ = 0;
    std::size_t next_spare_ = 0;
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
