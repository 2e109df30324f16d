// streams_test.cpp - the stream functions through the component's interface.
#include <sys/stat.h>

#include <tuple>

#include "files_fixture.h"

namespace kp::files::test {
namespace {

namespace fs = std::filesystem;
constexpr int32_t kRead = 1, kWrite = 2, kReadWrite = 3, kCreateIfNotExist = 0x100, kCreate = 0x200,
                  kAdd = 0x800, kUnicode = 0x1000;
const std::u16string kEot(1, u'\x04');
const std::string kMark("\xFF\xFE", 2);

std::string utf16le(std::u16string_view s) {
    return std::string(reinterpret_cast<const char*>(s.data()), s.size() * 2);
}

class Streams : public DeviceTest {
  protected:
    CallOutcome seek(int64_t h, int64_t offset, int32_t origin = 0) {
        return call("fSeek", {I(h), Value::int64(offset), I(origin)});
    }
    std::vector<std::u16string> lines(const std::u16string& name, int32_t mode = kRead) {
        std::vector<std::u16string> out;
        int64_t h = open(name, mode);
        for (std::u16string l = line(h); l != kEot && out.size() < 100; l = line(h))
            out.push_back(l);
        EXPECT_EQ(line(h), kEot) << "stays at the end";
        close(h);
        return out;
    }
};

// Bad names, missing files, access denied: -1 and the failure; denied on a folder sets the additional flag.
TEST_F(Streams, OpenFailures) {
    fs::create_directories(host_path("d"));
    put("ro.txt", "data");
    chmod(host_path("ro.txt").c_str(), 0444);
    const std::tuple<const char16_t*, int32_t, uint32_t, uint32_t, uint32_t> cases[] = {
        {u"", kRead, 80600, 0, 0},           {u"a.txt", kRead, 80600, 0, 0},
        {u"dir\\a.txt", kRead, 80600, 0, 0}, {u"\\nothing.txt", kRead, 0, 2, 0},
        {u"\\no\\dir.txt", kRead, 0, 3, 0},  {u"\\d", kRead, 0, 5, 1},
        {u"\\d", kReadWrite, 0, 5, 1},       {u"\\ro.txt", kWrite, 0, 5, 0},
        {u"\\ro.txt", kReadWrite, 0, 5, 0},  {u"\\ro.txt", kReadWrite | kCreate, 0, 5, 0}};
    for (const auto& [name, mode, id, code, additional] : cases) {
        const CallOutcome out = expect_calls({{"fOpen", {S(name), I(mode)}, u"-1", 2, id, id ? kAny : code}});
        EXPECT_EQ(std::pair(out.error.additional[0], out.error.additional[1]),
                  std::pair(additional, additional));
    }
    EXPECT_EQ(get("ro.txt"), "data");
    EXPECT_EQ(lines(u"\\ro.txt"), std::vector<std::u16string>{u"data"}); // reading is allowed
}

TEST_F(Streams, OpenModes) {
    // Create truncates, create-if-not-exist keeps or makes.
    put("keep.txt", "content");
    close(open(u"\\keep.txt", kReadWrite | kCreate | kCreateIfNotExist));
    EXPECT_EQ(get("keep.txt"), "content");
    close(create(u"\\keep.txt"));
    EXPECT_EQ(get("keep.txt"), "");
    close(open(u"\\fresh.txt", kReadWrite | kCreateIfNotExist));
    EXPECT_TRUE(fs::exists(host_path("fresh.txt")));
    // Create alone opens for writing only.
    int64_t h = open(u"\\w.txt", kCreate);
    ASSERT_GE(h, 2);
    expect_calls({{"fRead", {I(h), I(4)}, u"none", kAny, kAny, 5}, {"fWrite", {I(h), S(u"ab")}, u"4"}});
    close(h);
    // Add positions at the end.
    put("log.txt", "one\r\n");
    h = open(u"\\log.txt", kReadWrite | kAdd);
    EXPECT_EQ(tell(h), 5);
    call("fWriteLine", {I(h), S(u"two")});
    close(h);
    EXPECT_EQ(get("log.txt"), "one\r\ntwo\r\n");
}

// Unicode: a created file gets the mark (create-if-not-exist: a new one only); reading skips it if there.
TEST_F(Streams, ByteOrderMark) {
    int64_t h = create(u"\\u.txt", kUnicode);
    EXPECT_EQ(tell(h), 2);
    call("fWriteLine", {I(h), S(u"h\u00e9")});
    close(h);
    EXPECT_EQ(get("u.txt"), kMark + utf16le(u"h\u00e9\r\n"));
    put("old.txt", utf16le(u"x"));
    for (const char16_t* name : {u"\\new.txt", u"\\old.txt"})
        close(open(name, kReadWrite | kCreateIfNotExist | kUnicode));
    EXPECT_EQ(std::tuple(get("new.txt"), get("old.txt")), std::tuple(kMark, utf16le(u"x")));
    put("m.txt", kMark + utf16le(u"\u00e9t\u00e9\r\nA\rB\nC\r\nsecond"));
    EXPECT_EQ(lines(u"\\m.txt", kRead | kUnicode),
              (std::vector<std::u16string>{u"\u00e9t\u00e9", u"A\rB\nC", u"second"}));
    put("n.txt", utf16le(u"plain\r\n"));
    h = open(u"\\n.txt", kRead | kUnicode);
    EXPECT_EQ((std::tuple{tell(h), line(h)}), std::tuple(0, u"plain"));
    close(h);
}

// Only CR LF ends a line; 1252 is decoded, NUL and controls survive; an empty file ends without error.
TEST_F(Streams, LineReader) {
    put("l.txt", std::string("ab\rc\r\nab\nx\r\n\r\ncaf\xE9 \x80\r\na\0b\xFF\x01\r\nlast", 33));
    EXPECT_EQ(lines(u"\\l.txt"),
              (std::vector<std::u16string>{u"ab\rc", u"ab\nx", u"", u"caf\u00e9 \u20ac",
                                           std::u16string(u"a\0b\u00ff\x01", 5), u"last"}));
    put("e.txt", "");
    int64_t h = open(u"\\e.txt", kRead);
    expect_calls({{"fReadLine", {I(h)}, u"\x04", 1}});
    close(h);
    // The position is exact for fRead after each line.
    put("mix.txt", "l1\r\nl2\r\nrest");
    h = open(u"\\mix.txt", kRead);
    EXPECT_EQ(line(h), u"l1");
    EXPECT_EQ(call("fRead", {I(h), I(2)}).result.bytes, (std::vector<uint8_t>{'l', '2'}));
    EXPECT_EQ((std::tuple{line(h), line(h)}), std::tuple(u"", u"rest"));
    close(h);
}

// CR LF on either side of the 50-byte pieces, 160-byte blocks and 65536-byte read-ahead, ANSI and UTF-16.
TEST_F(Streams, LineEndsAtBlockBoundaries) {
    for (std::size_t k : {49u, 50u, 51u, 159u, 160u, 161u, 65533u, 65534u, 65535u, 65536u}) {
        put("edge.txt", std::string(k, 'a') + "\r\nb\r\n");
        EXPECT_EQ(lines(u"\\edge.txt"), (std::vector<std::u16string>{std::u16string(k, u'a'), u"b"})) << k;
        put("edge16.txt", utf16le(std::u16string(k / 2, u'a') + u"\r\nb\r\n"));
        EXPECT_EQ(lines(u"\\edge16.txt", kRead | kUnicode),
                  (std::vector<std::u16string>{std::u16string(k / 2, u'a'), u"b"}))
            << k;
    }
}

TEST_F(Streams, WritesThroughTheSameHandleAreSeenAtOnce) {
    int64_t h = create(u"\\rw.txt");
    call("fWriteLine", {I(h), S(u"one")});
    seek(h, 0);
    EXPECT_EQ((std::tuple{line(h), line(h)}), std::tuple(u"one", kEot));
    call("fWriteLine", {I(h), S(u"two")});
    seek(h, 5);
    EXPECT_EQ(line(h), u"two");
    // Overwrite inside a block that was read before.
    seek(h, 0);
    call("fWrite", {I(h), Value::buffer({'O', 'N'})});
    seek(h, 0);
    EXPECT_EQ(line(h), u"ONe");
    close(h);
}

// A pattern gives the whole line and its sub-matches; a bad one is false with 80500.
TEST_F(Streams, PatternLines) {
    put("p.txt", "key=value\r\nno match here\r\n");
    int64_t h = open(u"\\p.txt", kRead);
    const std::u16string pattern = u"([a-z]+)=([a-z]+)";
    std::vector<Value> args = {I(h), S(pattern), Value::variable(), Value::variable(), Value::variable()};
    EXPECT_TRUE(call_with("fReadLine", args).result.b);
    EXPECT_EQ(std::tuple(args[2].ref->s, args[3].ref->s, args[4].ref->s),
              std::tuple(u"key=value", u"key", u"value"));
    std::vector<Value> again = {I(h), S(pattern), Value::variable(S(u"old"))};
    EXPECT_TRUE(call_with("fReadLine", again).result.b);
    EXPECT_EQ(again[2].ref->s, u"");
    std::vector<Value> at_end = {I(h), S(u""), Value::variable()};
    EXPECT_FALSE(call_with("fReadLine", at_end).result.b);
    close(h);
    for (const char16_t* bad : {u"(x", u"((((a{1,255}){1,255}){1,255}){1,255})"}) {
        h = open(u"\\p.txt", kRead);
        expect_calls({{"fReadLine", {I(h), S(bad), Value::variable()}, u"false", kAny, 80500}});
        close(h);
    }
}

TEST_F(Streams, WriteForms) {
    int64_t h = create(u"\\out.txt");
    expect_calls({
        {"fWriteLine", {I(h), S(u"caf\u00e9 \u20ac \u4e2d")}, u"true"},
        // The string-and-length form writes UTF-16 bytes and line end, even in an ANSI file.
        {"fWriteLine", {I(h), S(u"AB"), I(3)}, u"true"},
        {"fWrite", {I(h), Value::buffer({1, 2, 3})}, u"3"},
        {"fWrite", {I(h), Value::buffer({4, 5, 6}), I(2)}, u"2"},
        {"fWrite", {I(h), Value::buffer({7}), I(100)}, u"1"},
        {"fWrite", {I(h), Value::buffer({1, 2}), I(-5)}, u"-1", kAny, kAny, 87}, // negative lengths
        {"fWrite", {I(h), I(0), I(-1)}, u"-1"},
    });
    close(h);
    EXPECT_EQ(get("out.txt"), std::string("caf\xE9 \x80 ?\r\n", 10) + std::string("A\0B\r\0\n\0", 7) +
                                  std::string("\x01\x02\x03\x04\x05\x07", 6));
    // Bad addresses never crash; the raw line form is still true and writes the line end.
    h = create(u"\\addr.txt");
    expect_calls({{"fWrite", {I(h), I(16), I(8)}, u"-1", kAny, kAny, 998},
                  {"fWriteLine", {I(h), I(16), I(8)}, u"true"},
                  {"fRead", {I(h), I(4), I(16)}, u"0"}});
    close(h);
    EXPECT_EQ(get("addr.txt"), std::string("\r\0\n\0", 4));
}

TEST_F(Streams, SeekSizeAndReadCounts) {
    put("s.bin", "0123456789");
    const int64_t h = open(u"\\s.bin", kReadWrite);
    // clang-format off
    const auto L = [](int64_t v) { return Value::int64(v); };
    expect_calls({
        {"fSeek", {I(h), L(-3), I(2)}, u"7"}, {"fSeek", {I(h), L(-2), I(1)}, u"5"},
        {"fSeek", {I(h), L(100), I(0)}, u"100"}, {"fSeek", {I(h), L(0), I(3)}, u"-1", kAny, 80023},
        {"fSeek", {I(h), L(-1), I(0)}, u"-1", 2, kAny, 131}, {"fSeek", {I(h), L(0), I(1)}, u"100"},
        // fChangeSize keeps the position inside the file.
        {"fSeek", {I(h), L(8), I(0)}, u"8"}, {"fChangeSize", {I(h), L(5)}, u"true"},
        {"fSeek", {I(h), L(0), I(1)}, u"5"}, {"fSeek", {I(h), L(2), I(0)}, u"2"},
        {"fChangeSize", {I(h), L(20)}, u"true"}, {"fSeek", {I(h), L(0), I(1)}, u"2"},
        {"fChangeSize", {I(h), L(-1)}, u"false", 2},
        // Counted reads: a negative count reads nothing, a large one the rest.
        {"fRead", {I(h), I(-5)}, u"none", 1},
    });
    // clang-format on
    EXPECT_EQ(call("fRead", {I(h), I(100)}).result.bytes,
              (std::vector<uint8_t>{'2', '3', '4', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    expect_calls({{"fRead", {I(h), I(10)}, u"none", 1}});
    close(h);
    EXPECT_EQ(get("s.bin"), std::string("01234") + std::string(15, '\0'));
}

TEST_F(Streams, InvalidHandlesAreRefusedWith80022) {
    int64_t h = create(u"\\h.txt");
    close(h);
    for (int64_t bad : {int64_t(-1), int64_t(0), int64_t(1), h, int64_t(1000000), int64_t(INT32_MIN)})
        expect_calls({{"fClose", {I(bad)}, u"-1", kAny, 80022},
                      {"fReadLine", {I(bad)}, u"", kAny, 80022},
                      {"fSeek", {I(bad), Value::int64(0), I(0)}, u"-1"},
                      {"fWrite", {I(bad), Value::buffer({1})}, u"-1"},
                      {"fWriteLine", {I(bad), S(u"x")}, u"false"},
                      {"fChangeSize", {I(bad), Value::int64(0)}, u"false"}});
}

// Case is ignored when the name does not exist as written; ".." is resolved on the name; device names
// live in the root; bad names fail cleanly.
TEST_F(Streams, Names) {
    put("Dir/File.TXT", "found\r\n");
    EXPECT_EQ(lines(u"\\DIR\\file.txt"), std::vector<std::u16string>{u"found"});
    close(create(u"\\dir\\FILE.txt"));
    EXPECT_EQ(std::tuple(get("Dir/File.TXT"), fs::exists(host_path("dir"))), std::tuple("", false));
    close(create(u"/sub/../../x.txt"));
    close(create(u"COM9:"));
    EXPECT_TRUE(fs::exists(host_path("x.txt")) && fs::exists(host_path("COM9:")));
    expect_calls({{"fCreate", {S(u"\\" + std::u16string(10000, u'n'))}, u"-1", kAny, kAny, 206},
                  {"fCreate", {S(std::u16string(u"\\a\0b", 4))}, u"-1", kAny, kAny, 123},
                  {"fCreate", {S(std::u16string(u"\\a") + char16_t(0xD800) + u"b")}, u"-1", kAny, kAny, 123},
                  {"fCreate", {S(u"\\wild*.txt")}, u"-1", kAny, kAny, 123},
                  {"fCreate", {S(u"\\" + std::u16string(300, u'c'))}, u"-1"}});
}

// A host whose ANSI code page is 1251: text files are read and written in it.
TEST(AnsiCodePage, HostSettingDecidesTheTextEncoding) {
    kp::test::TempDir dir;
    fs::create_directories(dir.path() / "device");
    kp::host::Options o;
    if (const char* p = std::getenv("KP120_COMPONENT")) o.component_path = p;
    o.device_root = (dir.path() / "device").string();
    o.registry_path = (dir.path() / "registry.sqlite3").string();
    o.ansi_codepage = 1251;
    kp::host::Host host(o);
    ASSERT_TRUE(host.loaded()) << host.load_error();
    auto call = [&](const char* fn, std::vector<Value> args) { return host.call(fn, args); };
    const std::u16string word = u"\u0416\u0438\u0437\u043d\u044c";
    int64_t h = call("fCreate", {S(u"\\cp.txt")}).result.i;
    ASSERT_GE(h, 2);
    EXPECT_TRUE(call("fWriteLine", {I(h), S(word)}).result.b);
    call("fSeek", {I(h), Value::int64(0), I(0)});
    EXPECT_EQ(call("fReadLine", {I(h)}).result.s, word);
    call("fClose", {I(h)});
    std::ifstream f(dir.path() / "device" / "cp.txt", std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(f), {}), "\xC6\xE8\xE7\xED\xFC\r\n");
}

} // namespace
} // namespace kp::files::test
