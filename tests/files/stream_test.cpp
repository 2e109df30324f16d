// stream_test.cpp - IXStream on its own (failures, reads, line readers, lengths, locks), the handle table.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <tuple>

#include "files/stream.h"
#include "files/streams.h"
#include "platform/codepage.h"
#include "platform/files.h"
#include "platform/win32_error.h"
#include "support/error_record.h"
#include "support/test_host.h"

namespace kp::files {
namespace {

using platform::kGenericRead;
constexpr uint32_t kReadWrite = platform::kGenericRead | platform::kGenericWrite;

// Without a host the device root is "/": names are host paths here.
class Stream : public ::testing::Test {
  protected:
    kp::test::TempDir dir;
    kp::test::Err e;
    kp_error_record& rec = e.rec;
    IXStream s;

    Stream() { s.bind(&e.err); }
    std::u16string name(const std::string& rel) const {
        return platform::from_utf8((dir.path() / rel).string());
    }
    // Opens `rel` (after writing `bytes` to it unless null).
    bool open(IXStream& st, const std::string& rel, uint32_t access, uint32_t how,
              const char* bytes = nullptr, std::size_t size = 0) {
        if (bytes)
            std::ofstream(dir.path() / rel, std::ios::binary)
                .write(bytes, static_cast<std::streamsize>(size));
        return st.Open(name(rel), access, 3, how, 0);
    }
};

TEST_F(Stream, FailedOpenRecordsTheErrorAndOpenAlwaysTellsWhetherItCreated) {
    for (uint32_t how : {platform::kOpenExisting, platform::kTruncateExisting}) {
        EXPECT_FALSE(open(s, "none", kGenericRead, how));
        EXPECT_EQ(std::tuple(rec.severity, rec.system_code, s.GetLastError(), platform::last_error()),
                  std::tuple(3, 2u, 2u, 2u));
    }
    rec.severity = 1;
    for (bool expected : {true, false}) {
        bool created = !expected;
        ASSERT_TRUE(s.Open(name("f"), kReadWrite, 3, platform::kOpenAlways, 0, &created));
        EXPECT_EQ(created, expected);
        s.Close();
    }
    EXPECT_EQ(std::tuple(platform::last_error(), rec.severity), std::tuple(platform::kErrorAlreadyExists, 1));
}

TEST_F(Stream, ExactReadsFailShortCountedReadsDoNot) {
    ASSERT_TRUE(open(s, "r", kGenericRead, platform::kOpenExisting, "abc", 3));
    char buf[8];
    EXPECT_FALSE(s.Read(buf, 5));
    EXPECT_EQ(std::tuple(rec.system_code, s.GetPosition()), std::tuple(0u, 3u)); // the system read succeeded
    rec.severity = 1;
    EXPECT_TRUE(s.ReadAt(0, buf, 2) && rec.severity == 1);
    uint32_t n = 0;
    EXPECT_TRUE(s.Read(buf, 8, &n));
    EXPECT_EQ(std::tuple(n, s.GetLength()), std::tuple(1u, 3));
    // A write-only stream cannot read.
    IXStream w;
    w.bind(&e.err);
    ASSERT_TRUE(open(w, "w", platform::kGenericWrite, platform::kCreateAlways));
    n = 9;
    EXPECT_FALSE(w.Read(buf, 4, &n));
    EXPECT_EQ(std::tuple(n, rec.system_code), std::tuple(0u, 5u));
}

TEST_F(Stream, SeekLengthsExtendAndPrintf) {
    ASSERT_TRUE(open(s, "x", kReadWrite, platform::kCreateAlways));
    EXPECT_EQ((std::tuple{s.Write("0123456789", 10), s.GetPosition(), s.Seek(-4, 1)}),
              std::tuple(true, 10u, 6));
    EXPECT_EQ(s.Seek(-11, 2), -1);
    EXPECT_EQ(std::tuple(rec.system_code, s.GetPosition()), std::tuple(131u, 6u));
    EXPECT_EQ((std::tuple{s.SetLength(-2, 1), s.GetLength(), s.SetLength(0, 2)}), std::tuple(true, 8, false));
    EXPECT_EQ((std::tuple{s.Extend(4), s.GetLength(), s.SeekToEnd()}), std::tuple(true, 12, 12));
    EXPECT_TRUE(s.WriteAt(0, "AB", 2));
    char buf[12];
    EXPECT_TRUE(s.ReadAt(0, buf, 12));
    EXPECT_EQ(std::string(buf, 12), std::string("AB234567\0\0\0\0", 12));
    EXPECT_TRUE(s.Flush());
    EXPECT_TRUE(s.Printf(u"[%s] %d %u %c%%", u"\u00e9", -5, 7u, int(u'z')));
    char16_t text[32] = {};
    uint32_t n = 0;
    s.ReadAt(12, text, sizeof text, &n);
    EXPECT_EQ(std::u16string(text, n / 2), u"[\u00e9] -5 7 z%");
}

TEST_F(Stream, LineReaders) {
    std::u16string text = u"one\r\ntwo\rthree\nfour\r\n" + std::u16string(300, u'x') + u"\r\n";
    ASSERT_TRUE(open(s, "u", kGenericRead, platform::kOpenExisting,
                     reinterpret_cast<const char*>(text.data()), text.size() * 2));
    char16_t line[256];
    bool more = false;
    // Strict: only CR LF ends a line; a line longer than the buffer comes in parts.
    const std::u16string x255(255, u'x'), x45(45, u'x');
    const std::pair<std::u16string, bool> strict[] = {
        {u"one", false}, {u"two\rthree\nfour", false}, {x255, true}, {x45, false}};
    auto read = [&](bool strict) { return s.ReadLineW(line, 256, &more, strict) ? line : u"(failed)"; };
    for (const auto& [expected, part] : strict)
        EXPECT_EQ((std::tuple{std::u16string(read(true)), more}), std::tuple(expected, part));
    EXPECT_EQ(s.GetPosition(), s.GetLength());
    // Loose: the first CR ends the line and is taken as CR LF.
    s.Seek(10, 0);
    EXPECT_EQ((std::tuple{std::u16string(read(false)), std::u16string(read(false))}),
              std::tuple(u"two", u"hree\nfour"));
    // The buffered reader of ANSI text splits at CR or LF.
    IXStream b;
    ASSERT_TRUE(open(b, "b", kGenericRead, platform::kOpenExisting, "a\r\nb\rc\nd", 8));
    std::u16string l;
    bool end = false;
    std::vector<std::u16string> lines;
    while (b.ReadLineBuffered(l, 255, false, &more, &end) && !end)
        lines.push_back(l);
    EXPECT_EQ(lines, (std::vector<std::u16string>{u"a", u"b", u"c", u"d"}));
}

TEST_F(Stream, LocksAndReopen) {
    IXStream other;
    ASSERT_TRUE(open(s, "l", kReadWrite, platform::kOpenExisting, "0123456789", 10));
    ASSERT_TRUE(open(other, "l", kReadWrite, platform::kOpenExisting));
    EXPECT_EQ((std::tuple{other.Lock(0, 5), s.Lock(2, 3), rec.system_code}), std::tuple(true, false, 33u));
    EXPECT_EQ((std::tuple{other.Unlock(0, 5), s.Lock(2, 3)}), std::tuple(true, true));
    // Reopen uses the stored name.
    ASSERT_TRUE(open(other, "o", kGenericRead, platform::kOpenExisting, "data", 4));
    ASSERT_TRUE(other.Reopen(kReadWrite, 3, platform::kOpenExisting, 0));
    EXPECT_EQ((std::tuple{other.GetPosition(), other.Write("D", 1), other.Close()}),
              std::tuple(0u, true, true));
    EXPECT_TRUE(!other.is_open() && other.Close()); // nothing open: no effect
}

// Slots 0 and 1 are placeholders; the last freed slot is given first; the table grows by its step.
TEST(FileHandleTable, SlotsReuseAndGrowth) {
    FileHandleTable t(5);
    EXPECT_EQ((std::tuple{t.capacity(), t.insert(nullptr), t.insert(nullptr)}), std::tuple(0, 0, 1));
    OpenFileRecord a, b, c, *none = nullptr;
    EXPECT_EQ((std::tuple{t.insert(&a), t.find(2), t.insert(&b), t.insert(&c), t.capacity()}),
              std::tuple(2, &a, 3, 4, 5));
    EXPECT_EQ((std::tuple{t.remove(2), t.remove(4), t.find(2), t.remove(2), t.in_use()}),
              std::tuple(&a, &c, none, none, 3)); // the second removal of 2: already free
    EXPECT_EQ((std::tuple{t.insert(&a), t.insert(&c), t.find(4), t.find(2), t.used()}),
              std::tuple(4, 2, &a, &c, 5));
    for (int i = 0; i < 1001; ++i)
        t.insert(&b);
    EXPECT_EQ(std::tuple(t.used(), t.capacity(), t.find(1005)), std::tuple(1006, 1010, &b));
    for (int32_t bad : {-1, 0, 1, 1006, 1 << 30, INT32_MIN, INT32_MAX})
        EXPECT_EQ((std::tuple{t.find(bad), t.remove(bad)}), std::tuple(none, none)) << bad;
    EXPECT_EQ(t.in_use(), 1006);
}

} // namespace
} // namespace kp::files
