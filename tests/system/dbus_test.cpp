// Power, battery and modem requests against python3-dbusmock's logind, UPower and ModemManager
// on a private bus (the host's system_bus): nothing here reaches the machine's power services.
#include <algorithm>
#include <chrono>
#include <fstream>

#include "system_fixture.h"
#include "xvfb.h"

using kp::host::Value;
using kp::test::Child;
using kp::test::I;
using kp::test::run_on;
using kp::test::TempDir;

namespace {

// A private D-Bus daemon and dbusmock services on it, each logging the methods it receives.
class PrivateBus {
  public:
    bool start() {
        const auto cfg = dir_.path() / "bus.conf";
        std::ofstream(cfg) << "<busconfig><type>session</type><listen>unix:dir=" << dir_.path().string()
                           << "</listen><policy context=\"default\"><allow send_destination=\"*\"/>"
                              "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n";
        if (!daemon_.start({"dbus-daemon", "--config-file=" + cfg.string(), "--print-address=1", "--nofork",
                            "--nopidfile"},
                           {}, true))
            return false;
        address_ = daemon_.line(10000);
        return !address_.empty();
    }
    const std::string& address() const { return address_; }
    std::filesystem::path path(const std::string& name) const { return dir_.path() / name; }

    // A dbusmock service from a template, logging to <log>; waits until `bus_name` is on the bus.
    bool mock(Child& child, const std::string& tmpl, const std::string& bus_name, const std::string& log,
              const std::string& parameters = "{}") {
        if (!child.start({"/usr/bin/python3", "-m", "dbusmock", "--system", "-t", tmpl, "-l",
                          path(log).string(), "-p", parameters},
                         {"DBUS_SYSTEM_BUS_ADDRESS=" + address_, "DBUS_SESSION_BUS_ADDRESS=" + address_}))
            return false;
        return gdbus("wait --timeout 10 " + bus_name + " && echo up") == "up";
    }
    std::string gdbus(const std::string& args) const {
        return run_on("", "gdbus " + args.substr(0, args.find(' ')) + " --address " + address_ +
                              args.substr(args.find(' ')));
    }
    // The methods a mock logged, without their time stamps.
    std::vector<std::string> calls(const std::string& log) const {
        std::ifstream in(path(log));
        std::vector<std::string> out;
        for (std::string line; std::getline(in, line);)
            out.push_back(line.substr(line.find(' ') + 1)); // npos + 1: the whole line
        return out;
    }

  private:
    TempDir dir_;
    Child daemon_;
    std::string address_;
};

struct DBus : ::testing::Test {
    struct Services {
        PrivateBus bus;
        Child logind, upower, modems;
    };
    static inline Services* s = nullptr;
    static inline std::string why;
    static void SetUpTestSuite() {
        s = new Services;
        if (!s->bus.start()) why = "dbus-daemon did not start";
        const std::tuple<Child*, const char*, const char*, const char*, const char*> mocks[] = {
            {&s->logind, "logind", "org.freedesktop.login1", "logind.log", "{}"},
            {&s->upower, "upower", "org.freedesktop.UPower", "upower.log", "{\"OnBattery\": true}"},
            {&s->modems, KP120_SOURCE_DIR "/tests/system/modemmanager_mock.py",
             "org.freedesktop.ModemManager1", "modems.log",
             "{\"IMEI\": \"49015420323751\", \"Modems\": \"3, 10\"}"}};
        for (const auto& [child, tmpl, name, log, parameters] : mocks)
            if (why.empty() && !s->bus.mock(*child, tmpl, name, log, parameters))
                why = name + std::string(" did not start");
    }
    static void TearDownTestSuite() { delete s; }

    std::unique_ptr<kp::test::SystemHost> sys;
    void SetUp() override {
        ASSERT_TRUE(why.empty()) << why;
        sys = std::make_unique<kp::test::SystemHost>("headless", s->bus.address());
    }
    std::vector<std::string> logind_calls() { return s->bus.calls("logind.log"); }
    // Sets a property of org.freedesktop.<service> (interface <service><iface>).
    void set(const std::string& service, const char* iface, const char* prop, const char* value) {
        s->bus.gdbus("call --dest org.freedesktop." + service + " --object-path /org/freedesktop/" + service +
                     " --method org.freedesktop.DBus.Properties.Set org.freedesktop." + service + iface +
                     " " + prop + " \"" + value + "\"");
    }
};

TEST_F(DBus, ShutdownModesReachLogind) {
    setenv("XDG_SESSION_ID", "c7", 1);
    // mode, interactive (-1: the one-argument form), method logged
    const std::tuple<const char*, int, std::string> rows[] = {{"sysPoweroff", -1, "PowerOff False"},
                                                              {"sysReboot", -1, "Reboot False"},
                                                              {"sysPoweroff", 1, "PowerOff True"},
                                                              {"sysReboot", 0, "Reboot False"},
                                                              {"sysLogoff", -1, "TerminateSession "}};
    for (const auto& [mode, interactive, method] : rows) {
        SCOPED_TRACE(mode);
        std::vector<Value> args{I(sys->constant(mode))};
        if (interactive >= 0) args.push_back(I(interactive));
        auto out = sys->call("SysShutdown", args);
        EXPECT_EQ(std::tie(out.result.b, out.error.severity), std::make_tuple(true, 1));
        ASSERT_FALSE(logind_calls().empty());
        EXPECT_EQ(0u, logind_calls().back().rfind(method, 0)) << logind_calls().back();
    }
    unsetenv("XDG_SESSION_ID");
}

TEST_F(DBus, StandbyAndPowerSource) {
    auto suspends = [&] {
        auto c = logind_calls();
        return std::count(c.begin(), c.end(), "Suspend False");
    };
    const auto before = suspends();
    EXPECT_TRUE(sys->boolean("SysStandby", {I(sys->constant("sysInactiveStandby"))}));
    EXPECT_EQ(before + 1, suspends());
    // On battery (the mock starts so): only the battery request goes through.
    EXPECT_TRUE(sys->boolean("SysStandby", {I(0), I(sys->constant("sysBattery"))}));
    EXPECT_EQ(before + 2, suspends());
    auto out = sys->call("SysStandby", {I(0), I(sys->constant("sysMainsPower"))});
    EXPECT_EQ(std::tie(out.result.b, out.error.severity), std::make_tuple(false, 1))
        << "another power source";
    EXPECT_EQ(before + 2, suspends());
    set("UPower", "", "OnBattery", "<false>");
    EXPECT_TRUE(sys->boolean("SysStandby", {I(0), I(sys->constant("sysMainsPower"))}));
    EXPECT_FALSE(sys->boolean("SysStandby", {I(0), I(sys->constant("sysBattery"))}));
    EXPECT_EQ(before + 3, suspends());

    // The automatic standby delay: logind's idle action and its delay.
    EXPECT_EQ(0, sys->integer("SysStandby")) << "the mock's idle action is ignore";
    set("login1", ".Manager", "IdleAction", "<'suspend'>");
    set("login1", ".Manager", "IdleActionUSec", "<uint64 600000000>");
    EXPECT_EQ(600, sys->integer("SysStandby"));
    set("login1", ".Manager", "IdleAction", "<'lock'>");
    EXPECT_EQ(0, sys->integer("SysStandby"));
}

TEST_F(DBus, ImeiOfTheFirstModem) {
    // Modems 3 and 10: the lowest number is the first, not the first in text order.
    EXPECT_EQ(u"490154203237513", sys->text("SysIMEI"));
}

// Without ModemManager, the first modem of oFono.
TEST(DBusOfono, ImeiOfTheFirstOfonoModem) {
    PrivateBus bus;
    ASSERT_TRUE(bus.start());
    Child ofono;
    ASSERT_TRUE(bus.mock(ofono, "ofono", "org.ofono", "ofono.log"));
    kp::test::SystemHost sys("headless", bus.address());
    const std::u16string imei = sys.text("SysIMEI");
    EXPECT_EQ(0u, imei.rfind(u"12345678-1234-1234-1234-", 0)) << kp::host::utf8(imei);
}

// A bus without the services, and a logind that never answers.
TEST(DBusFailures, MissingAndSilentServices) {
    PrivateBus bus;
    ASSERT_TRUE(bus.start());
    kp::test::SystemHost sys("headless", bus.address());
    const std::pair<const char*, std::vector<Value>> rows[] = {
        {"SysShutdown", {I(2)}}, {"SysStandby", {I(0)}}, {"SysStandby", {}}, {"SysIMEI", {}}};
    for (const auto& [name, args] : rows) {
        auto out = sys.call(name, args);
        EXPECT_TRUE(out.error.severity == KP_SEVERITY_ERROR && out.error.system_code != 0) << name;
    }
    Child silent;
    ASSERT_TRUE(bus.mock(silent, "logind", "org.freedesktop.login1", "silent.log"));
    bus.gdbus("call --dest org.freedesktop.login1 --object-path /org/freedesktop/login1 --method "
              "org.freedesktop.DBus.Mock.AddMethod org.freedesktop.login1.Manager PowerOff b '' "
              "'import time; time.sleep(8)'");
    const auto t0 = std::chrono::steady_clock::now();
    auto out = sys.call("SysShutdown", {I(2)});
    const auto waited = std::chrono::steady_clock::now() - t0;
    EXPECT_FALSE(out.result.b);
    EXPECT_EQ(1460u, out.error.system_code) << "a timeout";
    EXPECT_GE(waited, std::chrono::milliseconds(2500)) << "the call waited for the service";
}

// The component holds one services block: each host here is alone.
TEST(DBusFailures, AddressWhereNoBusListens) {
    TempDir dir;
    kp::test::SystemHost nowhere("headless", "unix:path=" + (dir.path() / "no-such-socket").string());
    auto out = nowhere.call("SysShutdown", {I(3)});
    EXPECT_EQ(std::tie(out.result.b, out.error.severity, out.error.system_code),
              std::make_tuple(false, KP_SEVERITY_ERROR, 2u));
}

} // namespace
