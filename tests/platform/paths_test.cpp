// paths_test.cpp - device names under a root, without regard to case, and name patterns.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/paths.h"
#include "platform/wildcard.h"
#include "platform/win32_error.h"
#include "support/test_host.h"

namespace kp::platform {
namespace {

class DeviceNames : public ::testing::Test {
  protected:
    kp::test::TempDir dir;
    std::string root() const { return dir.path().string(); }
    void touch(const std::string& rel) {
        std::filesystem::create_directories((dir.path() / rel).parent_path());
        std::ofstream(dir.path() / rel) << "x";
    }
    ResolvedName resolve(std::u16string_view name, uint32_t* error = nullptr) {
        ResolvedName r;
        uint32_t e = 0;
        bool ok = resolve_device_name(root(), name, r, &e);
        if (error) *error = ok ? 0 : e;
        return r;
    }
};

TEST(DeviceNameForm, AbsoluteNames) {
    for (const char16_t* name : {u"\\a", u"/a", u"COM1:"})
        EXPECT_TRUE(is_absolute_device_name(name));
    for (const char16_t* name : {u"", u"a\\b", u"C:\\a"}) // no drive letters on the device
        EXPECT_FALSE(is_absolute_device_name(name));
}

TEST_F(DeviceNames, SeparatorsDotsAndTheRoot) {
    touch("a/b.txt");
    EXPECT_EQ(resolve(u"\\a\\b.txt").host_path, root() + "/a/b.txt");
    EXPECT_EQ(resolve(u"/a//./b.txt").host_path, root() + "/a/b.txt");
    EXPECT_EQ(resolve(u"\\a\\..\\..\\..\\a\\b.txt").host_path, root() + "/a/b.txt");
    ResolvedName r = resolve(u"\\..\\");
    EXPECT_TRUE(r.is_root);
    EXPECT_EQ(r.host_path, root());
    EXPECT_EQ(resolve(u"COM1:").host_path, root() + "/COM1:");
}

TEST_F(DeviceNames, CaseIsIgnoredOnlyWhenNeeded) {
    touch("Docs/Report.TXT");
    ResolvedName r = resolve(u"\\DOCS\\report.txt");
    EXPECT_TRUE(r.exists);
    EXPECT_EQ(r.host_path, root() + "/Docs/Report.TXT");
    // Of two names differing only in case, the one written wins, else the first in byte order.
    touch("Docs/report.txt");
    EXPECT_EQ(resolve(u"\\docs\\report.txt").host_path, root() + "/Docs/report.txt");
    EXPECT_EQ(resolve(u"\\docs\\REPORT.txt").host_path, root() + "/Docs/Report.TXT");
    touch("\xC3\x89t\xC3\xA9.txt");
    EXPECT_TRUE(resolve(u"\\\u00e9T\u00c9.TXT").exists); // non-ASCII letters fold too
}

TEST_F(DeviceNames, BadNames) {
    const std::pair<std::u16string, uint32_t> rows[] = {
        {u"", kErrorPathNotFound},
        {std::u16string(u"\\a\0b", 4), kErrorInvalidName},
        {u"\\a" + std::u16string(1, char16_t(0xDC00)), kErrorInvalidName}, // lone surrogates
        {u"\\a" + std::u16string(1, char16_t(0xD800)), kErrorInvalidName},
        {u"\\a*", kErrorInvalidName},
        {u"\\" + std::u16string(kMaxDeviceName, u'x'), kErrorFilenameExcedRange},
        {u"\\" + std::u16string(200, u'\u00e9'), kErrorFilenameExcedRange}, // 400 bytes in one host component
        {u"\\ok\\\U0001F600.txt", 0u},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        uint32_t e = 0;
        resolve(rows[i].first, &e);
        EXPECT_EQ(e, rows[i].second) << "row " << i;
    }
}

TEST_F(DeviceNames, DeviceNameOfAHostPath) {
    EXPECT_EQ(device_name_of(root(), root() + "/a/b.txt"), u"\\a\\b.txt");
    EXPECT_EQ(device_name_of(root(), root()), u"\\");
    EXPECT_EQ(device_name_of(root(), root() + "x/b"), u"");
    EXPECT_EQ(device_name_of(root(), "/elsewhere"), u"");
}

TEST(Wildcard, Table) {
    // clang-format off
    struct Row { const char16_t* pattern; const char16_t* name; bool match; } rows[] = {
        {u"*", u"anything", true}, {u"*", u"", true}, {u"", u"", true}, {u"", u"a", false},
        {u"*.*", u"noext", true}, {u"*.*", u"a.b.c", true}, {u"*.txt", u"A.TXT", true},
        {u"*.txt", u"a.txt.bak", false}, {u"a.*", u"a", true}, {u"a.*", u"ab", false}, {u"?", u"a", true},
        {u"?", u"", false}, {u"??", u"a", false}, {u"a?c", u"abc", true}, {u"a?c", u"ac", false},
        {u"a*b*c", u"aXXbYYc", true}, {u"a*b*c", u"acb", false}, {u"*ab", u"aab", true},
        {u"ab*ab", u"ab", false}, {u"ab*ab", u"abab", true}, {u"*a?b*", u"xxaYbzz", true},
        {u"*a?b*", u"xxabzz", false}, {u"\u00c9T\u00c9.*", u"\u00e9t\u00e9.doc", true}, {u"**a**", u"bab", true},
        {u"f.txt", u"F.Txt", true}, {u"*.tx?", u"a.txt", true}, {u"*.tx?", u"a.tx", false}};
    // clang-format on
    for (const Row& r : rows)
        EXPECT_EQ(wildcard_match(r.pattern, r.name), r.match) << &r - rows;
}

// "*a*a*...*a*b" against "aaa...": exponential for a backtracking matcher.
TEST(Wildcard, PathologicalPatterns) {
    std::u16string pattern;
    for (int i = 0; i < 5000; ++i)
        pattern += u"*a";
    const std::u16string name(255, u'a');
    EXPECT_FALSE(wildcard_match(pattern + u"*b", name));
    EXPECT_FALSE(wildcard_match(std::u16string(10000, u'?'), name));
    EXPECT_TRUE(wildcard_match(u"*" + std::u16string(200, u'a') + u"*", name));
    EXPECT_TRUE(has_wildcards(u"\\d\\*.txt") && has_wildcards(u"a?"));
    EXPECT_FALSE(has_wildcards(u"\\d\\a.txt"));
}

} // namespace
} // namespace kp::platform
