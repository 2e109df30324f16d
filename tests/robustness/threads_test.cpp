// Eight VM threads (a threading descriptor, an allocator each) calling
// functions of every family through the ABI at once: each thread's zones
// (the default one and one named alike in every thread),
// file, registry key, INI section and error record stay its own, and the
// shared clipboard (device store) and regex engine hold up.  Bounded by
// iterations; run under ThreadSanitizer by tools/test-tsan.sh.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/test_host.h"

namespace {

using kp::host::CallStatus;
using kp::host::Value;

constexpr int kThreads = 8;
constexpr int kRounds = 40;

TEST(Threads, EightVmThreadsCallEveryFamilyAtOnce) {
    kp::test::HostFixture fx(1, /*per_thread=*/true);
    auto call = [&fx](const char* name, std::vector<Value> args) { return fx.host->call(name, args); };
    std::atomic<int> failures{0};
    auto check = [&](bool ok, const char* what, int t) {
        if (!ok) {
            ++failures;
            ADD_FAILURE() << what << " (thread " << t << ")";
        }
    };
    auto work = [&](int t) {
        const std::u16string me = u"t" + std::u16string(1, static_cast<char16_t>(u'0' + t));
        const std::u16string zone = u"zone"; // the same name: each thread's zones are its own
        const std::u16string file = u"\\" + me + u".txt";
        const std::u16string key = u"HKEY_CURRENT_USER\\Software\\Threads\\" + me;
        check(call("MemCreate", {Value::string(zone)}).result.b, "MemCreate", t);
        check(call("RegistryCreateKey", {Value::string(key)}).result.b, "RegistryCreateKey", t);
        for (int i = 0; i < kRounds; ++i) {
            // Date and time, numbers: pure functions, and an error per call.
            auto date = call("IntegerToDate", {Value::integer(73049 + t * 100 + i)});
            check(date.status == CallStatus::Ok && date.result.s.size() == 8, "IntegerToDate", t);
            auto bad = call("DateToInteger", {Value::string(u"2024")});
            check(bad.error.id == 80121u && bad.error.severity == 2, "DateToInteger error", t);
            auto good = call("DateToInteger", {Value::string(u"18000101")});
            check(good.error.severity == 1 && good.result.i == 1, "DateToInteger after an error", t);

            // Memory zones: this thread's own.
            check(call("MemAdd", {Value::string(zone), Value::integer(i)}).result.i == i + 1, "MemAdd", t);
            check(call("MemAdd", {Value::integer(kRounds - i)}).result.i == i + 1, "MemAdd (default)", t);

            // A file of its own, written and read back through a handle.
            auto opened = call("fOpen", {Value::string(file), Value::integer(512 + 3)});
            const int64_t fd = opened.result.i;
            check(fd > 0, "fOpen", t);
            call("fWriteLine", {Value::integer(fd), Value::string(me + u" line")});
            call("fClose", {Value::integer(fd)});
            check(call("fLoadText", {Value::string(file)}).result.s == me + u" line\r\n", "fLoadText", t);

            // INI, registry, saved text.
            const std::u16string ini = u"\\shared.ini";
            call("INIWrite",
                 {Value::string(me), Value::string(u"k"), Value::string(u"v" + me), Value::string(ini)});
            check(call("INIRead",
                       {Value::string(me), Value::string(u"k"), Value::string(u""), Value::string(ini)})
                          .result.s == u"v" + me,
                  "INIRead", t);
            call("RegistrySetValue", {Value::string(key), Value::string(u"n"), Value::integer(i)});
            check(call("RegistryQueryValue", {Value::string(key), Value::string(u"n")}).result.i == i,
                  "RegistryQueryValue", t);

            // Transforms: regex (the engine's syntax is process-wide), compression.
            check(call("MatchRegularExpression", {Value::string(me + u"x"), Value::string(u"t[0-9]x")})
                      .result.b,
                  "MatchRegularExpression", t);
            auto packed = call("Compress", {Value::buffer({1, 2, 3, 1, 2, 3, 1, 2, 3})});
            check(call("Uncompress", {packed.result}).result.bytes ==
                      std::vector<uint8_t>({1, 2, 3, 1, 2, 3, 1, 2, 3}),
                  "Uncompress", t);

            // The clipboard is shared: whatever text comes back is one that a thread put.
            call("ToClipboard", {Value::string(me)});
            const std::u16string clip = call("Clipboard", {}).result.s;
            check(clip.size() == 2 && clip[0] == u't', "Clipboard", t);
        }
        check(call("MemCount", {Value::string(zone)}).result.i == kRounds, "MemCount", t);
        call("MemSort", {});
        check(call("MemFirst", {}).result.i == 1 && call("MemLast", {}).result.i == kRounds, "MemSort", t);
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back(work, t);
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(fx.host->allocator_stats().live, 0u); // every thread's results went back
}

} // namespace
