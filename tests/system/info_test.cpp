// System information: the parsers on given texts, the functions on this machine.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "platform/sysinfo.h"
#include "system/device.h"
#include "system_fixture.h"

using kp::host::Value;
using kp::test::I;
using kp::test::S;
namespace platform = kp::platform;

namespace {

TEST(OsRelease, ValuesQuotedAndNot) {
    const std::string text = "# comment\nNAME=\"Debian GNU/Linux\"\nVERSION_ID='12'\nID=debian\n"
                             "PRETTY_NAME=\"Debian \\\"x\\\" 12\"\r\nEMPTY=\n  INDENTED=yes\nBROKEN\n";
    const std::map<std::string, std::optional<std::string>> rows = {
        {"NAME", "Debian GNU/Linux"},       {"VERSION_ID", "12"},    {"ID", "debian"},
        {"PRETTY_NAME", "Debian \"x\" 12"}, {"EMPTY", ""},           {"INDENTED", "yes"},
        {"MISSING", std::nullopt},          {"BROKEN", std::nullopt}};
    for (const auto& [key, value] : rows)
        EXPECT_EQ(value, platform::os_release_value(text, key)) << key;
    EXPECT_EQ(std::nullopt, platform::os_release_value("", "NAME"));
    EXPECT_EQ("unterminated", platform::os_release_value("NAME=\"unterminated", "NAME"));
}

TEST(WindowsVersion, EverySelectorOfTheFamily) {
    const std::string os =
        "NAME=Debian\nVERSION=\"12 (bookworm)\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n";
    const std::tuple<int32_t, const char*, std::string_view, std::u16string> rows[] = {
        {0, "6.1.0-18-amd64", os, u"Linux 6.1.0"},
        {1, "6.1.0-18-amd64", os, u"6.1.0"},
        {2, "6.1.0-18-amd64", os, u"6.1.0-18-amd64"},
        {3, "6.1.0-18-amd64", os, u"Linux"},
        {4, "6.1.0-18-amd64", os, u"Debian GNU/Linux 12 (bookworm)"},
        {4, "6.1", "NAME=Alpine\nVERSION=3.19\n", u"Alpine 3.19"},
        {4, "6.1", "", u"Linux"},
        {1, "5.15.", os, u"5.15"},
        {1, "weird", os, u""},
        {0, "", os, u"Linux"}};
    for (const auto& [selector, release, os_release, expected] : rows) {
        bool known = false;
        EXPECT_EQ(expected, kp::system::windows_version_of(selector, "Linux", release, os_release, &known))
            << selector << " " << release;
        EXPECT_TRUE(known);
    }
    bool known = true;
    EXPECT_EQ(u"", kp::system::windows_version_of(5, "Linux", "6.1", os, &known));
    EXPECT_FALSE(known);
}

TEST(Mountinfo, FieldsEscapesAndRemovableMedia) {
    const std::string text =
        "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
        "30 22 8:17 / /media/card\\040one rw,nosuid shared:5 master:2 - vfat /dev/sdb1 rw\n"
        "31 22 0:44 / /proc rw - proc proc rw\n"
        "32 22 8:17 / /media/card\\040one rw - vfat /dev/sdb1 rw\n" // the same medium mounted twice
        "bad line\n"
        "33 22 x:y / /nowhere rw - tmpfs tmpfs rw\n"
        "34 22 179:1 / /mnt/sd rw - ext4 /dev/mmcblk0p1 rw";
    const auto mounts = platform::parse_mountinfo(text);
    ASSERT_EQ(5u, mounts.size());
    const auto& m = mounts[1];
    EXPECT_EQ("/media/card one /dev/sdb1 8:17",
              m.mount_point + " " + m.source + " " + std::to_string(m.major) + ":" + std::to_string(m.minor));
    auto removable = [](uint32_t ma, uint32_t mi) { return (ma == 8 && mi >= 16) || ma == 179; };
    EXPECT_EQ((std::vector<std::string>{"/media/card one", "/mnt/sd"}),
              platform::removable_mounts(text, removable));
    EXPECT_TRUE(platform::removable_mounts("", removable).empty());
    EXPECT_FALSE(platform::block_device_removable(0, 44)) << "virtual file systems are never removable";
}

TEST(Serial, PlaceholdersAreNoSerial) {
    for (const char* p : {"To Be Filled By O.E.M.", "Not Specified\n", " Default string ", "0", "0000 0000",
                          "", "None", "System Serial Number"})
        EXPECT_EQ("", platform::clean_serial(p)) << p;
    EXPECT_EQ("PF2ABCDE", platform::clean_serial("  PF2ABCDE\n"));
}

TEST(SystemDirectories, EveryCodeOfTheFamily) {
    kp::test::SystemHost sys;
    for (const std::string& n : sys.family("sr")) {
        std::string rel = kp::host::utf8(sys.text("SysDir", {I(sys.constant(n.c_str()))}));
        ASSERT_FALSE(rel.empty()) << n;
        for (char& c : rel)
            if (c == '\\') c = '/';
        EXPECT_TRUE(std::filesystem::is_directory(sys.device().string() + rel)) << n << " created on demand";
    }
    EXPECT_EQ(u"\\Windows", sys.text("SysDir"));
    // A file where a directory should be: the system error, not a crash.
    std::filesystem::remove_all(sys.device() / "Program Files");
    std::ofstream(sys.device() / "Program Files") << "x";
    auto out = sys.call("SysDir", {I(sys.constant("srCommonProgramFiles"))});
    EXPECT_EQ(std::tie(out.result.s, out.error.severity), std::make_tuple(u"", KP_SEVERITY_ERROR));
}

TEST(SystemInformation, ThisMachine) {
    kp::test::SystemHost sys;
    const int64_t instance = sys.integer("SysInstance");
    EXPECT_EQ(static_cast<int64_t>(getpid()), instance);
    const std::string exe = std::filesystem::read_symlink("/proc/self/exe").string();
    EXPECT_EQ(kp::host::utf16(exe), sys.text("SysNameExe", {I(instance)}));
    EXPECT_EQ(kp::host::utf16(exe), sys.text("SysNameExe", {I(0)}));

    for (const std::string& n : sys.family("sysVersion"))
        EXPECT_FALSE(sys.text("SysWindowsVersion", {I(sys.constant(n.c_str()))}).empty()) << n;
    EXPECT_EQ(u"Linux", sys.text("SysWindowsVersion", {I(sys.constant("sysVersionPlatform"))}));
    EXPECT_EQ(0u, sys.text("SysWindowsVersion").rfind(u"Linux ", 0));

    setenv("KP120_SYS_TEST", "valeur \xC3\xA9", 1);
    EXPECT_EQ(u"valeur \u00e9", sys.text("SysEnvironment", {S(u"KP120_SYS_TEST")}));
    const std::u16string all = sys.text("SysEnvironment");
    EXPECT_NE(std::u16string::npos, all.find(u"\r\nKP120_SYS_TEST=valeur \u00e9"));
    unsetenv("KP120_SYS_TEST");
    for (const auto& name : std::vector<std::u16string>{u"KP120_SYS_TEST", u"", u"A=B", {u"NUL\0X", 5}}) {
        auto out = sys.call("SysEnvironment", {S(name)});
        EXPECT_EQ(std::tie(out.result.s, out.error.severity), std::make_tuple(u"", 1)) << "unset: no error";
    }

    EXPECT_FALSE(sys.text("SysSerialNum").empty());

    for (const char* n : {"sysFreeProgramSpace", "sysProgramSpace", "sysFreeStorageSpace", "sysStorageSpace"})
        EXPECT_GT(sys.integer("SysSpace", {I(sys.constant(n))}), 0) << n;
    EXPECT_GE(sys.integer("SysSpace", {I(sys.constant("sysProgramSpace"))}),
              sys.integer("SysSpace", {I(sys.constant("sysFreeProgramSpace"))}));
    EXPECT_GT(sys.integer("SysSpace"), 0);

    // This machine has no removable media mounted; the count runs out with no error.
    auto out = sys.call("SysDirStorageCard", {I(1000)});
    EXPECT_EQ(std::tie(out.result.s, out.error.severity), std::make_tuple(u"", 1));

    std::vector<kp::test::Refusal> rows;
    for (int bad : {30, -1, 1000})
        rows.push_back({"SysDir", 0, 87, I(bad)});
    for (int64_t bad : {int64_t{-5}, int64_t{0x7FFFFFF0}})
        rows.push_back({"SysNameExe", 0, 87, I(bad)});
    for (int bad : {0, 5, -1}) {
        rows.push_back({"SysWindowsVersion", 0, 87, I(bad)});
        rows.push_back({"SysSpace", -1, 87, I(bad)});
    }
    for (int bad : {0, -1})
        rows.push_back({"SysDirStorageCard", 0, 87, I(bad)});
    kp::test::expect_refusals(sys, rows);
}

} // namespace
