// Attributes against Samba: user.DOSATTRIB records made and read by its Python bindings (python3-samba).
#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <cstdio>
#include <sstream>
#include <tuple>

#include "files_fixture.h"
#include "platform/dos_record.h"

namespace kp::files::test {
namespace {

using host::Value;

constexpr const char* kPython = "/usr/bin/python3";

std::string run_python(const std::string& script, const std::string& args = "") {
    const std::string path =
        std::filesystem::temp_directory_path() / ("kp120-samba-" + std::to_string(getpid()));
    std::ofstream(path) << "from samba.dcerpc import xattr\nfrom samba.ndr import ndr_pack, ndr_unpack\n"
                        << script;
    std::string out = capture(std::string(kPython) + " " + path + " " + args + " 2>/dev/null");
    std::filesystem::remove(path);
    return out;
}

std::string from_hex(const std::string& hex) {
    std::string out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        out.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

std::string to_hex(const std::string& bytes) {
    std::string out;
    for (unsigned char c : bytes)
        out += {"0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
    return out;
}

// A record of `version` made by Samba (LONG: a name longer than a small fixed buffer).
constexpr const char* kMake = R"(
LONG = 'n' * 200
def make(version, attrib, create=0, name=''):
    d = xattr.DOSATTRIB()
    d.version = version
    kind = {1: 'DosInfo1', 2: 'DosInfo2Old', 3: 'DosInfo3', 4: 'DosInfo4', 5: 'DosInfo5'}[version]
    i = getattr(xattr, kind)()
    if version >= 3:
        i.valid_flags = xattr.XATTR_DOSINFO_ATTRIB | xattr.XATTR_DOSINFO_CREATE_TIME
    if version == 2:
        i.name = name
    i.attrib = attrib
    i.create_time = create
    d.info = i
    print(ndr_pack(d).hex())
)";

class SambaAttributes : public DeviceTest {
  protected:
    void SetUp() override {
        if (run_python("print('ok')") != "ok\n")
            GTEST_SKIP() << "Samba's Python bindings (python3-samba) are not installed";
        put("probe", "");
        if (setxattr(host_path("probe").c_str(), "user.test", "1", 1, 0) != 0)
            GTEST_SKIP() << "no user extended attributes here";
    }
    std::string stored(const std::string& rel) {
        std::string v(65536, '\0');
        ssize_t n = getxattr(host_path(rel).c_str(), "user.DOSATTRIB", v.data(), v.size());
        v.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
        return v;
    }
    void store(const std::string& rel, const std::string& value) {
        ASSERT_EQ(setxattr(host_path(rel).c_str(), "user.DOSATTRIB", value.data(), value.size(), 0), 0);
    }
    std::u16string letters(const std::u16string& name) { return call("fAttribute", {S(name)}).result.s; }
    // The records Samba makes for the calls of make() first in each row.
    template <class Rows> std::vector<std::string> records(const Rows& rows) {
        std::string script = kMake;
        for (const auto& r : rows)
            script += std::string(std::get<0>(r)) + "\n";
        std::istringstream lines(run_python(script));
        std::vector<std::string> out;
        for (std::string hex; std::getline(lines, hex);)
            out.push_back(from_hex(hex));
        EXPECT_EQ(out.size(), std::size(rows));
        out.resize(std::size(rows));
        return out;
    }
};

// Samba writes, the component reads: every version, one longer than a small buffer.
TEST_F(SambaAttributes, RecordsSambaWritesAreRead) {
    // The last stays: a hidden file is not listed by frNoHiddenFile.
    const std::pair<const char*, const char16_t*> rows[] = {
        {"make(1, 0x22)", u"AH"},   {"make(2, 0x04, 0, LONG)", u"S"}, {"make(3, 0x26, 1)", u"AHS"},
        {"make(4, 0x02, 2)", u"H"}, {"make(5, 0x06, 3)", u"HS"},      {"make(5, 0x20)", u"A"},
        {"make(5, 0x00)", u""},     {"make(5, 0x02)", u"H"},
    };
    const std::vector<std::string> made = records(rows);
    put("f.txt", "x");
    for (std::size_t k = 0; k < made.size(); ++k) {
        store("f.txt", made[k]);
        EXPECT_EQ(letters(u"\\f.txt"), rows[k].second) << rows[k].first;
    }
    put("g.txt", "x");
    EXPECT_EQ(call("fListFile", {S(u"\\*.txt"), I(0x102)}).result.s, u"\\g.txt");
}

// The component writes version 5 with an empty text, keeping the record's creation time and other bits.
TEST_F(SambaAttributes, RecordsTheComponentWritesAreReadBySamba) {
    put("f.txt", "x");
    store("f.txt", records(std::array{std::pair{"make(4, 0x2100, 0x01d9000011112222)", 0}})[0]);
    ASSERT_EQ(call("fAttribute", {S(u"\\f.txt"), S(u"+HS")}).result.s, u"HS");
    put("new.txt", "x");
    ASSERT_EQ(call("fAttribute", {S(u"\\new.txt"), S(u"+A")}).result.s, u"A");
    const std::string read = R"(
import sys
for h in sys.argv[1:]:
    d = ndr_unpack(xattr.DOSATTRIB, bytes.fromhex(h))
    i = d.info
    print(repr(d.attrib_hex), d.version, i.valid_flags, hex(i.attrib), hex(i.create_time))
)";
    const std::string out = run_python(read, to_hex(stored("f.txt")) + " " + to_hex(stored("new.txt")));
    EXPECT_EQ(out, "'' 5 17 0x2106 0x1d9000011112222\n'' 5 1 0x20 0x0\n");
}

// A record's creation time (any version) is the file's; without one (or 0), the file system's.
TEST_F(SambaAttributes, TheRecordsCreationTimeIsTheFilesCreationTime) {
    put("f.txt", "x");
    auto created = [&] { return call("fDateTime", {S(u"\\f.txt"), S(u""), I(1)}).result.s; };
    // The NT time of a local date: set as the modification time, read back.
    ASSERT_EQ(call("fDateTime", {S(u"\\f.txt"), S(u"2003040506070800")}).result.s, u"2003040506070800");
    const std::u16string own = created();
    struct stat st;
    ASSERT_EQ(::stat(host_path("f.txt").c_str(), &st), 0);
    const uint64_t nt = (static_cast<uint64_t>(st.st_mtim.tv_sec) + 11644473600u) * 10000000u;
    const std::string kept = std::to_string(nt);
    // Every version with the time kept (version 2 with a name), then two without.
    std::vector<std::pair<std::string, std::u16string>> rows;
    for (const char* v : {"1", "2", "3", "4", "5"})
        rows.push_back({std::string("make(") + v + ", 0x20, " + kept + (*v == '2' ? ", 'n')" : ")"),
                        u"2003040506070800"});
    rows.insert(rows.end(), {{"make(1, 0x20)", own}, {"make(5, 0x20)", own}});
    const std::vector<std::string> made = records(rows);
    for (std::size_t k = 0; k < made.size(); ++k) {
        store("f.txt", made[k]);
        EXPECT_EQ(created(), rows[k].second) << rows[k].first;
    }
}

// A record cut anywhere or of an unknown version: the text's attributes if any, else none.
TEST_F(SambaAttributes, TruncatedAndUnknownRecords) {
    const std::vector<std::string> made =
        records(std::array{std::pair{"make(5, 0x06, 3)", 0}, std::pair{"make(3, 0x02, 1)", 0}});
    const std::string &v5 = made[0], &v3 = made[1];
    put("f.txt", "x");
    for (std::size_t cut = 1; cut < v5.size(); ++cut) {
        store("f.txt", v5.substr(0, cut));
        EXPECT_EQ(letters(u"\\f.txt"), u"") << "version 5 cut at " << cut;
    }
    for (std::size_t cut = 6; cut < v3.size(); ++cut) {
        store("f.txt", v3.substr(0, cut));
        EXPECT_EQ(letters(u"\\f.txt"), u"H") << "version 3 cut at " << cut << ": the text's 0x2";
    }
    std::string unknown = v3;
    unknown[4] = unknown[6] = 9;
    store("f.txt", unknown);
    EXPECT_EQ(letters(u"\\f.txt"), u"H");
    unknown = v5;
    unknown[2] = unknown[4] = 9;
    store("f.txt", unknown);
    EXPECT_EQ(letters(u"\\f.txt"), u"");
    store("f.txt", std::string("0x4\0junk", 8)); // the text alone, then bytes of no record
    EXPECT_EQ(letters(u"\\f.txt"), u"S");
    // Without the attribute: archive is the owner's execute bit.
    put("plain.txt", "x");
    EXPECT_EQ(letters(u"\\plain.txt"), u"");
    ::chmod(host_path("plain.txt").c_str(), 0755);
    EXPECT_EQ(letters(u"\\plain.txt"), u"A");
}

} // namespace
} // namespace kp::files::test
