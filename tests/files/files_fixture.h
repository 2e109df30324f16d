// files_fixture.h - a host over a temporary device root, with helpers to
// put bytes on the device and read them back.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/test_host.h"

namespace kp::files::test {

using kp::host::CallOutcome;
using kp::host::Value;

inline Value S(const std::u16string& s) {
    return Value::string(s);
}
inline Value I(int64_t v) {
    return Value::integer(v);
}

class DeviceTest : public ::testing::Test {
  protected:
    kp::test::HostFixture fx;

    CallOutcome call(const char* name, std::vector<Value> args) { return fx.host->call(name, args); }
    // Calls with variables: `args` keeps what the call left in them.
    CallOutcome call_with(const char* name, std::vector<Value>& args) { return fx.host->call(name, args); }

    std::filesystem::path host_path(const std::string& rel) const { return fx.device() / rel; }

    void put(const std::string& rel, const std::string& bytes) {
        std::filesystem::create_directories(host_path(rel).parent_path());
        std::ofstream f(host_path(rel), std::ios::binary | std::ios::trunc);
        f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    std::string get(const std::string& rel) const {
        std::ifstream f(host_path(rel), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    }

    int64_t open(const std::u16string& name, int32_t mode) {
        return call("fOpen", {Value::string(name), Value::integer(mode)}).result.i;
    }
    int64_t create(const std::u16string& name, int32_t mode = 0) {
        return call("fCreate", {Value::string(name), Value::integer(mode)}).result.i;
    }
    void close(int64_t h) { call("fClose", {Value::integer(h)}); }
    std::u16string line(int64_t h) { return call("fReadLine", {Value::integer(h)}).result.s; }
    int64_t tell(int64_t h) {
        return call("fSeek", {Value::integer(h), Value::int64(0), Value::integer(1)}).result.i;
    }
};

} // namespace kp::files::test
