// regfile_test.cpp - registry editor files, written, read, exported and imported.
#include <gtest/gtest.h>

#include <string>

#include "platform/registry_store.h"
#include "registry/regfile.h"
#include "registry/regtool.h"
#include "support/test_host.h"

namespace kp::registry::regfile {
namespace {

namespace store = platform::registry;

// UTF-16LE bytes, with a byte order mark (a file) or a terminator (a string value).
std::vector<uint8_t> le(std::u16string_view text, std::vector<uint8_t> b = {}) {
    for (char16_t c : text)
        b.insert(b.end(), {static_cast<uint8_t>(c), static_cast<uint8_t>(c >> 8)});
    return b;
}
std::vector<uint8_t> utf16_file(std::u16string_view text) {
    return le(text, {0xFF, 0xFE});
}
std::vector<uint8_t> sz(std::u16string_view text) {
    return le(std::u16string(text) + u'\0');
}
std::vector<uint8_t> ansi_file(std::string_view text) {
    return std::vector<uint8_t>(text.begin(), text.end());
}
Value val(std::u16string name, uint32_t type, std::vector<uint8_t> data) {
    return Value{std::move(name), false, type, std::move(data)};
}

Document sample(bool regedit4) {
    return {regedit4,
            {{u"HKEY_CURRENT_USER\\Software\\Test",
              false,
              {
                  val(u"", 1, {'d', 0, 0, 0}),
                  val(u"s", 1, {'a', 0, '"', 0, '\\', 0, 0, 0}),
                  val(u"n", 4, {0x2a, 0, 0, 0}),
                  val(u"nul", 1, {'a', 0}), // no terminator: hex(1)
                  val(u"e", 2, {'%', 0, 'X', 0, 0, 0}),
                  val(u"b", 3, std::vector<uint8_t>(30, 0xAB)),
                  val(u"q", 11, {1, 2, 3, 4, 5, 6, 7, 8}),
                  val(u"none", 0, {}),
              }},
             {u"HKEY_LOCAL_MACHINE\\Old", true, {}},
             {u"HKEY_USERS\\X", false, {Value{u"old", true, 0, {}}}}}};
}

const char16_t kSample5[] =
    u"Windows Registry Editor Version 5.00\r\n"
    u"\r\n"
    u"[HKEY_CURRENT_USER\\Software\\Test]\r\n"
    u"@=\"d\"\r\n"
    u"\"s\"=\"a\\\"\\\\\"\r\n"
    u"\"n\"=dword:0000002a\r\n"
    u"\"nul\"=hex(1):61,00\r\n"
    u"\"e\"=hex(2):25,00,58,00,00,00\r\n"
    u"\"b\"=hex:ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,ab,\\\r\n"
    u"  ab,ab,ab,ab,ab,ab,ab\r\n"
    u"\"q\"=hex(b):01,02,03,04,05,06,07,08\r\n"
    u"\"none\"=hex(0):\r\n"
    u"\r\n"
    u"[-HKEY_LOCAL_MACHINE\\Old]\r\n"
    u"\r\n"
    u"[HKEY_USERS\\X]\r\n"
    u"\"old\"=-\r\n"
    u"\r\n";

TEST(RegFile, WritesTheEditorFormsByteForByte) {
    EXPECT_EQ(write(sample(false)), utf16_file(kSample5));
    std::string four =
        "REGEDIT4\r\n\r\n[HKEY_CURRENT_USER\\Software\\Test]\r\n@=\"d\"\r\n\"s\"=\"a\\\"\\\\\"\r\n"
        "\"n\"=dword:0000002a\r\n\"nul\"=hex(1):61,00\r\n\"e\"=hex(2):25,58,00\r\n";
    std::string written(reinterpret_cast<const char*>(write(sample(true)).data()),
                        write(sample(true)).size());
    EXPECT_EQ(written.substr(0, four.size()), four);
    // A string the code page cannot hold keeps its characters as hex(1).
    Document d;
    d.regedit4 = true;
    d.keys.push_back({u"HKEY_USERS\\Y", false, {val(u"k", 1, {0x3A, 0x04, 0, 0})}});
    std::vector<uint8_t> b = write(d);
    EXPECT_EQ(std::string(b.begin(), b.end()),
              "REGEDIT4\r\n\r\n[HKEY_USERS\\Y]\r\n\"k\"=hex(1):3a,04,00,00\r\n\r\n");
    // Names with a line end cannot be written: left out and listed.
    d.keys.push_back({u"HKEY_USERS\\Z", false, {val(u"a\nb", 4, {1, 0, 0, 0})}});
    std::vector<std::u16string> skipped;
    write(d, &skipped);
    EXPECT_EQ(skipped, std::vector<std::u16string>{u"HKEY_USERS\\Z\\a\nb"});
}

TEST(RegFile, ReadsWhatItWrites) {
    for (bool four : {false, true}) {
        Document back;
        std::vector<Problem> problems;
        ASSERT_TRUE(parse(write(sample(four)), back, problems)) << problems.size();
        EXPECT_TRUE(back == sample(four)) << four;
    }
}

TEST(RegFile, ValueForms) {
    // clang-format off
    struct Case { std::string line; uint32_t type; std::vector<uint8_t> data; } cases[] = {
        {"\"a\"=\"x\"", 1, sz(u"x")}, {"\"a\" = \"\"", 1, sz(u"")},
        {"\"a\"=\"back\\slash\"", 1, sz(u"back\\slash")}, {"\"a\"=dword:1", 4, {1, 0, 0, 0}},
        {"\"a\"=DWORD:FFFFFFFF", 4, {0xFF, 0xFF, 0xFF, 0xFF}}, {"\"a\"=hex:", 3, {}},
        {"\"a\"=hex:0,ff, 1a ,", 3, {0, 0xFF, 0x1A}},
        {"\"a\"=hex(7):61,00,00,00,00,00", 7, {'a', 0, 0, 0, 0, 0}}, {"\"a\"=hex(B):01", 11, {1}},
        {"\"a\"=hex(FFFF0001):01", 0xFFFF0001, {1}}, {"\"a\"=hex:01,\\\r\n  02,\\\r\n  03", 3, {1, 2, 3}},
        {"\"a\"=\"two\r\nlines\"", 1, sz(u"two\r\nlines")}};
    // clang-format on
    for (const auto& c : cases) {
        std::string file =
            "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_USERS\\K]\r\n" + c.line + "\r\n";
        Document d;
        std::vector<Problem> problems;
        ASSERT_TRUE(parse(ansi_file(file), d, problems))
            << c.line << ": " << (problems.empty() ? "" : problems[0].message);
        ASSERT_EQ(d.keys.size(), 1u);
        ASSERT_EQ(d.keys[0].values.size(), 1u) << c.line;
        EXPECT_EQ(d.keys[0].values[0].type, c.type) << c.line;
        EXPECT_EQ(d.keys[0].values[0].data, c.data) << c.line;
    }
    // REGEDIT4: expand and multi strings are ANSI bytes, stored as UTF-16.
    Document d;
    std::vector<Problem> problems;
    ASSERT_TRUE(parse(ansi_file("REGEDIT4\n[HKEY_USERS\\K]\n\"e\"=hex(2):e9,00\n\"m\"=hex(7):61,00,00\n"), d,
                      problems));
    EXPECT_EQ(d.keys[0].values[0].data, (std::vector<uint8_t>{0xE9, 0, 0, 0}));
    EXPECT_EQ(d.keys[0].values[1].data, (std::vector<uint8_t>{'a', 0, 0, 0, 0, 0}));
}

TEST(RegFile, BadLinesAreReportedWithTheirNumbers) {
    const char* file = "Windows Registry Editor Version 5.00\r\n" // 1
                       "\"early\"=\"x\"\r\n"                      // 2 before any key
                       "[HKEY_CURRENT_USER\\A]\r\n"               // 3
                       "\"a\"=dword:123456789\r\n"                // 4 nine digits
                       "\"b\"=hex:1,2,300\r\n"                    // 5 bad byte
                       "\"c\"=text\r\n"                           // 6 unknown form
                       "\"d\"\"x\"\r\n"                           // 7 no '='
                       "junk\r\n"                                 // 8
                       "[HKEY_USERSX]\r\n"                        // 9 unknown root
                       "[HKEY_CURRENT_USER\\A\r\n"                // 10 no ']'
                       "[-HKEY_USERS]\r\n"                        // 11 a root
                       "[HKEY_USERS\\a\\\\b]\r\n"                 // 12 empty level
                       "[-HKEY_USERS\\Gone]\r\n"                  // 13
                       "\"v\"=dword:1\r\n"                        // 14 value under a deleted key
                       "[HKEY_USERS\\C]\r\n"                      // 15
                       "\"e\"=hex(zz):01\r\n"                     // 16
                       "\"f\"=\"open\r\n";                        // 17 never closed
    Document d;
    std::vector<Problem> problems;
    EXPECT_FALSE(parse(ansi_file(file), d, problems));
    std::vector<std::size_t> lines;
    for (const auto& p : problems)
        lines.push_back(p.line);
    EXPECT_EQ(lines, (std::vector<std::size_t>{2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 16, 17}));

    for (std::string not_reg :
         {std::string(), std::string("\xFF\xFE"), std::string("hello\r\n[HKEY_USERS\\A]\r\n"),
          std::string("\x00\x01\x02\n", 4)}) {
        EXPECT_FALSE(parse(ansi_file(not_reg), d, problems));
        ASSERT_EQ(problems.size(), 1u);
        EXPECT_EQ(problems[0].line, 1u);
    }
}

class RegTool : public ::testing::Test {
  protected:
    kp::test::TempDir dir;
    void use(const char* name) { store::use_database((dir.path() / name).string()); }
    void TearDown() override { store::use_database(""); }
};

// Every value type exported, imported into another registry and exported again: the same file.
TEST_F(RegTool, RoundTripOfEveryValueTypeThroughExportAndImport) {
    use("a.sqlite3");
    store::Key k = 0;
    ASSERT_EQ(store::create_key(store::kCurrentUser, u"RT\\Sub\\Deeper", store::kAllAccess, &k), 0u);
    store::close_key(k);
    ASSERT_EQ(store::create_key(store::kCurrentUser, u"RT", store::kAllAccess, &k), 0u);
    std::vector<uint8_t> big(5000);
    for (std::size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<uint8_t>(i * 7);
    for (uint32_t type = 0; type <= 12; ++type) {
        std::u16string name = u"t" + std::u16string(1, static_cast<char16_t>(u'a' + type));
        std::vector<uint8_t> data =
            type == 1 ? std::vector<uint8_t>{'x', 0, 0, 0} : std::vector<uint8_t>{1, 2, 3, 4};
        ASSERT_EQ(store::set_value(k, name, type, data.data(), static_cast<uint32_t>(data.size())), 0u);
    }
    const std::vector<uint8_t> odd_sz = {'a', 0, 0, 0, 'b', 0}; // a NUL inside, no terminator
    ASSERT_EQ(store::set_value(k, u"odd \"name\" \\", 1, odd_sz.data(), 6), 0u);
    ASSERT_EQ(store::set_value(k, u"", 3, big.data(), 5000), 0u);
    ASSERT_EQ(store::set_value(k, u"Ünïcødé", 1, reinterpret_cast<const uint8_t*>(u"日本"), 6), 0u);
    store::close_key(k);

    Document first;
    ASSERT_EQ(regtool::gather(u"HKEY_CURRENT_USER\\RT", first), 0u);
    ASSERT_EQ(first.keys.size(), 3u);
    std::vector<uint8_t> file = write(first);

    use("b.sqlite3");
    Document parsed;
    std::vector<Problem> problems;
    ASSERT_TRUE(parse(file, parsed, problems));
    std::u16string where;
    ASSERT_EQ(regtool::apply(parsed, &where), 0u);
    Document second;
    ASSERT_EQ(regtool::gather(u"hkey_current_user\\RT\\", second), 0u);
    EXPECT_EQ(write(second), file);
    EXPECT_EQ(second.keys[0].values.size(), 16u);
}

TEST_F(RegTool, ImportDeletesAndIsAllOrNothing) {
    use("c.sqlite3");
    store::Key k = 0;
    ASSERT_EQ(store::create_key(store::kLocalMachine, u"Old\\Tree\\Leaf", store::kAllAccess, &k), 0u);
    store::close_key(k);
    ASSERT_EQ(store::create_key(store::kUsers, u"X", store::kAllAccess, &k), 0u);
    const uint8_t one[] = {1, 0, 0, 0};
    ASSERT_EQ(store::set_value(k, u"old", 4, one, 4), 0u);
    ASSERT_EQ(store::set_value(k, u"keep", 4, one, 4), 0u);
    store::close_key(k);

    // A value the store refuses (a 16384-character name) undoes the whole import.
    Document bad = sample(false);
    bad.keys.push_back({u"HKEY_USERS\\Y", false, {val(std::u16string(16384, u'n'), 4, {1, 0, 0, 0})}});
    std::u16string where;
    EXPECT_EQ(regtool::apply(bad, &where), 87u);
    EXPECT_EQ(where, u"HKEY_USERS\\Y");
    EXPECT_EQ(store::open_key(store::kLocalMachine, u"Old\\Tree\\Leaf", store::kRead, &k), 0u);
    store::close_key(k);
    EXPECT_EQ(store::open_key(store::kCurrentUser, u"Software\\Test", store::kRead, &k), 2u);

    ASSERT_EQ(regtool::apply(sample(false)), 0u);
    EXPECT_EQ(store::open_key(store::kLocalMachine, u"Old", store::kRead, &k), 2u);
    ASSERT_EQ(store::open_key(store::kUsers, u"X", store::kRead, &k), 0u);
    uint32_t size = 0;
    EXPECT_EQ(store::query_value(k, u"old", nullptr, nullptr, &size), 2u);
    EXPECT_EQ(store::query_value(k, u"keep", nullptr, nullptr, &size), 0u);
    store::close_key(k);
    // Deleting what is not there is no failure.
    ASSERT_EQ(regtool::apply(sample(false)), 0u);
}

TEST_F(RegTool, ExportOfMissingKeysAndWholeRegistry) {
    use("d.sqlite3");
    Document d;
    EXPECT_EQ(regtool::gather(u"HKEY_CURRENT_USER\\Nope", d), 2u);
    EXPECT_EQ(regtool::gather(u"HKEY_CURRENT_CONFIG", d), 2u);
    d = {};
    ASSERT_EQ(regtool::gather(u"", d), 0u);
    ASSERT_EQ(d.keys.size(), 4u);
    EXPECT_EQ(d.keys[3].path, u"HKEY_USERS");
}

} // namespace
} // namespace kp::registry::regfile
