// management_test.cpp - file and directory functions through the component, and bad input they survive.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <set>
#include <tuple>

#include "files_fixture.h"

namespace kp::files::test {
namespace {

namespace fs = std::filesystem;

class Management : public DeviceTest {
  protected:
    bool xattrs_supported() {
        put("probe", "");
        bool ok = setxattr(host_path("probe").c_str(), "user.test", "1", 1, 0) == 0;
        fs::remove(host_path("probe"));
        return ok;
    }
};

// One call a row; a relative or empty name gives the failure value and 80600 (fFileExist, fSize: "" quietly).
TEST_F(Management, Calls) {
    // clang-format off
    const std::pair<const char*, const char*> files[] = {
        {"f.txt", "x"}, {"empty", ""}, {"a", "same bytes"}, {"b", "same bytes"}, {"c", "same bytes!"},
        {"e1", ""}, {"Temp/a.txt", "payload"}, {"s/a", "0123456789"}, {"s/u/b", "01234567890123456789"}};
    for (auto [name, bytes] : files)
        put(name, bytes);
    put("f.bin", std::string(1234, 'z'));
    fs::create_directories(host_path("t"));
    fs::create_symlink(host_path("f.bin"), host_path("s/link")); // a link counts as itself
    const Value yes = Value::procedure([](std::vector<Value>&) { return Value::boolean(true); });
    const std::u16string long_name(260, u'a');
    std::vector<Expect> rows = {
        {"fFileExist", {S(u"")}, u"false", kAny, 0},
        {"fCopyFile", {S(u"a"), S(u"\\b")}, u"false", kAny, 80600},
        {"fCopyFile", {S(u""), S(u"\\b")}, u"false", kAny, 80059}, {"fDelete", {S(u"")}, u"0", kAny, 80059},
        {"fSize", {S(u"")}, u"-1", kAny, 0}, {"fSaveText", {S(u"t.txt"), S(u"x")}, u"false", kAny, 80600},
        {"fListFile", {S(u"*.*"), yes}, u"0", kAny, 80600},
        {"fRename", {S(u""), S(u"\\b")}, u"false", kAny, 80059},
        {"fDelete", {S(u"\\t\\*.none")}, u"0", 1},    // nothing matches: no error
        {"fDelete", {S(u"\\nodir\\*.txt")}, u"0", 2}, // a failed search
        {"fSize", {S(u"\\f.bin")}, u"1234", 1}, {"fSize", {S(u"\\t")}, u"-1", kAny, 80067},
        {"fDirSize", {S(u"\\s")}, u"30", 1}, {"fDirSize", {S(u"\\none")}, u"-1", kAny, kAny, 3},
        {"fLoadText", {S(u"\\empty")}, u"", 1}, {"fLoadText", {S(u"\\none")}, u"", kAny, kAny, 2},
        {"fSaveText", {S(u"\\nodir\\t.txt"), S(u"x")}, u"false", kAny, 80062, 3},
        {"fDate", {S(u"\\f.txt"), S(u"20230229")}, u"*", kAny, 80044},
        {"fTime", {S(u"\\f.txt"), S(u"2500")}, u"*", kAny, 80045},
        {"fDate", {S(u"\\f.txt"), S(u""), I(7)}, u"*", kAny, kAny, 87},
        {"fDate", {S(u"\\none.txt")}, u"*", kAny, kAny, 2},
        {"fTempFile", {S(u"\\NoDir")}, u"", kAny, 80049, 3}, {"fAttribute", {S(u"\\t")}, u"*", kAny, 80067},
        {"fDirAttribute", {S(u"\\f.txt")}, u"*", kAny, kAny, 267}, {"fDir", {S(u"\\t\\*.zip")}, u"", 1},
        {"fDir", {S(u"\\nodir\\*")}, u"*", kAny, kAny, 3},
        {"fCopyFile", {S(u"\\Temp\\a.txt"), S(u"\\Out2\\*.txt")}, u"false", kAny, 80066},
        {"fCopyFile", {S(u"\\Temp\\none.txt"), S(u"\\Out\\")}, u"false", kAny, 80067},
        {"fCopyFile", {S(u"\\Temp\\*.txt"), S(u"\\Out\\")}, u"false", kAny, 80065},
        {"fCopyFile", {S(u"\\Temp"), S(u"\\Out\\")}, u"false", kAny, 80065},
        {"fCopyFile", {S(u"\\Temp\\a.txt"), S(u"\\Temp\\a.txt")}, u"false", kAny, 80065}, // onto itself
        {"fExtractPath", {S(long_name), I(4)}, u"*", kAny, 0},
        {"fExtractPath", {S(long_name + u"a"), I(4)}, u"*", kAny, 80058}};
    // fCompare: bad names, equal and different contents, a name in another case, missing files.
    const std::tuple<const char16_t*, const char16_t*, const char16_t*, int64_t> compares[] = {
        {u"a", u"\\b", u"-1", 80600},  {u"\\a", u"b", u"-2", 80600},  {u"", u"\\b", u"-3", 80059},
        {u"\\a", u"\\b", u"0", 0},      {u"\\a", u"\\c", u"1", 0},      {u"\\empty", u"\\e1", u"0", 0},
        {u"\\c", u"\\C", u"0", 0},      {u"\\missing", u"\\MISSING", u"0", 0},
        {u"\\missing", u"\\a", u"-1", 80060},      {u"\\a", u"\\missing", u"-2", 80060}};
    for (auto [a, b, result, id] : compares)
        rows.push_back({"fCompare", {S(a), S(b)}, result, kAny, id});
    // fExtractPath: the parts 1 drive, 2 directory, 4 name, 8 extension.
    const std::tuple<const char16_t*, int, const char16_t*, int64_t> parts[] = {
        {u"\\Data\\file.txt", 2, u"\\Data\\", 0},  {u"\\Data\\file.txt", 4, u"file", 0},
        {u"\\Data\\file.txt", 8, u".txt", 0},      {u"\\Data\\file.txt", 15, u"\\Data\\file.txt", 0},
        {u"C:\\d\\f.e", 9, u"C:.e", 0},            {u"C:\\d\\f.e", 1, u"C:", 0},     {u"\\a.b\\c", 8, u"", 0},
        {u"\\a\\b.tar.gz", 12, u"b.tar.gz", 0},    {u"/unix/style", 6, u"/unix/style", 0},
        {u"\\d\\f", 16, u"", 80042},               {u"\\d\\f", -1, u"", 80042}};
    // clang-format on
    for (auto [path, which, result, id] : parts)
        rows.push_back({"fExtractPath", {S(path), I(which)}, result, kAny, id});
    const std::pair<const char*, const char16_t*> relative[] = {
        {"fFileExist", u"false"}, {"fDirectoryExist", u"false"}, {"fDelete", u"0"},        {"fSize", u"-1"},
        {"fDirSize", u"-1"},      {"fMakeDir", u"false"},        {"fRemoveDir", u"false"}, {"fLoadText", u""},
        {"fTempFile", u""},       {"fAttribute", u""},           {"fDateTime", u""}};
    for (auto [fn, result] : relative)
        rows.push_back({fn, {S(u"rel")}, result, kAny, 80600});
    for (const char16_t* bad : {u"+X", u"+", u"H+", u"+H-", u"Q"})
        rows.push_back({"fAttribute", {S(u"\\f.txt"), S(bad)}, u"", kAny, 80043});
    expect_calls(rows);
}

TEST_F(Management, CopyFile) {
    put("Temp/a.txt", "payload");
    fs::create_directories(host_path("Dir"));
    // A destination ending with "\" or a directory gets the source's name; missing directories are made.
    expect_calls({{"fCopyFile", {S(u"\\Temp\\a.txt"), S(u"\\Out\\")}, u"true"},
                  {"fCopyFile", {S(u"\\Temp\\a.txt"), S(u"\\Dir")}, u"true"},
                  {"fCopyFile", {S(u"\\Temp\\a.txt"), S(u"\\x\\y\\b.txt"), I(0)}, u"true"}});
    for (const char* copy : {"Out/a.txt", "Dir/a.txt", "x/y/b.txt"})
        EXPECT_EQ(get(copy), "payload") << copy;

    for (const char16_t* to : {u"\\Out2\\*.txt", u"\\Temp\\a.txt"}) // refused (Calls)
        EXPECT_FALSE(call("fCopyFile", {S(u"\\Temp\\a.txt"), S(to)}).result.b);
    EXPECT_FALSE(fs::exists(host_path("Out2"))); // nothing touched before the check
    EXPECT_EQ(get("Temp/a.txt"), "payload");     // a copy onto itself loses nothing
    CallOutcome self = call("fCopyFile", {S(u"\\Temp\\a.txt"), S(u"\\TEMP\\A.TXT")});
    EXPECT_NE(self.error.message.find(u"Copying"), std::u16string::npos); // message 28125 appended
}

TEST_F(Management, CopyOverReadOnlyKeepsAttributesAndTimes) {
    put("src.txt", "new");
    put("dst.txt", "old");
    ASSERT_TRUE(call("fAttributeReadOnly", {S(u"\\dst.txt"), Value::boolean(true)}).result.b);
    ASSERT_TRUE(call("fDateTime", {S(u"\\src.txt"), S(u"2001020304050600")}).error.id == 0);
    EXPECT_TRUE(call("fCopyFile", {S(u"\\src.txt"), S(u"\\dst.txt")}).result.b);
    EXPECT_EQ(std::tuple(get("dst.txt"), call("fDateTime", {S(u"\\dst.txt")}).result.s),
              std::tuple("new", u"2001020304050600"));
    if (xattrs_supported()) {
        ASSERT_EQ(call("fAttribute", {S(u"\\src.txt"), S(u"+HS")}).result.s, u"HS");
        EXPECT_TRUE(call("fCopyFile", {S(u"\\src.txt"), S(u"\\third.txt")}).result.b);
        EXPECT_EQ(call("fAttribute", {S(u"\\third.txt")}).result.s, u"HS");
    }
}

TEST_F(Management, RenameAndMove) {
    put("a.txt", "a");
    put("b.txt", "b");
    for (const char* fn : {"fRename", "fMoveFile"}) {
        SCOPED_TRACE(fn);
        // An existing target is refused and left alone.
        CallOutcome out = expect_calls({{fn, {S(u"\\a.txt"), S(u"\\b.txt")}, u"false", 2, kAny, 183}});
        EXPECT_NE(out.error.message.find(u"\\b.txt"), std::u16string::npos);
        EXPECT_EQ(get("b.txt"), "b");
        // A relative name is not refused by a check of its own: the system call fails.
        out = expect_calls({{fn, {S(u"a.txt"), S(u"\\c.txt")}, u"false", kAny, 0}});
        EXPECT_NE(out.error.system_code, 0u);
    }
    EXPECT_TRUE(call("fMoveFile", {S(u"\\a.txt"), S(u"\\sub\\..\\c.txt")}).result.b);
    EXPECT_EQ(get("c.txt"), "a");
    fs::create_directories(host_path("sub"));
    EXPECT_TRUE(call("fRename", {S(u"\\c.txt"), S(u"\\sub\\c.txt")}).result.b);
    EXPECT_TRUE(call("fRename", {S(u"\\sub"), S(u"\\moved")}).result.b); // directories too
    EXPECT_EQ(get("moved/c.txt"), "a");
}

TEST_F(Management, Delete) {
    for (const char* f : {"d/a.txt", "d/b.txt", "d/c.dat"})
        put(f, "1");
    fs::create_directories(host_path("d/sub.txt"));
    // A read-only file stays unless the options hold frReadOnly.
    ASSERT_TRUE(call("fAttributeReadOnly", {S(u"\\d\\b.txt"), Value::boolean(true)}).result.b);
    CallOutcome ro = expect_calls({{"fDelete", {S(u"\\d\\*.TXT")}, u"0", kAny, kAny, 5}});
    EXPECT_NE(ro.error.message.find(u"b.txt"), std::u16string::npos);
    EXPECT_EQ(call("fDelete", {S(u"\\d\\*.txt"), I(8)}).result.i, 1);
    EXPECT_EQ(std::tuple(fs::exists(host_path("d/b.txt")), fs::exists(host_path("d/c.dat"))),
              std::tuple(false, true));
    EXPECT_TRUE(fs::exists(host_path("d/sub.txt"))); // directories are not deleted
    // A file another handle holds open goes at once; the handle keeps its data.
    put("open.txt", "still here");
    int64_t h = open(u"\\open.txt", 1);
    ASSERT_GE(h, 2);
    EXPECT_EQ(call("fDelete", {S(u"\\open.txt")}).result.i, 1);
    EXPECT_EQ(std::tuple(fs::exists(host_path("open.txt")), line(h)), std::tuple(false, u"still here"));
    close(h);
}

TEST_F(Management, Attributes) {
    put("f.txt", "x");
    put(".hidden", "x");
    fs::create_directories(host_path("dir"));
    // Without a stored record archive is the owner's execute bit (Samba's "map archive"; here 0644).
    expect_calls({{"fAttribute", {S(u"\\f.txt")}, u""},
                  {"fAttribute", {S(u"\\.hidden")}, u"H"},
                  {"fDirAttribute", {S(u"\\dir")}, u"D"}});
    // Read-only is the permission bits.
    EXPECT_EQ(call("fAttribute", {S(u"\\f.txt"), S(u"+R")}).result.s, u"R");
    struct stat st;
    ASSERT_EQ(stat(host_path("f.txt").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0222, 0u);
    EXPECT_TRUE(call("fAttributeReadOnly", {S(u"\\f.txt")}).result.b);
    EXPECT_EQ(call("fAttribute", {S(u"\\f.txt"), S(u"-R")}).result.s, u"");
    if (!xattrs_supported()) GTEST_SKIP() << "no user extended attributes here";
    // The stored bits (their record: samba_attributes_test).
    const std::pair<const char16_t*, const char16_t*> rows[] = {
        {u"+HS", u"HS"}, {u"+A", u"AHS"}, {u"-A", u"HS"}, {u"A", u"A"}, {u"", u""}, {u"+a+h", u"AH"}};
    for (auto [change, letters] : rows)
        EXPECT_EQ(call("fAttribute", {S(u"\\f.txt"), S(change)}).result.s, std::u16string(letters))
            << host::utf8(change);
    EXPECT_EQ(call("fDirAttribute", {S(u"\\dir"), S(u"+H")}).result.s, u"DH");
}

TEST_F(Management, Dates) {
    put("f.txt", "x");
    const Value f = S(u"\\f.txt");
    // The modification date and time, then the access date (kind 2).
    // clang-format off
    expect_calls({{"fDateTime", {f, S(u"2020022912345600")}, u"2020022912345600"},
                  {"fDate", {f, S(u"19991231")}, u"19991231"}, {"fDateTime", {f}, u"1999123112345600"},
                  {"fTime", {f, S(u"0102")}, u"01020000"}, {"fDateTime", {f}, u"1999123101020000"},
                  {"fTime", {f}, u"01020000"}, {"fDate", {f, S(u"20100101"), I(2)}, u"20100101"},
                  {"fDate", {f, S(u""), I(2)}, u"20100101"}});
    // clang-format on
    // The creation date cannot be set.
    std::u16string created = call("fDateTime", {S(u"\\f.txt"), S(u""), I(1)}).result.s;
    EXPECT_EQ(created.size(), 16u);
    expect_calls({{"fDate", {S(u"\\f.txt"), S(u"20000101"), I(1)}, u"", kAny, kAny, 50}});
    EXPECT_EQ(call("fDateTime", {S(u"\\f.txt"), S(u""), I(1)}).result.s, created);
}

TEST_F(Management, TempNamesAreUniqueAndCreated) {
    EXPECT_EQ((std::tuple{call("fTempPath", {}).result.s, fs::is_directory(host_path("Temp"))}),
              std::tuple(u"\\Temp\\", true));
    std::set<std::u16string> names;
    for (int i = 0; i < 50; ++i) {
        std::u16string n = call("fTempFile", {S(u"\\Temp"), S(u"kp")}).result.s;
        ASSERT_EQ(n.size(), std::u16string(u"\\Temp\\kpXXXX.tmp").size()) << host::utf8(n);
        EXPECT_TRUE(names.insert(n).second);
        EXPECT_TRUE(fs::exists(host_path(host::utf8(n.substr(1)).replace(4, 1, "/"))));
    }
    EXPECT_EQ(call("fTempFile", {}).result.s.substr(0, 6), u"\\Temp\\");
}

TEST_F(Management, Texts) {
    expect_calls({{"fSaveText", {S(u"\\t.txt"), S(u"caf\u00e9\r\n\u20ac")}, u"true"},
                  {"fLoadText", {S(u"\\t.txt")}, u"caf\u00e9\r\n\u20ac"},
                  {"fSaveText", {S(u"\\b.bin"), Value::buffer({0xFF, 0xFE, 'h', 0, 'i', 0})}, u"true"},
                  {"fLoadText", {S(u"\\b.bin")}, u"hi"}}); // UTF-16 after its mark
    EXPECT_EQ(get("t.txt") + get("b.bin"), std::string("caf\xE9\r\n\x80\xFF\xFEh\0i\0", 13));
}

TEST_F(Management, Directories) {
    EXPECT_TRUE(call("fMakeDir", {S(u"\\a\\b\\c")}).result.b && fs::is_directory(host_path("a/b/c")));
    EXPECT_TRUE(call("fMakeDir", {S(u"\\a\\b")}).result.b); // already there
    EXPECT_EQ(call("fMakeDir_55", {S(u"\\a\\x")}).result.i, 1);
    put("file", "x");
    EXPECT_NE(expect_calls({{"fMakeDir", {S(u"\\file\\sub")}, u"false"}}).error.system_code, 0u);
    EXPECT_TRUE(call("fDirectoryExist", {S(u"\\A\\B")}).result.b);
    EXPECT_FALSE(call("fDirectoryExist", {S(u"\\file")}).result.b);
    EXPECT_TRUE(call("fFileExist", {S(u"\\FILE")}).result.b);
    EXPECT_TRUE(call("fFileExist", {S(u"\\f*")}).result.b);
    EXPECT_FALSE(call("fFileExist", {S(u"\\a*")}).result.b); // a directory is no file

    put("a/b/c/f.txt", "x");
    expect_calls({{"fRemoveDir", {S(u"\\a")}, u"false", kAny, kAny, 145}});
    // A link inside the tree goes, what it points at stays.
    put("outside/keep.txt", "keep");
    fs::create_directory_symlink(host_path("outside"), host_path("a/b/link"));
    ASSERT_TRUE(call("fAttributeReadOnly", {S(u"\\a\\b\\c\\f.txt"), Value::boolean(true)}).result.b);
    EXPECT_TRUE(call("fRemoveDir", {S(u"\\a"), I(1)}).result.b);
    EXPECT_FALSE(fs::exists(host_path("a")));
    EXPECT_FALSE(call("fRemoveDir", {S(u"\\"), I(1)}).result.b); // never the device root
    EXPECT_EQ(get("outside/keep.txt"), "keep");
}

TEST_F(Management, DirSearch) {
    for (const char* f : {"d/b.txt", "d/A.txt", "d/c.dat", "d/.h.txt"})
        put(f, "");
    fs::create_directories(host_path("d/sub.txt"));
    std::vector<std::u16string> got;
    for (std::u16string n = call("fDir", {S(u"\\d\\*.txt")}).result.s; !n.empty();
         n = call("fDir", {S(u"")}).result.s)
        got.push_back(n);
    EXPECT_EQ(got, (std::vector<std::u16string>{u"\\d\\.h.txt", u"\\d\\A.txt", u"\\d\\b.txt"}));
    EXPECT_EQ(call("fDir", {S(u"")}).result.s, u""); // stays at the end
    EXPECT_EQ(call("fDir", {S(u"\\d\\*"), I(0x37)}).result.s, u"\\d\\sub.txt");
    EXPECT_EQ(call("fDir", {S(u"\\d\\*.txt"), I(0x21)}).result.s, u"\\d\\A.txt"); // hidden left out
}

// Names too long, with NUL, lone surrogates or wildcards, or above the root: failure values, no crash.
TEST_F(Management, BadNames) {
    put("f.txt", "x");
    const std::u16string bad[] = {std::u16string(10000, u'a').insert(0, u"\\"),
                                  std::u16string(u"\\f\0.txt", 7), u"\\f\xD800.txt", u"\\f\xDC00",
                                  u"\\" + std::u16string(5000, u'*') + u"a"};
    for (const std::u16string& n : bad) {
        SCOPED_TRACE(n.size());
        auto r = [&](const char* fn) { return call(fn, {S(n)}).result; };
        EXPECT_EQ((std::tuple{r("fFileExist").b, r("fSize").i, r("fDelete").i, r("fMakeDir").b}),
                  std::tuple(false, -1, 0, false));
        EXPECT_EQ((std::tuple{r("fLoadText").s, r("fListFile").s, r("fAttribute").s}),
                  std::tuple(u"", u"", u""));
        EXPECT_FALSE(call("fCopyFile", {S(u"\\f.txt"), S(n)}).result.b);
    }
    // ".." stops at the root: never the device root itself.
    EXPECT_FALSE(call("fRemoveDir", {S(u"\\..\\.."), I(1)}).result.b);
    EXPECT_TRUE(fs::exists(fx.device()));
    // A pattern of 10,000 characters matches nothing (and ends).
    std::u16string pattern = u"\\";
    for (int i = 0; i < 4999; ++i)
        pattern += u"*a";
    EXPECT_EQ(call("fDir", {S(pattern + u"*")}).result.s, u"");
}

} // namespace
} // namespace kp::files::test
