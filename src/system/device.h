// device.h - the device's screen, windows, input, notification icon, power
// and system information (the Sys functions, cursor and input emulation).
//
// Screen, windows and input are the VM's user interface: every function of
// the first group takes the VM's display (kp_display of kp120/vm.h, null
// when the VM has none) and asks it.  A missing display or a display
// operation the VM left empty fails with ERROR_NOT_SUPPORTED (50); a handle
// that is not a window fails with ERROR_INVALID_WINDOW_HANDLE (1400).
// Failures record the system error with severity 2 and return the failure
// value the comment of each function gives.
//
// Power goes to the system's services over D-Bus on the bus the host's
// "system_bus" setting names (see platform/power.h); system information
// comes from the platform layer.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "component/error.h"
#include "kp120/vm.h"

namespace kp::system {

constexpr uint32_t kErrorInvalidWindowHandle = 1400;
constexpr uint32_t kErrorInvalidMenuHandle = 1401;

// ---- Screen -------------------------------------------------------------

// Width and height of the screen in pixels, as it is turned now; 0 on failure.
int32_t sys_x_res(const kp_display* d, CXError& err);
int32_t sys_y_res(const kp_display* d, CXError& err);
// Colour depth in bits per pixel (16 on the handheld); 0 on failure.
int32_t sys_color_res(const kp_display* d, CXError& err);
// A system metric by its met code (the values of GetSystemMetrics); the
// screen and full-screen sizes come from the screen itself.  -1 for a code
// the display does not know (87).
int32_t sys_metric(const kp_display* d, int32_t code, CXError& err);
// The orientations the screen can take, as the Orient texts ("0", "90",
// "180", "270") separated by CR LF, in increasing order; "" on failure.
std::u16string sys_list_screen_orientation(const kp_display* d, CXError& err);
// The current orientation as an Orient text; "" on failure.
std::u16string sys_screen_orientation(const kp_display* d, CXError& err);
// Turns the screen to an Orient text; false for a text that is not one of
// the four (87) or an orientation the screen cannot take (50).
bool sys_set_screen_orientation(const kp_display* d, std::u16string_view orientation, CXError& err);
// Colour of a system element, an sc element code (0x40000000 + index, or
// the bare index 0-20); -1 for an unknown element (87).
int32_t sys_color(const kp_display* d, int32_t element, CXError& err);
bool sys_set_color(const kp_display* d, int32_t element, int32_t colour, CXError& err);

// ---- Windows ------------------------------------------------------------

// Title of a window; "" on failure.  Set: false on failure.
std::u16string sys_win_title(const kp_display* d, uintptr_t window, CXError& err);
bool sys_set_win_title(const kp_display* d, uintptr_t window, std::u16string_view title, CXError& err);
// First top-level window with this exact title (and class, when the class
// is not empty); 0 when none, which is not an error.  An empty title
// matches any title.
uintptr_t sys_win_handle(const kp_display* d, std::u16string_view title, std::u16string_view class_name,
                         CXError& err);
// The active window (0 when none); with a window, activates it and answers
// the window that was active before (0 on failure).
uintptr_t sys_win_active(const kp_display* d, CXError& err);
uintptr_t sys_activate(const kp_display* d, uintptr_t window, CXError& err);
// Gives a window the focus; answers the window that had it (0 on failure).
uintptr_t sys_set_focus(const kp_display* d, uintptr_t window, CXError& err);
// Applies an sws show mode (hide 0, normal 1, minimize 2, maximize 3,
// activate 4, visible 5, refresh 8, restore 9); false on failure.
bool sys_win_show(const kp_display* d, uintptr_t window, int32_t mode, CXError& err);
// Whether a window is minimized; false on failure.
bool sys_iconize(const kp_display* d, uintptr_t window, CXError& err);
// Whether a handle is a window; false, without an error, when it is not.
bool sys_valid_handle(const kp_display* d, uintptr_t window, CXError& err);
// Menu bar of a window, a submenu by position from 0, a drawing context of
// a window and its release; 0 / false on failure.
uintptr_t sys_get_menu(const kp_display* d, uintptr_t window, CXError& err);
uintptr_t sys_get_sub_menu(const kp_display* d, uintptr_t menu, int32_t position, CXError& err);
uintptr_t sys_get_dc(const kp_display* d, uintptr_t window, CXError& err);
bool sys_release_dc(const kp_display* d, uintptr_t window, uintptr_t dc, CXError& err);

// ---- Input --------------------------------------------------------------

// The pointer position relative to an origin: cpScreen (0) the screen,
// cpWindow (1) the active window's frame, cpClient (2) its client area.
// The result packs x in its low 16 bits and y in its high 16 bits, each a
// signed 16-bit number; -1 on failure (87 for an unknown origin).
int32_t cursor_pos(const kp_display* d, int32_t origin, CXError& err);
// Whether a key (a virtual-key code, the kp values) is down; the display's
// key state first, else the VM's key-state service.
bool key_pressed(const kp_display* d, int32_t virtual_key, CXError& err);
// Types text into the window that has the focus, the di modifiers (diShift
// 1, diAlt 2, diControl 4) held; false on failure (87 for other bits).
bool emulate_input(const kp_display* d, std::u16string_view text, int32_t modifiers, CXError& err);
// A dm mouse action at the pointer, or at (x, y) on the screen; action 0
// with coordinates only moves the pointer.  false on failure (87 for an
// action that is not one of the dm values).
bool emulate_mouse(const kp_display* d, int32_t action, CXError& err);
bool emulate_mouse_at(const kp_display* d, int32_t action, int32_t x, int32_t y, CXError& err);
// The colour dialog: the chosen colour, -1 when the user cancels (no error).
int32_t select_color(const kp_display* d, int32_t initial, int32_t flags, CXError& err);

// ---- Notification area --------------------------------------------------

// The program's one icon: added with its image file (a device name), an
// optional tooltip and an optional balloon message; modified (image, then
// tooltip; an empty text leaves that part as it is); deleted (when an
// image is given, only if the icon shows it).  false on failure (6 when
// there is no such icon).
bool sys_icon_add(const kp_display* d, std::u16string_view image, std::u16string_view tooltip,
                  std::u16string_view balloon, CXError& err);
bool sys_icon_modify(const kp_display* d, std::u16string_view image, std::u16string_view tooltip,
                     CXError& err);
bool sys_icon_delete(const kp_display* d, std::u16string_view image, CXError& err);

// ---- Power --------------------------------------------------------------

constexpr int32_t kSysLogoff = 1, kSysPoweroff = 2, kSysReboot = 3, kSysPoweroffScreen = 4,
                  kSysPoweronScreen = 5;
constexpr int32_t kSysInactiveStandby = 0, kSysBattery = 1, kSysMainsPower = 2;

// sysLogoff, sysPoweroff, sysReboot through logind; sysPoweroffScreen and
// sysPoweronScreen through the display.  `interactive` lets logind ask the
// user for authorisation.  false on failure (87 for an unknown mode).
bool sys_shutdown(const kp_display* d, std::string_view bus, int32_t mode, bool interactive, CXError& err);
// Seconds of inactivity before the system sleeps on its own, 0
// (sysInactiveStandby) when it never does; -1 on failure.
int32_t sys_standby_delay(std::string_view bus, CXError& err);
// Puts the device to sleep now (logind Suspend).  `delay` must be 0: the
// automatic standby delay belongs to the system's power settings (50 for a
// positive delay, 87 for a negative one).  `source` limits the request to
// a power source: sysBattery or sysMainsPower (0: either); on the other
// source the call does nothing and answers false without an error.
bool sys_standby(std::string_view bus, int32_t delay, int32_t source, CXError& err);
// The first modem's IMEI; "" on failure.
std::u16string sys_imei(std::string_view bus, CXError& err);

// ---- System information -------------------------------------------------

// Device directory of an sr code, created under the device root when
// missing; "" for an unknown code (87).  The map, srSystem (0) to
// srCommonProgramFiles (29):
//   0, 1 "\Windows"; 2, 3 "\Windows\Start Menu"; 4, 5 "\Windows\Start Menu\Programs";
//   6, 7 "\Windows\Favorites"; 8, 9 "\Windows\StartUp"; 10 "\Windows\SendTo";
//   11, 12 "\Windows\Desktop"; 13, 14 "\Windows\Start Menu\Programs\Administrative Tools";
//   15, 16, 17 "\Application Data"; 18, 19 "\My Documents";
//   20 "\My Documents\My Pictures"; 21, 22 "\Windows\Templates"; 23 "\";
//   24 "\Windows\Recent"; 25 "\Windows\Fonts"; 26 "\Windows\Cookies";
//   27 "\Windows\Temporary Internet Files"; 28 "\Program Files";
//   29 "\Program Files\Common Files".
// The device has one user, so the common directories are the user's.
std::u16string sys_dir_name(int32_t code); // "" for an unknown code
std::u16string sys_dir(int32_t code, CXError& err);
// The instance of the running program: its process identifier.
uintptr_t sys_instance();
// Path of the program of an instance (a process identifier; 0 and the
// program's own instance: the running program), as a device name when it
// lies under the device root, else as the host path; "" for an unknown
// instance (87).
std::u16string sys_name_exe(int64_t instance, CXError& err);
// The system's version: with no selector "<system> <version number>"; by
// sys selector: sysVersionNumber (1) the kernel's version number,
// sysVersionBuild (2) the kernel release, sysVersionPlatform (3) the
// kernel's name, sysVersionInfo (4) the distribution's PRETTY_NAME (NAME
// VERSION when it has none).  "" for an unknown selector (87).
std::u16string sys_windows_version(int32_t selector, CXError& err);
// Pure form for tests: from a kernel identity and os-release text.
std::u16string windows_version_of(int32_t selector, std::string_view sysname, std::string_view release,
                                  std::string_view os_release, bool* known);
// Every variable as NAME=value, one a line (CR LF between lines); or one
// variable's value, "" when unset (no error).
std::u16string sys_environment();
std::u16string sys_environment(std::u16string_view name);
// The machine's serial number; "" on failure.
std::u16string sys_serial_num(CXError& err);
// Mount point of the n-th removable medium (from 1; the form without an
// argument is the first), as a device name under the device root, else the
// host path.  "" when there are fewer media (no error); "" with 87 for n < 1.
std::u16string sys_dir_storage_card(int32_t n, CXError& err);
// Memory figures in kilobytes, capped at 2^31-1: sysFreeProgramSpace (1)
// available memory, sysProgramSpace (2) total memory, sysFreeStorageSpace
// (3) and sysStorageSpace (4) free and total space of the device's file
// system.  The form without an argument is sysFreeProgramSpace.  -1 for an
// unknown figure (87).
int32_t sys_space(int32_t which, CXError& err);

// Records a system error code with severity 2.
void fail_system(CXError& err, uint32_t code);

} // namespace kp::system
