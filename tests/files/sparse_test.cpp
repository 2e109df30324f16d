// Sparse files: fCopyFile keeps the holes; fCompare compares contents, a hole reading as zeros.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files_fixture.h"

namespace kp::files::test {
namespace {

using host::Value;
constexpr off_t kMiB = 1 << 20;

class Sparse : public DeviceTest {
  protected:
    // A 64 MiB file with 64 KiB of data at each MiB offset of `at`, the rest holes.
    void sparse(const std::string& rel, std::initializer_list<int> at, char seed = 'a') {
        put(rel, "");
        int fd = ::open(host_path(rel).c_str(), O_WRONLY);
        ASSERT_GE(fd, 0);
        std::string block(64 << 10, seed);
        for (std::size_t i = 0; i < block.size(); ++i)
            block[i] = static_cast<char>(seed + i % 7);
        for (int mib : at)
            ASSERT_EQ(pwrite(fd, block.data(), block.size(), mib * kMiB), static_cast<ssize_t>(block.size()));
        ASSERT_EQ(ftruncate(fd, 64 * kMiB), 0);
        ::close(fd);
    }
    void poke(const std::string& rel, off_t offset, const std::string& bytes) {
        int fd = ::open(host_path(rel).c_str(), O_WRONLY);
        ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), offset), static_cast<ssize_t>(bytes.size()));
        ::close(fd);
    }
    struct stat info(const std::string& rel) {
        struct stat st {};
        ::stat(host_path(rel).c_str(), &st);
        return st;
    }
    int64_t compare(const char16_t* a, const char16_t* b) { return call("fCompare", {S(a), S(b)}).result.i; }
};

TEST_F(Sparse, CopyKeepsHolesAndContent) {
    sparse("s.bin", {0, 10, 63});
    if (info("s.bin").st_blocks * 512 >= 16 * kMiB) GTEST_SKIP() << "the file system here keeps no holes";
    ASSERT_TRUE(call("fCopyFile", {S(u"\\s.bin"), S(u"\\c.bin")}).result.b);
    EXPECT_EQ(info("c.bin").st_size, 64 * kMiB);
    EXPECT_LE(info("c.bin").st_blocks, info("s.bin").st_blocks + 64) << "the holes were written out";
    EXPECT_EQ(get("c.bin"), get("s.bin"));
    // A file that ends with a hole, and an empty one.
    sparse("tail.bin", {1});
    ASSERT_TRUE(call("fCopyFile", {S(u"\\tail.bin"), S(u"\\c2.bin")}).result.b);
    EXPECT_EQ(get("c2.bin"), get("tail.bin"));
    put("empty.bin", "");
    ASSERT_TRUE(call("fCopyFile", {S(u"\\empty.bin"), S(u"\\c3.bin")}).result.b);
    EXPECT_EQ(info("c3.bin").st_size, 0);
}

TEST_F(Sparse, CompareByContent) {
    sparse("a.bin", {0, 10, 63});
    sparse("same.bin", {0, 10, 63});
    EXPECT_EQ(compare(u"\\a.bin", u"\\same.bin"), 0);
    // The same bytes with zeros written where the other has a hole.
    sparse("zeros.bin", {0, 10, 63});
    poke("zeros.bin", 20 * kMiB, std::string(kMiB, '\0'));
    EXPECT_EQ(compare(u"\\a.bin", u"\\zeros.bin"), 0);
    EXPECT_EQ(compare(u"\\zeros.bin", u"\\a.bin"), 0);
    const std::pair<off_t, const char*> rows[] = {{10 * kMiB + 1000, "inside a data extent"},
                                                  {30 * kMiB, "inside a hole of both"},
                                                  {20 * kMiB + 5, "in zeros written facing a hole"},
                                                  {64 * kMiB - 1, "the last byte"}};
    for (const auto& [offset, where] : rows) {
        std::filesystem::copy_file(host_path("zeros.bin"), host_path("b.bin"),
                                   std::filesystem::copy_options::overwrite_existing);
        poke("b.bin", offset, "x");
        EXPECT_EQ(compare(u"\\zeros.bin", u"\\b.bin"), 1) << where;
        EXPECT_EQ(compare(u"\\b.bin", u"\\a.bin"), 1) << where;
    }
    sparse("short.bin", {0, 10});
    ASSERT_EQ(truncate(host_path("short.bin").c_str(), 63 * kMiB), 0);
    EXPECT_EQ(compare(u"\\a.bin", u"\\short.bin"), 1) << "sizes differ";
}

} // namespace
} // namespace kp::files::test
