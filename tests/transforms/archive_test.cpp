// _zipCreate_old and _zipOpen_old: archives written and checked by libzip,
// the archive name bound to its file, bad names and files that are no
// archives.
#include <gtest/gtest.h>
#include <zip.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "component/error.h"
#include "support/test_host.h"
#include "transforms/archive.h"

namespace {

struct Rec {
    kp_error_record rec{};
    kp::CXError e{&rec};
    Rec() { rec.severity = KP_SEVERITY_NONE; }
};

std::u16string u16(const std::string& s) {
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
    Rec r;
    EXPECT_EQ(0, kp::transforms::zip_create_old(u"books", u16(path.string()), r.e));
    EXPECT_EQ(KP_SEVERITY_NONE, r.rec.severity);
    EXPECT_EQ(22u, std::filesystem::file_size(path));
    int err = 0;
    zip_t* z = zip_open(path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &err);
    ASSERT_NE(nullptr, z) << err;
    EXPECT_EQ(0, zip_get_num_entries(z, 0));
    zip_discard(z);
    const std::u16string* bound = kp::transforms::zip_archive_file(u"books");
    ASSERT_NE(nullptr, bound);
    EXPECT_EQ(u16(path.string()), *bound);
    // Opening it again binds a second name to the same file.
    EXPECT_EQ(0, kp::transforms::zip_open_old(u"again", u16(path.string()), r.e));
    EXPECT_NE(nullptr, kp::transforms::zip_archive_file(u"again"));
}

TEST(OldArchives, OpenAnswersLibzipErrorNumbers) {
    kp::test::TempDir dir;
    // A real archive with one entry, written by libzip.
    const auto good = dir.path() / "good.zip";
    {
        int err = 0;
        zip_t* z = zip_open(good.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &err);
        ASSERT_NE(nullptr, z);
        static const char text[] = "hello";
        zip_source_t* src = zip_source_buffer(z, text, 5, 0);
        ASSERT_GE(zip_file_add(z, "a.txt", src, 0), 0);
        ASSERT_EQ(0, zip_close(z));
    }
    std::ifstream in(good, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    write_file(dir.path() / "text.zip", "this is not an archive at all, only text");
    write_file(dir.path() / "cut.zip", bytes.substr(0, bytes.size() - 10));
    std::string damaged = bytes;
    damaged[damaged.size() - 22 + 16] ^= 0x7F; // the central directory's offset
    write_file(dir.path() / "damaged.zip", damaged);
    struct Case {
        const char* file;
        int32_t result;
    };
    const Case cases[] = {
        {"good.zip", 0},
        {"missing.zip", ZIP_ER_NOENT},
        {"text.zip", ZIP_ER_NOZIP},
        {"cut.zip", ZIP_ER_NOZIP},
    };
    for (const Case& c : cases) {
        Rec r;
        EXPECT_EQ(c.result, kp::transforms::zip_open_old(u"x", u16((dir.path() / c.file).string()), r.e))
            << c.file;
        EXPECT_EQ(KP_SEVERITY_NONE, r.rec.severity) << c.file;
    }
    Rec r;
    EXPECT_NE(0, kp::transforms::zip_open_old(u"y", u16((dir.path() / "damaged.zip").string()), r.e));
    EXPECT_EQ(nullptr, kp::transforms::zip_archive_file(u"y")); // a failure binds nothing
    // A directory that does not exist: the file cannot be created.
    EXPECT_EQ(ZIP_ER_NOENT,
              kp::transforms::zip_create_old(u"z", u16((dir.path() / "no" / "such.zip").string()), r.e));
}

TEST(OldArchives, BadNamesAnswerInvalidArgumentWithAnError) {
    struct Case {
        std::u16string file;
        uint32_t id;
    };
    const Case cases[] = {{u"", 80059}, {u"relative.zip", 80600}, {u"dir\\a.zip", 80600}};
    for (const Case& c : cases) {
        Rec r;
        EXPECT_EQ(ZIP_ER_INVAL, kp::transforms::zip_create_old(u"a", c.file, r.e));
        EXPECT_EQ(c.id, r.rec.id);
        Rec o;
        EXPECT_EQ(ZIP_ER_INVAL, kp::transforms::zip_open_old(u"a", c.file, o.e));
        EXPECT_EQ(c.id, o.rec.id);
    }
    Rec r;
    const std::u16string nul = std::u16string(u"/tmp/a") + u'\0' + u".zip";
    EXPECT_EQ(ZIP_ER_INVAL, kp::transforms::zip_create_old(u"a", nul, r.e));
    EXPECT_EQ(123u, r.rec.system_code);
}

TEST(OldArchives, ThroughTheInterfaceOnDeviceNames) {
    kp::test::HostFixture fx;
    ASSERT_TRUE(fx.host->loaded());
    using kp::host::Value;
    std::vector<Value> args{Value::string(u"arc"), Value::string(u"\\Data\\old.zip")};
    std::filesystem::create_directories(fx.device() / "Data");
    auto out = fx.host->call("_zipCreate_old", args);
    ASSERT_EQ(kp::host::CallStatus::Ok, out.status) << out.detail;
    EXPECT_EQ(0, out.result.i);
    EXPECT_EQ(22u, std::filesystem::file_size(fx.device() / "Data" / "old.zip"));
    out = fx.host->call("_zipOuvre_old", args);
    ASSERT_EQ(kp::host::CallStatus::Ok, out.status) << out.detail;
    EXPECT_EQ(0, out.result.i);
}
