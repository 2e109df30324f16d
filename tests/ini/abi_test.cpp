// abi_test.cpp - INIRead and INIWrite through the component interface: every
// overload, the default file, the integer forms and their refusals, the
// errors of explicit files, conversions and the result limit.
#include <gtest/gtest.h>

#include "files/files_fixture.h"

namespace kp::files::test {
namespace {

using kp::host::CallStatus;

class IniAbi : public DeviceTest {
  protected:
    Value s(const std::u16string& v) { return Value::string(v); }
    Value i(int64_t v) { return Value::integer(v); }
    std::u16string read(std::vector<Value> args) {
        CallOutcome r = call("INIRead", std::move(args));
        EXPECT_EQ(r.status, CallStatus::Ok) << r.detail;
        EXPECT_EQ(r.result.kind, Value::Kind::String);
        EXPECT_EQ(r.error.severity, 1) << "INIRead never reports an error";
        return r.result.s;
    }
    CallOutcome write(std::vector<Value> args) {
        CallOutcome r = call("INIWrite", std::move(args));
        EXPECT_EQ(r.status, CallStatus::Ok) << r.detail;
        return r;
    }
};

TEST_F(IniAbi, ShortFormsUseTheWindowsIniOfTheDevice) {
    put("Windows/win.ini", "[Fonts]\r\nArial=arial.ttf\r\n[Ports]\r\nCOM1:=9600\r\n");
    EXPECT_EQ(read({s(u"")}), u"Fonts\r\nPorts\r\n");
    EXPECT_EQ(read({s(u"ports")}), u"COM1:\r\n");
    EXPECT_EQ(read({s(u"FONTS"), s(u"arial")}), u"arial.ttf");
    EXPECT_EQ(read({s(u"Fonts"), s(u"Times"), s(u"none")}), u"none");
    EXPECT_EQ(read({s(u"Fonts"), s(u"Times")}), u"");

    EXPECT_TRUE(write({s(u"Fonts"), s(u"Times"), s(u"times.ttf")}).result.b);
    EXPECT_TRUE(write({s(u"Fonts"), s(u"Arial")}).result.b); // (section, key): deletes the key
    EXPECT_TRUE(write({s(u"Ports"), s(u"COM1:"), i(0)}).result.b);
    EXPECT_EQ(get("Windows/win.ini"), "[Fonts]\r\nTimes = times.ttf\r\n[Ports]\r\n");
    EXPECT_TRUE(write({s(u"Ports")}).result.b); // (section): deletes the section
    EXPECT_EQ(get("Windows/win.ini"), "[Fonts]\r\nTimes = times.ttf\r\n");
}

TEST_F(IniAbi, LowerCaseFileReadInUpperCaseAndWrittenAsASecondSection) {
    put("a.ini", "[colours]\r\nred=1\r\n");
    EXPECT_EQ(read({s(u"COLOURS"), s(u"RED"), s(u""), s(u"\\a.ini")}), u"1");
    EXPECT_TRUE(write({s(u"COLOURS"), s(u"RED"), s(u"2"), s(u"\\a.ini")}).result.b);
    EXPECT_EQ(get("a.ini"), "[colours]\r\nred=1\r\n[COLOURS]\r\nRED = 2\r\n");
    // The reader still finds the first spelling.
    EXPECT_EQ(read({s(u"COLOURS"), s(u"RED"), s(u""), s(u"\\a.ini")}), u"1");
}

TEST_F(IniAbi, IntegerFormsDeleteWithZeroAndRefuseAnythingElse) {
    const std::string file = "[s]\r\nk=1\r\n[t]\r\nx=2\r\n";
    struct Case {
        const char* what;
        std::vector<Value> args;
        bool result;
        uint32_t error;
        std::string after;
    } cases[] = {
        {"(s, k, 0, file) deletes the key",
         {s(u"s"), s(u"k"), i(0), s(u"\\i.ini")},
         true,
         0,
         "[s]\r\n[t]\r\nx=2\r\n"},
        {"(s, k, 7, file) is refused", {s(u"s"), s(u"k"), i(7), s(u"\\i.ini")}, false, 80290, file},
        {"(s, 0, 0, file) deletes the section",
         {s(u"s"), i(0), i(0), s(u"\\i.ini")},
         true,
         0,
         "[t]\r\nx=2\r\n"},
        {"(s, 3, 0, file) is refused", {s(u"s"), i(3), i(0), s(u"\\i.ini")}, false, 80290, file},
        {"(s, 0, -1, file) is refused", {s(u"s"), i(0), i(-1), s(u"\\i.ini")}, false, 80290, file},
        {"(0, 0, 0, file) does nothing", {i(0), i(0), i(0), s(u"\\i.ini")}, true, 0, file},
        {"(1, 0, 0, file) is refused", {i(1), i(0), i(0), s(u"\\i.ini")}, false, 80290, file},
        {"(s, k, '', file) deletes the key",
         {s(u"s"), s(u"k"), s(u""), s(u"\\i.ini")},
         true,
         0,
         "[s]\r\n[t]\r\nx=2\r\n"},
        {"(s, '', v, file) deletes the section",
         {s(u"s"), s(u""), s(u"v"), s(u"\\i.ini")},
         true,
         0,
         "[t]\r\nx=2\r\n"},
    };
    for (Case& c : cases) {
        put("i.ini", file);
        CallOutcome r = write(c.args);
        EXPECT_EQ(r.result.b, c.result) << c.what;
        EXPECT_EQ(r.error.id, c.error) << c.what;
        EXPECT_EQ(get("i.ini"), c.after) << c.what;
    }
    put("i.ini", file);
    CallOutcome r = write({s(u"s"), s(u"k"), i(7), s(u"\\i.ini")});
    EXPECT_NE(r.error.message.find(u"\"k\""), std::u16string::npos);
    EXPECT_NE(r.error.message.find(u"(7)"), std::u16string::npos);
}

TEST_F(IniAbi, ExplicitFilesThatCannotBeWrittenReport80294) {
    CallOutcome r = write({s(u"s"), s(u"k"), s(u"v"), s(u"\\no such dir\\a.ini")});
    EXPECT_FALSE(r.result.b);
    EXPECT_EQ(r.error.id, 80294u);
    EXPECT_EQ(r.error.system_code, 3u);
    EXPECT_NE(r.error.message.find(u"\\no such dir\\a.ini"), std::u16string::npos);

    r = write({s(u""), s(u"k"), s(u"v"), s(u"\\a.ini")});
    EXPECT_FALSE(r.result.b);
    EXPECT_EQ(r.error.id, 80294u) << "no section, explicit file";
    EXPECT_FALSE(std::filesystem::exists(host_path("a.ini")));

    r = write({s(u"s"), s(u"k"), s(u"v"), s(u"relative.ini")});
    EXPECT_FALSE(r.result.b);
    EXPECT_EQ(r.error.id, 80294u);

    put("ro.ini", "[s]\r\n");
    std::filesystem::permissions(host_path("ro.ini"), std::filesystem::perms::owner_read);
    r = write({s(u"s"), s(u"k"), s(u"v"), s(u"\\ro.ini")});
    EXPECT_FALSE(r.result.b);
    EXPECT_EQ(r.error.id, 80294u);
    EXPECT_EQ(r.error.system_code, 5u);
    EXPECT_EQ(get("ro.ini"), "[s]\r\n");

    // The default file fails quietly (no \Windows folder on this device).
    r = write({s(u"s"), s(u"k"), s(u"v")});
    EXPECT_FALSE(r.result.b);
    EXPECT_EQ(r.error.severity, 1);
}

TEST_F(IniAbi, ReadingAMissingOrUnreadableFileGivesTheDefault) {
    EXPECT_EQ(read({s(u"s"), s(u"k"), s(u"dflt"), s(u"\\none.ini")}), u"dflt");
    EXPECT_EQ(read({s(u"s"), s(u"k"), s(u"dflt"), s(u"relative.ini")}), u"dflt");
    EXPECT_EQ(read({s(u""), s(u""), s(u"dflt"), s(u"\\none.ini")}), u"dflt");
    put("empty.ini", "");
    EXPECT_EQ(read({s(u""), s(u""), s(u"dflt"), s(u"\\empty.ini")}), u"dflt");
    put("s.ini", "[s]\r\nnokeys\r\n");
    EXPECT_EQ(read({s(u"s"), s(u""), s(u"dflt"), s(u"\\s.ini")}), u"dflt");
}

TEST_F(IniAbi, TextIsConvertedAndNulBecomesCrLf) {
    put("n.ini", std::string("[s]\r\nk=a\0b\0\r\nacc=caf\xE9\r\n", 23));
    EXPECT_EQ(read({s(u"s"), s(u"k"), s(u""), s(u"\\n.ini")}), u"a\r\nb\r\n");
    EXPECT_EQ(read({s(u"s"), s(u"acc"), s(u""), s(u"\\n.ini")}), u"caf\u00e9");
    // Written as ANSI: é is one byte, a character outside the code page a "?".
    EXPECT_TRUE(write({s(u"s"), s(u"new"), s(u"\u00e9t\u00e9 \u4e2d"), s(u"\\n.ini")}).result.b);
    EXPECT_NE(get("n.ini").find("new = \xE9t\xE9 ?\r\n"), std::string::npos);
    // A host string ends at its first NUL character.
    EXPECT_TRUE(write({s(u"s"), s(u"cut"), s(std::u16string(u"ab\0cd", 5)), s(u"\\n.ini")}).result.b);
    EXPECT_NE(get("n.ini").find("cut = ab\r\n"), std::string::npos);
}

TEST_F(IniAbi, ValuesAreCutAt8191Characters) {
    std::u16string big(10000, u'z');
    EXPECT_TRUE(write({s(u"s"), s(u"k"), s(big), s(u"\\big.ini")}).result.b);
    EXPECT_EQ(get("big.ini").size(), 5 + 4 + 10000 + 2u);
    EXPECT_EQ(read({s(u"s"), s(u"k"), s(u""), s(u"\\big.ini")}), big.substr(0, 8191));
    big.resize(8191);
    EXPECT_TRUE(write({s(u"s"), s(u"k"), s(big), s(u"\\big.ini")}).result.b);
    EXPECT_EQ(read({s(u"s"), s(u"k"), s(u""), s(u"\\big.ini")}), big);
}

TEST_F(IniAbi, BadFilesNeverCrash) {
    std::string garbage;
    uint32_t x = 12345;
    for (int n = 0; n < 300000; ++n) {
        x = x * 1103515245u + 12345u;
        garbage.push_back(static_cast<char>(x >> 24));
    }
    const std::string files[] = {
        std::string(1 << 20, '\0'),
        std::string(1 << 20, '['),
        "[s]" + std::string(1 << 20, 'k'), // no CR LF at all
        garbage,
        "[s]\r\n" + garbage + "\r\nk=found\r\n",
    };
    for (const std::string& f : files) {
        put("bad.ini", f);
        read({s(u""), s(u""), s(u""), s(u"\\bad.ini")});
        read({s(u"s"), s(u""), s(u""), s(u"\\bad.ini")});
        read({s(u"s"), s(u"k"), s(u""), s(u"\\bad.ini")});
        EXPECT_TRUE(write({s(u"s"), s(u"k"), s(u"v"), s(u"\\bad.ini")}).result.b);
        EXPECT_TRUE(write({s(u"s"), s(u"k"), s(u""), s(u"\\bad.ini")}).result.b);
        EXPECT_TRUE(write({s(u"s"), s(u""), s(u""), s(u"\\bad.ini")}).result.b);
    }
}

} // namespace
} // namespace kp::files::test
