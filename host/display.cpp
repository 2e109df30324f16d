// display.cpp - the kp_display table over a Display object, and what both
// implementations share: the system colours and the notification icon.
#include "display.h"

#include <cstdlib>
#include <cstring>

namespace kp::host {

namespace {

Display* self_of(void* p) {
    return static_cast<Display*>(p);
}

int32_t op_screen(void* s, kp_screen_info* out) {
    return out && self_of(s)->screen(*out) ? 1 : 0;
}
int32_t op_set_orientation(void* s, int32_t degrees) {
    return self_of(s)->set_orientation(degrees) ? 1 : 0;
}
int32_t op_metric(void* s, int32_t code, int32_t* out) {
    return out && self_of(s)->metric(code, *out) ? 1 : 0;
}
int32_t op_system_colour(void* s, int32_t index, int32_t* out) {
    return out && self_of(s)->system_colour(index, *out) ? 1 : 0;
}
int32_t op_set_system_colour(void* s, int32_t index, int32_t colour) {
    return self_of(s)->set_system_colour(index, colour) ? 1 : 0;
}
int32_t op_screen_power(void* s, int32_t on) {
    return self_of(s)->screen_power(on != 0) ? 1 : 0;
}
uintptr_t op_find_window(void* s, const char16_t* title, const char16_t* class_name) {
    return self_of(s)->find_window(title, class_name);
}
int32_t op_is_window(void* s, uintptr_t w) {
    return self_of(s)->is_window(w) ? 1 : 0;
}
int32_t op_window_title(void* s, uintptr_t w, char16_t* buffer, int32_t size) {
    std::u16string t;
    if (!self_of(s)->window_title(w, t)) return -1;
    const int32_t n = static_cast<int32_t>(t.size());
    if (!buffer || size <= n) return n + 1;
    std::memcpy(buffer, t.data(), t.size() * sizeof(char16_t));
    buffer[n] = 0;
    return n;
}
int32_t op_set_window_title(void* s, uintptr_t w, const char16_t* title) {
    return self_of(s)->set_window_title(w, title ? std::u16string_view(title) : std::u16string_view()) ? 1
                                                                                                       : 0;
}
int32_t op_show(void* s, uintptr_t w, int32_t mode) {
    return self_of(s)->show(w, mode) ? 1 : 0;
}
int32_t op_is_iconic(void* s, uintptr_t w) {
    return self_of(s)->is_iconic(w);
}
uintptr_t op_active_window(void* s) {
    return self_of(s)->active_window();
}
uintptr_t op_activate(void* s, uintptr_t w, int32_t* ok) {
    bool done = false;
    uintptr_t before = self_of(s)->activate(w, done);
    if (ok) *ok = done ? 1 : 0;
    return before;
}
int32_t op_window_rects(void* s, uintptr_t w, kp_rect* frame, kp_rect* client) {
    kp_rect f{}, c{};
    if (!self_of(s)->window_rects(w, f, c)) return 0;
    if (frame) *frame = f;
    if (client) *client = c;
    return 1;
}
uintptr_t op_menu(void* s, uintptr_t w) {
    return self_of(s)->menu(w);
}
uintptr_t op_sub_menu(void* s, uintptr_t m, int32_t position) {
    return self_of(s)->sub_menu(m, position);
}
uintptr_t op_get_dc(void* s, uintptr_t w) {
    return self_of(s)->get_dc(w);
}
int32_t op_release_dc(void* s, uintptr_t w, uintptr_t dc) {
    return self_of(s)->release_dc(w, dc) ? 1 : 0;
}
int32_t op_pointer(void* s, int32_t* x, int32_t* y) {
    int32_t a = 0, b = 0;
    if (!self_of(s)->pointer(a, b)) return 0;
    if (x) *x = a;
    if (y) *y = b;
    return 1;
}
int32_t op_key_state(void* s, int32_t vk) {
    return self_of(s)->key_state(vk);
}
int32_t op_type_text(void* s, const char16_t* text, int32_t modifiers) {
    return self_of(s)->type_text(text ? std::u16string_view(text) : std::u16string_view(), modifiers) ? 1 : 0;
}
int32_t op_mouse(void* s, int32_t action, int32_t x, int32_t y) {
    return self_of(s)->mouse(action, x, y) ? 1 : 0;
}
int32_t op_notify_icon(void* s, int32_t operation, const char16_t* image, const char16_t* tooltip,
                       const char16_t* balloon) {
    return self_of(s)->notify_icon(operation, image, tooltip, balloon) ? 1 : 0;
}
int32_t op_choose_colour(void* s, int32_t initial, int32_t flags, int32_t* chosen) {
    int32_t c = -1;
    if (!self_of(s)->choose_colour(initial, flags, c)) return 0;
    if (chosen) *chosen = c;
    return 1;
}

} // namespace

const kp_display* Display::table() {
    if (table_.size == 0) {
        kp_display& t = table_;
        t.self = this;
        t.screen = op_screen;
        t.set_orientation = op_set_orientation;
        t.metric = op_metric;
        t.system_colour = op_system_colour;
        t.set_system_colour = op_set_system_colour;
        t.screen_power = op_screen_power;
        t.find_window = op_find_window;
        t.is_window = op_is_window;
        t.window_title = op_window_title;
        t.set_window_title = op_set_window_title;
        t.show = op_show;
        t.is_iconic = op_is_iconic;
        t.active_window = op_active_window;
        t.activate = op_activate;
        t.window_rects = op_window_rects;
        t.menu = op_menu;
        t.sub_menu = op_sub_menu;
        t.get_dc = op_get_dc;
        t.release_dc = op_release_dc;
        t.pointer = op_pointer;
        t.key_state = op_key_state;
        t.type_text = op_type_text;
        t.mouse = op_mouse;
        t.notify_icon = op_notify_icon;
        t.choose_colour = op_choose_colour;
        t.size = sizeof(kp_display);
    }
    return &table_;
}

int32_t default_system_colour(int32_t index) {
    // The classic scheme, as red + green*256 + blue*65536.
    static const int32_t rgb[21] = {
        0xC8D0D4, // scroll bar
        0x3A6EA5, // background
        0x0A246A, // active caption
        0x808080, // inactive caption
        0xD4D0C8, // menu
        0xFFFFFF, // window
        0x000000, // window frame
        0x000000, // menu text
        0x000000, // window text
        0xFFFFFF, // caption text
        0xD4D0C8, // active border
        0xD4D0C8, // inactive border
        0x808080, // application work space
        0x0A246A, // highlight
        0xFFFFFF, // highlight text
        0xD4D0C8, // button face
        0x808080, // button shadow
        0x808080, // grey text
        0x000000, // button text
        0xD4D0C8, // inactive caption text
        0xFFFFFF, // button highlight
    };
    if (index < 0 || index > 20) return -1;
    const int32_t c = rgb[index];
    // The table is written as 0xRRGGBB; colours travel as 0xBBGGRR.
    return ((c & 0xFF) << 16) | (c & 0xFF00) | ((c >> 16) & 0xFF);
}

bool Display::system_colour(int32_t index, int32_t& out) {
    if (index < 0 || index > 20) return false;
    std::lock_guard<std::mutex> lock(shared_mutex_);
    out = colours_set_ ? colours_[index] : default_system_colour(index);
    return true;
}

bool Display::set_system_colour(int32_t index, int32_t colour) {
    if (index < 0 || index > 20 || colour < 0 || colour > 0xFFFFFF) return false;
    std::lock_guard<std::mutex> lock(shared_mutex_);
    if (!colours_set_) {
        for (int32_t k = 0; k < 21; ++k)
            colours_[k] = default_system_colour(k);
        colours_set_ = true;
    }
    colours_[index] = colour;
    return true;
}

bool Display::notify_icon(int32_t operation, const char16_t* image, const char16_t* tooltip,
                          const char16_t* balloon) {
    std::lock_guard<std::mutex> lock(shared_mutex_);
    switch (operation) {
    case KP_ICON_ADD:
        // One icon a program: adding again replaces it.
        if (!image || !*image) return false;
        icon_ = std::make_unique<Icon>();
        icon_->image = image;
        if (tooltip) icon_->tooltip = tooltip;
        if (balloon) icon_->balloon = balloon;
        return true;
    case KP_ICON_MODIFY:
        if (!icon_) return false;
        if (image && *image) icon_->image = image;
        if (tooltip) icon_->tooltip = tooltip;
        return true;
    case KP_ICON_DELETE:
        if (!icon_ || (image && *image && icon_->image != image)) return false;
        icon_.reset();
        return true;
    default:
        return false;
    }
}

bool Display::current_icon(std::u16string& image, std::u16string& tooltip, std::u16string& balloon) {
    std::lock_guard<std::mutex> lock(shared_mutex_);
    if (!icon_) return false;
    image = icon_->image;
    tooltip = icon_->tooltip;
    balloon = icon_->balloon;
    return true;
}

std::unique_ptr<Display> make_display(const std::string& option, std::string* why) {
    if (option == "headless") return std::make_unique<HeadlessDisplay>();
    if (option == "none") return nullptr;
    if (option == "x11") return open_x11_display("", why);
    if (option.rfind("x11:", 0) == 0) return open_x11_display(option.substr(4), why);
    if (option == "auto" || option.empty()) {
        const char* name = std::getenv("DISPLAY");
        if (name && *name) {
            std::string ignored;
            if (auto d = open_x11_display(name, &ignored)) return d;
        }
        return std::make_unique<HeadlessDisplay>();
    }
    if (why) *why = "unknown display option \"" + option + "\"";
    return nullptr;
}

bool Display::choose_colour(int32_t, int32_t, int32_t&) {
    return false; // no dialog: cancelled
}

bool screen_metric(int32_t code, const kp_screen_info& s, int32_t& out) {
    switch (code) {
    case 12:
        out = s.work_area.right - s.work_area.left;
        return true;
    case 13:
        out = s.work_area.bottom - s.work_area.top;
        return true;
    case 23:
        out = s.width;
        return true;
    case 24:
        out = s.height;
        return true;
    default:
        return false;
    }
}

} // namespace kp::host
