// files_test.cpp - the device's file service: dispositions, the read-only
// attribute, pointers, locks and name operations, with their Win32 codes.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <tuple>

#include "platform/codepage.h"
#include "platform/files.h"
#include "platform/win32_error.h"
#include "support/test_host.h"

namespace kp::platform {
namespace {

// The code of a call's failure, 0 when it succeeds.
uint32_t code_of(bool ok) {
    return ok ? 0 : last_error();
}

// Without a host the device root is the host's "/": names are absolute
// host paths here.
class FileService : public ::testing::Test {
  protected:
    kp::test::TempDir dir;
    std::u16string name(const std::string& rel) const { return from_utf8((dir.path() / rel).string()); }
    void put(const std::string& rel, const std::string& bytes) {
        std::ofstream(dir.path() / rel, std::ios::binary) << bytes;
    }
    FileHandle open(const std::string& rel, uint32_t access, uint32_t disposition) {
        return create_file(name(rel), access, kShareRead | kShareWrite, disposition, 0);
    }
    // The last error after an open (the handle closed), and whether it opened.
    using Opened = std::pair<bool, uint32_t>;
    Opened try_open(const std::string& rel, uint32_t access, uint32_t disposition) {
        set_last_error(0);
        FileHandle h = open(rel, access, disposition);
        Opened r{h != kInvalidFile, last_error()};
        if (r.first) close_file(h);
        return r;
    }
};

// In turn; dispositions that cannot apply, and truncation without write
// access or an existing file, are refused.
TEST_F(FileService, Dispositions) {
    put("e", "data");
    // clang-format off
    const std::tuple<const char*, uint32_t, uint32_t, bool, uint32_t> rows[] = {
        {"f", kGenericWrite, kOpenExisting, false, kErrorFileNotFound},
        {"f", kGenericWrite, kCreateNew, true, 0}, {"f", kGenericWrite, kCreateNew, false, kErrorFileExists},
        {"f", kGenericRead, kOpenAlways, true, kErrorAlreadyExists},
        {"g", kGenericRead, kOpenAlways, true, 0},
        {"g", kGenericWrite, kCreateAlways, true, kErrorAlreadyExists},
        {"missing/f", kGenericRead, kOpenAlways, false, kErrorPathNotFound},
        {"missing", kGenericWrite, kTruncateExisting, false, kErrorFileNotFound},
        {"e", kGenericRead, kTruncateExisting, false, kErrorInvalidParameter},
        {"e", kGenericRead, 0, false, kErrorInvalidParameter},
        {"e", kGenericRead, 6, false, kErrorInvalidParameter},
        {"e", kGenericRead, 9, false, kErrorInvalidParameter}};
    // clang-format on
    for (const auto& [rel, access, disposition, opens, code] : rows)
        EXPECT_EQ(try_open(rel, access, disposition), Opened(opens, code)) << rel << " " << disposition;
    EXPECT_EQ(std::filesystem::file_size(dir.path() / "e"), 4u); // never truncated
    EXPECT_TRUE(try_open("e", kGenericWrite, kTruncateExisting).first);
    EXPECT_EQ(std::filesystem::file_size(dir.path() / "e"), 0u);
}

TEST_F(FileService, ReadOnlyAttributeIsEnforcedForEveryUser) {
    put("ro", "keep");
    put("src", "new");
    ASSERT_TRUE(set_file_attributes(name("ro"), kAttributeReadOnly));
    EXPECT_EQ(get_file_attributes(name("ro")) & kAttributeReadOnly, kAttributeReadOnly);
    EXPECT_EQ(try_open("ro", kGenericWrite, kOpenExisting), Opened(false, kErrorAccessDenied));
    EXPECT_EQ(try_open("ro", kGenericRead, kCreateAlways), Opened(false, kErrorAccessDenied));
    EXPECT_EQ(code_of(delete_file(name("ro"))), kErrorAccessDenied);
    EXPECT_EQ(code_of(copy_file(name("src"), name("ro"), false)), kErrorAccessDenied);
    FileHandle h = open("ro", kGenericRead, kOpenExisting);
    ASSERT_NE(h, kInvalidFile);
    char buf[8];
    uint32_t n = 0;
    EXPECT_TRUE(read_file(h, buf, sizeof buf, &n));
    EXPECT_EQ(std::string(buf, n), "keep");
    EXPECT_EQ(code_of(write_file(h, "x", 1, &n)), kErrorAccessDenied);
    EXPECT_FALSE(set_end_of_file(h));
    close_file(h);
    ASSERT_TRUE(set_file_attributes(name("ro"), kAttributeNormal));
    EXPECT_TRUE(delete_file(name("ro")));
}

TEST_F(FileService, PointerReadsAndWrites) {
    FileHandle h = open("p", kGenericRead | kGenericWrite, kCreateAlways);
    uint32_t n = 0;
    EXPECT_TRUE(write_file(h, "hello", 5, &n));
    uint64_t pos = 0;
    EXPECT_TRUE(set_file_pointer(h, -2, kFileCurrent, &pos));
    EXPECT_EQ(pos, 3u);
    char buf[16];
    EXPECT_TRUE(read_file(h, buf, 16, &n));
    EXPECT_EQ(std::string(buf, n), "lo");
    EXPECT_TRUE(read_file(h, buf, 16, &n));
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(code_of(set_file_pointer(h, -6, kFileEnd, &pos)), kErrorNegativeSeek);
    EXPECT_TRUE(set_file_pointer(h, 10, kFileBegin, &pos));
    EXPECT_TRUE(write_file(h, "!", 1, &n));
    uint64_t size = 0;
    EXPECT_TRUE(get_file_size(h, &size));
    EXPECT_EQ(size, 11u);
    EXPECT_TRUE(set_file_pointer(h, 2, kFileBegin, &pos));
    EXPECT_TRUE(set_end_of_file(h));
    EXPECT_TRUE(get_file_size(h, &size));
    EXPECT_EQ(size, 2u);
    EXPECT_TRUE(read_file_at(h, 0, buf, 16, &n));
    EXPECT_EQ(std::string(buf, n), "he");
    EXPECT_TRUE(close_file(h));
    EXPECT_EQ(code_of(close_file(kInvalidFile)), kErrorInvalidHandle);
}

TEST_F(FileService, LocksConflictBetweenHandles) {
    put("l", "0123456789");
    FileHandle a = open("l", kGenericRead | kGenericWrite, kOpenExisting);
    FileHandle b = open("l", kGenericRead | kGenericWrite, kOpenExisting);
    EXPECT_TRUE(lock_file(a, 2, 4));
    EXPECT_EQ(code_of(lock_file(b, 5, 1)), kErrorLockViolation);
    EXPECT_TRUE(lock_file(b, 6, 2));
    EXPECT_TRUE(unlock_file(a, 2, 4));
    EXPECT_TRUE(lock_file(b, 2, 4));
    EXPECT_TRUE(lock_file(a, 0, 0));
    EXPECT_FALSE(lock_file(a, UINT64_MAX - 1, 5));
    close_file(a);
    close_file(b);
}

TEST_F(FileService, NameOperations) {
    put("a.txt", "abc");
    // In turn: what each call gives (0 when it succeeds).
    const std::pair<uint32_t, uint32_t> steps[] = {
        {code_of(copy_file(name("a.txt"), name("b.txt"), true)), 0},
        {code_of(copy_file(name("a.txt"), name("b.txt"), true)), kErrorFileExists},
        {code_of(copy_file(name("A.TXT"), name("a.txt"), false)), kErrorSharingViolation},
        {code_of(move_file(name("a.txt"), name("b.txt"))), kErrorAlreadyExists},
        {code_of(move_file(name("a.txt"), name("A.txt"))), 0}, // case only
        {code_of(create_directory(name("d"))), 0},
        {code_of(create_directory(name("D"))), kErrorAlreadyExists},
        {code_of(create_directory(name("x/y"))), kErrorPathNotFound},
        {code_of(move_file(name("b.txt"), name("d/b.txt"))), 0},
        {code_of(remove_directory(name("d"))), kErrorDirNotEmpty},
        {code_of(remove_directory(name("A.txt"))), kErrorDirectory},
        {code_of(delete_file(name("d"))), kErrorAccessDenied},
    };
    for (std::size_t i = 0; i < std::size(steps); ++i)
        EXPECT_EQ(steps[i].first, steps[i].second) << "step " << i;
    EXPECT_TRUE(std::filesystem::exists(dir.path() / "A.txt"));
    std::vector<FileInfo> entries;
    EXPECT_TRUE(list_directory(name(""), entries));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].name, u"A.txt");
    EXPECT_EQ(entries[0].attributes, kAttributeNormal);
    EXPECT_EQ(entries[0].size, 3u);
    EXPECT_EQ(entries[1].attributes, kAttributeDirectory);
    EXPECT_EQ(code_of(list_directory(name("A.txt"), entries)), kErrorDirectory);
    EXPECT_TRUE(delete_file(name("D/B.TXT")));
    EXPECT_TRUE(remove_directory(name("d")));
    for (const auto& [rel, code] :
         {std::pair{"d", kErrorFileNotFound}, std::pair{"d/e", kErrorPathNotFound}}) {
        EXPECT_EQ(get_file_attributes(name(rel)), kInvalidAttributes);
        EXPECT_EQ(last_error(), code);
    }
}

TEST_F(FileService, Times) {
    put("t", "x");
    const uint64_t when = 132000000000000000ULL; // 2019
    EXPECT_TRUE(set_file_times(name("t"), nullptr, &when));
    FileInfo info;
    EXPECT_TRUE(get_file_info(name("t"), info));
    EXPECT_EQ(info.write_time, when);
    EXPECT_EQ(info.size, 1u);
}

} // namespace
} // namespace kp::platform
