// The exported entry points as a VM calls them, and name resolution, overloads and results.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <tuple>

#include "component/runtime.h"
#include "support/test_host.h"

namespace {

using kp::host::CallStatus;
using kp::host::Value;

class EntryTest : public ::testing::Test {
  protected:
    kp::test::HostFixture fx;
    kp::host::Host& host() { return *fx.host; }
    kp::host::CallOutcome call(const char* name, std::vector<Value> args) { return host().call(name, args); }
};

TEST_F(EntryTest, NamesResolveWithoutRegardToCaseOrLanguage) {
    for (const char* name : {"ZigouigouiARoulette", "zigouigouiaroulette", "ZIGOUIGOUIAROULETTE"}) {
        auto out = call(name, {Value::integer(-7)});
        ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
        EXPECT_EQ(std::tuple(out.result.kind, out.result.i, out.error.severity),
                  std::tuple(Value::Kind::Int, 24053, 1));
    }
    // French names in UTF-8; accented capitals fold too.
    const std::pair<const char*, const char*> same[] = {{"EntierVersDate", "IntegerToDate"},
                                                        {"HeureVersChaîne", "timetostring"},
                                                        {"heureverschaîne", "TimeToString"},
                                                        {"DATEVERSCHAÎNE", "datetostring"},
                                                        {"EstPair", "ISEVEN"}};
    for (const auto& [name, other] : same) {
        EXPECT_NE(host().find_function(name), nullptr) << name;
        EXPECT_EQ(host().find_function(name), host().find_function(other)) << name;
    }
    EXPECT_NE(host().find_constant("foLecture"), nullptr);
    EXPECT_EQ(host().find_constant("foLecture"), host().find_constant("FOREAD"));
}

TEST_F(EntryTest, ResolutionFailuresDoNotCall) {
    EXPECT_EQ(call("NoSuchFunction", {}).status, CallStatus::UnknownName);
    EXPECT_EQ(call("ZigouigouiARoulette", {}).status, CallStatus::NoOverload);
    EXPECT_EQ(call("ZigouigouiARoulette", {Value::string(u"x")}).status, CallStatus::NoOverload);
    auto out = call("ZigouigouiARoulette", {Value::integer(1LL << 40)});
    EXPECT_EQ(out.status, CallStatus::BadArgument);
    EXPECT_NE(out.detail.find("does not fit"), std::string::npos);
}

// String results go back to the host's allocator; a failure travels in the error record.
TEST_F(EntryTest, ResultsAreReleasedAndFailuresRecorded) {
    auto before = host().allocator_stats();
    for (int i = 0; i < 50; ++i) {
        auto out = call("IntegerToDate", {Value::integer(73049 + i)});
        ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
        ASSERT_EQ(out.result.kind, Value::Kind::String);
    }
    auto after = host().allocator_stats();
    EXPECT_EQ(after.live, before.live);
    EXPECT_GT(after.creates, before.creates);
    auto out = call("DateToInteger", {Value::string(u"2024")});
    ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
    EXPECT_EQ(std::tuple(out.error.severity, out.error.id), std::tuple(2, 80121u));
    EXPECT_FALSE(out.error.message.empty());
}

TEST_F(EntryTest, InfoComposanteAnswers) {
    ASSERT_TRUE(host().loaded()) << host().load_error();
    // query -> answer: identity words and the three table counts.
    const std::pair<int, intptr_t> answers[] = {{0, 2},    {1, 8},    {2, 0x204}, {3, 1},
                                                {22, 381}, {24, 441}, {26, 45}};
    for (const auto& [q, a] : answers)
        EXPECT_EQ(host().info(q, 0), a) << "query " << q;
    for (int q : {21, 23, 25}) // the table addresses
        EXPECT_NE(host().info(q, 0), 0) << "query " << q;
    for (int q : {5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 16, 17, 18, 19, 20, 28, 29, 100, -1})
        EXPECT_EQ(host().info(q, 0), 0) << "query " << q;
    for (int lang : {0, 1}) {
        auto* d = reinterpret_cast<const char16_t*>(host().info(4, lang));
        ASSERT_NE(d, nullptr);
        EXPECT_EQ(d[0], 0); // empty description, never a null address
    }
}

TEST_F(EntryTest, TheComponentObject) {
    for (int code : {0, 59, 61, -1})
        EXPECT_EQ(host().query_proxy(code), nullptr);
    kp_component_object* obj = host().query_proxy(60);
    ASSERT_NE(obj, nullptr);
    EXPECT_EQ(obj->word1 + obj->word2, 0u);
    obj->ops->set_error_state(obj, 0x1234, 0x5678);
    EXPECT_EQ(host().info(13, 0), 0x1234);
    EXPECT_EQ(host().info(27, 0), 0x5678);
    // Anything but 0 is English; the name is cut to the buffer, always terminated.
    for (const auto& [language, size, name] :
         {std::tuple{0, 64, u"Fonctions standard"}, {7, 64, u"Standard functions"}, {7, 5, u"Stan"}}) {
        char16_t buf[64];
        obj->ops->set_language(obj, language);
        obj->ops->name(obj, buf, size);
        EXPECT_EQ(std::u16string(buf), name);
    }
    EXPECT_EQ(obj->ops->description(obj)[0], 0);
    obj->ops->destroy(obj);
}

TEST_F(EntryTest, CommandsAndExecutionCodes) {
    uintptr_t block[4] = {};
    // Unknown codes answer 0.
    EXPECT_EQ(host().general_param(2007, 5) + host().general_param(0, 0), 0);
    EXPECT_EQ(host().execution(1, block) + host().execution(3986, block), 0);
    host().command(99, nullptr); // ignored
    host().command(1, block);
    uintptr_t words[3] = {1, 1, 5}; // locale messages
    EXPECT_EQ(host().execution(4876, words), 1);
    EXPECT_EQ(host().execution(4877, words), 1);
    // Message text on request, cut to the buffer.
    char16_t buf[64] = {};
    for (const auto& [size, text] : {std::pair{64u, u"bytes;KB;MB;GB;TB"}, {6u, u"bytes"}}) {
        uintptr_t request[5] = {0, 25202, reinterpret_cast<uintptr_t>(buf), size, 0};
        host().command(3, request);
        EXPECT_EQ(std::u16string(buf), text);
        EXPECT_EQ(request[4], std::u16string_view(text).size());
    }
    host().command(3, nullptr);
    // No proxy is declared.
    void* list = nullptr;
    void* first = reinterpret_cast<void*>(1);
    uint16_t c1 = 9, c2 = 9;
    host().declare_proxy(&list, &c1, &first, &c2);
    EXPECT_NE(list, nullptr);
    EXPECT_EQ(first, nullptr);
    EXPECT_EQ(c1 + c2, 0);
    EXPECT_EQ(host().info(0, 0), 2); // still answering
}

// A module without "Execution" registers nothing (once the host's own attach ends); the
// conversion hooks are refused on a wrong revision or mode, or a module lacking them.
TEST_F(EntryTest, AttachAndConversionsNeedThePeerEntryPoints) {
    void* libm = dlopen("libm.so.6", RTLD_NOW);
    ASSERT_NE(libm, nullptr);
    uintptr_t block[4] = {0, reinterpret_cast<uintptr_t>(libm), 0, 0};
    uintptr_t detach[4] = {};
    EXPECT_EQ(host().execution(4875, detach), 1); // the host's own attach ends: hooks destroyed
    EXPECT_EQ(host().execution(3985, block), 0);
    EXPECT_EQ(host().execution(3985, nullptr), 0);
    for (const auto& [module, revision, mode] :
         {std::tuple{(void*)nullptr, 1, 0}, {nullptr, 2, 3}, {libm, 2, 0}})
        EXPECT_EQ(host().init_conversions(module, revision, mode), 0);
    dlclose(libm);
    // The component's own handle is no peer (forwarding a locale message to it would recurse).
    void* self = dlopen("libkp120std.so.1", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(self, nullptr);
    block[1] = reinterpret_cast<uintptr_t>(self);
    EXPECT_EQ(host().execution(3985, block), 0);
    dlclose(self);
    EXPECT_EQ(host().execution(4875, detach), 1); // detach below zero stays harmless
}

struct ReleaseCounter {
    kp_allocator base;
    int releases = 0;
};

TEST_F(EntryTest, ReplacingTheAllocatorReleasesTheOldOne) {
    static kp_allocator_ops ops{};
    ops.release = [](kp_allocator* a, int32_t flag) {
        EXPECT_EQ(flag, 1);
        reinterpret_cast<ReleaseCounter*>(a)->releases++;
    };
    ReleaseCounter first{{&ops, 0}}, second{{&ops, 1}};
    kp_allocator* mine = host().allocator();
    EXPECT_EQ(host().general_param(2008, reinterpret_cast<intptr_t>(&first.base)), 1);
    EXPECT_EQ(host().general_param(2008, reinterpret_cast<intptr_t>(&second.base)), 1);
    EXPECT_EQ(first.releases, 1);
    EXPECT_EQ(host().general_param(2008, reinterpret_cast<intptr_t>(&first.base)), 1);
    EXPECT_EQ(second.releases, 0); // marked as replaced: not released
    first.base.replaced = 1;
    host().general_param(2008, reinterpret_cast<intptr_t>(mine));
}

// The VM's versioned blocks: slots past a block's size are absent, a larger one is read.
TEST(VersionedBlocks, SlotsPastTheSizeAreAbsent) {
    using kp::runtime::slot;
    int context = 0;
    kp_display d{};
    d.screen = [](void*, kp_screen_info*) -> int32_t { return 1; };
    d.screen_power = [](void*, int32_t) -> int32_t { return 1; };
    d.choose_colour = [](void*, int32_t, int32_t, int32_t*) -> int32_t { return 1; };
    kp_table_interface t{};
    t.kind = [](void*, uintptr_t) -> int32_t { return 9; };
    t.cell = [](void*, uintptr_t, int32_t, int32_t, kp_variant*) -> int32_t { return 0; };
    t.self = &context;
    // Display and table block sizes, and which slots are present: screen, screen_power,
    // choose_colour, then kind, cell, self.
    // clang-format off
    const std::size_t all = sizeof(kp_display), table = sizeof(kp_table_interface);
    const std::tuple<std::size_t, std::size_t, std::string> rows[] = {
        {0, 0, "000000"},
        {KP_SLOT_END(kp_display, screen) - 1, KP_SLOT_END(kp_table_interface, kind) - 1, "000000"},
        {KP_SLOT_END(kp_display, screen), KP_SLOT_END(kp_table_interface, kind), "100100"},
        {KP_SLOT_END(kp_display, screen_power), KP_SLOT_END(kp_table_interface, cell) - 1, "110100"},
        {all - 1, KP_SLOT_END(kp_table_interface, cell), "110110"}, // a VM that predates `self`
        {all, table, "111111"}, {all + 64, table + 64, "111111"}};
    // clang-format on
    for (const auto& [size, table_size, want] : rows) {
        d.size = static_cast<uint32_t>(size);
        t.size = static_cast<uint32_t>(table_size);
        std::string present;
        for (bool p :
             {slot(&d, &kp_display::screen) != nullptr, slot(&d, &kp_display::screen_power) != nullptr,
              slot(&d, &kp_display::choose_colour) != nullptr, slot(&t, &kp_table_interface::kind) != nullptr,
              slot(&t, &kp_table_interface::cell) != nullptr, slot(&t, &kp_table_interface::self) != nullptr})
            present += p ? '1' : '0';
        EXPECT_EQ(present, want) << size << "/" << table_size;
        EXPECT_EQ(KP_HAS_SLOT(&d, kp_display, screen_power), want[1] == '1') << size;
    }
    // No block, or an empty slot inside the size: absent too.
    EXPECT_EQ(slot(static_cast<const kp_display*>(nullptr), &kp_display::screen), nullptr);
    EXPECT_FALSE(KP_HAS_SLOT(static_cast<const kp_display*>(nullptr), kp_display, screen));
    EXPECT_EQ(slot(&d, &kp_display::mouse), nullptr);
}

} // namespace

namespace {

// The release check runs at the first attach; the component object reports its failure.
const kp_error_record* attach_with(kp::test::TempDir& dir, bool accept, const char* version,
                                   kp::host::Host*& out) {
    kp::host::Options o;
    if (const char* p = std::getenv("KP120_COMPONENT")) o.component_path = p;
    o.device_root = dir.path().string();
    o.accept_component = accept;
    o.vm_version = version;
    out = new kp::host::Host(o);
    kp_component_object* obj = out->query_proxy(60);
    const kp_error_record* r = obj->ops->last_error(obj);
    obj->ops->destroy(obj);
    return r;
}

TEST(ReleaseCheck, MismatchedObjectModuleIsFatal) {
    kp::test::TempDir dir;
    for (const auto& [accept, version] : {std::pair{true, "9.00Ab"}, {false, "9.00Aa"}}) {
        kp::host::Host* h = nullptr;
        const kp_error_record* r = attach_with(dir, accept, version, h);
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(r->severity, KP_SEVERITY_FATAL);
        std::u16string text(r->message, r->message_length);
        for (const char16_t* part : {u"9.00Aa", u"12.00Dr", u"KM120OBJ.DLL"})
            EXPECT_NE(text.find(part), std::u16string::npos) << version;
        delete h;
    }
    // Matching releases record nothing.
    kp::test::HostFixture fx;
    std::vector<Value> args{Value::integer(1)};
    fx.host->call("ZigouigouiARoulette", args);
    kp_component_object* obj = fx.host->query_proxy(60);
    const kp_error_record* r = obj->ops->last_error(obj);
    EXPECT_TRUE(r == nullptr || r->severity != KP_SEVERITY_FATAL);
    obj->ops->destroy(obj);
}

} // namespace
