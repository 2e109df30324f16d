// functions_test.cpp - the registry functions, byte for byte in the database, and failures.
#include <cstring>
#include <filesystem>
#include <sys/mman.h>
#include <tuple>

#include "registry/registry.h"
#include "registry/support.h"

namespace kp::registry {
namespace {

using kp::host::Value;
using kp::test::I;
using kp::test::S;
namespace store = platform::registry;

TEST(KeyPath, PrefixTestAndRoots) {
    // clang-format off
    struct Case { std::u16string path, root_name; store::Key root; std::u16string subkey; } cases[] = {
        {u"HKEY_LOCAL_MACHINE\\Software\\X", u"HKEY_LOCAL_MACHINE", store::kLocalMachine, u"Software\\X"},
        {u"HKEY_CURRENT_USER\\A\\", u"HKEY_CURRENT_USER", store::kCurrentUser, u"A"},
        {u"HKEY_CURRENT_USER\\A\\\\", u"HKEY_CURRENT_USER", store::kCurrentUser, u"A\\"},
        {u"HKEY_USERSfoo", u"HKEY_USERS", store::kUsers, u"foo"}, // a plain prefix, no separator needed
        {u"HKEY_CLASSES_ROOT", u"HKEY_CLASSES_ROOT", store::kClassesRoot, u""},
        {u"HKEY_CLASSES_ROOT\\", u"HKEY_CLASSES_ROOT", store::kClassesRoot, u""},
        {u"hkey_current_user\\A", u"HKEY_CLASSES_ROOT", store::kClassesRoot, u"hkey_current_user\\A"},
        {u"Software\\X\\", u"HKEY_CLASSES_ROOT", store::kClassesRoot, u"Software\\X"},
        {u"\\Lead", u"HKEY_CLASSES_ROOT", store::kClassesRoot, u"\\Lead"},
        {u"HKEY_CURRENT_CONFIG\\X", u"HKEY_CURRENT_CONFIG", 0, u"X"},
        {u"HKEY_PERFORMANCE_DATA", u"HKEY_PERFORMANCE_DATA", 0, u""},
        {u"HKEY_DYN_DATA\\Y", u"HKEY_DYN_DATA", 0, u"Y"},
        {u"", u"HKEY_CLASSES_ROOT", store::kClassesRoot, u""}};
    // clang-format on
    for (const auto& c : cases) {
        KeyPath p = parse_key_path(c.path);
        EXPECT_EQ(p.root_name, c.root_name) << std::string(c.path.begin(), c.path.end());
        EXPECT_EQ(p.root, c.root);
        EXPECT_EQ(p.subkey, c.subkey);
    }
}

TEST(Conversion, RegistryDataAsTheLanguageSeesIt) {
    const std::vector<uint8_t> b1234 = {1, 2, 3, 4};
    using K = Data::Kind;
    auto D = [](K kind, std::u16string text, int32_t i = 0, std::vector<uint8_t> b = {}) {
        return Data{kind, std::move(text), i, std::move(b)};
    };
    // clang-format off
    struct Case { uint32_t type; std::vector<uint8_t> data; Data want; } cases[] = {
        {0, b1234, {}}, {6, b1234, {}}, {8, b1234, {}}, {1, {'h', 0, 'i', 0, 0, 0}, D(K::Text, u"hi")},
        {1, {'h', 0, 'i', 0}, D(K::Text, u"hi")}, // without its NUL (written by number)
        {1, {'h', 0, 0, 0, 'x', 0}, D(K::Text, u"h")}, // up to the first NUL
        {1, {'h', 0, 'i'}, D(K::Text, u"h")}, // an odd last byte is dropped
        {2, {'%', 0, 0, 0}, D(K::Bytes, u"", 0, {'%', 0, 0, 0})}, // unexpanded
        {3, b1234, D(K::Bytes, u"", 0, b1234)},
        {7, {'a', 0, 0, 0, 0, 0}, D(K::Bytes, u"", 0, {'a', 0, 0, 0, 0, 0})}, // unsplit
        {4, b1234, D(K::Integer, u"", 0x04030201)},
        {5, b1234, D(K::Integer, u"", 0x02010403)}, // halves swapped, bytes within them not
        {4, {0xFF, 0xFF, 0xFF, 0xFF}, D(K::Integer, u"", -1)},
        {4, {7}, D(K::Integer, u"", 7)}, // short data reads zero-padded
        {5, {}, D(K::Integer, u"")}, {11, b1234, D(K::Empty, u"")}, {0x1234, {}, D(K::Empty, u"")}};
    // clang-format on
    for (const auto& c : cases)
        EXPECT_EQ(convert_data(c.type, c.data), c.want) << "type " << c.type;
}

TEST(Conversion, SearchMatching) {
    // clang-format off
    struct Case { std::u16string candidate, text; bool whole, want; } cases[] = {
        {u"Software", u"WARE", false, true}, {u"Software", u"ware", true, false},
        {u"my ware", u"WARE", true, true}, {u"ware-house", u"ware", true, true},
        {u"wares", u"ware", true, false}, {u"ware ware1 x", u"ware1", true, true},
        {u"Straße", u"STRASSE", false, true}, {u"x", u"", false, false}, {u"A1ware", u"ware", true, false},
        {u"éware", u"WARE", true, false}, {u"ware", u"ware", true, true}, {u"aware ware", u"ware", true, true}};
    // clang-format on
    for (const auto& c : cases)
        EXPECT_EQ(seek_matches(c.candidate, c.text, c.whole), c.want)
            << std::string(c.candidate.begin(), c.candidate.end());
}

using Functions = kp::test::RegistryFixture;

// A page at an address fitting RegistrySetValue's 32-bit form (MAP_32BIT or low hints).
void* low_page() {
    const int prot = PROT_READ | PROT_WRITE;
    int flags = MAP_PRIVATE | MAP_ANONYMOUS;
#if defined(MAP_32BIT)
    flags |= MAP_32BIT;
#endif
    void* p = mmap(nullptr, 4096, prot, flags, -1, 0);
    if (p == MAP_FAILED || sizeof(void*) == 4 || reinterpret_cast<uintptr_t>(p) < 0x80000000u) return p;
    munmap(p, 4096);
    for (uintptr_t hint = 0x10000000u; hint < 0x80000000u; hint += 0x1000000u) {
        p = mmap(reinterpret_cast<void*>(hint), 4096, prot, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED) continue;
        if (reinterpret_cast<uintptr_t>(p) < 0x80000000u) return p;
        munmap(p, 4096);
    }
    return MAP_FAILED;
}

// Every value type through every overload of RegistrySetValue, byte for byte, and read back.
TEST_F(Functions, RoundTripOfEveryValueType) {
    ASSERT_TRUE(ok("RegistryCreateKey", {S(u"HKEY_CURRENT_USER\\RT")}));
    const std::u16string k = u"HKEY_CURRENT_USER\\RT";
    uint8_t cy[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    double real = 1.5;
    uint8_t real_bytes[8];
    std::memcpy(real_bytes, &real, 8);
    void* low = low_page();
    ASSERT_NE(low, MAP_FAILED);
    std::memcpy(low, "\x01\x00\xFF\x7F\x80", 5);
    int32_t address = static_cast<int32_t>(reinterpret_cast<uintptr_t>(low));

    // clang-format off
    struct Case { const char* name; Value value; std::vector<Value> extra; std::string stored; Value back; };
    const Case cases[] = {
        {"s", S(u"hé"), {}, "1:6800E9000000", S(u"hé")}, {"i", I(-2), {}, "4:FEFFFFFF", I(-2)},
        {"r", Value::real(real), {}, "3:000000000000F83F", Value::buffer({real_bytes, real_bytes + 8})},
        {"c", Value::currency(cy), {}, "3:0102030405060708090A", Value::buffer({cy, cy + 10})},
        {"b", Value::boolean(true), {}, "4:01000000", I(1)},
        {"m", I(address), {I(5)}, "3:0100FF7F80", Value::buffer({1, 0, 0xFF, 0x7F, 0x80})}};
    // clang-format on
    auto expect_back = [&](Value name, const Value& want) {
        Value got = call("RegistryQueryValue", {S(k), name}).result;
        EXPECT_EQ(std::tie(got.kind, got.s, got.i, got.bytes),
                  std::tie(want.kind, want.s, want.i, want.bytes));
    };
    // By name, then by number (value n is the n-th written, a string so written has no NUL).
    for (bool by_number : {false, true}) {
        for (int n = 1; n <= 6; ++n) {
            const Case& c = cases[n - 1];
            SCOPED_TRACE(c.name);
            const Value name = by_number ? I(n) : S(std::u16string(c.name, c.name + 1));
            std::vector<Value> args = {S(k), name, c.value};
            args.insert(args.end(), c.extra.begin(), c.extra.end());
            EXPECT_TRUE(ok("RegistrySetValue", args));
            if (!by_number) {
                EXPECT_EQ(stored("RT", c.name), c.stored);
            }
            expect_back(name, c.back);
        }
    }
    EXPECT_EQ(stored("RT", "s"), "1:6800E900");
    EXPECT_EQ(call("RegistryListValue", {S(k)}).result.s, u"s\r\ni\r\nr\r\nc\r\nb\r\nm");
    EXPECT_EQ(call("RegistryListValue", {S(k), Value::boolean(true)}).result.s,
              u"s\tT\r\ni\tN\r\nr\tB\r\nc\tB\r\nb\tN\r\nm\tB");
    munmap(low, 4096);
}

// Types the language cannot write, read through the store's data.
TEST_F(Functions, StoredTypesReadBack) {
    store::Key k = 0;
    ASSERT_EQ(store::create_key(store::kLocalMachine, u"Types", store::kAllAccess, &k), 0u);
    const uint8_t b1234[] = {1, 2, 3, 4};
    const uint8_t multi[] = {'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0};
    // clang-format off
    struct Case { const char16_t* name; uint32_t type; std::span<const uint8_t> data; Value::Kind kind; };
    const Case cases[] = {
        {u"none", 0, b1234, Value::Kind::String}, {u"be", 5, b1234, Value::Kind::Int},
        {u"exp", 2, multi, Value::Kind::Buffer}, {u"multi", 7, multi, Value::Kind::Buffer},
        {u"link", 6, b1234, Value::Kind::String}, {u"list", 8, b1234, Value::Kind::String},
        {u"qword", 11, b1234, Value::Kind::None}};
    // clang-format on
    for (const auto& c : cases)
        ASSERT_EQ(store::set_value(k, c.name, c.type, c.data.data(), static_cast<uint32_t>(c.data.size())),
                  0u);
    store::close_key(k);
    for (const auto& c : cases) {
        std::vector<Value> args = {S(u"HKEY_LOCAL_MACHINE\\Types"), S(c.name), Value::variable()};
        auto r = call_with("RegistryQueryValue", args);
        EXPECT_EQ(r.result.kind, c.kind) << std::u16string(c.name).size();
        EXPECT_TRUE(args[2].ref->b);
    }
    EXPECT_EQ(call("RegistryQueryValue", {S(u"HKEY_LOCAL_MACHINE\\Types"), S(u"be")}).result.i, 0x02010403);
    EXPECT_EQ(call("RegistryQueryValue", {S(u"HKEY_LOCAL_MACHINE\\Types"), S(u"none")}).result.s, u"");
    EXPECT_EQ(call("RegistryListValue", {S(u"HKEY_LOCAL_MACHINE\\Types"), Value::boolean(true)}).result.s,
              u"none\tB\r\nbe\tN\r\nexp\tT\r\nmulti\tT\r\nlink\tB\r\nlist\tB\r\nqword\tB");
}

TEST_F(Functions, ReadingRulesAndTheReadFlag) {
    ASSERT_TRUE(ok("RegistryCreateKey", {S(u"HKEY_CURRENT_USER\\R\\Deep")}));
    ASSERT_TRUE(ok("RegistrySetValue", {S(u"HKEY_CURRENT_USER\\R"), S(u"v"), S(u"x")}));
    // clang-format off
    struct Case { std::u16string key; Value value; std::u16string want; bool read; } cases[] = {
        {u"", S(u""), u"", false}, // nothing asked
        {u"HKEY_CURRENT_USER\\R", S(u""), u"", true}, // no default value: counts as read
        {u"HKEY_CURRENT_USER\\R\\", S(u"V"), u"x", true}, // one trailing backslash, any case
        {u"HKEY_CURRENT_USER\\r\\", I(1), u"x", true},
        {u"HKEY_CURRENT_USER\\R", I(0), u"", true}, // number 0: the default value
        {u"HKEY_CURRENT_USER\\R", I(2), u"", false}, {u"HKEY_CURRENT_USER\\R", I(-1), u"", false},
        {u"HKEY_CURRENT_USER\\R", S(u"w"), u"", false}, {u"HKEY_CURRENT_USER\\Missing", S(u""), u"", false},
        {u"hkey_current_user\\R", S(u"v"), u"", false}, // lower case: a subkey of HKEY_CLASSES_ROOT
        {u"HKEY_CURRENT_CONFIG\\R", S(u"v"), u"", false}, // unmapped root
        {u"HKEY_CURRENT_USER\\" + std::u16string(10000, u'k'), S(u"v"), u"", false}};
    // clang-format on
    for (auto& c : cases) {
        std::vector<Value> args = {S(c.key), c.value, Value::variable(Value::boolean(true))};
        SCOPED_TRACE(&c - cases);
        auto r = call_with("RegistryQueryValue", args);
        EXPECT_EQ(std::tuple(r.result.s, args[2].ref->b, r.error.severity,
                             ok("RegistryExist", {S(c.key), c.value})),
                  std::tuple(c.want, c.read, 1, c.read && !c.key.empty()));
    }
    // clang-format off
    const std::pair<const char16_t*, bool> keys[] = {
        {u"HKEY_CURRENT_USER\\R\\Deep", true}, {u"HKEY_CURRENT_USER", true}, {u"", false},
        {u"HKEY_CURRENT_USER\\Nope", false}};
    // clang-format on
    for (const auto& [key, there] : keys)
        EXPECT_EQ(ok("RegistryExist", {S(key)}), there) << std::u16string(key).size();
    // A path without a root name is under HKEY_CLASSES_ROOT.
    ASSERT_TRUE(ok("RegistryCreateKey", {S(u"hkey_current_user\\Odd")}));
    EXPECT_TRUE(ok("RegistryExist", {S(u"HKEY_CLASSES_ROOT\\HKEY_CURRENT_USER\\ODD")}));
}

TEST_F(Functions, WritingFailures) {
    ASSERT_TRUE(ok("RegistryCreateKey", {S(u"HKEY_CURRENT_USER\\W")}));
    const std::u16string w = u"HKEY_CURRENT_USER\\W";
    // clang-format off
    // id 0: false without an error
    struct Case { std::vector<Value> args; uint32_t id, system; } cases[] = {
        {{S(u"HKEY_CURRENT_USER\\NoKey"), S(u"v"), I(1)}, 80293, 2}, // the key is not created by a write
        {{S(u""), S(u"v"), I(1)}, 0, 0},
        {{S(w), I(3), S(u"x")}, 0, 0}, // by number past the last value
        {{S(w), S(u"m"), I(16), I(4)}, 80293, 998}, // memory that cannot be read
        {{S(w), I(0), I(16), I(0x7FFFFFFF)}, 80293, 998},
        {{S(w), S(u"m"), I(16), I(-1)}, 80293, 87}, // a negative size
        {{S(u"HKEY_DYN_DATA\\W"), S(u"m"), I(1)}, 80293, 6}, // an unmapped root
        {{S(u"HKEY_CURRENT_USER\\" + std::u16string(10000, u'k')), S(u"m"), I(1)}, 80293, 206}};
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        auto r = call("RegistrySetValue", c.args);
        EXPECT_EQ(std::tuple(r.result.b, r.error.id, r.error.severity, r.error.system_code),
                  std::tuple(false, c.id, c.id ? 2 : 1, c.system));
    }
    auto r = call("RegistrySetValue", cases[0].args);
    EXPECT_NE(r.error.message.find(u"HKEY_CURRENT_USER\\NoKey"), std::u16string::npos);
    EXPECT_EQ(r.error.additional[0], 0u);
    EXPECT_FALSE(ok("RegistryExist", {S(u"HKEY_CURRENT_USER\\NoKey")}));
    // Number 0 writes the default value.
    EXPECT_TRUE(ok("RegistrySetValue", {S(w), I(0), S(u"d")}));
    EXPECT_EQ(text("RegistryQueryValue", {S(w), S(u"")}), u"d");
}

TEST_F(Functions, AccessDeniedSetsTheAdditionalFlag) {
    ASSERT_TRUE(ok("RegistryCreateKey", {S(u"HKEY_CURRENT_USER\\Locked")}));
    ASSERT_TRUE(ok("RegistrySetValue", {S(u"HKEY_CURRENT_USER\\Locked"), S(u"v"), I(1)}));
    fx.host.reset(); // the component closes its connection on the way out
    platform::registry::use_database("");
    std::filesystem::permissions(file(), std::filesystem::perms::owner_read |
                                             std::filesystem::perms::group_read |
                                             std::filesystem::perms::others_read);
    std::filesystem::permissions(fx.dir.path(), std::filesystem::perms::all);
    std::string failures = kp::test::without_write_rights([&] {
        std::string f;
        platform::registry::use_database(file());
        kp_error_record record{};
        record.severity = 1;
        CXError err(&record);
        if (!query_value(u"HKEY_CURRENT_USER\\Locked", ValueRef::named(u"v")).integer) f += "read ";
        if (set_integer(u"HKEY_CURRENT_USER\\Locked", ValueRef::named(u"v"), 2, err)) f += "written ";
        if (record.id != 80293 || record.system_code != 5) f += "error ";
        if (record.additional[0] != 1 || record.additional[1] != 1) f += "flag ";
        kp_error_record other{};
        CXError err2(&other);
        if (create_key(u"HKEY_CURRENT_USER\\New", err2) || other.id != 80293 || other.system_code != 5)
            f += "create ";
        kp_error_record third{};
        CXError err3(&third);
        if (delete_key(u"HKEY_CURRENT_USER\\Locked", err3) || third.system_code != 5) f += "delete ";
        platform::registry::use_database("");
        return f;
    });
    EXPECT_EQ(failures, "");
    EXPECT_EQ(kp::test::sql_text(file(), "PRAGMA integrity_check"), "ok");
    EXPECT_EQ(kp::test::sql_text(file(), "SELECT count(*) FROM vals"), "1");
}

TEST_F(Functions, CreateAndDeleteKeys) {
    // clang-format off
    struct Case { const char* function; std::u16string path; bool result; uint32_t id, system; } cases[] = {
        {"RegistryCreateKey", u"HKEY_LOCAL_MACHINE\\A\\B\\C", true, 0, 0}, // missing parents too
        {"RegistryCreateKey", u"HKEY_LOCAL_MACHINE\\a\\b\\c\\", true, 0, 0},
        {"RegistryCreateKey", u"HKEY_LOCAL_MACHINE", true, 0, 0},
        {"RegistryCreateKey", u"HKEY_LOCAL_MACHINE\\A\\B2", true, 0, 0},
        {"RegistryCreateKey", u"", false, 0, 0},
        {"RegistryCreateKey", u"HKEY_CURRENT_CONFIG\\X", false, 80293, 6},
        {"RegistryCreateKey", u"HKEY_LOCAL_MACHINE\\x\\\\y", false, 80293, 161},
        {"RegistryCreateKey", u"HKEY_LOCAL_MACHINE\\" + std::u16string(10000, u'k'), false, 80293, 206},
        {"RegistryDeleteKey", u"", false, 80292, 0},
        {"RegistryDeleteKey", u"HKEY_LOCAL_MACHINE\\Nope", true, 0, 0}, // what is not there is gone
        {"RegistryDeleteKey", u"HKEY_DYN_DATA\\A", true, 0, 0},
        {"RegistryDeleteKey", u"HKEY_LOCAL_MACHINE\\A\\\\B", true, 0, 0},
        {"RegistryDeleteKey", u"HKEY_LOCAL_MACHINE\\A\\Nope\\", true, 0, 0}};
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        auto r = call(c.function, {S(c.path)});
        EXPECT_EQ(std::tuple(r.result.b, r.error.id, r.error.severity, r.error.system_code),
                  std::tuple(c.result, c.id, c.id ? 2 : 1, c.system));
    }
    ASSERT_TRUE(ok("RegistrySetValue", {S(u"HKEY_LOCAL_MACHINE\\A\\B\\C"), S(u"v"), I(1)}));
    EXPECT_FALSE(
        ok("RegistryDeleteKey", {S(u"HKEY_LOCAL_MACHINE\\")})); // a root is never deleted, nor its subkeys
    EXPECT_TRUE(ok("RegistryExist", {S(u"HKEY_LOCAL_MACHINE\\A\\B\\C")}));

    EXPECT_TRUE(ok("RegistryDeleteKey", {S(u"HKEY_LOCAL_MACHINE\\a")}));
    EXPECT_FALSE(ok("RegistryExist", {S(u"HKEY_LOCAL_MACHINE\\A")}));
    EXPECT_EQ(kp::test::sql_text(file(), "SELECT count(*) FROM keys"), "4");
    EXPECT_EQ(kp::test::sql_text(file(), "SELECT count(*) FROM vals"), "0");
}

TEST_F(Functions, DeleteValues) {
    ASSERT_TRUE(ok("RegistryCreateKey", {S(u"HKEY_USERS\\V")}));
    ASSERT_TRUE(ok("RegistrySetValue", {S(u"HKEY_USERS\\V"), S(u"a"), I(1)}));
    // No key, no name: false; what is not there is gone; any case.
    // clang-format off
    const std::tuple<const char16_t*, const char16_t*, bool> deletes[] = {
        {u"", u"a", false}, {u"HKEY_USERS\\V", u"", false}, {u"HKEY_USERS\\V", u"missing", true},
        {u"HKEY_USERS\\NoKey", u"a", true}, {u"HKEY_USERS\\V", u"A", true}};
    // clang-format on
    for (const auto& [key, name, result] : deletes)
        EXPECT_EQ(ok("RegistryDeleteValue", {S(key), S(name)}), result) << std::u16string(name).size();
    EXPECT_FALSE(ok("RegistryExist", {S(u"HKEY_USERS\\V"), S(u"a")}));
    for (const char16_t* key : {u"HKEY_USERS\\V", u"", u"HKEY_USERS\\NoKey"})
        EXPECT_EQ(text("RegistryListValue", {S(key)}), u"");
}

TEST_F(Functions, WalkOverSubkeys) {
    for (const char16_t* k : {u"HKEY_CURRENT_USER\\Walk\\b", u"HKEY_CURRENT_USER\\Walk\\A",
                              u"HKEY_CURRENT_USER\\Walk\\c\\deep", u"HKEY_CURRENT_USER\\Top1"})
        ASSERT_TRUE(ok("RegistryCreateKey", {S(k)}));
    std::vector<std::u16string> walk;
    for (std::u16string k = text("RegistryFirstSubKey", {S(u"HKEY_CURRENT_USER\\Walk\\")}); !k.empty();
         k = text("RegistryNextKey", {S(k)}))
        walk.push_back(k);
    EXPECT_EQ(walk, (std::vector<std::u16string>{u"HKEY_CURRENT_USER\\Walk\\A", u"HKEY_CURRENT_USER\\Walk\\b",
                                                 u"HKEY_CURRENT_USER\\Walk\\c"}));
    // Without a key the walk starts at HKEY_CURRENT_USER; keys right under a root walk too.
    std::u16string first = text("RegistryFirstSubKey", {});
    EXPECT_EQ(first, u"HKEY_CURRENT_USER\\Top1");
    EXPECT_EQ(text("RegistryNextKey", {S(first)}), u"HKEY_CURRENT_USER\\Walk");
    EXPECT_EQ(text("RegistryNextKey", {S(u"HKEY_CURRENT_USER\\Walk")}), u"");
    // The name is compared with regard to case.
    EXPECT_EQ(text("RegistryNextKey", {S(u"HKEY_CURRENT_USER\\walk\\a")}), u"");
    EXPECT_EQ(text("RegistryNextKey", {S(u"HKEY_CURRENT_USER\\walk\\A")}), u"HKEY_CURRENT_USER\\walk\\b");
    for (const char16_t* none : {u"HKEY_CURRENT_USER\\Walk\\A", u"HKEY_CURRENT_USER\\Nope", u"HKEY_DYN_DATA"})
        EXPECT_EQ(text("RegistryFirstSubKey", {S(none)}), u"");
    for (const char16_t* none : {u"HKEY_CURRENT_USER", u"", u"HKEY_CURRENT_USER\\Nope\\x"})
        EXPECT_EQ(text("RegistryNextKey", {S(none)}), u"");
    // No root name: under HKEY_CLASSES_ROOT, and the result says so.
    ASSERT_TRUE(ok("RegistryCreateKey", {S(u"Cls\\Sub")}));
    EXPECT_EQ(text("RegistryFirstSubKey", {S(u"Cls")}), u"HKEY_CLASSES_ROOT\\Cls\\Sub");
}

TEST_F(Functions, SeekOptionsAndLines) {
    const std::u16string k = u"HKEY_LOCAL_MACHINE\\Seek";
    ASSERT_TRUE(ok("RegistryCreateKey", {S(k + u"\\Alpha\\Inner")}));
    ASSERT_TRUE(ok("RegistryCreateKey", {S(k + u"\\Beta")}));
    ASSERT_TRUE(ok("RegistrySetValue", {S(k), S(u"alphaValue"), S(u"text with beta inside")}));
    ASSERT_TRUE(ok("RegistrySetValue", {S(k), S(u"n"), I(1234)}));
    ASSERT_TRUE(ok("RegistrySetValue", {S(k + u"\\Alpha\\Inner"), S(u"deep"), S(u"ALPHA")}));
    ASSERT_TRUE(ok("RegistrySetValue", {S(k + u"\\Alpha"), S(u"bin"), Value::real(1.0)}));

    const std::u16string K = u"HKEY_LOCAL_MACHINE";
    // clang-format off
    // -1: the overload without options
    struct Case { std::u16string text; int32_t options; std::u16string want; } cases[] = {
        {u"alpha", -1,
         K + u"\tSeek\talphaValue\r\n" + K + u"\\Seek\tAlpha\r\n" + K + u"\\Seek\\Alpha\tInner\tdeep\tALPHA"},
        {u"alpha", 1, K + u"\\Seek\tAlpha"}, {u"alpha", 1 | 8, K + u"\\Seek\tAlpha"},
        {u"alpha", 2, K + u"\tSeek\talphaValue"}, {u"alpha", 4 | 8, K + u"\\Seek\\Alpha\tInner\tdeep\tALPHA"},
        {u"alpha", 4, u""}, {u"BETA", 4, K + u"\tSeek\talphaValue\ttext with beta inside"},
        {u"beta", 1 | 2 | 4, K + u"\tSeek\talphaValue\ttext with beta inside\r\n" + K + u"\\Seek\tBeta"},
        {u"23", 4, K + u"\tSeek\tn\t1234"}, {u"23", 4 | 16, u""}, {u"1234", 4 | 16, K + u"\tSeek\tn\t1234"},
        {u"with", 4 | 16, K + u"\tSeek\talphaValue\ttext with beta inside"}, {u"ALP", 2 | 16, u""},
        {u"inner", 1 | 8, K + u"\\Seek\\Alpha\tInner"}, {u"", -1, u""}, {u"alpha", 0, u""},
        {u"alpha", 16, u""}};
    // clang-format on
    for (const auto& c : cases) {
        std::vector<Value> args = {S(k), S(c.text)};
        if (c.options >= 0) args.push_back(I(c.options));
        EXPECT_EQ(text("RegistrySeek", args), c.want)
            << std::string(c.text.begin(), c.text.end()) << " " << c.options;
    }
    EXPECT_EQ(text("RegistrySeek", {S(u"HKEY_LOCAL_MACHINE\\Nope"), S(u"a")}), u"");
    EXPECT_EQ(text("RegistrySeek", {S(u""), S(u"a")}), u"");
    // From a root, the root's own values name it with an empty parent.
    ASSERT_TRUE(ok("RegistrySetValue", {S(u"HKEY_USERS"), S(u"rootval"), I(1)}));
    EXPECT_EQ(text("RegistrySeek", {S(u"HKEY_USERS"), S(u"rootval"), I(2)}), u"\tHKEY_USERS\trootval");
}

TEST_F(Functions, LargeValuesAndLongNames) {
    ASSERT_TRUE(ok("RegistryCreateKey", {S(u"HKEY_CURRENT_USER\\Big")}));
    std::u16string mb(512 * 1024, u'x');
    mb[1000] = u'é';
    EXPECT_TRUE(ok("RegistrySetValue", {S(u"HKEY_CURRENT_USER\\Big"), S(u"mb"), S(mb)}));
    EXPECT_EQ(text("RegistryQueryValue", {S(u"HKEY_CURRENT_USER\\Big"), S(u"mb")}), mb);
    EXPECT_EQ(text("RegistryQueryValue", {S(u"HKEY_CURRENT_USER\\Big"), I(1)}), mb);
    // A name longer than the 256-character enumeration buffer is reached by name, not number.
    std::u16string long_name(300, u'n');
    EXPECT_TRUE(ok("RegistrySetValue", {S(u"HKEY_CURRENT_USER\\Big"), S(long_name), I(7)}));
    EXPECT_EQ(call("RegistryQueryValue", {S(u"HKEY_CURRENT_USER\\Big"), S(long_name)}).result.i, 7);
    EXPECT_FALSE(ok("RegistryExist", {S(u"HKEY_CURRENT_USER\\Big"), I(2)}));
    EXPECT_EQ(text("RegistryListValue", {S(u"HKEY_CURRENT_USER\\Big")}), u"mb\r\n" + long_name);
    // Every function takes a key path of 10,000 characters.
    std::u16string huge = u"HKEY_CURRENT_USER\\" + std::u16string(10000, u'k');
    for (const char* function : {"RegistryFirstSubKey", "RegistryNextKey", "RegistryListValue"})
        EXPECT_EQ(text(function, {S(huge)}), u"") << function;
    EXPECT_EQ(text("RegistrySeek", {S(huge), S(u"k")}), u"");
    EXPECT_FALSE(ok("RegistryExist", {S(huge)}));
    EXPECT_TRUE(ok("RegistryDeleteKey", {S(huge)}));
    EXPECT_TRUE(ok("RegistryDeleteValue", {S(huge), S(u"v")}));
}

} // namespace
} // namespace kp::registry
