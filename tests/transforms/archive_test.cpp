// _zipCreate_old and _zipOpen_old: archives written and checked by libzip,
// the archive name bound to its file, bad names and files that are no
// archives.
#include <gtest/gtest.h>
#include <zip.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/error_record.h"
#include "support/test_host.h"
#include "transforms/archive.h"

namespace {

using kp::test::Err;
using kp::transforms::zip_archive_file;
using kp::transforms::zip_create_old;
using kp::transforms::zip_open_old;

std::u16string u16(const std::filesystem::path& p) {
    const std::string s = p.string();
    return std::u16string(s.begin(), s.end());
}

void write_file(const std::filesystem::path& p, const std::string& bytes) {
    std::ofstream(p, std::ios::binary) << bytes;
}

} // namespace

TEST(OldArchives, CreateWritesAnEmptyArchiveLibzipReads) {
    kp::test::TempDir dir;
    const auto path = dir.path() / "new.zip";
    write_file(path, "previous content that is replaced");
    Err r;
    EXPECT_EQ(0, zip_create_old(u"books", u16(path), r.err));
    EXPECT_EQ(22u, std::filesystem::file_size(path));
    int err = 0;
    zip_t* z = zip_open(path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &err);
    ASSERT_NE(nullptr, z) << err;
    EXPECT_EQ(0, zip_get_num_entries(z, 0));
    zip_discard(z);
    // Opening it again binds a second name to the same file.
    EXPECT_EQ(0, zip_open_old(u"again", u16(path), r.err));
    for (const char16_t* name : {u"books", u"again"})
        EXPECT_EQ(u16(path), zip_archive_file(name) ? *zip_archive_file(name) : u"");
    EXPECT_TRUE(r.clean());
}

TEST(OldArchives, OpenAnswersLibzipErrorNumbers) {
    kp::test::TempDir dir;
    // A real archive with one entry, written by libzip.
    const auto good = dir.path() / "good.zip";
    int err = 0;
    zip_t* z = zip_open(good.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &err);
    ASSERT_NE(nullptr, z);
    ASSERT_GE(zip_file_add(z, "a.txt", zip_source_buffer(z, "hello", 5, 0), 0), 0);
    ASSERT_EQ(0, zip_close(z));
    std::ifstream in(good, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    write_file(dir.path() / "text.zip", "this is not an archive at all, only text");
    write_file(dir.path() / "cut.zip", bytes.substr(0, bytes.size() - 10));
    std::string damaged = bytes;
    damaged[damaged.size() - 22 + 16] ^= 0x7F; // the central directory's offset
    write_file(dir.path() / "damaged.zip", damaged);
    // clang-format off
    const std::pair<const char*, int32_t> cases[] = {
        {"good.zip", 0}, {"missing.zip", ZIP_ER_NOENT}, {"text.zip", ZIP_ER_NOZIP}, {"cut.zip", ZIP_ER_NOZIP}};
    // clang-format on
    for (const auto& [file, result] : cases) {
        Err r;
        EXPECT_EQ(result, zip_open_old(u"x", u16(dir.path() / file), r.err)) << file;
        EXPECT_TRUE(r.clean()) << file;
    }
    Err r;
    EXPECT_NE(0, zip_open_old(u"y", u16(dir.path() / "damaged.zip"), r.err));
    EXPECT_EQ(nullptr, zip_archive_file(u"y")); // a failure binds nothing
    // A directory that does not exist: the file cannot be created.
    EXPECT_EQ(ZIP_ER_NOENT, zip_create_old(u"z", u16(dir.path() / "no" / "such.zip"), r.err));
}

TEST(OldArchives, BadNamesAnswerInvalidArgumentWithAnError) {
    const std::pair<std::u16string, uint32_t> cases[] = {
        {u"", 80059}, {u"relative.zip", 80600}, {u"dir\\a.zip", 80600}};
    for (const auto& [file, id] : cases) {
        Err r, o;
        EXPECT_EQ(ZIP_ER_INVAL, zip_create_old(u"a", file, r.err));
        EXPECT_EQ(ZIP_ER_INVAL, zip_open_old(u"a", file, o.err));
        EXPECT_EQ(std::pair(id, id), std::pair(r.id(), o.id()));
    }
    Err r;
    const std::u16string nul = std::u16string(u"/tmp/a") + u'\0' + u".zip";
    EXPECT_EQ(ZIP_ER_INVAL, zip_create_old(u"a", nul, r.err));
    EXPECT_EQ(123u, r.rec.system_code);
}

TEST(OldArchives, ThroughTheInterfaceOnDeviceNames) {
    kp::test::HostFixture fx;
    ASSERT_TRUE(fx.host->loaded());
    using kp::host::Value;
    std::vector<Value> args{Value::string(u"arc"), Value::string(u"\\Data\\old.zip")};
    std::filesystem::create_directories(fx.device() / "Data");
    for (const char* name : {"_zipCreate_old", "_zipOuvre_old"}) {
        auto out = fx.host->call(name, args);
        ASSERT_EQ(kp::host::CallStatus::Ok, out.status) << out.detail;
        EXPECT_EQ(0, out.result.i) << name;
    }
    EXPECT_EQ(22u, std::filesystem::file_size(fx.device() / "Data" / "old.zip"));
}
