// Every overload of the device functions called with hostile arguments on
// the headless handheld with the system bus refused: integers at the edges,
// handles that were never windows, empty texts, texts of 100,000
// characters, lone surrogates and NULs.  Each call returns its result and
// leaves an error record that is cleared or an error of severity 2.
#include <sstream>

#include "system_fixture.h"

using kp::host::Value;

namespace {

// Names separated by spaces.
const char kDeviceFunctions[] =
    "SysXRes SysYRes SysMetric SysColorRes SysInstance SysWinTitle SysColor SysDir SysWinHandle "
    "CursorPos SysSetFocus SysWinActive SysWinShow SysIconize SysValidHandle SelectColor SysNameExe "
    "SysGetMenu SysGetSubMenu SysSpace SysGetDC SysReleaseDC SysWindowsVersion SysEnvironment "
    "SysIconAdd SysIconModify SysIconDelete SysShutdown KeyPressed EmulateInput "
    "SysListScreenOrientation SysScreenOrientation EmulateMouse SysIMEI SysStandby SysSerialNum "
    "SysDirStorageCard";

TEST(Hostile, EveryOverloadWithArgumentsAtTheEdges) {
    kp::test::SystemHost sys;
    ASSERT_TRUE(sys.host->loaded());
    auto* hd = dynamic_cast<kp::host::HeadlessDisplay*>(sys.host->display());
    ASSERT_NE(hd, nullptr);
    const uintptr_t real = hd->create_window(u"Real", u"KPForm", 2);

    const int64_t ints[] = {
        0, -1, 1, 2147483647, -2147483647 - 1, 0x40000000, 0x10000, 27, static_cast<int64_t>(real)};
    std::u16string lone(1, static_cast<char16_t>(0xD800));
    std::u16string with_nul(u"a\0b", 3);
    const std::u16string texts[] = {u"",    std::u16string(100000, u'w'), lone, with_nul, u"90", u"Real",
                                    u"PATH"};
    int calls = 0;
    std::istringstream names(kDeviceFunctions);
    for (std::string name; names >> name;) {
        const kp_function* fn = sys.host->find_function(name.c_str());
        ASSERT_NE(fn, nullptr) << name;
        const int overloads = static_cast<int>(fn->ident >> 24);
        for (int k = 0; k < overloads; ++k) {
            const kp_overload& ov = fn->overloads[k];
            ASSERT_NE(ov.handler, nullptr) << name << " " << k + 1;
            for (int round = 0; round < 9; ++round) {
                std::vector<Value> args;
                for (int p = 0; p < ov.param_count; ++p) {
                    const uint16_t t = ov.params[p];
                    Value v = (t & 0xFF) == KP_T_STRING
                                  ? Value::string(texts[(round + p) % std::size(texts)])
                                  : Value::integer(ints[(round * 3 + p) % std::size(ints)]);
                    if (t & KP_PARAM_FLAG_4000) v = Value::variable(v);
                    args.push_back(v);
                }
                auto out = sys.host->call_overload(*fn, k, args);
                ++calls;
                SCOPED_TRACE(std::string(name) + " overload " + std::to_string(k + 1) + " round " +
                             std::to_string(round));
                EXPECT_EQ(kp::host::CallStatus::Ok, out.status) << out.detail;
                EXPECT_TRUE(out.error.severity == KP_SEVERITY_NONE || out.error.severity == KP_SEVERITY_ERROR)
                    << out.error.severity;
                if (out.error.severity == KP_SEVERITY_ERROR) {
                    EXPECT_NE(0u, out.error.system_code);
                }
            }
        }
    }
    EXPECT_EQ(59 * 9, calls);
    // No call closes a window: the real one is still there, whatever its title became.
    EXPECT_TRUE(hd->is_window(real));
}

} // namespace
