// Registry writes and reads: RegistrySetValue and RegistryQueryValue of an
// integer in "HKEY_CURRENT_USER\Software\Bench", called through the ABI the
// way the VM calls a handler, against the same SQL statements on the same
// schema run on raw SQLite (two key lookups, then the upsert or the select),
// each side on its own database file with the same settings.  Target: at
// most 2x the raw statements' time an operation.  The ratios printed after
// the table come from batches of each side taken alternately, each side
// keeping its fastest batch.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sqlite3.h>
#include <string>

#include "host.h"
#include "host_values.h"
#include "platform/registry_store.h"
#include "support/test_host.h"

#include "ratio.h"

namespace {

namespace store = kp::platform::registry;

// --- Our side: the handlers, called as the VM calls them ----------------------

struct Context {
    kp_call_context base;
    kp_error_record record;
};
kp_error_record* error_of(kp_call_context* c) {
    return &reinterpret_cast<Context*>(c)->record;
}
void set_result(kp_value_interface*, void* handle, const void* value, uint32_t type) {
    int32_t* out = static_cast<int32_t*>(handle);
    if (type == KP_T_ANY)
        *out = static_cast<const kp_variant*>(value)->value.i32;
    else
        *out = *static_cast<const int32_t*>(value);
}

class Ours {
  public:
    explicit Ours(const std::string& dir) {
        kp::host::Options o;
        if (const char* p = std::getenv("KP120_COMPONENT")) o.component_path = p;
        o.device_root = dir;
        o.registry_path = dir + "/ours.sqlite3";
        host_ = std::make_unique<kp::host::Host>(o);
        if (!host_->loaded()) return;
        std::vector<kp::host::Value> args{kp::host::Value::string(u"HKEY_CURRENT_USER\\Software\\Bench")};
        host_->call("RegistryCreateKey", args);
        set_ = handler("RegistrySetValue", {kp::host::Value::string(u""), kp::host::Value::string(u""),
                                            kp::host::Value::integer(0)});
        query_ = handler("RegistryQueryValue", {kp::host::Value::string(u""), kp::host::Value::string(u"")});
        kp_allocator* a = kp::host::current_allocator();
        key_ = kp::host::make_text(a, u"HKEY_CURRENT_USER\\Software\\Bench");
        name_ = kp::host::make_text(a, u"v");
        vops_.set_result = set_result;
        values_.ops = &vops_;
        cops_.error = error_of;
        ctx_.base.ops = &cops_;
        ctx_.record.severity = 1;
        frame_ = kp_call_frame{&values_, nullptr, nullptr, nullptr, &result_};
    }
    ~Ours() {
        kp::host::release_buffer(key_);
        kp::host::release_buffer(name_);
    }
    bool ready() const { return set_ && query_; }
    int32_t set(int32_t v) {
        void* argv[3] = {&key_, &name_, &v};
        set_(&frame_, &ctx_.base, argv);
        return result_;
    }
    int32_t query() {
        void* argv[2] = {&key_, &name_};
        query_(&frame_, &ctx_.base, argv);
        return result_;
    }

  private:
    kp_handler handler(const char* name, std::vector<kp::host::Value> probe) {
        const kp_function* fn = host_->find_function(name);
        int k = fn ? host_->choose_overload(*fn, probe, nullptr) : -1;
        return k < 0 ? nullptr : fn->overloads[k].handler;
    }
    std::unique_ptr<kp::host::Host> host_;
    kp_handler set_ = nullptr, query_ = nullptr;
    char16_t* key_ = nullptr;
    char16_t* name_ = nullptr;
    kp_value_interface_ops vops_{};
    kp_value_interface values_{};
    kp_call_context_ops cops_{};
    Context ctx_{};
    kp_call_frame frame_{};
    int32_t result_ = 0;
};

// --- The peer: the same statements on raw SQLite -----------------------------

class Peer {
  public:
    explicit Peer(const std::string& dir) {
        std::string file = dir + "/peer.sqlite3";
        // The schema the store makes, with the key in place.
        store::use_database(file);
        store::Key k = 0;
        store::create_key(store::kCurrentUser, u"Software\\Bench", store::kAllAccess, &k);
        store::close_key(k);
        store::use_database("");
        if (sqlite3_open_v2(file.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) !=
            SQLITE_OK)
            return;
        sqlite3_busy_timeout(db_, 5000);
        sqlite3_exec(db_, "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON",
                     nullptr, nullptr, nullptr);
        prepare("SELECT id FROM keys WHERE parent = ?1 AND folded = ?2", &find_);
        prepare("INSERT INTO vals(key, name, folded, type, data) VALUES(?1, ?2, ?3, ?4, ?5)"
                " ON CONFLICT(key, folded) DO UPDATE SET type = excluded.type, data = excluded.data",
                &upsert_);
        prepare("SELECT type, data FROM vals WHERE key = ?1 AND folded = ?2", &select_);
    }
    ~Peer() {
        for (sqlite3_stmt* s : {find_, upsert_, select_})
            sqlite3_finalize(s);
        sqlite3_close(db_);
    }
    bool ready() const { return find_ && upsert_ && select_; }
    int32_t set(int32_t v) {
        int64_t key = lookup();
        sqlite3_bind_int64(upsert_, 1, key);
        sqlite3_bind_text(upsert_, 2, "v", 1, SQLITE_STATIC);
        sqlite3_bind_text(upsert_, 3, "v", 1, SQLITE_STATIC);
        sqlite3_bind_int(upsert_, 4, 4);
        sqlite3_bind_blob(upsert_, 5, &v, 4, SQLITE_STATIC);
        int rc = sqlite3_step(upsert_);
        sqlite3_reset(upsert_);
        return rc == SQLITE_DONE;
    }
    int32_t query() {
        int64_t key = lookup();
        sqlite3_bind_int64(select_, 1, key);
        sqlite3_bind_text(select_, 2, "v", 1, SQLITE_STATIC);
        int32_t v = 0;
        if (sqlite3_step(select_) == SQLITE_ROW && sqlite3_column_bytes(select_, 1) == 4)
            std::memcpy(&v, sqlite3_column_blob(select_, 1), 4);
        sqlite3_reset(select_);
        return v;
    }

  private:
    void prepare(const char* sql, sqlite3_stmt** s) {
        if (sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, s, nullptr) != SQLITE_OK)
            *s = nullptr;
    }
    int64_t lookup() {
        int64_t id = 2; // HKEY_CURRENT_USER
        for (const char* level : {"software", "bench"}) {
            sqlite3_bind_int64(find_, 1, id);
            sqlite3_bind_text(find_, 2, level, -1, SQLITE_STATIC);
            id = sqlite3_step(find_) == SQLITE_ROW ? sqlite3_column_int64(find_, 0) : -1;
            sqlite3_reset(find_);
        }
        return id;
    }
    sqlite3* db_ = nullptr;
    sqlite3_stmt *find_ = nullptr, *upsert_ = nullptr, *select_ = nullptr;
};

struct Sides {
    kp::test::TempDir dir;
    Ours ours{dir.path().string()};
    Peer peer{dir.path().string()};
};
Sides& sides() {
    static Sides s;
    return s;
}

void BM_RegistrySetValue(benchmark::State& state) {
    Ours& o = sides().ours;
    if (!o.ready()) return state.SkipWithError("component not loaded");
    int32_t i = 0;
    for (auto _ : state)
        if (!o.set(++i)) return state.SkipWithError("RegistrySetValue failed");
}
BENCHMARK(BM_RegistrySetValue);

void BM_SetValuePeer(benchmark::State& state) {
    Peer& p = sides().peer;
    if (!p.ready()) return state.SkipWithError("raw SQLite not ready");
    int32_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(p.set(++i));
}
BENCHMARK(BM_SetValuePeer);

void BM_RegistryQueryValue(benchmark::State& state) {
    Ours& o = sides().ours;
    if (!o.ready()) return state.SkipWithError("component not loaded");
    o.set(77);
    for (auto _ : state)
        if (o.query() != 77) return state.SkipWithError("RegistryQueryValue read a wrong value");
}
BENCHMARK(BM_RegistryQueryValue);

void BM_QueryValuePeer(benchmark::State& state) {
    Peer& p = sides().peer;
    if (!p.ready()) return state.SkipWithError("raw SQLite not ready");
    p.set(77);
    for (auto _ : state)
        benchmark::DoNotOptimize(p.query());
}
BENCHMARK(BM_QueryValuePeer);

// Our time an operation over the peer's, from alternating batches.
template <typename A, typename B> double paired_ratio(const char* what, A ours, B peer) {
    constexpr int kRounds = 60, kOps = 200;
    auto batch = [](auto& op) {
        auto t0 = std::chrono::steady_clock::now();
        for (int i = 0; i < kOps; ++i)
            benchmark::DoNotOptimize(op(i));
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() / kOps;
    };
    double a = 1e300, b = 1e300;
    for (int r = 0; r < kRounds; ++r) {
        a = std::min(a, batch(ours));
        b = std::min(b, batch(peer));
    }
    std::printf("%s: fastest batches %.2f us (ours), %.2f us (raw SQLite) an operation\n", what, a * 1e6,
                b * 1e6);
    return a / b;
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    Sides& s = sides();
    if (s.ours.ready() && s.peer.ready()) {
        double set = paired_ratio(
            "RegistrySetValue", [&](int i) { return s.ours.set(i); }, [&](int i) { return s.peer.set(i); });
        double query = paired_ratio(
            "RegistryQueryValue", [&](int) { return s.ours.query(); }, [&](int) { return s.peer.query(); });
        kp::bench::report_ratio("RegistrySetValue (time x raw SQLite)", "paired batches", "SQLite", set,
                                "<=", 2);
        kp::bench::report_ratio("RegistryQueryValue (time x raw SQLite)", "paired batches", "SQLite", query,
                                "<=", 2);
    } else {
        kp::bench::report_ratio("RegistrySetValue (time x raw SQLite)", "-", "SQLite side missing", 0,
                                "<=", 2);
        kp::bench::report_ratio("RegistryQueryValue (time x raw SQLite)", "-", "SQLite side missing", 0,
                                "<=", 2);
    }
    benchmark::Shutdown();
    return 0;
}
