// streams_test.cpp - the stream functions through the component's interface,
// on files under a temporary device root.
#include <sys/stat.h>

#include "files_fixture.h"

namespace kp::files::test {
namespace {

constexpr int32_t kRead = 1, kWrite = 2, kReadWrite = 3, kCreateIfNotExist = 0x100, kCreate = 0x200,
                  kAdd = 0x800, kUnicode = 0x1000;
const std::u16string kEot(1, u'\x04');

std::string utf16le(std::u16string_view s) {
    std::string out;
    for (char16_t c : s) {
        out.push_back(static_cast<char>(c & 0xFF));
        out.push_back(static_cast<char>(c >> 8));
    }
    return out;
}

using OpenModes = DeviceTest;

// Relative or empty names, missing files and directories: -1 and the
// identifier or system code of the failure.
TEST_F(OpenModes, FailuresGiveMinusOne) {
    std::filesystem::create_directories(host_path("d"));
    const struct {
        const char16_t* name;
        uint32_t id, system_code;
    } cases[] = {{u"", 80600, 0},          {u"a.txt", 80600, 0},     {u"dir\\a.txt", 80600, 0},
                 {u"\\nothing.txt", 0, 2}, {u"\\no\\dir.txt", 0, 3}, {u"\\d", 0, 5}};
    for (const auto& c : cases) {
        auto out = call("fOpen", {Value::string(c.name), Value::integer(kRead)});
        EXPECT_EQ(out.result.i, -1);
        EXPECT_EQ(out.error.severity, 2);
        if (c.id) {
            EXPECT_EQ(out.error.id, c.id);
        } else {
            EXPECT_EQ(out.error.system_code, c.system_code);
        }
    }
}

TEST_F(OpenModes, CreateTruncatesAndCreateIfNotExistKeeps) {
    put("keep.txt", "content");
    int64_t h = open(u"\\keep.txt", kReadWrite | kCreate | kCreateIfNotExist);
    ASSERT_GE(h, 2);
    close(h);
    EXPECT_EQ(get("keep.txt"), "content");
    h = create(u"\\keep.txt");
    ASSERT_GE(h, 2);
    close(h);
    EXPECT_EQ(get("keep.txt"), "");
    h = open(u"\\fresh.txt", kReadWrite | kCreateIfNotExist);
    ASSERT_GE(h, 2);
    close(h);
    EXPECT_TRUE(std::filesystem::exists(host_path("fresh.txt")));
}

TEST_F(OpenModes, CreateAloneOpensForWritingOnly) {
    int64_t h = open(u"\\w.txt", kCreate);
    ASSERT_GE(h, 2);
    auto out = call("fRead", {Value::integer(h), Value::integer(4)});
    EXPECT_EQ(out.result.kind, Value::Kind::None);
    EXPECT_EQ(out.error.system_code, 5u);
    EXPECT_EQ(call("fWrite", {Value::integer(h), Value::string(u"ab")}).result.i, 4);
    close(h);
}

TEST_F(OpenModes, ReadOnlyFileRefusesWritingForEveryUser) {
    put("ro.txt", "data");
    chmod(host_path("ro.txt").c_str(), 0444);
    int64_t h = open(u"\\ro.txt", kRead);
    EXPECT_GE(h, 2);
    close(h);
    for (int32_t mode : {kWrite, kReadWrite, kReadWrite | kCreate}) {
        auto out = call("fOpen", {Value::string(u"\\ro.txt"), Value::integer(mode)});
        EXPECT_EQ(out.result.i, -1) << mode;
        EXPECT_EQ(out.error.system_code, 5u) << mode;
    }
    EXPECT_EQ(get("ro.txt"), "data");
}

TEST_F(OpenModes, AddPositionsAtTheEnd) {
    put("log.txt", "one\r\n");
    int64_t h = open(u"\\log.txt", kReadWrite | kAdd);
    EXPECT_EQ(tell(h), 5);
    call("fWriteLine", {Value::integer(h), Value::string(u"two")});
    close(h);
    EXPECT_EQ(get("log.txt"), "one\r\ntwo\r\n");
}

using ByteOrderMark = DeviceTest;

TEST_F(ByteOrderMark, CreateUnicodeWritesTheMarkFirst) {
    int64_t h = create(u"\\u.txt", kUnicode);
    ASSERT_GE(h, 2);
    EXPECT_EQ(tell(h), 2);
    call("fWriteLine", {Value::integer(h), Value::string(u"h\u00e9")});
    close(h);
    EXPECT_EQ(get("u.txt"), std::string("\xFF\xFE", 2) + utf16le(u"h\u00e9\r\n"));
}

TEST_F(ByteOrderMark, OpenUnicodeSkipsTheMarkOrReadsFromTheStart) {
    // Only CR LF ends a line here too.
    put("m.txt", std::string("\xFF\xFE", 2) + utf16le(u"\u00e9t\u00e9\r\nA\rB\nC\r\nsecond"));
    int64_t h = open(u"\\m.txt", kRead | kUnicode);
    EXPECT_EQ(line(h), u"\u00e9t\u00e9");
    EXPECT_EQ(line(h), u"A\rB\nC");
    EXPECT_EQ(line(h), u"second");
    EXPECT_EQ(line(h), kEot);
    close(h);
    put("n.txt", utf16le(u"plain\r\n"));
    h = open(u"\\n.txt", kRead | kUnicode);
    EXPECT_EQ(tell(h), 0);
    EXPECT_EQ(line(h), u"plain");
    close(h);
}

TEST_F(ByteOrderMark, CreateIfNotExistWritesTheMarkOnlyOnNewFiles) {
    int64_t h = open(u"\\new.txt", kReadWrite | kCreateIfNotExist | kUnicode);
    close(h);
    EXPECT_EQ(get("new.txt"), std::string("\xFF\xFE", 2));
    put("old.txt", utf16le(u"x"));
    h = open(u"\\old.txt", kReadWrite | kCreateIfNotExist | kUnicode);
    close(h);
    EXPECT_EQ(get("old.txt"), utf16le(u"x"));
}

using LineReader = DeviceTest;

TEST_F(LineReader, OnlyCrLfEndsALine) {
    put("l.txt", std::string("ab\rc\r\nab\nx\r\n\r\nlast"));
    int64_t h = open(u"\\l.txt", kRead);
    EXPECT_EQ(line(h), u"ab\rc");
    EXPECT_EQ(line(h), u"ab\nx");
    EXPECT_EQ(line(h), u"");
    EXPECT_EQ(line(h), u"last");
    EXPECT_EQ(line(h), kEot);
    EXPECT_EQ(line(h), kEot);
    close(h);
}

TEST_F(LineReader, EmptyFileGivesEndOfFileAtOnce) {
    put("e.txt", "");
    int64_t h = open(u"\\e.txt", kRead);
    auto out = call("fReadLine", {Value::integer(h)});
    EXPECT_EQ(out.result.s, kEot);
    EXPECT_EQ(out.error.severity, 1);
    close(h);
}

TEST_F(LineReader, LongLinesAndLineEndsAtBlockBoundariesComeBackWhole) {
    // Lines whose CR LF falls on either side of the 50-byte pieces and the
    // 160-byte blocks, and lines far longer than a block.
    std::vector<std::string> lines;
    for (std::size_t n : {49u, 50u, 51u, 158u, 159u, 160u, 161u, 1000u, 70000u})
        lines.push_back(std::string(n, static_cast<char>('a' + n % 26)));
    std::string all;
    for (auto& l : lines)
        all += l + "\r\n";
    put("long.txt", all);
    int64_t h = open(u"\\long.txt", kRead);
    int64_t expected = 0;
    for (auto& l : lines) {
        std::u16string got = line(h);
        EXPECT_EQ(got.size(), l.size());
        EXPECT_EQ(got, std::u16string(l.begin(), l.end()));
        expected += static_cast<int64_t>(l.size()) + 2;
        EXPECT_EQ(tell(h), expected) << "after a line of " << l.size();
    }
    EXPECT_EQ(line(h), kEot);
    close(h);
}

TEST_F(LineReader, CrLfSplitAcrossTheBlockBoundary) {
    // The CR is byte 159 of the first 160-byte block and its LF the first
    // byte of the next one.
    std::string text(159, 'q');
    put("split.txt", text + "\r\nnext");
    int64_t h = open(u"\\split.txt", kRead);
    EXPECT_EQ(line(h), std::u16string(159, u'q'));
    EXPECT_EQ(line(h), u"next");
    close(h);
}

TEST_F(LineReader, LineEndsAcrossTheReadAheadBoundary) {
    // The stream reads ahead 65536 bytes at a time: line ends that begin in
    // one such block and finish in the next.
    for (std::size_t k : {65533u, 65534u, 65535u, 65536u}) {
        put("edge.txt", std::string(k, 'a') + "\r\nb\r\n");
        int64_t h = open(u"\\edge.txt", kRead);
        EXPECT_EQ(line(h).size(), k);
        EXPECT_EQ(line(h), u"b") << k;
        EXPECT_EQ(line(h), kEot);
        close(h);
        put("edge16.txt", utf16le(std::u16string(k / 2, u'a') + u"\r\nb\r\n"));
        h = open(u"\\edge16.txt", kRead | kUnicode);
        EXPECT_EQ(line(h).size(), k / 2);
        EXPECT_EQ(line(h), u"b") << k;
        close(h);
    }
}

// Code page 1252 bytes are decoded; NUL and control bytes survive.
TEST_F(LineReader, AnsiBytesAndNulSurvive) {
    put("a.txt", std::string("caf\xE9 \x80\r\na\0b\xFF\x01\r\n", 16));
    int64_t h = open(u"\\a.txt", kRead);
    EXPECT_EQ(line(h), u"caf\u00e9 \u20ac");
    EXPECT_EQ(line(h), std::u16string(u"a\0b\u00ff\x01", 5));
    close(h);
}

TEST_F(LineReader, WritesThroughTheSameHandleAreSeenAtOnce) {
    int64_t h = create(u"\\rw.txt");
    call("fWriteLine", {Value::integer(h), Value::string(u"one")});
    call("fSeek", {Value::integer(h), Value::int64(0), Value::integer(0)});
    EXPECT_EQ(line(h), u"one");
    EXPECT_EQ(line(h), kEot);
    call("fWriteLine", {Value::integer(h), Value::string(u"two")});
    call("fSeek", {Value::integer(h), Value::int64(5), Value::integer(0)});
    EXPECT_EQ(line(h), u"two");
    // Overwrite inside a block that was read before.
    call("fSeek", {Value::integer(h), Value::int64(0), Value::integer(0)});
    call("fWrite", {Value::integer(h), Value::buffer({'O', 'N'})});
    call("fSeek", {Value::integer(h), Value::int64(0), Value::integer(0)});
    EXPECT_EQ(line(h), u"ONe");
    close(h);
}

TEST_F(LineReader, PositionIsExactForReadAfterEachLine) {
    put("mix.txt", "l1\r\nl2\r\nrest");
    int64_t h = open(u"\\mix.txt", kRead);
    EXPECT_EQ(line(h), u"l1");
    auto out = call("fRead", {Value::integer(h), Value::integer(2)});
    EXPECT_EQ(out.result.bytes, (std::vector<uint8_t>{'l', '2'}));
    EXPECT_EQ(line(h), u"");
    EXPECT_EQ(line(h), u"rest");
    close(h);
}

using PatternLines = DeviceTest;

TEST_F(PatternLines, DistributesSubMatchesFromTheWholeLine) {
    put("p.txt", "key=value\r\nno match here\r\n");
    int64_t h = open(u"\\p.txt", kRead);
    std::vector<Value> args = {Value::integer(h), Value::string(u"([a-z]+)=([a-z]+)"), Value::variable(),
                               Value::variable(), Value::variable()};
    auto out = call_with("fReadLine", args);
    ASSERT_EQ(out.status, kp::host::CallStatus::Ok) << out.detail;
    EXPECT_TRUE(out.result.b);
    EXPECT_EQ(args[2].ref->s, u"key=value");
    EXPECT_EQ(args[3].ref->s, u"key");
    EXPECT_EQ(args[4].ref->s, u"value");
    std::vector<Value> again = {Value::integer(h), Value::string(u"([a-z]+)=([a-z]+)"),
                                Value::variable(Value::string(u"old"))};
    out = call_with("fReadLine", again);
    EXPECT_TRUE(out.result.b);
    EXPECT_EQ(again[2].ref->s, u"");
    std::vector<Value> at_end = {Value::integer(h), Value::string(u""), Value::variable()};
    EXPECT_FALSE(call_with("fReadLine", at_end).result.b);
    close(h);
}

TEST_F(PatternLines, BadPatternIsFalse) {
    put("p.txt", "x\r\n");
    for (const char16_t* bad : {u"(x", u"((((a{1,255}){1,255}){1,255}){1,255})"}) {
        int64_t h = open(u"\\p.txt", kRead);
        std::vector<Value> args = {Value::integer(h), Value::string(bad), Value::variable()};
        auto out = call_with("fReadLine", args);
        EXPECT_FALSE(out.result.b);
        EXPECT_EQ(out.error.id, 80500u);
        close(h);
    }
}

using WriteForms = DeviceTest;

TEST_F(WriteForms, BytesOnDisk) {
    int64_t h = create(u"\\out.txt");
    EXPECT_TRUE(call("fWriteLine", {Value::integer(h), Value::string(u"caf\u00e9 \u20ac \u4e2d")}).result.b);
    // The string-and-length form writes the string's UTF-16 bytes as held
    // and a UTF-16 line end, even in an ANSI file.
    EXPECT_TRUE(call("fWriteLine", {Value::integer(h), Value::string(u"AB"), Value::integer(3)}).result.b);
    EXPECT_EQ(call("fWrite", {Value::integer(h), Value::buffer({1, 2, 3})}).result.i, 3);
    EXPECT_EQ(call("fWrite", {Value::integer(h), Value::buffer({4, 5, 6}), Value::integer(2)}).result.i, 2);
    EXPECT_EQ(call("fWrite", {Value::integer(h), Value::buffer({7}), Value::integer(100)}).result.i, 1);
    close(h);
    EXPECT_EQ(get("out.txt"), std::string("caf\xE9 \x80 ?\r\n", 10) + std::string("A\0B\r\0\n\0", 7) +
                                  std::string("\x01\x02\x03\x04\x05\x07", 6));
}

TEST_F(WriteForms, NegativeLengthIsRefused) {
    int64_t h = create(u"\\neg.txt");
    auto out = call("fWrite", {Value::integer(h), Value::buffer({1, 2}), Value::integer(-5)});
    EXPECT_EQ(out.result.i, -1);
    EXPECT_EQ(out.error.system_code, 87u);
    out = call("fWrite", {Value::integer(h), Value::integer(0), Value::integer(-1)});
    EXPECT_EQ(out.result.i, -1);
    close(h);
    EXPECT_EQ(get("neg.txt"), "");
}

TEST_F(WriteForms, BadAddressesNeverCrash) {
    int64_t h = create(u"\\addr.txt");
    auto out = call("fWrite", {Value::integer(h), Value::integer(16), Value::integer(8)});
    EXPECT_EQ(out.result.i, -1);
    EXPECT_EQ(out.error.system_code, 998u);
    // The raw line form keeps its result: true, and the line end is written.
    EXPECT_TRUE(call("fWriteLine", {Value::integer(h), Value::integer(16), Value::integer(8)}).result.b);
    out = call("fRead", {Value::integer(h), Value::integer(4), Value::integer(16)});
    EXPECT_EQ(out.result.i, 0);
    close(h);
    EXPECT_EQ(get("addr.txt"), std::string("\r\0\n\0", 4));
}

using SeekAndSize = DeviceTest;

TEST_F(SeekAndSize, OriginsAndFailures) {
    put("s.bin", "0123456789");
    int64_t h = open(u"\\s.bin", kReadWrite);
    EXPECT_EQ(call("fSeek", {Value::integer(h), Value::int64(-3), Value::integer(2)}).result.i, 7);
    EXPECT_EQ(call("fSeek", {Value::integer(h), Value::int64(-2), Value::integer(1)}).result.i, 5);
    EXPECT_EQ(call("fSeek", {Value::integer(h), Value::int64(100), Value::integer(0)}).result.i, 100);
    auto out = call("fSeek", {Value::integer(h), Value::int64(0), Value::integer(3)});
    EXPECT_EQ(out.result.i, -1);
    EXPECT_EQ(out.error.id, 80023u);
    out = call("fSeek", {Value::integer(h), Value::int64(-1), Value::integer(0)});
    EXPECT_EQ(out.result.i, -1);
    EXPECT_EQ(out.error.system_code, 131u);
    EXPECT_EQ(out.error.severity, 2);
    EXPECT_EQ(tell(h), 100);
    close(h);
}

TEST_F(SeekAndSize, ChangeSizeKeepsThePositionInsideTheFile) {
    put("c.bin", std::string(100, 'x'));
    int64_t h = open(u"\\c.bin", kReadWrite);
    call("fSeek", {Value::integer(h), Value::int64(80), Value::integer(0)});
    EXPECT_TRUE(call("fChangeSize", {Value::integer(h), Value::int64(50)}).result.b);
    EXPECT_EQ(tell(h), 50);
    call("fSeek", {Value::integer(h), Value::int64(20), Value::integer(0)});
    EXPECT_TRUE(call("fChangeSize", {Value::integer(h), Value::int64(200)}).result.b);
    EXPECT_EQ(tell(h), 20);
    auto out = call("fChangeSize", {Value::integer(h), Value::int64(-1)});
    EXPECT_FALSE(out.result.b);
    EXPECT_EQ(out.error.severity, 2);
    close(h);
    EXPECT_EQ(std::filesystem::file_size(host_path("c.bin")), 200u);
    EXPECT_EQ(get("c.bin").substr(0, 50), std::string(50, 'x'));
    EXPECT_EQ(get("c.bin").substr(50), std::string(150, '\0'));
}

TEST_F(SeekAndSize, ReadCounts) {
    put("r.bin", "abcdef");
    int64_t h = open(u"\\r.bin", kRead);
    auto out = call("fRead", {Value::integer(h), Value::integer(-5)});
    EXPECT_EQ(out.result.kind, Value::Kind::None);
    EXPECT_EQ(out.error.severity, 1);
    out = call("fRead", {Value::integer(h), Value::integer(100)});
    EXPECT_EQ(out.result.bytes, (std::vector<uint8_t>{'a', 'b', 'c', 'd', 'e', 'f'}));
    out = call("fRead", {Value::integer(h), Value::integer(10)});
    EXPECT_EQ(out.result.kind, Value::Kind::None);
    EXPECT_EQ(out.error.severity, 1);
    close(h);
}

using Handles = DeviceTest;

TEST_F(Handles, InvalidHandlesAreRefusedWith80022) {
    int64_t h = create(u"\\h.txt");
    close(h);
    for (int64_t bad : {int64_t(-1), int64_t(0), int64_t(1), h, int64_t(1000000), int64_t(INT32_MIN)}) {
        auto out = call("fClose", {Value::integer(bad)});
        EXPECT_EQ(out.result.i, -1);
        EXPECT_EQ(out.error.id, 80022u);
        out = call("fReadLine", {Value::integer(bad)});
        EXPECT_EQ(out.result.s, u"");
        EXPECT_EQ(out.error.id, 80022u);
        EXPECT_EQ(call("fSeek", {Value::integer(bad), Value::int64(0), Value::integer(0)}).result.i, -1);
        EXPECT_EQ(call("fWrite", {Value::integer(bad), Value::buffer({1})}).result.i, -1);
        EXPECT_FALSE(call("fWriteLine", {Value::integer(bad), Value::string(u"x")}).result.b);
        EXPECT_FALSE(call("fChangeSize", {Value::integer(bad), Value::int64(0)}).result.b);
    }
}

using Names = DeviceTest;

TEST_F(Names, CaseIsIgnoredWhenTheNameDoesNotExistAsWritten) {
    put("Dir/File.TXT", "found\r\n");
    int64_t h = open(u"\\DIR\\file.txt", kRead);
    ASSERT_GE(h, 2);
    EXPECT_EQ(line(h), u"found");
    close(h);
    // Creating through another case writes the existing file.
    h = create(u"\\dir\\FILE.txt");
    close(h);
    EXPECT_EQ(get("Dir/File.TXT"), "");
    EXPECT_FALSE(std::filesystem::exists(host_path("dir")));
}

TEST_F(Names, DotDotNeverLeavesTheRoot) {
    int64_t h = create(u"\\..\\..\\..\\escape.txt");
    ASSERT_GE(h, 2);
    close(h);
    EXPECT_TRUE(std::filesystem::exists(host_path("escape.txt")));
    EXPECT_FALSE(std::filesystem::exists(fx.dir.path() / "escape.txt"));
    // ".." is resolved on the name itself, whether or not "sub" exists.
    h = create(u"/sub/../../x.txt");
    ASSERT_GE(h, 2);
    close(h);
    EXPECT_TRUE(std::filesystem::exists(host_path("x.txt")));
}

TEST_F(Names, BadNamesFailCleanly) {
    const std::pair<std::u16string, uint32_t> cases[] = {
        {u"\\" + std::u16string(10000, u'n'), 206},
        {std::u16string(u"\\a\0b", 4), 123},
        {std::u16string(u"\\a") + char16_t(0xD800) + u"b", 123},
        {u"\\wild*.txt", 123}};
    for (const auto& [name, code] : cases) {
        auto out = call("fCreate", {Value::string(name)});
        EXPECT_EQ(out.result.i, -1);
        EXPECT_EQ(out.error.system_code, code);
    }
    EXPECT_EQ(call("fCreate", {Value::string(u"\\" + std::u16string(300, u'c'))}).result.i, -1);
}

TEST_F(Names, StreamDeviceNamesLiveInTheRoot) {
    int64_t h = create(u"COM9:");
    ASSERT_GE(h, 2);
    close(h);
    EXPECT_TRUE(std::filesystem::exists(host_path("COM9:")));
}

} // namespace
} // namespace kp::files::test

namespace kp::files::test {
namespace {

// A host whose ANSI code page is 1251: text files are read and written in it.
TEST(AnsiCodePage, HostSettingDecidesTheTextEncoding) {
    kp::test::TempDir dir;
    std::filesystem::create_directories(dir.path() / "device");
    kp::host::Options o;
    if (const char* p = std::getenv("KP120_COMPONENT")) o.component_path = p;
    o.device_root = (dir.path() / "device").string();
    o.registry_path = (dir.path() / "registry.sqlite3").string();
    o.ansi_codepage = 1251;
    kp::host::Host host(o);
    ASSERT_TRUE(host.loaded()) << host.load_error();
    std::vector<Value> args = {Value::string(u"\\cp.txt")};
    int64_t h = host.call("fCreate", args).result.i;
    ASSERT_GE(h, 2);
    args = {Value::integer(h), Value::string(u"\u0416\u0438\u0437\u043d\u044c")};
    EXPECT_TRUE(host.call("fWriteLine", args).result.b);
    args = {Value::integer(h), Value::int64(0), Value::integer(0)};
    host.call("fSeek", args);
    args = {Value::integer(h)};
    EXPECT_EQ(host.call("fReadLine", args).result.s, u"\u0416\u0438\u0437\u043d\u044c");
    host.call("fClose", args);
    std::ifstream f(dir.path() / "device" / "cp.txt", std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes, "\xC6\xE8\xE7\xED\xFC\r\n");
}

} // namespace
} // namespace kp::files::test
