// power.h - the system's power and hardware services over D-Bus: session
// and machine power through systemd-logind, the power source through
// UPower, the modem's equipment identifier through ModemManager (oFono when
// ModemManager is absent).
//
// Every request goes to the bus named by `bus`: "" is the system bus, a
// D-Bus address ("unix:path=...") is that bus, and "none" refuses every
// request (ERROR_NOT_SUPPORTED) - the setting hosts use where the machine's
// own power must stay out of reach.  Each call waits at most
// kServiceTimeoutMs for its answer; a missing or silent service fails with
// the Win32 code of its D-Bus error (1460 for a timeout) as last error.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kp::platform {

constexpr uint64_t kServiceTimeoutMs = 3000;

enum class PowerAction { PowerOff, Reboot, Logoff, Suspend };

// Asks logind for `action`: PowerOff, Reboot and Suspend on its manager
// (with the `interactive` flag that lets it ask the user for authorisation),
// Logoff as TerminateSession of this process's session.
bool request_power_action(std::string_view bus, PowerAction action, bool interactive);

// 1 when the machine runs on battery, 0 on mains power (UPower OnBattery);
// -1 on failure.
int32_t on_battery(std::string_view bus);

// Seconds of inactivity after which logind puts the machine to sleep on its
// own (IdleActionUSec when IdleAction sleeps), 0 when it never does; -1 on
// failure.
int64_t idle_standby_seconds(std::string_view bus);

// The first modem's equipment identifier (IMEI): ModemManager's
// EquipmentIdentifier of the lowest-numbered modem, else oFono's Serial of
// its first modem; "" with the last error when there is none.
std::string modem_equipment_identifier(std::string_view bus);

} // namespace kp::platform
