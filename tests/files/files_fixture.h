// files_fixture.h - a host over a temporary device root, with helpers to put and get its bytes.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/test_host.h"

namespace kp::files::test {

using kp::host::CallOutcome;
using kp::host::Value;

inline const auto S = [](const std::u16string& s) { return Value::string(s); };
inline const auto I = [](int64_t v) { return Value::integer(v); };

// What a shell command writes on its standard output ("" when it fails).
inline std::string capture(const std::string& command) {
    std::string out;
    if (FILE* p = popen(command.c_str(), "r")) {
        char buf[4096];
        while (std::size_t n = fread(buf, 1, sizeof buf, p))
            out.append(buf, n);
        if (pclose(p) != 0) out.clear();
    }
    return out;
}

constexpr int64_t kAny = INT64_MIN;

// A call and its result as text (true/false, decimal, "none", bytes one a character; "*": unchecked),
// then the record's severity, identifier and system code (kAny: unchecked).
struct Expect {
    const char* fn;
    std::vector<Value> args;
    const char16_t* result;
    int64_t severity = kAny, id = kAny, system = kAny;
};

class DeviceTest : public ::testing::Test {
  protected:
    kp::test::HostFixture fx;

    CallOutcome call(const char* name, std::vector<Value> args) { return fx.host->call(name, args); }
    // Calls with variables: `args` keeps what the call left in them.
    CallOutcome call_with(const char* name, std::vector<Value>& args) { return fx.host->call(name, args); }

    // Makes the calls of `rows` in turn; the last one's outcome.
    CallOutcome expect_calls(const std::vector<Expect>& rows) {
        CallOutcome out;
        for (const Expect& r : rows) {
            std::vector<Value> args = r.args;
            out = call_with(r.fn, args);
            std::string trace = r.fn;
            for (const Value& a : r.args)
                trace += " " + (a.kind == Value::Kind::String ? host::utf8(a.s) : std::to_string(a.i));
            SCOPED_TRACE(trace);
            EXPECT_EQ(out.status, kp::host::CallStatus::Ok) << out.detail;
            const Value& v = out.result;
            std::u16string got = v.kind == Value::Kind::Bool     ? (v.b ? u"true" : u"false")
                                 : v.kind == Value::Kind::String ? v.s
                                 : v.kind == Value::Kind::None   ? u"none"
                                                                 : host::utf16(std::to_string(v.i));
            if (v.kind == Value::Kind::Buffer) got.assign(v.bytes.begin(), v.bytes.end());
            EXPECT_TRUE(std::u16string(r.result) == u"*" || got == r.result)
                << "result " << host::utf8(got) << ", not " << host::utf8(r.result);
            for (auto [want, have] : {std::pair{r.severity, int64_t(out.error.severity)},
                                      {r.id, int64_t(out.error.id)},
                                      {r.system, int64_t(out.error.system_code)}})
                EXPECT_TRUE(want == kAny || have == want) << have << " in place of " << want;
        }
        return out;
    }

    std::filesystem::path host_path(const std::string& rel) const { return fx.device() / rel; }

    void put(const std::string& rel, const std::string& bytes) {
        std::filesystem::create_directories(host_path(rel).parent_path());
        std::ofstream(host_path(rel), std::ios::binary | std::ios::trunc) << bytes;
    }
    std::string get(const std::string& rel) const {
        std::ifstream f(host_path(rel), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    }

    int64_t open(const std::u16string& name, int32_t mode) {
        return call("fOpen", {S(name), I(mode)}).result.i;
    }
    int64_t create(const std::u16string& name, int32_t mode = 0) {
        return call("fCreate", {S(name), I(mode)}).result.i;
    }
    void close(int64_t h) { call("fClose", {I(h)}); }
    std::u16string line(int64_t h) { return call("fReadLine", {I(h)}).result.s; }
    int64_t tell(int64_t h) { return call("fSeek", {I(h), Value::int64(0), I(1)}).result.i; }
};

} // namespace kp::files::test
