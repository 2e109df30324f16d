// robustness_test.cpp - the registry functions over database files that
// cannot be used (not SQLite, of a later release, locked by another
// process past the timeout, no file at all).
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sqlite3.h>

#include "registry/registry.h"
#include "registry/support.h"

namespace kp::registry {
namespace {

namespace store = platform::registry;

struct Outcome {
    bool written;
    uint32_t id, system;
};

Outcome write_one(std::u16string_view key) {
    kp_error_record rec{};
    rec.severity = 1;
    CXError err(&rec);
    bool ok = set_integer(key, ValueRef::named(u"v"), 1, err);
    return {ok, rec.id, rec.system_code};
}

TEST(UnusableDatabases, FailWithTheirErrorsAndStayUntouched) {
    kp::test::TempDir dir;
    std::string garbage = (dir.path() / "garbage").string();
    std::string junk(4096, '\0');
    for (std::size_t i = 0; i < junk.size(); ++i)
        junk[i] = static_cast<char>(i * 37 + 11);
    std::ofstream(garbage, std::ios::binary) << junk;
    auto database = [&](const char* name, const char* sql) {
        std::string file = (dir.path() / name).string();
        sqlite3* db = nullptr;
        sqlite3_open(file.c_str(), &db);
        sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
        sqlite3_close(db);
        return file;
    };
    std::string later = database("later.sqlite3", "CREATE TABLE other(x); PRAGMA user_version = 7");
    std::string foreign = database("foreign.sqlite3", "CREATE TABLE mine(x); INSERT INTO mine VALUES(1)");
    // clang-format off
    struct Case { std::string file; uint32_t system; } cases[] = {
        {garbage, 1009}, {later, 1009},
        {foreign, 1009}, // another program's database
        {(dir.path() / "no" / "such" / "folder.sqlite3").string(), 1011}, {"", 1010}};
    // clang-format on
    for (const auto& c : cases) {
        store::use_database(c.file);
        Outcome o = write_one(u"HKEY_CURRENT_USER");
        EXPECT_FALSE(o.written) << c.file;
        EXPECT_EQ(o.id, 80293u) << c.file;
        EXPECT_EQ(o.system, c.system) << c.file;
        kp_error_record rec{};
        CXError err(&rec);
        EXPECT_FALSE(create_key(u"HKEY_CURRENT_USER\\X", err));
        EXPECT_EQ(rec.system_code, c.system);
        EXPECT_FALSE(delete_key(u"HKEY_CURRENT_USER\\X", err));
        EXPECT_EQ(query_value(u"HKEY_CURRENT_USER", ValueRef::named(u"v")), Data{});
        EXPECT_FALSE(exists(u"HKEY_CURRENT_USER"));
        EXPECT_EQ(first_subkey(u"HKEY_CURRENT_USER"), u"");
        EXPECT_EQ(list_values(u"HKEY_CURRENT_USER", true), u"");
        EXPECT_EQ(seek(u"HKEY_CURRENT_USER", u"x", kSeekDefault), u"");
    }
    store::use_database("");
    std::ifstream in(garbage, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), junk);
    EXPECT_EQ(kp::test::sql_text(later, "PRAGMA user_version"), "7");
    EXPECT_EQ(kp::test::sql_text(foreign, "SELECT group_concat(name) FROM sqlite_master"), "mine");
    EXPECT_EQ(kp::test::sql_text(foreign, "PRAGMA journal_mode"), "delete");
}

TEST(UnusableDatabases, LockedPastTheTimeout) {
    kp::test::TempDir dir;
    std::string file = (dir.path() / "locked.sqlite3").string();
    store::use_database(file);
    kp_error_record rec{};
    CXError err(&rec);
    ASSERT_TRUE(create_key(u"HKEY_CURRENT_USER\\L", err));
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    store::set_busy_timeout(150);
    Outcome o = write_one(u"HKEY_CURRENT_USER\\L");
    EXPECT_FALSE(o.written);
    EXPECT_EQ(o.id, 80293u);
    EXPECT_EQ(o.system, 170u);
    // Reading goes on while another process writes.
    EXPECT_TRUE(exists(u"HKEY_CURRENT_USER\\L"));
    EXPECT_FALSE(delete_key(u"HKEY_CURRENT_USER\\L", err));
    EXPECT_EQ(rec.system_code, 170u);
    EXPECT_FALSE(create_key(u"HKEY_CURRENT_USER\\L\\Sub", err));
    EXPECT_EQ(rec.system_code, 170u);
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(other);
    EXPECT_TRUE(write_one(u"HKEY_CURRENT_USER\\L").written);
    store::set_busy_timeout(5000);
    store::use_database("");
}

} // namespace
} // namespace kp::registry
