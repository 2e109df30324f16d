// display_calls.cpp - screen, windows, input and notification icon through
// the VM's display.
#include <cstddef>
#include <vector>

#include "component/runtime.h"
#include "platform/win32_error.h"
#include "system/device.h"

namespace kp::system {

namespace {

using platform::kErrorInvalidParameter;
using platform::kErrorNotSupported;

// A display operation (runtime::slot), recording system error 50 (not
// supported) when there is none.
template <typename F> F needed_op(const kp_display* d, F kp_display::*member, CXError& err) {
    F f = runtime::slot(d, member);
    if (!f) fail_system(err, kErrorNotSupported);
    return f;
}

bool screen_of(const kp_display* d, kp_screen_info& s, CXError& err) {
    auto f = needed_op(d, &kp_display::screen, err);
    if (!f) return false;
    s = kp_screen_info{};
    if (!f(d->self, &s)) {
        fail_system(err, kErrorNotSupported);
        return false;
    }
    return true;
}

// Window handles are checked before every operation that names one, so a
// window that closed since the program obtained its handle fails cleanly.
bool check_window(const kp_display* d, uintptr_t window, CXError& err) {
    auto f = needed_op(d, &kp_display::is_window, err);
    if (!f) return false;
    if (window == 0 || !f(d->self, window)) {
        fail_system(err, kErrorInvalidWindowHandle);
        return false;
    }
    return true;
}

const char16_t* const kOrientations[] = {u"0", u"90", u"180", u"270"};

// The sc element index of an element code, -1 when it is not one.
int32_t colour_index(int32_t element) {
    const int32_t index = (element & 0x40000000) ? element & ~0x40000000 : element;
    return index >= 0 && index <= 20 ? index : -1;
}

// A NUL-terminated copy of a text for the display.
std::u16string terminated(std::u16string_view s) {
    std::u16string t(s);
    // The display reads up to the first NUL: a text with an embedded NUL
    // would arrive cut, so the cut is made here, visibly.
    std::size_t nul = t.find(u'\0');
    if (nul != std::u16string::npos) t.resize(nul);
    return t;
}

} // namespace

void fail_system(CXError& err, uint32_t code) {
    err.clear();
    err.set_system(code);
    err.set_severity(KP_SEVERITY_ERROR);
}

int32_t sys_x_res(const kp_display* d, CXError& err) {
    kp_screen_info s;
    return screen_of(d, s, err) ? s.width : 0;
}

int32_t sys_y_res(const kp_display* d, CXError& err) {
    kp_screen_info s;
    return screen_of(d, s, err) ? s.height : 0;
}

int32_t sys_color_res(const kp_display* d, CXError& err) {
    kp_screen_info s;
    return screen_of(d, s, err) ? s.bits_per_pixel : 0;
}

int32_t sys_metric(const kp_display* d, int32_t code, CXError& err) {
    // The screen's own figures: SM_CXSCREEN, SM_CYSCREEN, SM_CXFULLSCREEN
    // and SM_CYFULLSCREEN (the work area).
    if (code == 23 || code == 24 || code == 12 || code == 13) {
        kp_screen_info s;
        if (!screen_of(d, s, err)) return -1;
        switch (code) {
        case 23:
            return s.width;
        case 24:
            return s.height;
        case 12:
            return s.work_area.right - s.work_area.left;
        default:
            return s.work_area.bottom - s.work_area.top;
        }
    }
    auto f = needed_op(d, &kp_display::metric, err);
    if (!f) return -1;
    int32_t v = 0;
    if (!f(d->self, code, &v)) {
        fail_system(err, kErrorInvalidParameter);
        return -1;
    }
    return v;
}

std::u16string sys_list_screen_orientation(const kp_display* d, CXError& err) {
    kp_screen_info s;
    if (!screen_of(d, s, err)) return {};
    std::u16string out;
    for (int k = 0; k < 4; ++k) {
        if (!(s.orientations & (1u << k))) continue;
        if (!out.empty()) out += u"\r\n";
        out += kOrientations[k];
    }
    return out;
}

std::u16string sys_screen_orientation(const kp_display* d, CXError& err) {
    kp_screen_info s;
    if (!screen_of(d, s, err)) return {};
    const int32_t k = s.orientation / 90;
    if (s.orientation % 90 != 0 || k < 0 || k > 3) {
        fail_system(err, kErrorNotSupported);
        return {};
    }
    return kOrientations[k];
}

bool sys_set_screen_orientation(const kp_display* d, std::u16string_view orientation, CXError& err) {
    int32_t degrees = -1;
    for (int k = 0; k < 4; ++k)
        if (orientation == kOrientations[k]) degrees = 90 * k;
    if (degrees < 0) {
        fail_system(err, kErrorInvalidParameter);
        return false;
    }
    kp_screen_info s;
    if (!screen_of(d, s, err)) return false;
    auto f = runtime::slot(d, &kp_display::set_orientation);
    if (!f || !(s.orientations & (1u << (degrees / 90))) || !f(d->self, degrees)) {
        fail_system(err, kErrorNotSupported);
        return false;
    }
    return true;
}

int32_t sys_color(const kp_display* d, int32_t element, CXError& err) {
    const int32_t index = colour_index(element);
    if (index < 0) {
        fail_system(err, kErrorInvalidParameter);
        return -1;
    }
    auto f = runtime::slot(d, &kp_display::system_colour);
    int32_t c = 0;
    if (!f || !f(d->self, index, &c)) {
        fail_system(err, kErrorNotSupported);
        return -1;
    }
    return c;
}

bool sys_set_color(const kp_display* d, int32_t element, int32_t colour, CXError& err) {
    const int32_t index = colour_index(element);
    // A colour is red + green*256 + blue*65536: nothing above 0xFFFFFF.
    if (index < 0 || colour < 0 || colour > 0xFFFFFF) {
        fail_system(err, kErrorInvalidParameter);
        return false;
    }
    auto f = runtime::slot(d, &kp_display::set_system_colour);
    if (!f || !f(d->self, index, colour)) {
        fail_system(err, kErrorNotSupported);
        return false;
    }
    return true;
}

std::u16string sys_win_title(const kp_display* d, uintptr_t window, CXError& err) {
    if (!check_window(d, window, err)) return {};
    auto f = needed_op(d, &kp_display::window_title, err);
    if (!f) return {};
    std::vector<char16_t> buf(256);
    // The title may change between the two questions: ask a few times.
    for (int attempt = 0; attempt < 4; ++attempt) {
        const int32_t n = f(d->self, window, buf.data(), static_cast<int32_t>(buf.size()));
        if (n < 0) {
            fail_system(err, kErrorInvalidWindowHandle);
            return {};
        }
        if (static_cast<std::size_t>(n) < buf.size())
            return std::u16string(buf.data(), static_cast<std::size_t>(n));
        if (n >= (1 << 24)) break;
        buf.assign(static_cast<std::size_t>(n) + 1, u'\0');
    }
    fail_system(err, platform::kErrorInsufficientBuffer);
    return {};
}

bool sys_set_win_title(const kp_display* d, uintptr_t window, std::u16string_view title, CXError& err) {
    if (!check_window(d, window, err)) return false;
    auto f = needed_op(d, &kp_display::set_window_title, err);
    if (!f) return false;
    if (!f(d->self, window, terminated(title).c_str())) {
        fail_system(err, kErrorInvalidWindowHandle);
        return false;
    }
    return true;
}

uintptr_t sys_win_handle(const kp_display* d, std::u16string_view title, std::u16string_view class_name,
                         CXError& err) {
    auto f = needed_op(d, &kp_display::find_window, err);
    if (!f) return 0;
    const std::u16string t = terminated(title), c = terminated(class_name);
    return f(d->self, t.empty() ? nullptr : t.c_str(), c.empty() ? nullptr : c.c_str());
}

uintptr_t sys_win_active(const kp_display* d, CXError& err) {
    auto f = needed_op(d, &kp_display::active_window, err);
    if (!f) return 0;
    return f(d->self);
}

uintptr_t sys_activate(const kp_display* d, uintptr_t window, CXError& err) {
    if (!check_window(d, window, err)) return 0;
    auto f = needed_op(d, &kp_display::activate, err);
    if (!f) return 0;
    int32_t ok = 1;
    uintptr_t before = f(d->self, window, &ok);
    if (!ok) {
        fail_system(err, kErrorInvalidWindowHandle);
        return 0;
    }
    return before;
}

uintptr_t sys_set_focus(const kp_display* d, uintptr_t window, CXError& err) {
    // The focus goes with activation: a top-level window that receives the
    // focus becomes the active window.
    return sys_activate(d, window, err);
}

bool sys_win_show(const kp_display* d, uintptr_t window, int32_t mode, CXError& err) {
    switch (mode) {
    case KP_SHOW_HIDE:
    case KP_SHOW_NORMAL:
    case KP_SHOW_MINIMIZE:
    case KP_SHOW_MAXIMIZE:
    case KP_SHOW_ACTIVATE:
    case KP_SHOW_VISIBLE:
    case KP_SHOW_REFRESH:
    case KP_SHOW_RESTORE:
        break;
    default:
        fail_system(err, kErrorInvalidParameter);
        return false;
    }
    if (!check_window(d, window, err)) return false;
    auto f = needed_op(d, &kp_display::show, err);
    if (!f) return false;
    if (!f(d->self, window, mode)) {
        fail_system(err, kErrorInvalidWindowHandle);
        return false;
    }
    return true;
}

bool sys_iconize(const kp_display* d, uintptr_t window, CXError& err) {
    if (!check_window(d, window, err)) return false;
    auto f = needed_op(d, &kp_display::is_iconic, err);
    if (!f) return false;
    const int32_t r = f(d->self, window);
    if (r < 0) fail_system(err, kErrorInvalidWindowHandle);
    return r > 0;
}

bool sys_valid_handle(const kp_display* d, uintptr_t window, CXError& err) {
    auto f = needed_op(d, &kp_display::is_window, err);
    if (!f) return false;
    return window != 0 && f(d->self, window) != 0;
}

uintptr_t sys_get_menu(const kp_display* d, uintptr_t window, CXError& err) {
    if (!check_window(d, window, err)) return 0;
    auto f = needed_op(d, &kp_display::menu, err);
    if (!f) return 0;
    uintptr_t m = f(d->self, window);
    if (!m) fail_system(err, kErrorInvalidMenuHandle);
    return m;
}

uintptr_t sys_get_sub_menu(const kp_display* d, uintptr_t menu, int32_t position, CXError& err) {
    auto f = needed_op(d, &kp_display::sub_menu, err);
    if (!f) return 0;
    if (menu == 0 || position < 0) {
        fail_system(err, menu == 0 ? kErrorInvalidMenuHandle : kErrorInvalidParameter);
        return 0;
    }
    uintptr_t m = f(d->self, menu, position);
    if (!m) fail_system(err, kErrorInvalidMenuHandle);
    return m;
}

uintptr_t sys_get_dc(const kp_display* d, uintptr_t window, CXError& err) {
    if (!check_window(d, window, err)) return 0;
    auto f = needed_op(d, &kp_display::get_dc, err);
    if (!f) return 0;
    uintptr_t dc = f(d->self, window);
    if (!dc) fail_system(err, kErrorNotSupported);
    return dc;
}

bool sys_release_dc(const kp_display* d, uintptr_t window, uintptr_t dc, CXError& err) {
    auto f = needed_op(d, &kp_display::release_dc, err);
    if (!f) return false;
    // The window may have closed since: its context is still released.
    if (dc == 0 || !f(d->self, window, dc)) {
        fail_system(err, platform::kErrorInvalidHandle);
        return false;
    }
    return true;
}

int32_t cursor_pos(const kp_display* d, int32_t origin, CXError& err) {
    if (origin < 0 || origin > 2) {
        fail_system(err, kErrorInvalidParameter);
        return -1;
    }
    auto f = runtime::slot(d, &kp_display::pointer);
    int32_t x = 0, y = 0;
    if (!f || !f(d->self, &x, &y)) {
        fail_system(err, kErrorNotSupported);
        return -1;
    }
    if (origin != 0) {
        // Relative to the active window; with no active window the screen
        // is the origin.
        auto active = runtime::slot(d, &kp_display::active_window);
        auto rects = runtime::slot(d, &kp_display::window_rects);
        const uintptr_t w = active ? active(d->self) : 0;
        kp_rect frame{}, client{};
        if (w && rects && rects(d->self, w, &frame, &client)) {
            const kp_rect& r = origin == 1 ? frame : client;
            x -= r.left;
            y -= r.top;
        }
    }
    const uint32_t packed = (static_cast<uint32_t>(x) & 0xFFFFu) | (static_cast<uint32_t>(y) << 16);
    return static_cast<int32_t>(packed);
}

bool key_pressed(const kp_display* d, int32_t virtual_key, CXError& err) {
    if (virtual_key < 1 || virtual_key > 254) {
        fail_system(err, kErrorInvalidParameter);
        return false;
    }
    if (auto f = runtime::slot(d, &kp_display::key_state)) return (f(d->self, virtual_key) & 0x8000) != 0;
    if (auto s = runtime::service(&kp_services::key_state))
        return (s(runtime::vm(), virtual_key) & 0x8000) != 0;
    return false;
}

bool emulate_input(const kp_display* d, std::u16string_view text, int32_t modifiers, CXError& err) {
    if (modifiers & ~(KP_MODIFIER_SHIFT | KP_MODIFIER_ALT | KP_MODIFIER_CONTROL)) {
        fail_system(err, kErrorInvalidParameter);
        return false;
    }
    auto f = needed_op(d, &kp_display::type_text, err);
    if (!f) return false;
    if (!f(d->self, terminated(text).c_str(), modifiers)) {
        fail_system(err, kErrorNotSupported);
        return false;
    }
    return true;
}

namespace {
// The display's mouse action of a dm code (0: move only); -1 when none.
int32_t mouse_action(int32_t dm) {
    switch (dm) {
    case 0:
        return KP_MOUSE_MOVE;
    case 0x10000:
        return KP_MOUSE_LEFT_CLICK;
    case 0x20000:
        return KP_MOUSE_LEFT_DOUBLE;
    case 0x30000:
        return KP_MOUSE_LEFT_DOWN;
    case 0x40000:
        return KP_MOUSE_LEFT_UP;
    case 0x100000:
        return KP_MOUSE_RIGHT_CLICK;
    case 0x200000:
        return KP_MOUSE_RIGHT_DOUBLE;
    case 0x300000:
        return KP_MOUSE_RIGHT_DOWN;
    case 0x400000:
        return KP_MOUSE_RIGHT_UP;
    default:
        return -1;
    }
}
} // namespace

bool emulate_mouse(const kp_display* d, int32_t action, CXError& err) {
    if (mouse_action(action) <= 0) {
        fail_system(err, kErrorInvalidParameter);
        return false;
    }
    auto where = runtime::slot(d, &kp_display::pointer);
    int32_t x = 0, y = 0;
    if (!where || !where(d->self, &x, &y)) {
        fail_system(err, kErrorNotSupported);
        return false;
    }
    return emulate_mouse_at(d, action, x, y, err);
}

bool emulate_mouse_at(const kp_display* d, int32_t action, int32_t x, int32_t y, CXError& err) {
    const int32_t a = mouse_action(action);
    if (a < 0) {
        fail_system(err, kErrorInvalidParameter);
        return false;
    }
    kp_screen_info s;
    if (!screen_of(d, s, err)) return false;
    if (x < 0 || y < 0 || x >= s.width || y >= s.height) {
        fail_system(err, kErrorInvalidParameter);
        return false;
    }
    auto f = runtime::slot(d, &kp_display::mouse);
    if (!f || !f(d->self, a, x, y)) {
        fail_system(err, kErrorNotSupported);
        return false;
    }
    return true;
}

int32_t select_color(const kp_display* d, int32_t initial, int32_t flags, CXError& err) {
    auto f = needed_op(d, &kp_display::choose_colour, err);
    if (!f) return -1;
    int32_t chosen = -1;
    const int32_t start = initial >= 0 && initial <= 0xFFFFFF ? initial : 0;
    if (!f(d->self, start, flags, &chosen)) return -1;
    return chosen & 0xFFFFFF;
}

namespace {
bool icon(const kp_display* d, int32_t operation, std::u16string_view image, std::u16string_view tooltip,
          std::u16string_view balloon, CXError& err) {
    auto f = needed_op(d, &kp_display::notify_icon, err);
    if (!f) return false;
    const std::u16string i = terminated(image), t = terminated(tooltip), b = terminated(balloon);
    auto text = [](const std::u16string& x) { return x.empty() ? nullptr : x.c_str(); };
    if (!f(d->self, operation, text(i), text(t), text(b))) {
        // Modifying or deleting an icon the program never added.
        fail_system(err, operation == KP_ICON_ADD ? kErrorNotSupported : platform::kErrorInvalidHandle);
        return false;
    }
    return true;
}
} // namespace

bool sys_icon_add(const kp_display* d, std::u16string_view image, std::u16string_view tooltip,
                  std::u16string_view balloon, CXError& err) {
    return icon(d, KP_ICON_ADD, image, tooltip, balloon, err);
}
bool sys_icon_modify(const kp_display* d, std::u16string_view image, std::u16string_view tooltip,
                     CXError& err) {
    return icon(d, KP_ICON_MODIFY, image, tooltip, {}, err);
}
bool sys_icon_delete(const kp_display* d, std::u16string_view image, CXError& err) {
    return icon(d, KP_ICON_DELETE, image, {}, {}, err);
}

} // namespace kp::system
