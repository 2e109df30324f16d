// registry_store_test.cpp - the registry store on SQLite (unusable files: tests/registry).
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sqlite3.h>
#include <string>
#include <tuple>
#include <vector>

#include "platform/registry_store.h"
#include "registry/support.h"
#include "support/utf8_cases.h"

namespace kp::platform::registry {
namespace {

using kp::test::sql_text;

uint32_t put_dword(Key k, std::u16string_view name, uint32_t v) {
    return set_value(k, name, kDword, reinterpret_cast<const uint8_t*>(&v), 4);
}

class Store : public ::testing::Test {
  protected:
    kp::test::TempDir dir;
    std::string file;
    void SetUp() override {
        file = (dir.path() / "reg.sqlite3").string();
        use_database(file);
    }
    void TearDown() override { use_database(""); }

    Key create(std::u16string_view path, uint32_t* disp = nullptr, Key parent = kCurrentUser) {
        Key k = 0;
        EXPECT_EQ(create_key(parent, path, kAllAccess, &k, disp), 0u);
        return k;
    }
    void set_dword(Key k, std::u16string_view name, uint32_t v) { ASSERT_EQ(put_dword(k, name, v), 0u); }
    // The code of a query of a value's size, and of a creation under a handle.
    uint32_t query(Key k, std::u16string_view name) {
        uint32_t size = 0;
        return query_value(k, name, nullptr, nullptr, &size);
    }
    uint32_t create_under(Key k, std::u16string_view name) {
        Key sub = 0;
        uint32_t e = create_key(k, name, kAllAccess, &sub);
        if (!e) close_key(sub);
        return e;
    }
    // The name of the subkey (or value) at an index, or "#code" when it fails.
    std::u16string at(Key k, uint32_t i, bool value = false) {
        char16_t buf[300];
        uint32_t n = 300;
        uint32_t e = value ? enum_value(k, i, buf, &n, nullptr, nullptr, nullptr) : enum_key(k, i, buf, &n);
        const std::string code = "#" + std::to_string(e);
        return e ? std::u16string(code.begin(), code.end()) : std::u16string(buf, n);
    }
    // The names of the subkeys or of the values, by index until 259.
    std::vector<std::u16string> names(Key k, bool of_values = false) {
        std::vector<std::u16string> r;
        for (std::u16string s; r.size() < 100 && (s = at(k, r.size(), of_values)) != u"#259";)
            r.push_back(s);
        return r;
    }
};

TEST_F(Store, NewFileHasSchemaRootsAndWal) {
    Key k = create(u"Software");
    EXPECT_EQ(close_key(k), 0u);
    EXPECT_EQ(sql_text(file, "PRAGMA user_version"), "1");
    EXPECT_EQ(sql_text(file, "PRAGMA journal_mode"), "wal");
    EXPECT_EQ(sql_text(file,
                       "SELECT group_concat(name, ',') FROM (SELECT name FROM keys WHERE parent IS NULL "
                       "ORDER BY id)"),
              "HKEY_CLASSES_ROOT,HKEY_CURRENT_USER,HKEY_LOCAL_MACHINE,HKEY_USERS");
    // Every root opens with an empty subkey.
    for (Key root : {kClassesRoot, kCurrentUser, kLocalMachine, kUsers}) {
        Key h = 0;
        EXPECT_EQ(open_key(root, u"", kRead, &h), 0u);
        EXPECT_EQ(close_key(h), 0u);
    }
}

TEST_F(Store, CreateOpenAndCaseFolding) {
    uint32_t disp = 0;
    Key a = create(u"Soft\\Straße\\Leaf", &disp);
    EXPECT_EQ(disp, kCreatedNewKey);
    Key again = create(u"SOFT\\STRASSE\\leaf", &disp);
    EXPECT_EQ(disp, kOpenedExistingKey);
    set_dword(a, u"V", 7);
    uint32_t v = 0, size = 4, type = 0;
    EXPECT_EQ(query_value(again, u"v", &type, reinterpret_cast<uint8_t*>(&v), &size), 0u);
    EXPECT_EQ(v, 7u);
    // The spelling of the first creation is kept.
    Key soft = 0;
    ASSERT_EQ(open_key(kCurrentUser, u"soft", kRead, &soft), 0u);
    EXPECT_EQ(names(soft), std::vector<std::u16string>{u"Straße"});
    for (Key k : {a, again, soft})
        EXPECT_EQ(close_key(k), 0u);
    EXPECT_EQ(close_key(a), 6u);
}

// Names another tool wrote read with the platform's UTF-8 rules; names written are those bytes.
TEST_F(Store, NamesAsUtf8) {
    Key sw = create(u"Software");
    const auto& cases = kp::test::utf8_cases();
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
    sqlite3_stmt* st = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db,
                                 "INSERT INTO keys(parent, name, folded) VALUES(2, ?1, printf('k%03d', ?2))",
                                 -1, &st, nullptr),
              SQLITE_OK);
    std::vector<std::u16string> expected;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        if (cases[i].bytes.empty()) continue;
        sqlite3_bind_text(st, 1, cases[i].bytes.data(), static_cast<int>(cases[i].bytes.size()),
                          SQLITE_STATIC);
        sqlite3_bind_int(st, 2, static_cast<int>(i));
        EXPECT_EQ(sqlite3_step(st), SQLITE_DONE);
        sqlite3_reset(st);
        expected.push_back(cases[i].text);
    }
    sqlite3_finalize(st);
    sqlite3_close(db);
    std::vector<std::u16string> got = names(kCurrentUser);
    ASSERT_EQ(got.size(), expected.size() + 1);
    got.pop_back(); // "Software", after every "k..."
    for (std::size_t i = 0; i < got.size(); ++i)
        EXPECT_EQ(got[i], expected[i]) << i;

    for (const kp::test::Utf8Case& c : cases) {
        if (!c.well_formed || c.bytes.empty()) continue;
        Key k = create(c.text, nullptr, sw);
        EXPECT_EQ(sql_text(file, "SELECT name FROM keys WHERE id = (SELECT max(id) FROM keys)"), c.bytes);
        EXPECT_EQ(close_key(k), 0u);
    }
    EXPECT_EQ(close_key(sw), 0u);
}

TEST_F(Store, PathErrors) {
    // clang-format off
    struct Case { std::u16string path; uint32_t open, create; } cases[] = {
        {u"Missing", 2, 0}, {u"Missing\\Deeper", 2, 0}, {u"\\Lead", 161, 161}, {u"a\\\\b", 161, 161},
        {u"trail\\", 161, 161}, {std::u16string(255, u'k'), 2, 0}, {std::u16string(256, u'k'), 87, 87},
        {std::u16string(10000, u'k'), 87, 87}};
    // clang-format on
    for (const auto& c : cases) {
        Key k = 0;
        EXPECT_EQ(open_key(kLocalMachine, c.path, kRead, &k), c.open) << c.path.size();
        EXPECT_EQ(create_key(kLocalMachine, c.path, kAllAccess, &k), c.create) << c.path.size();
        if (k) close_key(k);
    }
    Key k = 0;
    EXPECT_EQ(open_key(0x1234, u"", kRead, &k), 6u);
    EXPECT_EQ(open_key(kLocalMachine, u"", kRead, nullptr), 87u);
}

TEST_F(Store, ValueRulesOfQuery) {
    Key k = create(u"Q");
    const uint8_t bytes[] = {1, 2, 3, 4, 5};
    ASSERT_EQ(set_value(k, u"bin", kBinary, bytes, 5), 0u);
    ASSERT_EQ(set_value(k, u"", kSz, reinterpret_cast<const uint8_t*>(u"d"), 4), 0u);
    ASSERT_EQ(set_value(k, u"empty", kNone, nullptr, 0), 0u);
    // {code, type, size} of a query into a buffer of `room` bytes (none: no buffer).
    auto q = [&](std::u16string_view name, int room = -1) {
        uint8_t buf[8] = {};
        uint32_t type = 99, size = room < 0 ? 0 : room;
        uint32_t e = query_value(k, name, &type, room < 0 ? nullptr : buf, &size);
        return std::tuple(e, type, size);
    };
    EXPECT_EQ(q(u"BIN"), std::tuple(0u, kBinary, 5u));
    EXPECT_EQ(std::get<0>(q(u"bin", 4)), 234u);
    EXPECT_EQ(std::get<2>(q(u"bin", 4)), 5u);
    EXPECT_EQ(q(u"empty", 8), std::tuple(0u, kNone, 0u));
    EXPECT_EQ(q(u""), std::tuple(0u, kSz, 4u));
    EXPECT_EQ(std::get<0>(q(u"nope")), 2u);
    uint8_t buf[8] = {};
    uint32_t size = 8;
    EXPECT_EQ(query_value(k, u"bin", nullptr, buf, &size), 0u);
    EXPECT_EQ(std::vector<uint8_t>(buf, buf + size), std::vector<uint8_t>(bytes, bytes + 5));
    EXPECT_EQ(query_value(k, u"bin", nullptr, buf, nullptr), 87u);
    EXPECT_EQ(set_value(k, u"x", kBinary, nullptr, 3), 87u);
    EXPECT_EQ(set_value(k, std::u16string(16384, u'n'), kDword, bytes, 4), 87u);
    close_key(k);
}

TEST_F(Store, EnumerationOrders) {
    Key k = create(u"E");
    for (const char16_t* n : {u"b", u"C", u"a", u"Ä"})
        close_key(create(n, nullptr, k));
    EXPECT_EQ(names(k), (std::vector<std::u16string>{u"a", u"b", u"C", u"Ä"}));
    // The sibling after a name spelled exactly so.
    // clang-format off
    struct After { std::u16string name, next; uint32_t error; } afters[] = {
        {u"a", u"b", 0}, {u"b", u"C", 0}, {u"B", u"", 2}, {u"Ä", u"", 259}, {u"zz", u"", 2}};
    // clang-format on
    for (const auto& a : afters) {
        char16_t buf[8];
        uint32_t n = 8;
        EXPECT_EQ(enum_key_after(k, a.name, buf, &n), a.error);
        EXPECT_EQ(a.error ? u"" : std::u16string(buf, n), a.next);
    }
    for (const char16_t* n : {u"z", u"Y", u"a"})
        set_dword(k, n, 1);
    set_dword(k, u"Z", 2); // an update keeps the place of the first write
    EXPECT_EQ(names(k, true), (std::vector<std::u16string>{u"z", u"Y", u"a"}));
    // Name buffer rules: terminator counted, 234 when it does not fit.
    char16_t name[2];
    uint32_t n = 1;
    EXPECT_EQ(enum_value(k, 0, name, &n, nullptr, nullptr, nullptr), 234u);
    n = 2;
    uint32_t size = 0, type = 0;
    EXPECT_EQ(enum_value(k, 0, name, &n, &type, nullptr, &size), 0u);
    EXPECT_EQ(std::u16string(name), u"z");
    EXPECT_EQ(size, 4u);
    uint8_t small[2];
    size = 2;
    n = 2;
    EXPECT_EQ(enum_value(k, 0, name, &n, &type, small, &size), 234u);
    EXPECT_EQ(size, 4u);
    KeyInfo i;
    ASSERT_EQ(query_info_key(k, &i), 0u);
    EXPECT_EQ(std::tuple(i.subkeys, i.values, i.max_subkey_len, i.max_value_name_len, i.max_value_len),
              std::tuple(4u, 3u, 1u, 1u, 4u));
    close_key(k);
}

// Walks in any order of indexes, two of them interleaved on one key, give the same items.
TEST_F(Store, EnumerationInAnyOrderOfIndexes) {
    Key k = create(u"Any");
    std::vector<std::u16string> names;
    for (int i = 0; i < 20; ++i) {
        std::u16string n = u"k" + std::u16string(1, static_cast<char16_t>(u'a' + (i * 7) % 20));
        close_key(create(n, nullptr, k));
        set_dword(k, n, static_cast<uint32_t>(i));
        names.push_back(n);
    }
    std::vector<std::u16string> sorted = names;
    std::sort(sorted.begin(), sorted.end());
    Key other = 0;
    ASSERT_EQ(open_key(kCurrentUser, u"any", kRead, &other), 0u);
    const uint32_t order[] = {0, 1, 2, 2, 1, 3, 19, 18, 5, 6, 0, 7, 20, 8, 9};
    for (uint32_t i : order) {
        for (Key h : {k, other, k}) {
            EXPECT_EQ(at(h, i), i < 20 ? sorted[i] : u"#259") << i;
            EXPECT_EQ(at(h, i, true), i < 20 ? names[i] : u"#259") << i;
        }
    }
    // An item deleted behind the walk does not make it skip the next one.
    EXPECT_EQ(at(k, 3, true), names[3]);
    ASSERT_EQ(delete_value(k, names[3]), 0u);
    EXPECT_EQ(at(k, 4, true), names[4]);
    close_key(other);
    close_key(k);
}

TEST_F(Store, DeletionAndDeletedHandles) {
    Key parent = create(u"D");
    Key child = create(u"D\\Child");
    set_dword(child, u"v", 1);
    EXPECT_EQ(delete_key(kCurrentUser, u"D"), 5u); // still has a subkey
    EXPECT_EQ(delete_value(child, u"V"), 0u);
    EXPECT_EQ(delete_value(child, u"V"), 2u);
    set_dword(child, u"w", 1);
    EXPECT_EQ(delete_key(parent, u"child"), 0u);
    EXPECT_EQ(sql_text(file, "SELECT count(*) FROM vals"), "0");
    // Every use of the deleted key's handle.
    EXPECT_EQ(
        std::tuple(query(child, u"w"), put_dword(child, u"w", 1), at(child, 0), create_under(child, u"x")),
        std::tuple(1018u, 1018u, u"#1018", 1018u));
    EXPECT_EQ(delete_key(kCurrentUser, u"D\\Child"), 2u);
    EXPECT_EQ(delete_key(kCurrentUser, u""), 5u); // a root stays
    close_key(child);
    close_key(parent);
}

TEST_F(Store, AccessRights) {
    close_key(create(u"A"));
    Key r = 0, w = 0;
    ASSERT_EQ(open_key(kCurrentUser, u"A", kQueryValue, &r), 0u);
    ASSERT_EQ(open_key(kCurrentUser, u"A", kSetValue, &w), 0u);
    EXPECT_EQ(put_dword(r, u"v", 1), 5u);
    EXPECT_EQ(put_dword(w, u"v", 1), 0u);
    EXPECT_EQ(query(r, u"v"), 0u);
    EXPECT_EQ(std::tuple(query(w, u"v"), at(r, 0), create_under(r, u"new"), delete_value(r, u"v")),
              std::tuple(5u, u"#5", 5u, 5u)); // refused: nothing changes
    EXPECT_EQ(end_batch(true), 87u);          // no batch begun (a batch's rollback: tests/registry's import)
    close_key(r);
    close_key(w);
}

} // namespace
} // namespace kp::platform::registry
