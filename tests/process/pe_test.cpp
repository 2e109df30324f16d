// ExeInfo over PE files built by the mingw-w64 binutils, the kind of an executable, and damaged
// files: truncated anywhere, offsets outside the file, resource directories that loop.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "process_fixture.h"
#include "system/pe_version.h"
#include "system/processes.h"

namespace kp::process::test {
namespace {

using kp::system::SpanSource;

std::vector<uint8_t> bytes_of(const fs::path& p) {
    std::string s = read_text(p);
    return std::vector<uint8_t>(s.begin(), s.end());
}

#ifndef KP120_PE_FIXTURES
#define KP120_PE_FIXTURES "/nonexistent"
#endif
const auto fixture = [](const char* name) { return fs::path(KP120_PE_FIXTURES) / name; };

#define NEED_FIXTURES()                                                                                      \
    if (!fs::exists(fixture("english64.dll"))) GTEST_SKIP() << "no PE fixtures: no mingw-w64 binutils"

class ExeInfoTest : public ProcessTest {
  protected:
    std::u16string info(const std::u16string& key, const std::u16string& path) {
        auto r = call("ExeInfo", {Value::string(key), Value::string(path)});
        EXPECT_EQ(r.status, kp::host::CallStatus::Ok);
        EXPECT_EQ(r.error.severity, 1);
        return r.result.s;
    }
    std::u16string install(const char* name) {
        fs::create_directories(host_path("Program Files/Kp"));
        fs::copy_file(fixture(name), host_path(std::string("Program Files/Kp/") + name),
                      fs::copy_options::overwrite_existing);
        return u"\\Program Files\\Kp\\" + kp::host::utf16(name);
    }
};

TEST_F(ExeInfoTest, EveryKeyOfEveryFixture) {
    NEED_FIXTURES();
    using Str = const char16_t*;
    const Str e[] = {u"Kp Test Company", u"1.2.3.4", u"Fixture program", u"Copyright (C) Kp"};
    // file, mode, company, version, description, copyright
    const std::tuple<const char*, Str, Str, Str, Str, Str> fixtures[] = {
        {"english32.exe", u"32", e[0], e[1], e[2], e[3]},
        {"english64.exe", u"64", e[0], e[1], e[2], e[3]},
        {"english32.dll", u"32", e[0], e[1], e[2], e[3]},
        {"english64.dll", u"64", e[0], e[1], e[2], e[3]},
        // The first translation (French, UTF-16) wins over the English table.
        {"french64.dll", u"64", u"Soci\u00E9t\u00E9 d'essai", u"5.6.0.7", u"Biblioth\u00E8que", u"(c) Essai"},
        // The translation names a missing table: the 040904E4 table answers.
        {"fallback32.exe", u"32", u"Fallback Company", u"3.0", u"", u""},
        {"plain64.exe", u"64", u"", u"", u"", u""}}; // no version resource
    for (const auto& [file, mode, company, version, description, copyright] : fixtures) {
        SCOPED_TRACE(file);
        const std::u16string path = install(file);
        // Keys in English or French, in any case ("\u00E9" standing for "E", "\u00C9" not folded);
        // other keys name version strings, in any case.
        // clang-format off
        const std::pair<Str, std::u16string> keys[] = {
            {u"Nom", path}, {u"DIRECTORY", u"\\Program Files\\Kp"}, {u"R\u00E9pertoire", u"\\Program Files\\Kp"},
            {u"mode", mode}, {u"COMPANY", company}, {u"Soci\u00E9t\u00E9", company}, {u"Version", version},
            {u"DESCRIPTION", description}, {u"COPYRIGHT", copyright}, {u"CompanyName", company},
            {u"companyname", company}, {u"FileVersion", version}, {u"NoSuchString", u""}, {u"", u""},
            {u"R\u00C9PERTOIRE", u""}};
        // clang-format on
        for (const auto& [key, expected] : keys)
            EXPECT_EQ(info(key, path), expected) << kp::host::utf8(key);
    }
    const std::u16string fr = install("french64.dll");
    // Values are cut to 199 characters.
    EXPECT_EQ(info(u"Comments", fr), std::u16string(120, u'L') + std::u16string(79, u'M'));
    // Names of more than 50 characters give nothing.
    EXPECT_EQ(info(std::u16string(51, u'C'), fr), u"");
    EXPECT_EQ(info(u"\\StringFileInfo\\040C04B0\\FileVersion", fr), u"") << "a name, not a path";
    const std::u16string en = install("english32.exe");
    EXPECT_EQ(info(u"InternalName", en), u"fixture");
}

TEST_F(ExeInfoTest, PathItemsOfAnyName) {
    const std::pair<std::u16string, std::u16string> rows[] = {{u"\\Windows\\prog.exe", u"\\Windows"},
                                                              {u"\\prog.exe", u""},
                                                              {u"COM1:", u"COM1:"},
                                                              {u"A:prog", u"A:"},
                                                              {u"/usr/bin/x", u"/usr/bin"},
                                                              {u"prog.exe", u""},
                                                              {u"", u""}};
    for (const auto& [path, directory] : rows) {
        EXPECT_EQ(info(u"NAME", path), path);
        EXPECT_EQ(info(u"DIRECTORY", path), directory) << kp::host::utf8(path);
        EXPECT_EQ(info(u"VERSION", path), u"") << "missing file";
    }
}

TEST_F(ExeInfoTest, CallingProgramByDefault) {
    const std::u16string self = kp::host::utf16(fs::read_symlink("/proc/self/exe").string());
    auto own = [&](const char16_t* key) { return call("ExeInfo", {Value::string(key)}).result.s; };
    EXPECT_EQ(own(u"NAME"), self);
    EXPECT_EQ(own(u"REPERTOIRE"), self.substr(0, self.rfind(u'/')));
    EXPECT_EQ(own(u"MODE") + own(u"VERSION"), u"")
        << "an ELF program: no executable kind of the device, no version";
}

// A header written by hand, for the kinds the fixtures do not cover.
std::vector<uint8_t> header(uint16_t relocations, uint32_t next, uint16_t signature, uint16_t magic,
                            std::size_t size = 512) {
    std::vector<uint8_t> b(size, 0);
    b[0] = 'M', b[1] = 'Z';
    b[24] = static_cast<uint8_t>(relocations), b[25] = static_cast<uint8_t>(relocations >> 8);
    std::memcpy(&b[60], &next, 4);
    if (uint64_t(next) + 26 <= size) {
        b[next] = static_cast<uint8_t>(signature), b[next + 1] = static_cast<uint8_t>(signature >> 8);
        b[next + 24] = static_cast<uint8_t>(magic), b[next + 25] = static_cast<uint8_t>(magic >> 8);
    }
    return b;
}

TEST(ExecutableKind, EveryBranch) {
    using Row = std::tuple<std::vector<uint8_t>, int32_t, std::u16string>;
    std::vector<uint8_t> elf(128, 0);
    elf[0] = 0x7F, elf[1] = 'E', elf[2] = 'L', elf[3] = 'F';
    // The 248 bytes after the offset must all be there; the last row points back at "MZ".
    std::vector<Row> rows = {{{}, -1, u""},
                             {std::vector<uint8_t>(63, 'M'), -1, u""},
                             {elf, -2, u""},
                             {header(64, 128, 0x4550, 0x10B), 2, u"32"},
                             {header(64, 128, 0x4550, 0x20B), 4, u"64"},
                             {header(64, 128, 0x4550, 0x107), 2, u"32"},
                             {header(0x1E, 128, 0x4550, 0x20B), 0, u"DOS"},
                             {header(64, 128, 0x5A4D, 0), 0, u"DOS"},
                             {header(64, 128, 0x1234, 0), 3, u""},
                             {header(64, 300, 0x4550, 0x20B), 3, u""},
                             {header(64, 264, 0x4550, 0x20B), 4, u"64"},
                             {header(64, 0xFFFFFFF0u, 0x4550, 0x20B), 3, u""},
                             {header(64, 0, 0x5A4D, 64), 0, u"DOS"}};
    for (uint16_t signature : {0x454E, 0x454C, 0x584C, 0x3357}) // NE, LE, LX, W3
        rows.push_back({header(64, 128, signature, 0), 1, u"16"});
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& [bytes, kind, text] = rows[i];
        SpanSource src(bytes);
        const int32_t got = kp::system::executable_kind(src);
        EXPECT_EQ(std::make_tuple(got, kp::system::executable_kind_text(got)), std::tie(kind, text)) << i;
    }
}

// Offset of the resource section's raw data in a fixture (its header lies in the first kilobyte).
uint32_t resource_offset(const std::vector<uint8_t>& b) {
    const std::string_view name(".rsrc");
    const auto end = b.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(b.size(), 1024));
    const auto at = std::search(b.begin(), end, name.begin(), name.end());
    uint32_t raw = 0;
    if (at != end) std::memcpy(&raw, &*at + 20, 4);
    return raw;
}

std::u16string company(const std::vector<uint8_t>& b) {
    SpanSource src(b);
    std::vector<uint8_t> block;
    if (!kp::system::read_version_resource(src, block)) return u"";
    return kp::system::version_value(block, u"CompanyName");
}

TEST(DamagedPe, TruncatedAnywhere) {
    NEED_FIXTURES();
    for (const char* name : {"english32.dll", "french64.dll"}) {
        const std::vector<uint8_t> whole = bytes_of(fixture(name));
        const std::u16string full = company(whole);
        ASSERT_FALSE(full.empty());
        std::size_t answered = 0;
        for (std::size_t n = 0; n < whole.size(); ++n) {
            std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(n));
            SpanSource src(cut);
            const int32_t kind = kp::system::executable_kind(src);
            EXPECT_TRUE(kind == -1 || kind == 3 || kind == 2 || kind == 4) << n;
            std::u16string c = company(cut);
            // A cut copy answers the whole value or nothing.
            EXPECT_TRUE(c.empty() || c == full) << n;
            answered += !c.empty();
        }
        EXPECT_GT(answered, 0u) << "the version data lies before the end of the file";
    }
}

TEST(DamagedPe, OffsetsOutsideTheFileAndLoopingDirectories) {
    NEED_FIXTURES();
    const std::vector<uint8_t> whole = bytes_of(fixture("english64.dll"));
    const uint32_t rsrc = resource_offset(whole);
    ASSERT_GT(rsrc, 0u);
    auto patched = [&](std::size_t at, uint32_t value) {
        std::vector<uint8_t> b = whole;
        std::memcpy(&b[at], &value, 4);
        return b;
    };
    uint32_t type_target;
    std::memcpy(&type_target, &whole[rsrc + 16 + 4], 4);
    ASSERT_TRUE(type_target & 0x80000000u);
    const uint32_t names = rsrc + (type_target & 0x7FFFFFFFu);
    uint32_t nt;
    std::memcpy(&nt, &whole[60], 4);
    std::vector<uint8_t> many_sections = whole;
    many_sections[nt + 6] = 0xFF, many_sections[nt + 7] = 0xFF;
    const std::vector<std::vector<uint8_t>> damaged = {
        patched(60, 0x7FFFFFF0u),             // headers past the end
        patched(60, 0xFFFFFFFFu),             // headers at a negative offset
        patched(rsrc + 16 + 4, 0x80000000u),  // the type entry points back at the root
        patched(names + 16 + 4, 0x80000000u), // the name entry points back at the root
        patched(names + 16 + 4, type_target), // ... or at its own directory
        patched(rsrc + 16 + 4, 0xFFFFFFFFu),  // a directory far outside
        patched(rsrc + 12, 0xFFFFFFFFu),      // 131070 entries announced
        patched(rsrc + 16, 0x80000010u),      // the version type given as a name
        many_sections,                        // more sections than the loader takes
    };
    for (std::size_t i = 0; i < damaged.size(); ++i) {
        SpanSource src(damaged[i]);
        const int32_t kind = kp::system::executable_kind(src);
        EXPECT_TRUE(kind == 3 || kind == 4) << i;
        EXPECT_EQ(company(damaged[i]), u"") << i;
    }
    EXPECT_EQ(company(whole), u"Kp Test Company");
}

TEST(DamagedPe, VersionBlocksWithBadLengths) {
    // A version block written by hand: root, StringFileInfo, table, one string.
    auto block = [](uint16_t root_len, uint16_t string_len, uint16_t value_len) {
        std::vector<uint8_t> b;
        auto word = [&](uint16_t w) { b.insert(b.end(), {uint8_t(w), uint8_t(w >> 8)}); };
        auto text = [&](std::u16string_view t) { std::for_each(t.begin(), t.end(), word), word(0); };
        auto key = [&](std::u16string_view k) { text(k), b.resize((b.size() + 3) / 4 * 4); };
        word(root_len), word(0), word(0), key(u"VS_VERSION_INFO");
        word(0xFFFF), word(0), word(1), key(u"StringFileInfo");
        word(0xFFFF), word(0), word(1), key(u"040904E4");
        word(string_len), word(value_len), word(1), key(u"CompanyName"), text(u"Acme");
        return b;
    };
    const std::tuple<uint16_t, uint16_t, uint16_t, std::u16string> rows[] = {
        {0xFFFF, 0xFFFF, 5, u"Acme"},                      // lengths past the end are cut to it
        {0, 0xFFFF, 5, u""},                               // a root shorter than its header
        {5, 0xFFFF, 5, u""},          {0xFFFF, 0, 5, u""}, // a child shorter than its header ends the walk
        {0xFFFF, 0xFFFF, 0, u""},                          // an empty value
        {0xFFFF, 0xFFFF, 2, u"Ac"},   {0xFFFF, 0xFFFF, 0xFFFF, u"Acme"}};
    for (const auto& [root, string, value, expected] : rows) {
        const auto b = block(root, string, value);
        EXPECT_EQ(kp::system::version_value(b, u"CompanyName"), expected) << root << " " << string;
        for (std::size_t n = 0; n <= b.size(); ++n)
            kp::system::version_value(std::span<const uint8_t>(b.data(), n), u"CompanyName");
    }
}

// Damaged files through the whole function: a few cut and patched copies on the device.
TEST_F(ExeInfoTest, DamagedFilesThroughTheComponent) {
    NEED_FIXTURES();
    const std::vector<uint8_t> whole = bytes_of(fixture("english32.exe"));
    for (std::size_t n : {std::size_t(0), std::size_t(2), std::size_t(63), std::size_t(64), std::size_t(200),
                          whole.size() / 2, whole.size() - 1}) {
        put("bad/cut.exe", std::string(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(n)));
        for (const char16_t* key : {u"MODE", u"VERSION", u"COMPANY", u"Anything"})
            (void)info(key, u"\\bad\\cut.exe");
    }
    EXPECT_EQ(info(u"MODE", u"\\bad"), u"") << "a directory";
}

} // namespace
} // namespace kp::process::test
