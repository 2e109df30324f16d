// display_headless.cpp - the headless handheld: a 240 x 320 portrait screen
// of 16-bit colour, a navigation bar of 26 pixels at the top and a menu bar
// of 26 pixels at the bottom, and the windows scripts create on it.  Every
// window fills the work area, below a caption of 24 pixels.  Input changes
// nothing but what it records: the text typed into the window with the
// focus, the pointer position, the buttons held and the event list.
#include <algorithm>

#include "display.h"
#include "host.h"

namespace kp::host {

namespace {
constexpr int32_t kWidth = 240, kHeight = 320, kBar = 26, kCaption = 24;
} // namespace

HeadlessDisplay::HeadlessDisplay() = default;

HeadlessDisplay::Window* HeadlessDisplay::find(uintptr_t w) {
    for (auto& [h, win] : windows_)
        if (h == w) return &win;
    return nullptr;
}

void HeadlessDisplay::log(std::string e) {
    events_.push_back(std::move(e));
}

bool HeadlessDisplay::screen(kp_screen_info& out) {
    std::lock_guard<std::mutex> lock(mutex_);
    const bool turned = orientation_ == 90 || orientation_ == 270;
    out.width = turned ? kHeight : kWidth;
    out.height = turned ? kWidth : kHeight;
    out.bits_per_pixel = 16;
    out.work_area = {0, kBar, out.width, out.height - kBar};
    out.orientation = orientation_;
    out.orientations = 0xF;
    return true;
}

bool HeadlessDisplay::set_orientation(int32_t degrees) {
    if (degrees != 0 && degrees != 90 && degrees != 180 && degrees != 270) return false;
    std::lock_guard<std::mutex> lock(mutex_);
    orientation_ = degrees;
    return true;
}

bool HeadlessDisplay::metric(int32_t code, int32_t& out) {
    kp_screen_info s{};
    screen(s);
    switch (code) {
    case 0:  // width of a horizontal scroll bar's arrow
    case 1:  // height of a horizontal scroll bar
    case 27: // vertical scroll bar
    case 28:
        out = 13;
        return true;
    case 2: // border
    case 3:
        out = 1;
        return true;
    case 4: // cursor
    case 5:
    case 15: // icon
    case 16:
        out = 32;
        return true;
    case 6: // fixed frame
    case 7:
        out = 3;
        return true;
    case 8: // double-tap area
    case 9:
        out = 4;
        return true;
    case 17: // icon spacing
    case 18:
        out = 75;
        return true;
    case 29:
        out = kCaption;
        return true;
    case 31:
        out = kBar;
        return true;
    case 35:
        out = 0;
        return true; // a stylus, no mouse
    default:
        return screen_metric(code, s, out);
    }
}

bool HeadlessDisplay::screen_power(bool on) {
    std::lock_guard<std::mutex> lock(mutex_);
    screen_on_ = on;
    log(on ? "screen on" : "screen off");
    return true;
}

uintptr_t HeadlessDisplay::find_window(const char16_t* title, const char16_t* class_name) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& [h, w] : windows_) {
        if (title && w.title != title) continue;
        if (class_name && w.class_name != class_name) continue;
        return h;
    }
    return 0;
}

bool HeadlessDisplay::is_window(uintptr_t w) {
    std::lock_guard<std::mutex> lock(mutex_);
    return find(w) != nullptr;
}

bool HeadlessDisplay::window_title(uintptr_t w, std::u16string& out) {
    std::lock_guard<std::mutex> lock(mutex_);
    Window* win = find(w);
    if (!win) return false;
    out = win->title;
    return true;
}

bool HeadlessDisplay::set_window_title(uintptr_t w, std::u16string_view title) {
    std::lock_guard<std::mutex> lock(mutex_);
    Window* win = find(w);
    if (!win) return false;
    win->title.assign(title);
    return true;
}

bool HeadlessDisplay::show(uintptr_t w, int32_t mode) {
    std::lock_guard<std::mutex> lock(mutex_);
    Window* win = find(w);
    if (!win) return false;
    switch (mode) {
    case KP_SHOW_HIDE:
        win->visible = false;
        if (active_ == w) active_ = 0;
        break;
    case KP_SHOW_MINIMIZE:
        win->visible = true;
        win->iconic = true;
        if (active_ == w) active_ = 0;
        break;
    case KP_SHOW_MAXIMIZE:
        win->visible = true;
        win->iconic = false;
        win->maximized = true;
        active_ = w;
        break;
    case KP_SHOW_NORMAL:
    case KP_SHOW_RESTORE:
        win->visible = true;
        win->iconic = false;
        win->maximized = false;
        active_ = w;
        break;
    case KP_SHOW_ACTIVATE:
        win->visible = true;
        active_ = w;
        break;
    case KP_SHOW_VISIBLE:
        win->visible = true;
        break;
    case KP_SHOW_REFRESH:
        break;
    default:
        return false;
    }
    return true;
}

int32_t HeadlessDisplay::is_iconic(uintptr_t w) {
    std::lock_guard<std::mutex> lock(mutex_);
    Window* win = find(w);
    return win ? (win->iconic ? 1 : 0) : -1;
}

uintptr_t HeadlessDisplay::active_window() {
    std::lock_guard<std::mutex> lock(mutex_);
    return active_;
}

uintptr_t HeadlessDisplay::activate(uintptr_t w, bool& ok) {
    std::lock_guard<std::mutex> lock(mutex_);
    Window* win = find(w);
    ok = win != nullptr;
    if (!win) return 0;
    const uintptr_t before = active_;
    win->visible = true;
    win->iconic = false;
    active_ = w;
    return before;
}

bool HeadlessDisplay::window_rects(uintptr_t w, kp_rect& frame, kp_rect& client) {
    kp_screen_info s{};
    screen(s);
    std::lock_guard<std::mutex> lock(mutex_);
    if (!find(w)) return false;
    frame = s.work_area;
    client = frame;
    client.top += kCaption;
    return true;
}

uintptr_t HeadlessDisplay::menu(uintptr_t w) {
    std::lock_guard<std::mutex> lock(mutex_);
    Window* win = find(w);
    return win ? win->menu : 0;
}

uintptr_t HeadlessDisplay::sub_menu(uintptr_t m, int32_t position) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (m == 0 || position < 0) return 0;
    for (auto& [h, w] : windows_)
        if (w.menu == m)
            return static_cast<std::size_t>(position) < w.sub_menus.size() ? w.sub_menus[position] : 0;
    return 0;
}

uintptr_t HeadlessDisplay::get_dc(uintptr_t w) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!find(w)) return 0;
    const uintptr_t dc = next_handle_++;
    dcs_.push_back(dc);
    return dc;
}

bool HeadlessDisplay::release_dc(uintptr_t, uintptr_t dc) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = std::find(dcs_.begin(), dcs_.end(), dc);
    if (it == dcs_.end()) return false;
    dcs_.erase(it);
    return true;
}

bool HeadlessDisplay::pointer(int32_t& x, int32_t& y) {
    std::lock_guard<std::mutex> lock(mutex_);
    x = x_;
    y = y_;
    return true;
}

int32_t HeadlessDisplay::key_state(int32_t vk) {
    if (vk < 0 || vk > 255) return 0;
    std::lock_guard<std::mutex> lock(mutex_);
    const int32_t r = ((keys_[vk] & 1) ? 0x8000 : 0) | ((keys_[vk] & 2) ? 1 : 0);
    keys_[vk] &= 1;
    return r;
}

bool HeadlessDisplay::type_text(std::u16string_view text, int32_t modifiers) {
    std::lock_guard<std::mutex> lock(mutex_);
    Window* win = find(active_);
    if (!win) return false; // nothing has the focus
    std::u16string mods;
    if (modifiers & KP_MODIFIER_CONTROL) mods += u"<ctrl>";
    if (modifiers & KP_MODIFIER_ALT) mods += u"<alt>";
    if (modifiers & KP_MODIFIER_SHIFT) mods += u"<shift>";
    win->typed += mods;
    win->typed += text;
    log("type " + std::to_string(modifiers) + " " + utf8(text));
    return true;
}

bool HeadlessDisplay::mouse(int32_t action, int32_t x, int32_t y) {
    kp_screen_info s{};
    screen(s);
    if (x < 0 || y < 0 || x >= s.width || y >= s.height) return false;
    std::lock_guard<std::mutex> lock(mutex_);
    static const char* const names[] = {"move",        "left click",   "left double", "left down", "left up",
                                        "right click", "right double", "right down",  "right up"};
    if (action < 0 || action > KP_MOUSE_RIGHT_UP) return false;
    x_ = x;
    y_ = y;
    if (action == KP_MOUSE_LEFT_DOWN) keys_[1] |= 3;
    if (action == KP_MOUSE_LEFT_UP) keys_[1] &= 2;
    if (action == KP_MOUSE_RIGHT_DOWN) keys_[2] |= 3;
    if (action == KP_MOUSE_RIGHT_UP) keys_[2] &= 2;
    log(std::string(names[action]) + " " + std::to_string(x) + "," + std::to_string(y));
    return true;
}

bool HeadlessDisplay::choose_colour(int32_t, int32_t, int32_t& chosen) {
    std::lock_guard<std::mutex> lock(mutex_);
    const int32_t answer = colour_answer_;
    colour_answer_ = -1;
    if (answer < 0) return false;
    chosen = answer;
    return true;
}

uintptr_t HeadlessDisplay::create_window(std::u16string_view title, std::u16string_view class_name,
                                         int32_t menus) {
    std::lock_guard<std::mutex> lock(mutex_);
    Window w;
    w.title.assign(title);
    w.class_name.assign(class_name);
    const uintptr_t h = next_handle_++;
    if (menus > 0) {
        w.menu = next_handle_++;
        for (int32_t k = 0; k < std::min(menus, 64); ++k)
            w.sub_menus.push_back(next_handle_++);
    }
    windows_.emplace_back(h, std::move(w));
    active_ = h; // a new window comes up active
    return h;
}

bool HeadlessDisplay::close_window(uintptr_t w) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = windows_.begin(); it != windows_.end(); ++it) {
        if (it->first != w) continue;
        windows_.erase(it);
        if (active_ == w) active_ = 0;
        return true;
    }
    return false;
}

std::u16string HeadlessDisplay::typed(uintptr_t w) {
    std::lock_guard<std::mutex> lock(mutex_);
    Window* win = find(w);
    return win ? win->typed : std::u16string();
}

std::vector<std::string> HeadlessDisplay::events() {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
}

void HeadlessDisplay::set_key(int32_t vk, bool down) {
    if (vk < 0 || vk > 255) return;
    std::lock_guard<std::mutex> lock(mutex_);
    keys_[vk] = down ? 3 : (keys_[vk] & 2);
}

void HeadlessDisplay::answer_colour_dialog(int32_t colour) {
    std::lock_guard<std::mutex> lock(mutex_);
    colour_answer_ = colour;
}

bool HeadlessDisplay::screen_on() {
    std::lock_guard<std::mutex> lock(mutex_);
    return screen_on_;
}

bool HeadlessDisplay::visible(uintptr_t w) {
    std::lock_guard<std::mutex> lock(mutex_);
    Window* win = find(w);
    return win && win->visible;
}

bool HeadlessDisplay::maximized(uintptr_t w) {
    std::lock_guard<std::mutex> lock(mutex_);
    Window* win = find(w);
    return win && win->maximized;
}

} // namespace kp::host
