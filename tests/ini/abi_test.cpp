// abi_test.cpp - INIRead and INIWrite through the component interface.
#include <gtest/gtest.h>

#include <tuple>

#include "files/files_fixture.h"

namespace kp::files::test {
namespace {

using kp::host::CallStatus;

class IniAbi : public DeviceTest {
  protected:
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
    // The four-argument forms on an explicit file.
    std::u16string read4(const std::u16string& sec, const std::u16string& key, const std::u16string& file) {
        return read({S(sec), S(key), S(u"dflt"), S(file)});
    }
    CallOutcome write4(const std::u16string& sec, const std::u16string& key, const std::u16string& value,
                       const std::u16string& file) {
        return write({S(sec), S(key), S(value), S(file)});
    }
};

TEST_F(IniAbi, ShortFormsUseTheWindowsIniOfTheDevice) {
    put("Windows/win.ini", "[Fonts]\r\nArial=arial.ttf\r\n[Ports]\r\nCOM1:=9600\r\n");
    EXPECT_EQ((std::tuple{read({S(u"")}), read({S(u"ports")}), read({S(u"FONTS"), S(u"arial")})}),
              std::tuple(u"Fonts\r\nPorts\r\n", u"COM1:\r\n", u"arial.ttf"));
    EXPECT_EQ((std::tuple{read({S(u"Fonts"), S(u"Times"), S(u"none")}), read({S(u"Fonts"), S(u"Times")})}),
              std::tuple(u"none", u""));

    EXPECT_TRUE(write({S(u"Fonts"), S(u"Times"), S(u"times.ttf")}).result.b);
    EXPECT_TRUE(write({S(u"Fonts"), S(u"Arial")}).result.b); // (section, key): deletes the key
    EXPECT_TRUE(write({S(u"Ports"), S(u"COM1:"), I(0)}).result.b);
    EXPECT_EQ(get("Windows/win.ini"), "[Fonts]\r\nTimes = times.ttf\r\n[Ports]\r\n");
    EXPECT_TRUE(write({S(u"Ports")}).result.b); // (section): deletes the section
    EXPECT_EQ(get("Windows/win.ini"), "[Fonts]\r\nTimes = times.ttf\r\n");
}

TEST_F(IniAbi, IntegerFormsDeleteWithZeroAndRefuseAnythingElse) {
    const std::string file = "[s]\r\nk=1\r\n[t]\r\nx=2\r\n", no_key = "[s]\r\n[t]\r\nx=2\r\n",
                      no_s = "[t]\r\nx=2\r\n";
    const Value sec = S(u"s"), k = S(u"k"), zero = I(0);
    // {section, key, value, the file after (nullptr: refused with 80290, the file unchanged)}
    const std::tuple<Value, Value, Value, const std::string*> cases[] = {
        {sec, k, zero, &no_key},     {sec, k, I(7), nullptr},     {sec, zero, zero, &no_s},
        {sec, I(3), zero, nullptr},  {sec, zero, I(-1), nullptr}, {zero, zero, zero, &file}, // does nothing
        {I(1), zero, zero, nullptr}, {sec, k, S(u""), &no_key},   {sec, S(u""), S(u"v"), &no_s},
    };
    int row = 0;
    for (const auto& [section, key, value, after] : cases) {
        SCOPED_TRACE(row++);
        put("i.ini", file);
        CallOutcome r = write({section, key, value, S(u"\\i.ini")});
        EXPECT_EQ(r.result.b, after != nullptr);
        EXPECT_EQ(r.error.id, after ? 0u : 80290u);
        EXPECT_EQ(get("i.ini"), after ? *after : file);
    }
    put("i.ini", file);
    CallOutcome r = write({sec, k, I(7), S(u"\\i.ini")});
    EXPECT_NE(r.error.message.find(u"\"k\""), std::u16string::npos);
    EXPECT_NE(r.error.message.find(u"(7)"), std::u16string::npos);
}

TEST_F(IniAbi, ExplicitFilesThatCannotBeWrittenReport80294) {
    put("ro.ini", "[s]\r\n");
    std::filesystem::permissions(host_path("ro.ini"), std::filesystem::perms::owner_read);
    // No section with an explicit file is refused; the default file fails quietly (no \Windows here).
    const Value k = S(u"k"), v = S(u"v");
    expect_calls({{"INIWrite", {S(u"s"), k, v, S(u"\\no such dir\\a.ini")}, u"false", kAny, 80294, 3},
                  {"INIWrite", {S(u""), k, v, S(u"\\a.ini")}, u"false", kAny, 80294},
                  {"INIWrite", {S(u"s"), k, v, S(u"relative.ini")}, u"false", kAny, 80294},
                  {"INIWrite", {S(u"s"), k, v, S(u"\\ro.ini")}, u"false", kAny, 80294, 5},
                  {"INIWrite", {S(u"s"), k, v}, u"false", 1}});
    EXPECT_NE(write4(u"s", u"k", u"v", u"\\no such dir\\a.ini").error.message.find(u"\\no such dir\\a.ini"),
              std::u16string::npos);
    EXPECT_FALSE(std::filesystem::exists(host_path("a.ini")));
    EXPECT_EQ(get("ro.ini"), "[s]\r\n");
}

TEST_F(IniAbi, ReadingAMissingOrUnreadableFileGivesTheDefault) {
    put("empty.ini", "");
    put("s.ini", "[s]\r\nnokeys\r\n");
    EXPECT_EQ(read4(u"s", u"k", u"\\none.ini"), u"dflt");
    EXPECT_EQ(read4(u"s", u"k", u"relative.ini"), u"dflt");
    EXPECT_EQ(read4(u"", u"", u"\\none.ini"), u"dflt");
    EXPECT_EQ(read4(u"", u"", u"\\empty.ini"), u"dflt");
    EXPECT_EQ(read4(u"s", u"", u"\\s.ini"), u"dflt");
}

TEST_F(IniAbi, TextIsConvertedAndNulBecomesCrLf) {
    put("n.ini", std::string("[s]\r\nk=a\0b\0\r\nacc=caf\xE9\r\n", 23));
    EXPECT_EQ(read4(u"s", u"k", u"\\n.ini"), u"a\r\nb\r\n");
    EXPECT_EQ(read4(u"s", u"acc", u"\\n.ini"), u"caf\u00e9");
    // Written as ANSI: é is one byte, a character outside the code page a "?".
    EXPECT_TRUE(write4(u"s", u"new", u"\u00e9t\u00e9 \u4e2d", u"\\n.ini").result.b);
    EXPECT_NE(get("n.ini").find("new = \xE9t\xE9 ?\r\n"), std::string::npos);
    // A host string ends at its first NUL character.
    EXPECT_TRUE(write4(u"s", u"cut", std::u16string(u"ab\0cd", 5), u"\\n.ini").result.b);
    EXPECT_NE(get("n.ini").find("cut = ab\r\n"), std::string::npos);
}

TEST_F(IniAbi, ValuesAreCutAt8191Characters) {
    std::u16string big(10000, u'z');
    EXPECT_TRUE(write4(u"s", u"k", big, u"\\big.ini").result.b);
    EXPECT_EQ(get("big.ini").size(), 5 + 4 + 10000 + 2u);
    EXPECT_EQ(read4(u"s", u"k", u"\\big.ini"), big.substr(0, 8191));
    big.resize(8191);
    EXPECT_TRUE(write4(u"s", u"k", big, u"\\big.ini").result.b);
    EXPECT_EQ(read4(u"s", u"k", u"\\big.ini"), big);
}

// Files of a megabyte of one character or without a line end (random ones: the ini_engine fuzz target).
TEST_F(IniAbi, BadFilesNeverCrash) {
    for (const std::string& f :
         {std::string(1 << 20, '\0'), std::string(1 << 20, '['), "[s]" + std::string(1 << 20, 'k')}) {
        put("bad.ini", f);
        for (const char16_t* sec : {u"", u"s"})
            for (const char16_t* key : {u"", u"k"})
                read4(sec, key, u"\\bad.ini");
        for (const char16_t* value : {u"v", u""})
            EXPECT_TRUE(write4(u"s", u"k", value, u"\\bad.ini").result.b);
        EXPECT_TRUE(write4(u"s", u"", u"", u"\\bad.ini").result.b);
    }
}

} // namespace
} // namespace kp::files::test
