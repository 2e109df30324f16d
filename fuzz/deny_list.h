// deny_list.h - the overloads the generic fuzz target never calls.
#pragma once

#include <cstring>

#include "kp120/types.h"

namespace kp::fuzz {

// Functions that would block, leave the sandbox or change the machine:
// processes (ExeRun starts any program of the device and may wait for it,
// ShellExecute launches desktop applications, ExeTerminate stops real
// processes of the machine by name or identifier; the functions that only
// count or list processes stay fuzzed), the clipboard (shared with the
// desktop), setting the system date or time (the overloads of DateSys,
// TimeSys, Today and Now that take a value), the forms of fRead, fWrite and
// fWriteLine that copy to or from a memory address given as an integer (any
// mapped address is fair game for them), and the device functions that act
// on the real machine: SysShutdown and SysStandby (power off, reboot, log
// off, suspend through logind), EmulateInput and EmulateMouse (synthetic
// keys and clicks into whatever window has the focus), SysScreenOrientation
// with an argument (turns the screen), the setter forms (two arguments) of
// SysColor and SysWinTitle, SysWinShow, SysWinActive and SysSetFocus with a
// handle (other programs' windows), and SelectColor (a dialog that waits
// for the user).  The file selectors are called: the host has no selector
// installed, so every dialog is cancelled.
enum class Which { All, WithArguments, AddressForm, Setter };
struct Denied {
    const char* english;
    Which which;
};
constexpr Denied kDenied[] = {
    {"ExeRun", Which::All},
    {"ShellExecute", Which::All},
    {"ExeTerminate", Which::All},
    {"ToClipboard", Which::All},
    {"Clipboard", Which::All},
    {"ClipboardHeight", Which::All},
    {"ClipboardWidth", Which::All},
    {"ClipboardFormat", Which::All},
    {"TableToClipboard", Which::All},
    {"DateSys", Which::WithArguments},
    {"TimeSys", Which::WithArguments},
    {"Today", Which::WithArguments},
    {"Now", Which::WithArguments},
    {"fRead", Which::AddressForm},
    {"fWrite", Which::AddressForm},
    {"fWriteLine", Which::AddressForm},
    {"SysShutdown", Which::All},
    {"SysStandby", Which::All},
    {"EmulateInput", Which::All},
    {"EmulateMouse", Which::All},
    {"SysScreenOrientation", Which::WithArguments},
    {"SysColor", Which::Setter},
    {"SysWinShow", Which::All},
    {"SysWinActive", Which::WithArguments},
    {"SysSetFocus", Which::All},
    {"SysWinTitle", Which::Setter},
    {"SelectColor", Which::All},
};

inline bool address_form(const kp_overload& ov) {
    if (ov.param_count != 3) return false;
    for (int k = 0; k < 3; ++k)
        if ((ov.params[k] & 0xFF) != KP_T_INT) return false;
    return true;
}

inline bool denied(const kp_function& fn, const kp_overload& ov) {
    for (const Denied& d : kDenied) {
        if (std::strcmp(fn.english, d.english) != 0) continue;
        if (d.which == Which::All || (d.which == Which::WithArguments && ov.param_count > 0) ||
            (d.which == Which::AddressForm && address_form(ov)) ||
            (d.which == Which::Setter && ov.param_count >= 2))
            return true;
    }
    return false;
}

} // namespace kp::fuzz
