// dbus_bus.h - a private D-Bus daemon of the test's own (never the
// machine's system bus) and python3-dbusmock services on it, each logging
// the methods it receives to a file of the test.
#pragma once

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "support/test_host.h"
#include "xvfb.h"

namespace kp::test {

class PrivateBus {
  public:
    bool start() {
        const auto cfg = dir_.path() / "bus.conf";
        std::ofstream(cfg)
            << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
               " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
               "<busconfig><type>session</type><listen>unix:dir="
            << dir_.path().string()
            << "</listen><policy context=\"default\"><allow send_destination=\"*\"/><allow "
               "receive_sender=\"*\"/>"
               "<allow own=\"*\"/></policy></busconfig>\n";
        if (!daemon_.start({"dbus-daemon", "--config-file=" + cfg.string(), "--print-address=1", "--nofork",
                            "--nopidfile"},
                           {}, true))
            return false;
        address_ = daemon_.line(10000);
        return !address_.empty();
    }
    const std::string& address() const { return address_; }
    std::filesystem::path path(const std::string& name) const { return dir_.path() / name; }

    // A dbusmock service from a template, logging to <log>; waits until
    // `bus_name` is on the bus.
    bool mock(Child& child, const std::string& tmpl, const std::string& bus_name, const std::string& log,
              const std::string& parameters = "{}") {
        if (!child.start({"/usr/bin/python3", "-m", "dbusmock", "--system", "-t", tmpl, "-l",
                          path(log).string(), "-p", parameters},
                         {"DBUS_SYSTEM_BUS_ADDRESS=" + address_, "DBUS_SESSION_BUS_ADDRESS=" + address_}))
            return false;
        for (int i = 0; i < 200; ++i) {
            if (gdbus("call --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus --method "
                      "org.freedesktop.DBus.NameHasOwner " +
                      bus_name)
                    .find("true") != std::string::npos)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }
    // gdbus on this bus.
    std::string gdbus(const std::string& args) const {
        return run_on("", "gdbus " + args.substr(0, args.find(' ')) + " --address " + address_ +
                              args.substr(args.find(' ')));
    }
    // The methods a mock logged, without their time stamps.
    std::vector<std::string> calls(const std::string& log) const {
        std::ifstream in(path(log));
        std::vector<std::string> out;
        std::string line;
        while (std::getline(in, line)) {
            const std::size_t sp = line.find(' ');
            out.push_back(sp == std::string::npos ? line : line.substr(sp + 1));
        }
        return out;
    }

  private:
    TempDir dir_;
    Child daemon_;
    std::string address_;
};

} // namespace kp::test
