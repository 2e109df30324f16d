// system_fixture.h - a reference host with a chosen display and system bus over a temporary
// device root, and short ways to call and read results.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "display.h"
#include "host.h"
#include "support/test_host.h"

namespace kp::test {

struct SystemHost {
    TempDir dir;
    std::unique_ptr<kp::host::Host> host;

    explicit SystemHost(const std::string& display = "headless", const std::string& bus = "none") {
        kp::host::Options o;
        if (const char* p = std::getenv("KP120_COMPONENT")) o.component_path = p;
        std::filesystem::create_directories(dir.path() / "device");
        o.device_root = (dir.path() / "device").string();
        o.registry_path = (dir.path() / "registry.sqlite3").string();
        o.display = display;
        o.system_bus = bus;
        host = std::make_unique<kp::host::Host>(o);
        EXPECT_TRUE(host->loaded()) << host->load_error();
    }
    std::filesystem::path device() const { return dir.path() / "device"; }

    using Args = std::vector<kp::host::Value>;
    using Kind = kp::host::Value::Kind;
    kp::host::CallOutcome call(const char* name, Args args = {}) {
        kp::host::CallOutcome out = host->call(name, args);
        EXPECT_EQ(kp::host::CallStatus::Ok, out.status) << name << ": " << out.detail;
        return out;
    }
    // The result of a call that must be of `kind` (Int: either integer kind).
    kp::host::Value typed(const char* name, Args args, Kind kind) {
        kp::host::Value v = call(name, std::move(args)).result;
        EXPECT_EQ(kind, v.kind == Kind::Int64 ? Kind::Int : v.kind) << name;
        return v;
    }
    int64_t integer(const char* name, Args args = {}) { return typed(name, std::move(args), Kind::Int).i; }
    bool boolean(const char* name, Args args = {}) { return typed(name, std::move(args), Kind::Bool).b; }
    std::u16string text(const char* name, Args args = {}) {
        return typed(name, std::move(args), Kind::String).s;
    }
    // Value of an integer constant by English name.
    int64_t constant(const char* name) {
        const kp_constant* c = host->find_constant(name);
        EXPECT_NE(c, nullptr) << name;
        return c ? static_cast<int64_t>(static_cast<int32_t>(c->value)) : 0;
    }
    // English names of the constants with a value whose name starts with prefix.
    std::vector<std::string> family(const char* prefix) {
        std::vector<std::string> out;
        for (const kp_constant& c : host->constants()) {
            std::string en = c.english;
            if (en.rfind(prefix, 0) == 0 && en.size() > std::strlen(prefix) &&
                std::isupper(static_cast<unsigned char>(en[std::strlen(prefix)])) &&
                c.kind != KP_CONST_NO_VALUE)
                out.push_back(en);
        }
        return out;
    }
};

inline const auto I = [](int64_t v) { return kp::host::Value::integer(v); };
inline const auto S = [](std::u16string v) { return kp::host::Value::string(std::move(v)); };

// A refused call: its integer result (false and "" count as 0) and system error.
struct Refusal {
    const char* name;
    int64_t failure;
    uint32_t code;
    std::vector<kp::host::Value> args;
    template <typename... Args>
    Refusal(const char* n, int64_t f, uint32_t c, Args... a) : name(n), failure(f), code(c), args{a...} {}
};

inline void expect_refusals(SystemHost& sys, const std::vector<Refusal>& rows) {
    for (const Refusal& r : rows) {
        SCOPED_TRACE(testing::Message() << r.name << ", row " << &r - rows.data());
        const auto out = sys.call(r.name, r.args);
        const kp::host::Value& v = out.result; // a text's length, a boolean or an integer
        EXPECT_EQ(r.failure, v.kind == SystemHost::Kind::String ? int64_t(v.s.size())
                             : v.kind == SystemHost::Kind::Bool ? int64_t(v.b)
                                                                : v.i);
        EXPECT_EQ(KP_SEVERITY_ERROR, out.error.severity);
        EXPECT_EQ(r.code, out.error.system_code);
    }
}

} // namespace kp::test
