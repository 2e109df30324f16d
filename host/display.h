// display.h - the VM's display as the reference host offers it to the
// component (services slot `display`): screen, windows and input.
//
// Two implementations: X11 (display_x11.cpp) when the host's display
// option or the DISPLAY variable names a reachable X display, and the
// headless handheld (display_headless.cpp): a 240 x 320, 16-bit, portrait
// screen whose windows scripts and tests create, with every input recorded
// so that programs can be tested without a display.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "kp120/vm.h"

namespace kp::host {

class Display {
  public:
    virtual ~Display() = default;

    // The operations of kp_display, one for one.
    virtual bool screen(kp_screen_info& out) = 0;
    virtual bool set_orientation(int32_t degrees) = 0;
    virtual bool metric(int32_t code, int32_t& out) = 0;
    virtual bool system_colour(int32_t index, int32_t& out);
    virtual bool set_system_colour(int32_t index, int32_t colour);
    virtual bool screen_power(bool on) = 0;
    virtual uintptr_t find_window(const char16_t* title, const char16_t* class_name) = 0;
    virtual bool is_window(uintptr_t w) = 0;
    // The title, or false when `w` is not a window.
    virtual bool window_title(uintptr_t w, std::u16string& out) = 0;
    virtual bool set_window_title(uintptr_t w, std::u16string_view title) = 0;
    virtual bool show(uintptr_t w, int32_t mode) = 0;
    virtual int32_t is_iconic(uintptr_t w) = 0;
    virtual uintptr_t active_window() = 0;
    virtual uintptr_t activate(uintptr_t w, bool& ok) = 0;
    virtual bool window_rects(uintptr_t w, kp_rect& frame, kp_rect& client) = 0;
    virtual uintptr_t menu(uintptr_t w) = 0;
    virtual uintptr_t sub_menu(uintptr_t menu, int32_t position) = 0;
    virtual uintptr_t get_dc(uintptr_t w) = 0;
    virtual bool release_dc(uintptr_t w, uintptr_t dc) = 0;
    virtual bool pointer(int32_t& x, int32_t& y) = 0;
    virtual int32_t key_state(int32_t vk) = 0;
    virtual bool type_text(std::u16string_view text, int32_t modifiers) = 0;
    virtual bool mouse(int32_t action, int32_t x, int32_t y) = 0;
    virtual bool notify_icon(int32_t operation, const char16_t* image, const char16_t* tooltip,
                             const char16_t* balloon);
    virtual bool choose_colour(int32_t initial, int32_t flags, int32_t& chosen);

    // For scripts and tests: a top-level window with a title, a class and
    // `menus` entries in its menu bar; 0 on failure.  Closing it makes its
    // handle invalid.
    virtual uintptr_t create_window(std::u16string_view title, std::u16string_view class_name,
                                    int32_t menus) = 0;
    virtual bool close_window(uintptr_t w) = 0;
    // "x11" or "headless".
    virtual const char* kind() const = 0;
    // The program's notification icon; false when it has none.
    bool current_icon(std::u16string& image, std::u16string& tooltip, std::u16string& balloon);

    // The component's view: a kp_display whose self is this object.
    const kp_display* table();

  protected:
    // System colours and the notification icon, kept by the host for both
    // implementations (neither windowing system has a place for them).
    std::mutex shared_mutex_;
    int32_t colours_[21] = {};
    bool colours_set_ = false;
    struct Icon {
        std::u16string image, tooltip, balloon;
    };
    std::unique_ptr<Icon> icon_;

  private:
    kp_display table_{};
};

// The colour of sc element `index` on a fresh display (the classic scheme).
int32_t default_system_colour(int32_t index);

// The metrics that follow from the screen `s`: the work area's width (12)
// and height (13), the screen's width (23) and height (24).  False for any
// other code.
bool screen_metric(int32_t code, const kp_screen_info& s, int32_t& out);

// The headless handheld.  What scripts and tests see of it besides the
// display operations: the text typed into each window, the mouse actions,
// the keys, the screen power, the icon and the colour dialog's answer.
class HeadlessDisplay : public Display {
  public:
    HeadlessDisplay();
    bool screen(kp_screen_info& out) override;
    bool set_orientation(int32_t degrees) override;
    bool metric(int32_t code, int32_t& out) override;
    bool screen_power(bool on) override;
    uintptr_t find_window(const char16_t* title, const char16_t* class_name) override;
    bool is_window(uintptr_t w) override;
    bool window_title(uintptr_t w, std::u16string& out) override;
    bool set_window_title(uintptr_t w, std::u16string_view title) override;
    bool show(uintptr_t w, int32_t mode) override;
    int32_t is_iconic(uintptr_t w) override;
    uintptr_t active_window() override;
    uintptr_t activate(uintptr_t w, bool& ok) override;
    bool window_rects(uintptr_t w, kp_rect& frame, kp_rect& client) override;
    uintptr_t menu(uintptr_t w) override;
    uintptr_t sub_menu(uintptr_t menu, int32_t position) override;
    uintptr_t get_dc(uintptr_t w) override;
    bool release_dc(uintptr_t w, uintptr_t dc) override;
    bool pointer(int32_t& x, int32_t& y) override;
    int32_t key_state(int32_t vk) override;
    bool type_text(std::u16string_view text, int32_t modifiers) override;
    bool mouse(int32_t action, int32_t x, int32_t y) override;
    bool choose_colour(int32_t initial, int32_t flags, int32_t& chosen) override;
    uintptr_t create_window(std::u16string_view title, std::u16string_view class_name,
                            int32_t menus) override;
    bool close_window(uintptr_t w) override;
    const char* kind() const override { return "headless"; }

    // Script and test side.
    std::u16string typed(uintptr_t w);         // text typed into a window, modifiers as "<mods>" prefixes
    std::vector<std::string> events();         // every input and icon event, in order
    void set_key(int32_t vk, bool down);       // a key the user holds or releases
    void answer_colour_dialog(int32_t colour); // the next dialog chooses it (-1: cancels)
    bool screen_on();
    bool visible(uintptr_t w);
    bool maximized(uintptr_t w);

  private:
    struct Window {
        std::u16string title, class_name, typed;
        bool visible = true, iconic = false, maximized = false;
        uintptr_t menu = 0;
        std::vector<uintptr_t> sub_menus;
    };
    Window* find(uintptr_t w);
    void log(std::string e);

    std::mutex mutex_;
    std::vector<std::pair<uintptr_t, Window>> windows_; // creation order
    uintptr_t next_handle_ = 0x10000;
    uintptr_t active_ = 0;
    int32_t orientation_ = 0;
    bool screen_on_ = true;
    int32_t x_ = 120, y_ = 160;
    uint8_t keys_[256] = {};     // bit 0 down, bit 1 pressed since the last query
    std::vector<uintptr_t> dcs_; // contexts given out
    int32_t colour_answer_ = -1;
    std::vector<std::string> events_;
};

// The display of a host's display option ("auto", "headless", "x11",
// "x11:NAME", "none"); null for "none", an unknown option or an X11
// display that cannot be opened, with the reason in *why.
std::unique_ptr<Display> make_display(const std::string& option, std::string* why);

// The X11 display named `name` ("" = DISPLAY); null when it cannot be
// opened, with the reason in *why.
std::unique_ptr<Display> open_x11_display(const std::string& name, std::string* why);

} // namespace kp::host
