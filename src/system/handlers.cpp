// handlers.cpp - the handlers of the device functions: screen, windows,
// input, notification icon, power and system information.
//
// Window arguments typed as integers carry the window handle's 32 bits
// (X11 identifiers and the headless display's numbers fit in them).
#include <cstring>

#include "component/bind.h"
#include "component/runtime.h"
#include "system/device.h"

namespace kp::handlers {

namespace {

const kp_display* display() {
    auto f = runtime::service(&kp_services::display);
    return f ? f(runtime::vm()) : nullptr;
}

std::string bus() {
    return runtime::setting(KP_SETTING_SYSTEM_BUS);
}

uintptr_t window_of(int32_t w) {
    return static_cast<uintptr_t>(static_cast<uint32_t>(w));
}

} // namespace

using namespace kp::system;
using SV = std::u16string_view;

// Screen.
KP_BIND(SysXRes_1, [](CXError& e) { return sys_x_res(display(), e); })
KP_BIND(SysYRes_1, [](CXError& e) { return sys_y_res(display(), e); })
KP_BIND(SysColorRes_1, [](CXError& e) { return sys_color_res(display(), e); })
KP_BIND(SysMetric_1, [](int32_t code, CXError& e) { return sys_metric(display(), code, e); })
KP_BIND(SysListScreenOrientation_1, [](CXError& e) { return sys_list_screen_orientation(display(), e); })
KP_BIND(SysScreenOrientation_1, [](CXError& e) { return sys_screen_orientation(display(), e); })
KP_BIND(SysScreenOrientation_2, [](SV o, CXError& e) { return sys_set_screen_orientation(display(), o, e); })
KP_BIND(SysColor_1, [](int32_t el, CXError& e) { return sys_color(display(), el, e); })
KP_BIND(SysColor_2, [](int32_t el, int32_t c, CXError& e) { return sys_set_color(display(), el, c, e); })

// Windows.
KP_BIND(SysInstance_1, [] { return sys_instance(); })
KP_BIND(SysWinTitle_1, [](uintptr_t w, CXError& e) { return sys_win_title(display(), w, e); })
KP_BIND(SysWinTitle_2, [](uintptr_t w, SV t, CXError& e) { return sys_set_win_title(display(), w, t, e); })
KP_BIND(SysWinHandle_1, [](SV title, CXError& e) { return sys_win_handle(display(), title, {}, e); })
KP_BIND(SysWinHandle_2, [](SV title, SV cls, CXError& e) { return sys_win_handle(display(), title, cls, e); })
KP_BIND(SysWinActive_1, [](CXError& e) { return sys_win_active(display(), e); })
KP_BIND(SysWinActive_2, [](uintptr_t w, CXError& e) { return sys_activate(display(), w, e); })
KP_BIND(SysSetFocus_1, [](uintptr_t w, CXError& e) { return sys_set_focus(display(), w, e); })
KP_BIND(SysWinShow_1,
        [](int32_t w, int32_t mode, CXError& e) { return sys_win_show(display(), window_of(w), mode, e); })
KP_BIND(SysIconize_1, [](int32_t w, CXError& e) { return sys_iconize(display(), window_of(w), e); })
KP_BIND(SysValidHandle_1, [](int32_t w, CXError& e) { return sys_valid_handle(display(), window_of(w), e); })
KP_BIND(SysGetMenu_1, [](int32_t w, CXError& e) { return sys_get_menu(display(), window_of(w), e); })
KP_BIND(SysGetSubMenu_1,
        [](int32_t m, int32_t pos, CXError& e) { return sys_get_sub_menu(display(), window_of(m), pos, e); })
KP_BIND(SysGetDC_1, [](int32_t w, CXError& e) { return sys_get_dc(display(), window_of(w), e); })
KP_BIND(SysReleaseDC_1, [](int32_t w, int32_t dc, CXError& e) {
    return sys_release_dc(display(), window_of(w), window_of(dc), e);
})

// Input.
KP_BIND(CursorPos_1, [](CXError& e) { return cursor_pos(display(), 0, e); })
KP_BIND(CursorPos_2, [](int32_t origin, CXError& e) { return cursor_pos(display(), origin, e); })
KP_BIND(KeyPressed_1, [](int32_t vk, CXError& e) { return key_pressed(display(), vk, e); })
KP_BIND(EmulateInput_1, [](SV text, CXError& e) { return emulate_input(display(), text, 0, e); })
KP_BIND(EmulateInput_2,
        [](SV text, int32_t mods, CXError& e) { return emulate_input(display(), text, mods, e); })
KP_BIND(EmulateMouse_1, [](int32_t action, CXError& e) { return emulate_mouse(display(), action, e); })
KP_BIND(EmulateMouse_2, [](int32_t action, int32_t x, int32_t y, CXError& e) {
    return emulate_mouse_at(display(), action, x, y, e);
})
// SelectColor(), SelectColor(initial colour), SelectColor(flags, colour):
// the variable of the last form holds the colour the dialog starts on and
// receives the chosen one (unchanged when the user cancels).
KP_BIND(SelectColor_1, [](CXError& e) { return select_color(display(), 0, 0, e); })
KP_BIND(SelectColor_2, [](int32_t initial, CXError& e) { return select_color(display(), initial, 0, e); })
KP_HANDLER(SelectColor_3) {
    Call call(frame, context, args);
    auto* colour = args ? static_cast<int32_t*>(args[1]) : nullptr;
    const int32_t chosen = select_color(display(), colour ? *colour : 0, call.i32(0), call.error());
    if (colour && chosen >= 0) *colour = chosen;
    call.ret_int(chosen);
    return 0;
}

// Notification icon.
KP_BIND(SysIconAdd_1, [](SV image, CXError& e) { return sys_icon_add(display(), image, {}, {}, e); })
KP_BIND(SysIconAdd_2, [](SV image, SV tip, CXError& e) { return sys_icon_add(display(), image, tip, {}, e); })
KP_BIND(SysIconAdd_3, [](SV image, SV tip, SV balloon, CXError& e) {
    return sys_icon_add(display(), image, tip, balloon, e);
})
KP_BIND(SysIconModify_1, [](SV image, CXError& e) { return sys_icon_modify(display(), image, {}, e); })
KP_BIND(SysIconModify_2,
        [](SV image, SV tip, CXError& e) { return sys_icon_modify(display(), image, tip, e); })
KP_BIND(SysIconDelete_1, [](CXError& e) { return sys_icon_delete(display(), {}, e); })
KP_BIND(SysIconDelete_2, [](SV image, CXError& e) { return sys_icon_delete(display(), image, e); })

// Power.
KP_BIND(SysShutdown_1,
        [](int32_t mode, CXError& e) { return sys_shutdown(display(), bus(), mode, false, e); })
KP_BIND(SysShutdown_2, [](int32_t mode, int32_t interactive, CXError& e) {
    return sys_shutdown(display(), bus(), mode, interactive != 0, e);
})
KP_BIND(SysStandby_1, [](CXError& e) { return sys_standby_delay(bus(), e); })
KP_BIND(SysStandby_2, [](int32_t delay, CXError& e) { return sys_standby(bus(), delay, 0, e); })
KP_BIND(SysStandby_3,
        [](int32_t delay, int32_t source, CXError& e) { return sys_standby(bus(), delay, source, e); })
KP_BIND(SysIMEI_1, [](CXError& e) { return sys_imei(bus(), e); })

// System information.
KP_BIND(SysDir_1, [](CXError& e) { return sys_dir(1, e); })
KP_BIND(SysDir_2, [](int32_t code, CXError& e) { return sys_dir(code, e); })
KP_BIND(SysNameExe_1, [](int32_t instance, CXError& e) { return sys_name_exe(instance, e); })
KP_BIND(SysWindowsVersion_1, [](CXError& e) { return sys_windows_version(0, e); })
KP_BIND(SysWindowsVersion_2, [](int32_t selector, CXError& e) {
    // 0 is the form without a selector; as an argument it is not a selector.
    if (selector == 0) {
        fail_system(e, 87);
        return std::u16string();
    }
    return sys_windows_version(selector, e);
})
KP_BIND(SysEnvironment_1, [] { return sys_environment(); })
KP_BIND(SysEnvironment_2, [](SV name) { return sys_environment(name); })
KP_BIND(SysSerialNum_1, [](CXError& e) { return sys_serial_num(e); })
KP_BIND(SysDirStorageCard_1, [](CXError& e) { return sys_dir_storage_card(1, e); })
KP_BIND(SysDirStorageCard_2, [](int32_t n, CXError& e) { return sys_dir_storage_card(n, e); })
KP_BIND(SysSpace_1, [](CXError& e) { return sys_space(1, e); })
KP_BIND(SysSpace_2, [](int32_t which, CXError& e) { return sys_space(which, e); })

} // namespace kp::handlers
