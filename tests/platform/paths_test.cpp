// paths_test.cpp - device names under a root, without regard to case.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/paths.h"
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
    // Two names that differ only in case: the one written wins, otherwise
    // the first in byte order.
    touch("Docs/report.txt");
    EXPECT_EQ(resolve(u"\\docs\\report.txt").host_path, root() + "/Docs/report.txt");
    EXPECT_EQ(resolve(u"\\docs\\REPORT.txt").host_path, root() + "/Docs/Report.TXT");
    // Non-ASCII letters fold too.
    touch("\xC3\x89t\xC3\xA9.txt");
    EXPECT_TRUE(resolve(u"\\\u00e9T\u00c9.TXT").exists);
}

TEST_F(DeviceNames, MissingComponents) {
    ResolvedName r = resolve(u"\\new.txt");
    EXPECT_FALSE(r.exists);
    EXPECT_TRUE(r.parent_exists);
    EXPECT_EQ(r.host_path, root() + "/new.txt");
    r = resolve(u"\\no\\such\\file");
    EXPECT_FALSE(r.exists);
    EXPECT_FALSE(r.parent_exists);
    touch("file");
    r = resolve(u"\\file\\below");
    EXPECT_FALSE(r.parent_exists);
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

} // namespace
} // namespace kp::platform
