// x11_keys.cpp - the table of Win32 virtual-key codes and the X key symbols
// of the keys they stand for.
#include "x11_keys.h"

// clang-format off
#include <X11/keysym.h>
#include <X11/XF86keysym.h>
// clang-format on

#include <algorithm>
#include <iterator>

namespace kp::host::x11 {

namespace {

struct Entry {
    int32_t vk;
    unsigned long keysym;
};

// Virtual keys with the unshifted symbol of each key that is that virtual
// key; a virtual key listed twice has two keys (the keypad's navigation keys
// without Num Lock are the navigation keys).  Letters, digits, F1 to F24
// and the keypad digits are ranges, below.
constexpr Entry kTable[] = {
    {0x03, XK_Cancel},
    {0x08, XK_BackSpace},
    {0x09, XK_Tab},
    {0x09, XK_ISO_Left_Tab},
    {0x0C, XK_Clear},
    {0x0C, XK_KP_Begin},
    {0x0D, XK_Return},
    {0x0D, XK_KP_Enter},
    {0x10, XK_Shift_L},
    {0x10, XK_Shift_R},
    {0x11, XK_Control_L},
    {0x11, XK_Control_R},
    {0x12, XK_Alt_L},
    {0x12, XK_Alt_R},
    {0x12, XK_Meta_L},
    {0x12, XK_Meta_R},
    {0x13, XK_Pause},
    {0x14, XK_Caps_Lock},
    {0x15, XK_Hangul},
    {0x15, XK_Kana_Lock},
    {0x17, XK_Hangul_Jeonja},
    {0x19, XK_Hangul_Hanja},
    {0x19, XK_Kanji},
    {0x1B, XK_Escape},
    {0x1C, XK_Henkan},
    {0x1D, XK_Muhenkan},
    {0x1F, XK_Mode_switch},
    {0x20, XK_space},
    {0x20, XK_KP_Space},
    {0x21, XK_Prior},
    {0x21, XK_KP_Prior},
    {0x22, XK_Next},
    {0x22, XK_KP_Next},
    {0x23, XK_End},
    {0x23, XK_KP_End},
    {0x24, XK_Home},
    {0x24, XK_KP_Home},
    {0x25, XK_Left},
    {0x25, XK_KP_Left},
    {0x26, XK_Up},
    {0x26, XK_KP_Up},
    {0x27, XK_Right},
    {0x27, XK_KP_Right},
    {0x28, XK_Down},
    {0x28, XK_KP_Down},
    {0x29, XK_Select},
    {0x2B, XK_Execute},
    {0x2C, XK_Print},
    {0x2C, XK_Sys_Req},
    {0x2D, XK_Insert},
    {0x2D, XK_KP_Insert},
    {0x2E, XK_Delete},
    {0x2E, XK_KP_Delete},
    {0x2F, XK_Help},
    {0x5B, XK_Super_L},
    {0x5C, XK_Super_R},
    {0x5D, XK_Menu},
    {0x5F, XF86XK_Sleep},
    {0x6A, XK_KP_Multiply},
    {0x6B, XK_KP_Add},
    {0x6C, XK_KP_Separator},
    {0x6D, XK_KP_Subtract},
    {0x6E, XK_KP_Decimal},
    {0x6F, XK_KP_Divide},
    {0x90, XK_Num_Lock},
    {0x91, XK_Scroll_Lock},
    {0xA0, XK_Shift_L},
    {0xA1, XK_Shift_R},
    {0xA2, XK_Control_L},
    {0xA3, XK_Control_R},
    {0xA4, XK_Alt_L},
    {0xA5, XK_Alt_R},
    {0xA5, XK_ISO_Level3_Shift},
    {0xA6, XF86XK_Back},
    {0xA7, XF86XK_Forward},
    {0xA8, XF86XK_Refresh},
    {0xA9, XF86XK_Stop},
    {0xAA, XF86XK_Search},
    {0xAB, XF86XK_Favorites},
    {0xAC, XF86XK_HomePage},
    {0xAD, XF86XK_AudioMute},
    {0xAE, XF86XK_AudioLowerVolume},
    {0xAF, XF86XK_AudioRaiseVolume},
    {0xB0, XF86XK_AudioNext},
    {0xB1, XF86XK_AudioPrev},
    {0xB2, XF86XK_AudioStop},
    {0xB3, XF86XK_AudioPlay},
    {0xB4, XF86XK_Mail},
    {0xB5, XF86XK_AudioMedia},
    {0xB6, XF86XK_MyComputer},
    {0xB7, XF86XK_Calculator},
    // The punctuation keys (VK_OEM_*), by the symbols of a US keyboard;
    // another layout's punctuation keys are the virtual keys of their own
    // unshifted symbols.
    {0xBA, XK_semicolon},
    {0xBB, XK_equal},
    {0xBC, XK_comma},
    {0xBD, XK_minus},
    {0xBE, XK_period},
    {0xBF, XK_slash},
    {0xC0, XK_grave},
    {0xDB, XK_bracketleft},
    {0xDC, XK_backslash},
    {0xDD, XK_bracketright},
    {0xDE, XK_apostrophe},
    {0xE2, XK_less},
};

// The sided modifiers are found by their symbols as the generic ones.
int32_t generic(int32_t vk) {
    switch (vk) {
    case 0xA0:
    case 0xA1:
        return 0x10;
    case 0xA2:
    case 0xA3:
        return 0x11;
    case 0xA4:
    case 0xA5:
        return 0x12;
    default:
        return vk;
    }
}

} // namespace

std::vector<unsigned long> keysyms_of_virtual_key(int32_t vk) {
    if (vk >= 'A' && vk <= 'Z') return {static_cast<unsigned long>(XK_a + (vk - 'A'))};
    if (vk >= '0' && vk <= '9') return {static_cast<unsigned long>(XK_0 + (vk - '0'))};
    if (vk >= 0x60 && vk <= 0x69) return {static_cast<unsigned long>(XK_KP_0 + (vk - 0x60))};
    if (vk >= 0x70 && vk <= 0x87) return {static_cast<unsigned long>(XK_F1 + (vk - 0x70))};
    std::vector<unsigned long> out;
    for (const Entry& e : kTable)
        if (e.vk == vk) out.push_back(e.keysym);
    return out;
}

bool is_virtual_key_at_level(int32_t vk, int level) {
    const bool punctuation = vk >= 0xBA && vk <= 0xE2;
    return level == 0 || (level == 1 && !punctuation);
}

int32_t virtual_key_of_keysym(unsigned long s) {
    if (s >= XK_a && s <= XK_z) return static_cast<int32_t>('A' + (s - XK_a));
    if (s >= XK_A && s <= XK_Z) return static_cast<int32_t>('A' + (s - XK_A));
    if (s >= XK_0 && s <= XK_9) return static_cast<int32_t>('0' + (s - XK_0));
    if (s >= XK_KP_0 && s <= XK_KP_9) return static_cast<int32_t>(0x60 + (s - XK_KP_0));
    if (s >= XK_F1 && s <= XK_F24) return static_cast<int32_t>(0x70 + (s - XK_F1));
    const auto it =
        std::find_if(std::begin(kTable), std::end(kTable), [&](const Entry& e) { return e.keysym == s; });
    return it == std::end(kTable) ? 0 : generic(it->vk);
}

} // namespace kp::host::x11
