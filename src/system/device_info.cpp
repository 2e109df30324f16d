// device_info.cpp - power requests and system information.
#include <algorithm>
#include <cstddef>
#include <limits>

#include "component/runtime.h"
#include "platform/codepage.h"
#include "platform/directory.h"
#include "platform/paths.h"
#include "platform/power.h"
#include "platform/processes.h"
#include "platform/sysinfo.h"
#include "platform/win32_error.h"
#include "system/device.h"

namespace kp::system {

namespace {

using platform::kErrorInvalidParameter;
using platform::kErrorNotSupported;

void fail_last(CXError& err) {
    const uint32_t code = platform::last_error();
    fail_system(err, code ? code : kErrorNotSupported);
}

// A host path as the program sees it: a device name under the device root,
// else the host path itself.
std::u16string as_device_name(const std::string& host_path) {
    std::u16string device = platform::device_name_of(platform::device_root(), host_path);
    return device.empty() ? platform::from_utf8(host_path) : device;
}

int32_t kilobytes(uint64_t bytes) {
    return static_cast<int32_t>(std::min<uint64_t>(bytes / 1024, std::numeric_limits<int32_t>::max()));
}

} // namespace

// ---- Power ----------------------------------------------------------------

bool sys_shutdown(const kp_display* d, std::string_view bus, int32_t mode, bool interactive, CXError& err) {
    platform::PowerAction action;
    switch (mode) {
    case kSysLogoff:
        action = platform::PowerAction::Logoff;
        break;
    case kSysPoweroff:
        action = platform::PowerAction::PowerOff;
        break;
    case kSysReboot:
        action = platform::PowerAction::Reboot;
        break;
    case kSysPoweroffScreen:
    case kSysPoweronScreen: {
        auto f = runtime::slot(d, &kp_display::screen_power);
        if (!f || !f(d->self, mode == kSysPoweronScreen ? 1 : 0)) {
            fail_system(err, kErrorNotSupported);
            return false;
        }
        return true;
    }
    default:
        fail_system(err, kErrorInvalidParameter);
        return false;
    }
    platform::set_last_error(0);
    if (!platform::request_power_action(bus, action, interactive)) {
        fail_last(err);
        return false;
    }
    return true;
}

int32_t sys_standby_delay(std::string_view bus, CXError& err) {
    platform::set_last_error(0);
    const int64_t s = platform::idle_standby_seconds(bus);
    if (s < 0) {
        fail_last(err);
        return -1;
    }
    return static_cast<int32_t>(s);
}

bool sys_standby(std::string_view bus, int32_t delay, int32_t source, CXError& err) {
    if (delay < 0 || source < 0 || source > kSysMainsPower) {
        fail_system(err, kErrorInvalidParameter);
        return false;
    }
    if (delay > 0) {
        fail_system(err, kErrorNotSupported);
        return false;
    }
    platform::set_last_error(0);
    if (source != 0) {
        const int32_t battery = platform::on_battery(bus);
        if (battery < 0) {
            fail_last(err);
            return false;
        }
        if ((battery == 1) != (source == kSysBattery)) return false;
    }
    if (!platform::request_power_action(bus, platform::PowerAction::Suspend, false)) {
        fail_last(err);
        return false;
    }
    return true;
}

std::u16string sys_imei(std::string_view bus, CXError& err) {
    platform::set_last_error(0);
    std::string id = platform::modem_equipment_identifier(bus);
    if (id.empty()) {
        fail_last(err);
        return {};
    }
    return platform::from_utf8(id);
}

// ---- System information ---------------------------------------------------

std::u16string sys_dir_name(int32_t code) {
    static const char16_t* const names[] = {
        u"\\Windows",                                             // srSystem
        u"\\Windows",                                             // srWindows
        u"\\Windows\\Start Menu",                                 // srStartMenu
        u"\\Windows\\Start Menu",                                 // srCommonStartMenu
        u"\\Windows\\Start Menu\\Programs",                       // srPrograms
        u"\\Windows\\Start Menu\\Programs",                       // srCommonPrograms
        u"\\Windows\\Favorites",                                  // srFavorites
        u"\\Windows\\Favorites",                                  // srCommonFavorites
        u"\\Windows\\StartUp",                                    // srStartup
        u"\\Windows\\StartUp",                                    // srCommonStartup
        u"\\Windows\\SendTo",                                     // srSendTo
        u"\\Windows\\Desktop",                                    // srDesktop
        u"\\Windows\\Desktop",                                    // srCommonDesktop
        u"\\Windows\\Start Menu\\Programs\\Administrative Tools", // srAdminTools
        u"\\Windows\\Start Menu\\Programs\\Administrative Tools", // srCommonAdminTools
        u"\\Application Data",                                    // srAppData
        u"\\Application Data",                                    // srCommonAppData
        u"\\Application Data",                                    // srLocalAppData
        u"\\My Documents",                                        // srMyDocuments
        u"\\My Documents",                                        // srCommonMyDocuments
        u"\\My Documents\\My Pictures",                           // srMyPictures
        u"\\Windows\\Templates",                                  // srTemplates
        u"\\Windows\\Templates",                                  // srCommonTemplates
        u"\\",                                                    // srProfile
        u"\\Windows\\Recent",                                     // srRecent
        u"\\Windows\\Fonts",                                      // srFonts
        u"\\Windows\\Cookies",                                    // srCookies
        u"\\Windows\\Temporary Internet Files",                   // srInternetCache
        u"\\Program Files",                                       // srProgramFiles
        u"\\Program Files\\Common Files",                         // srCommonProgramFiles
    };
    if (code < 0 || code >= static_cast<int32_t>(std::size(names))) return {};
    return names[code];
}

std::u16string sys_dir(int32_t code, CXError& err) {
    std::u16string name = sys_dir_name(code);
    if (name.empty()) {
        fail_system(err, kErrorInvalidParameter);
        return {};
    }
    platform::ResolvedName r;
    if (!platform::resolve_device_name(name, r)) {
        fail_last(err);
        return {};
    }
    if (!r.exists && !platform::create_directory_tree(name)) {
        fail_last(err);
        return {};
    }
    return name;
}

uintptr_t sys_instance() {
    return static_cast<uintptr_t>(platform::own_process_id());
}

std::u16string sys_name_exe(int64_t instance, CXError& err) {
    platform::set_last_error(0);
    const std::string path =
        platform::process_executable(instance == platform::own_process_id() ? 0 : instance);
    if (path.empty()) {
        fail_last(err);
        return {};
    }
    return as_device_name(path);
}

std::u16string windows_version_of(int32_t selector, std::string_view sysname, std::string_view release,
                                  std::string_view os_release, bool* known) {
    *known = true;
    switch (selector) {
    case 0: {
        std::string s(sysname);
        const std::string n = platform::release_number(release);
        if (!n.empty()) s += " " + n;
        return platform::from_utf8(s);
    }
    case 1:
        return platform::from_utf8(platform::release_number(release));
    case 2:
        return platform::from_utf8(release);
    case 3:
        return platform::from_utf8(sysname);
    case 4: {
        if (auto pretty = platform::os_release_value(os_release, "PRETTY_NAME"); pretty && !pretty->empty())
            return platform::from_utf8(*pretty);
        std::string s = platform::os_release_value(os_release, "NAME").value_or(std::string(sysname));
        if (auto v = platform::os_release_value(os_release, "VERSION"); v && !v->empty()) s += " " + *v;
        return platform::from_utf8(s);
    }
    default:
        *known = false;
        return {};
    }
}

std::u16string sys_windows_version(int32_t selector, CXError& err) {
    const platform::KernelInfo k = platform::kernel_info();
    bool known = false;
    std::u16string v = windows_version_of(selector, k.sysname, k.release,
                                          selector == 4 ? platform::read_os_release() : "", &known);
    if (!known) fail_system(err, kErrorInvalidParameter);
    return v;
}

std::u16string sys_environment() {
    std::u16string out;
    for (const std::string& e : platform::environment_entries()) {
        if (!out.empty()) out += u"\r\n";
        out += platform::from_utf8(e);
    }
    return out;
}

std::u16string sys_environment(std::u16string_view name) {
    auto v = platform::environment_value(platform::to_utf8(name));
    return v ? platform::from_utf8(*v) : std::u16string();
}

std::u16string sys_serial_num(CXError& err) {
    platform::set_last_error(0);
    std::string s = platform::machine_serial();
    if (s.empty()) {
        fail_last(err);
        return {};
    }
    return platform::from_utf8(s);
}

std::u16string sys_dir_storage_card(int32_t n, CXError& err) {
    if (n < 1) {
        fail_system(err, kErrorInvalidParameter);
        return {};
    }
    const std::vector<std::string> mounts =
        platform::removable_mounts(platform::read_mountinfo(), platform::block_device_removable);
    if (static_cast<std::size_t>(n) > mounts.size()) return {};
    return as_device_name(mounts[static_cast<std::size_t>(n) - 1]);
}

int32_t sys_space(int32_t which, CXError& err) {
    uint64_t total = 0, available = 0;
    platform::set_last_error(0);
    switch (which) {
    case 1:
    case 2:
        if (!platform::memory_figures(&total, &available)) break;
        return kilobytes(which == 1 ? available : total);
    case 3:
    case 4: {
        const std::string root = platform::device_root();
        if (!platform::storage_figures(root.empty() ? "/" : root, &total, &available)) break;
        return kilobytes(which == 3 ? available : total);
    }
    default:
        fail_system(err, kErrorInvalidParameter);
        return -1;
    }
    fail_last(err);
    return -1;
}

} // namespace kp::system
