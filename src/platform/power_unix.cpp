// power_unix.cpp - power.h over sd-bus (libsystemd): logind, UPower,
// ModemManager and oFono, each call bounded by kServiceTimeoutMs.
#include "platform/power.h"

#include <systemd/sd-bus.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/win32_error.h"

namespace kp::platform {

namespace {

constexpr const char* kLogind = "org.freedesktop.login1";
constexpr const char* kLogindPath = "/org/freedesktop/login1";
constexpr const char* kLogindManager = "org.freedesktop.login1.Manager";

// One connection for one request; closed when the request is done.
class Bus {
  public:
    explicit Bus(std::string_view address) {
        if (address == "none") {
            code_ = kErrorNotSupported;
            return;
        }
        int r;
        if (address.empty()) {
            r = sd_bus_open_system(&bus_);
        } else {
            r = sd_bus_new(&bus_);
            if (r >= 0) r = sd_bus_set_address(bus_, std::string(address).c_str());
            if (r >= 0) r = sd_bus_set_bus_client(bus_, 1);
            if (r >= 0) r = sd_bus_start(bus_);
        }
        if (r >= 0) r = sd_bus_set_method_call_timeout(bus_, kServiceTimeoutMs * 1000);
        if (r < 0) {
            code_ = win32_from_errno(-r);
            bus_ = sd_bus_flush_close_unref(bus_);
        }
    }
    ~Bus() { sd_bus_flush_close_unref(bus_); }
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
    sd_bus* get() const { return bus_; }
    // Records why the bus is not there; false.
    bool fail() const {
        set_last_error(code_ ? code_ : kErrorNotSupported);
        return false;
    }

  private:
    sd_bus* bus_ = nullptr;
    uint32_t code_ = 0;
};

// Records the failure of a call: the D-Bus error's errno, or r itself.
bool failed(int r, sd_bus_error* e) {
    int err = sd_bus_error_is_set(e) ? sd_bus_error_get_errno(e) : -r;
    if (r == -ETIMEDOUT) err = ETIMEDOUT;
    set_last_error(err > 0 ? win32_from_errno(err) : kErrorNotSupported);
    sd_bus_error_free(e);
    return false;
}

// This process's logind session.
std::string own_session(sd_bus* bus) {
    char* s = nullptr;
    if (sd_pid_get_session(0, &s) >= 0 && s) {
        std::string id(s);
        std::free(s);
        return id;
    }
    if (const char* env = std::getenv("XDG_SESSION_ID"); env && *env) return env;
    sd_bus_error e = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    std::string id;
    if (sd_bus_call_method(bus, kLogind, kLogindPath, kLogindManager, "GetSessionByPID", &e, &reply, "u",
                           static_cast<uint32_t>(getpid())) >= 0) {
        const char* path = nullptr;
        if (sd_bus_message_read(reply, "o", &path) >= 0 && path) {
            char* unescaped = nullptr;
            if (sd_bus_path_decode(path, "/org/freedesktop/login1/session", &unescaped) > 0 && unescaped) {
                id = unescaped;
                std::free(unescaped);
            }
        }
    }
    sd_bus_message_unref(reply);
    sd_bus_error_free(&e);
    return id;
}

} // namespace

bool request_power_action(std::string_view address, PowerAction action, bool interactive) {
    Bus bus(address);
    if (!bus.get()) return bus.fail();
    sd_bus_error e = SD_BUS_ERROR_NULL;
    int r;
    if (action == PowerAction::Logoff) {
        std::string session = own_session(bus.get());
        if (session.empty()) {
            set_last_error(kErrorNotSupported);
            return false;
        }
        r = sd_bus_call_method(bus.get(), kLogind, kLogindPath, kLogindManager, "TerminateSession", &e,
                               nullptr, "s", session.c_str());
    } else {
        const char* method = action == PowerAction::PowerOff ? "PowerOff"
                             : action == PowerAction::Reboot ? "Reboot"
                                                             : "Suspend";
        r = sd_bus_call_method(bus.get(), kLogind, kLogindPath, kLogindManager, method, &e, nullptr, "b",
                               interactive ? 1 : 0);
    }
    if (r < 0) return failed(r, &e);
    return true;
}

int32_t on_battery(std::string_view address) {
    Bus bus(address);
    if (!bus.get()) {
        bus.fail();
        return -1;
    }
    sd_bus_error e = SD_BUS_ERROR_NULL;
    int value = 0;
    int r = sd_bus_get_property_trivial(bus.get(), "org.freedesktop.UPower", "/org/freedesktop/UPower",
                                        "org.freedesktop.UPower", "OnBattery", &e, 'b', &value);
    if (r < 0) {
        failed(r, &e);
        return -1;
    }
    return value ? 1 : 0;
}

int64_t idle_standby_seconds(std::string_view address) {
    Bus bus(address);
    if (!bus.get()) {
        bus.fail();
        return -1;
    }
    sd_bus_error e = SD_BUS_ERROR_NULL;
    char* idle_action = nullptr;
    int r = sd_bus_get_property_string(bus.get(), kLogind, kLogindPath, kLogindManager, "IdleAction", &e,
                                       &idle_action);
    if (r < 0) {
        failed(r, &e);
        return -1;
    }
    std::string what = idle_action ? idle_action : "";
    std::free(idle_action);
    if (what != "suspend" && what != "hibernate" && what != "hybrid-sleep" &&
        what != "suspend-then-hibernate")
        return 0;
    uint64_t usec = 0;
    r = sd_bus_get_property_trivial(bus.get(), kLogind, kLogindPath, kLogindManager, "IdleActionUSec", &e,
                                    't', &usec);
    if (r < 0) {
        failed(r, &e);
        return -1;
    }
    return static_cast<int64_t>(std::min<uint64_t>(usec / 1000000, 0x7FFFFFFF));
}

namespace {

// Lowest-numbered ModemManager modem, "" when none (or no ModemManager).
std::string first_mm_modem(sd_bus* bus, int* result) {
    sd_bus_error e = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    *result = sd_bus_call_method(bus, "org.freedesktop.ModemManager1", "/org/freedesktop/ModemManager1",
                                 "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", &e, &reply, "");
    sd_bus_error_free(&e);
    std::vector<std::string> modems;
    if (*result >= 0 && sd_bus_message_enter_container(reply, 'a', "{oa{sa{sv}}}") > 0) {
        while (sd_bus_message_enter_container(reply, 'e', "oa{sa{sv}}") > 0) {
            const char* path = nullptr;
            if (sd_bus_message_read(reply, "o", &path) < 0) break;
            if (path && std::strncmp(path, "/org/freedesktop/ModemManager1/Modem/", 37) == 0)
                modems.emplace_back(path);
            if (sd_bus_message_skip(reply, "a{sa{sv}}") < 0 || sd_bus_message_exit_container(reply) < 0)
                break;
        }
    }
    sd_bus_message_unref(reply);
    std::sort(modems.begin(), modems.end(), [](const std::string& a, const std::string& b) {
        return a.size() != b.size() ? a.size() < b.size() : a < b; // numeric order of the last component
    });
    return modems.empty() ? std::string() : modems.front();
}

// oFono's first modem's Serial, "" when none.
std::string ofono_serial(sd_bus* bus, int* result) {
    sd_bus_error e = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    *result = sd_bus_call_method(bus, "org.ofono", "/", "org.ofono.Manager", "GetModems", &e, &reply, "");
    sd_bus_error_free(&e);
    std::string serial;
    if (*result >= 0 && sd_bus_message_enter_container(reply, 'a', "(oa{sv})") > 0 &&
        sd_bus_message_enter_container(reply, 'r', "oa{sv}") > 0) {
        const char* path = nullptr;
        if (sd_bus_message_read(reply, "o", &path) >= 0 &&
            sd_bus_message_enter_container(reply, 'a', "{sv}") > 0) {
            while (serial.empty() && sd_bus_message_enter_container(reply, 'e', "sv") > 0) {
                const char* key = nullptr;
                if (sd_bus_message_read(reply, "s", &key) < 0) break;
                if (key && std::strcmp(key, "Serial") == 0) {
                    const char* v = nullptr;
                    if (sd_bus_message_read(reply, "v", "s", &v) >= 0 && v) serial = v;
                } else if (sd_bus_message_skip(reply, "v") < 0) {
                    break;
                }
                sd_bus_message_exit_container(reply);
            }
        }
    }
    sd_bus_message_unref(reply);
    return serial;
}

} // namespace

std::string modem_equipment_identifier(std::string_view address) {
    Bus bus(address);
    if (!bus.get()) {
        bus.fail();
        return {};
    }
    int r = 0;
    std::string modem = first_mm_modem(bus.get(), &r);
    if (!modem.empty()) {
        sd_bus_error e = SD_BUS_ERROR_NULL;
        char* id = nullptr;
        int g =
            sd_bus_get_property_string(bus.get(), "org.freedesktop.ModemManager1", modem.c_str(),
                                       "org.freedesktop.ModemManager1.Modem", "EquipmentIdentifier", &e, &id);
        if (g < 0) {
            failed(g, &e);
            return {};
        }
        std::string out = id ? id : "";
        std::free(id);
        if (out.empty()) set_last_error(kErrorNotSupported);
        return out;
    }
    if (r == -ETIMEDOUT) {
        set_last_error(kErrorTimeout);
        return {};
    }
    int o = 0;
    std::string serial = ofono_serial(bus.get(), &o);
    if (serial.empty()) set_last_error(o == -ETIMEDOUT ? kErrorTimeout : kErrorNotSupported);
    return serial;
}

} // namespace kp::platform
