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
};

TEST_F(FileService, Dispositions) {
    set_last_error(0);
    FileHandle h = open("f", kGenericWrite, kOpenExisting);
    EXPECT_EQ(h, kInvalidFile);
    EXPECT_EQ(last_error(), kErrorFileNotFound);
    h = open("f", kGenericWrite, kCreateNew);
    ASSERT_NE(h, kInvalidFile);
    EXPECT_TRUE(close_file(h));
    EXPECT_EQ(open("f", kGenericWrite, kCreateNew), kInvalidFile);
    EXPECT_EQ(last_error(), kErrorFileExists);
    h = open("f", kGenericRead, kOpenAlways);
    EXPECT_EQ(last_error(), kErrorAlreadyExists);
    close_file(h);
    h = open("g", kGenericRead, kOpenAlways);
    EXPECT_EQ(last_error(), 0u);
    close_file(h);
    h = open("g", kGenericWrite, kCreateAlways);
    EXPECT_EQ(last_error(), kErrorAlreadyExists);
    close_file(h);
    EXPECT_EQ(open("missing/f", kGenericRead, kOpenAlways), kInvalidFile);
    EXPECT_EQ(last_error(), kErrorPathNotFound);
    // Dispositions that cannot apply; truncation needs write access, and an
    // existing file.
    put("e", "data");
    const std::tuple<const char*, uint32_t, uint32_t, uint32_t> refused[] = {
        {"missing", kGenericWrite, kTruncateExisting, kErrorFileNotFound},
        {"e", kGenericRead, kTruncateExisting, kErrorInvalidParameter},
        {"e", kGenericRead, 0, kErrorInvalidParameter},
        {"e", kGenericRead, 6, kErrorInvalidParameter},
        {"e", kGenericRead, 9, kErrorInvalidParameter},
    };
    for (const auto& [rel, access, disposition, code] : refused) {
        set_last_error(0);
        EXPECT_EQ(open(rel, access, disposition), kInvalidFile) << disposition;
        EXPECT_EQ(last_error(), code) << disposition;
    }
    EXPECT_EQ(std::filesystem::file_size(dir.path() / "e"), 4u); // never truncated
    h = open("e", kGenericWrite, kTruncateExisting);
    ASSERT_NE(h, kInvalidFile);
    EXPECT_TRUE(close_file(h));
    EXPECT_EQ(std::filesystem::file_size(dir.path() / "e"), 0u);
}

TEST_F(FileService, ReadOnlyAttributeIsEnforcedForEveryUser) {
    put("ro", "keep");
    ASSERT_TRUE(set_file_attributes(name("ro"), kAttributeReadOnly));
    EXPECT_EQ(get_file_attributes(name("ro")) & kAttributeReadOnly, kAttributeReadOnly);
    EXPECT_EQ(open("ro", kGenericWrite, kOpenExisting), kInvalidFile);
    EXPECT_EQ(last_error(), kErrorAccessDenied);
    EXPECT_EQ(open("ro", kGenericRead, kCreateAlways), kInvalidFile);
    EXPECT_EQ(last_error(), kErrorAccessDenied);
    EXPECT_FALSE(delete_file(name("ro")));
    EXPECT_EQ(last_error(), kErrorAccessDenied);
    put("src", "new");
    EXPECT_FALSE(copy_file(name("src"), name("ro"), false));
    EXPECT_EQ(last_error(), kErrorAccessDenied);
    FileHandle h = open("ro", kGenericRead, kOpenExisting);
    ASSERT_NE(h, kInvalidFile);
    char buf[8];
    uint32_t n = 0;
    EXPECT_TRUE(read_file(h, buf, sizeof buf, &n));
    EXPECT_EQ(std::string(buf, n), "keep");
    EXPECT_FALSE(write_file(h, "x", 1, &n));
    EXPECT_EQ(last_error(), kErrorAccessDenied);
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
    EXPECT_FALSE(set_file_pointer(h, -6, kFileEnd, &pos));
    EXPECT_EQ(last_error(), kErrorNegativeSeek);
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
    EXPECT_FALSE(close_file(kInvalidFile));
    EXPECT_EQ(last_error(), kErrorInvalidHandle);
}

TEST_F(FileService, LocksConflictBetweenHandles) {
    put("l", "0123456789");
    FileHandle a = open("l", kGenericRead | kGenericWrite, kOpenExisting);
    FileHandle b = open("l", kGenericRead | kGenericWrite, kOpenExisting);
    EXPECT_TRUE(lock_file(a, 2, 4));
    EXPECT_FALSE(lock_file(b, 5, 1));
    EXPECT_EQ(last_error(), kErrorLockViolation);
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
    EXPECT_TRUE(copy_file(name("a.txt"), name("b.txt"), true));
    EXPECT_FALSE(copy_file(name("a.txt"), name("b.txt"), true));
    EXPECT_EQ(last_error(), kErrorFileExists);
    EXPECT_FALSE(copy_file(name("A.TXT"), name("a.txt"), false));
    EXPECT_EQ(last_error(), kErrorSharingViolation);
    EXPECT_FALSE(move_file(name("a.txt"), name("b.txt")));
    EXPECT_EQ(last_error(), kErrorAlreadyExists);
    EXPECT_TRUE(move_file(name("a.txt"), name("A.txt"))); // case only
    EXPECT_TRUE(std::filesystem::exists(dir.path() / "A.txt"));
    EXPECT_TRUE(create_directory(name("d")));
    EXPECT_FALSE(create_directory(name("D")));
    EXPECT_EQ(last_error(), kErrorAlreadyExists);
    EXPECT_FALSE(create_directory(name("x/y")));
    EXPECT_EQ(last_error(), kErrorPathNotFound);
    EXPECT_TRUE(move_file(name("b.txt"), name("d/b.txt")));
    EXPECT_FALSE(remove_directory(name("d")));
    EXPECT_EQ(last_error(), kErrorDirNotEmpty);
    EXPECT_FALSE(remove_directory(name("A.txt")));
    EXPECT_EQ(last_error(), kErrorDirectory);
    EXPECT_FALSE(delete_file(name("d")));
    EXPECT_EQ(last_error(), kErrorAccessDenied);
    std::vector<FileInfo> entries;
    EXPECT_TRUE(list_directory(name(""), entries));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].name, u"A.txt");
    EXPECT_EQ(entries[0].attributes, kAttributeNormal);
    EXPECT_EQ(entries[0].size, 3u);
    EXPECT_EQ(entries[1].attributes, kAttributeDirectory);
    EXPECT_FALSE(list_directory(name("A.txt"), entries));
    EXPECT_EQ(last_error(), kErrorDirectory);
    EXPECT_TRUE(delete_file(name("D/B.TXT")));
    EXPECT_TRUE(remove_directory(name("d")));
    EXPECT_EQ(get_file_attributes(name("d")), kInvalidAttributes);
    EXPECT_EQ(last_error(), kErrorFileNotFound);
    EXPECT_EQ(get_file_attributes(name("d/e")), kInvalidAttributes);
    EXPECT_EQ(last_error(), kErrorPathNotFound);
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
