// support.h - a host over a temporary registry, and raw reads of the database file.
#pragma once

#include <gtest/gtest.h>

#include <sqlite3.h>
#include <string>
#include <vector>

#include "platform/registry_store.h"
#include "support/test_host.h"
#include "support/write_rights.h"

namespace kp::test {

using kp::host::Value;

// One column of the first row of a query on the file ("" when none).
inline std::string sql_text(const std::string& file, const std::string& sql) {
    sqlite3* db = nullptr;
    std::string out;
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) == SQLITE_OK &&
            sqlite3_step(st) == SQLITE_ROW) {
            const unsigned char* t = sqlite3_column_text(st, 0);
            out.assign(t ? reinterpret_cast<const char*>(t) : "",
                       static_cast<std::size_t>(sqlite3_column_bytes(st, 0)));
        }
        sqlite3_finalize(st);
    }
    sqlite3_close(db);
    return out;
}

// A registry in a temporary folder, reached through the host and directly.
struct RegistryFixture : ::testing::Test {
    HostFixture fx;
    std::string file() const { return (fx.dir.path() / "registry.sqlite3").string(); }
    void SetUp() override {
        ASSERT_TRUE(fx.host->loaded()) << fx.host->load_error();
        platform::registry::use_database(file());
    }
    void TearDown() override { platform::registry::use_database(""); }

    // A call through the component; call_with keeps the arguments (by-reference variables).
    kp::host::CallOutcome call_with(const char* name, std::vector<Value>& args) {
        kp::host::CallOutcome out = fx.host->call(name, args);
        EXPECT_EQ(kp::host::CallStatus::Ok, out.status) << name << ": " << out.detail;
        return out;
    }
    kp::host::CallOutcome call(const char* name, std::vector<Value> args) { return call_with(name, args); }
    bool ok(const char* name, std::vector<Value> args) {
        auto r = call(name, std::move(args));
        EXPECT_EQ(Value::Kind::Bool, r.result.kind) << name;
        return r.result.b;
    }
    std::u16string text(const char* name, std::vector<Value> args) {
        auto r = call(name, std::move(args));
        EXPECT_EQ(Value::Kind::String, r.result.kind) << name;
        return r.result.s;
    }
    // "type:hex bytes" of a value as stored.
    std::string stored(const std::string& key_name, const std::string& value_name) {
        return sql_text(file(), "SELECT type || ':' || hex(data) FROM vals JOIN keys ON keys.id = vals.key "
                                "WHERE keys.name = '" +
                                    key_name + "' AND vals.name = '" + value_name + "'");
    }
};

inline Value S(std::u16string s) {
    return Value::string(std::move(s));
}
inline Value I(int64_t i) {
    return Value::integer(i);
}

} // namespace kp::test
