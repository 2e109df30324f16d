// stream_test.cpp - IXStream on its own: the failure protocol and its trace
// lines, exact and counted reads, the UTF-16 line reader, lengths.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "files/stream.h"
#include "platform/codepage.h"
#include "platform/files.h"
#include "platform/win32_error.h"
#include "support/test_host.h"

namespace kp::files {
namespace {

using platform::kGenericRead;
using platform::kGenericWrite;

// Without a host the device root is "/": names are host paths here.
class Stream : public ::testing::Test {
  protected:
    kp::test::TempDir dir;
    kp_error_record rec{};
    CXError err{&rec};
    IXStream s;

    Stream() {
        rec.severity = 1;
        s.bind(&err);
    }
    std::u16string name(const std::string& rel) const {
        return platform::from_utf8((dir.path() / rel).string());
    }
    void put(const std::string& rel, const std::string& bytes) {
        std::ofstream(dir.path() / rel, std::ios::binary) << bytes;
    }
    std::u16string message() const { return std::u16string(rec.message, rec.message_length); }
    bool has(std::u16string_view text) const { return message().find(text) != std::u16string::npos; }
};

TEST_F(Stream, FailedOpenRecordsTheTraceAndTheMessage) {
    EXPECT_FALSE(s.Open(name("none"), kGenericRead, 3, platform::kOpenExisting, 0));
    EXPECT_EQ(rec.severity, 3);
    EXPECT_EQ(rec.system_code, 2u);
    EXPECT_EQ(s.GetLastError(), 2u);
    EXPECT_TRUE(has(u"##(IXStream)-Handle=<"));
    EXPECT_EQ(platform::last_error(), 2u);
    // A creation value without a message of its own adds only the trace.
    EXPECT_FALSE(s.Open(name("none"), kGenericRead, 3, platform::kTruncateExisting, 0));
    EXPECT_EQ(rec.system_code, 2u);
}

TEST_F(Stream, OpenAlwaysTellsWhetherItCreated) {
    bool created = false;
    ASSERT_TRUE(s.Open(name("f"), kGenericRead | kGenericWrite, 3, platform::kOpenAlways, 0, &created));
    EXPECT_TRUE(created);
    s.Close();
    ASSERT_TRUE(s.Open(name("f"), kGenericRead | kGenericWrite, 3, platform::kOpenAlways, 0, &created));
    EXPECT_FALSE(created);
    EXPECT_EQ(platform::last_error(), platform::kErrorAlreadyExists);
    EXPECT_EQ(rec.severity, 1);
}

TEST_F(Stream, ExactReadsFailShortCountedReadsDoNot) {
    put("r", "abc");
    ASSERT_TRUE(s.Open(name("r"), kGenericRead, 3, platform::kOpenExisting, 0));
    char buf[8];
    EXPECT_FALSE(s.Read(buf, 5));
    EXPECT_EQ(rec.system_code, 0u); // the system read itself succeeded
    EXPECT_TRUE(has(u"##(IXStream)-bExact=<1>##"));
    EXPECT_TRUE(has(u"##(IXStream)-A lire=<5>, lu=<3>##"));
    EXPECT_EQ(s.GetPosition(), 3u);
    EXPECT_TRUE(s.ReadAt(0, buf, 2));
    EXPECT_EQ(rec.severity, 1);
    uint32_t n = 0;
    EXPECT_TRUE(s.Read(buf, 8, &n));
    EXPECT_EQ(n, 1u);
    EXPECT_EQ(s.GetLength(), 3);
}

TEST_F(Stream, WriteOnlyStreamCannotRead) {
    ASSERT_TRUE(s.Open(name("w"), kGenericWrite, 3, platform::kCreateAlways, 0));
    char buf[4];
    uint32_t n = 9;
    EXPECT_FALSE(s.Read(buf, 4, &n));
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(rec.system_code, 5u);
    EXPECT_TRUE(has(u"##(IXStream)-bExact=<0>##"));
}

TEST_F(Stream, SeekLengthsAndExtend) {
    ASSERT_TRUE(s.Open(name("x"), kGenericRead | kGenericWrite, 3, platform::kCreateAlways, 0));
    EXPECT_TRUE(s.Write("0123456789", 10));
    EXPECT_EQ(s.GetPosition(), 10u);
    EXPECT_EQ(s.Seek(-4, 1), 6);
    EXPECT_EQ(s.Seek(-11, 2), -1);
    EXPECT_EQ(rec.system_code, 131u);
    EXPECT_EQ(s.GetPosition(), 6u);
    EXPECT_TRUE(s.SetLength(-2, 1));
    EXPECT_EQ(s.GetLength(), 8);
    EXPECT_FALSE(s.SetLength(0, 2));
    EXPECT_TRUE(s.Extend(4));
    EXPECT_EQ(s.GetLength(), 12);
    EXPECT_EQ(s.SeekToEnd(), 12);
    EXPECT_TRUE(s.WriteAt(0, "AB", 2));
    char buf[12];
    EXPECT_TRUE(s.ReadAt(0, buf, 12));
    EXPECT_EQ(std::string(buf, 12), std::string("AB234567\0\0\0\0", 12));
    EXPECT_TRUE(s.Flush());
}

TEST_F(Stream, PrintfWritesUtf16) {
    ASSERT_TRUE(s.Open(name("p"), kGenericRead | kGenericWrite, 3, platform::kCreateAlways, 0));
    EXPECT_TRUE(s.Printf(u"[%s] %d %u %c%%", u"\u00e9", -5, 7u, int(u'z')));
    std::u16string expected = u"[\u00e9] -5 7 z%";
    char16_t buf[32] = {};
    uint32_t n = 0;
    s.ReadAt(0, buf, sizeof buf, &n);
    EXPECT_EQ(std::u16string(buf, n / 2), expected);
}

TEST_F(Stream, Utf16LineReader) {
    std::u16string text = u"one\r\ntwo\rthree\nfour\r\n" + std::u16string(300, u'x') + u"\r\n";
    put("u", std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2));
    ASSERT_TRUE(s.Open(name("u"), kGenericRead, 3, platform::kOpenExisting, 0));
    char16_t line[256];
    bool more = false;
    // Strict: only CR LF ends a line.
    EXPECT_TRUE(s.ReadLineW(line, 256, &more, true));
    EXPECT_EQ(std::u16string(line), u"one");
    EXPECT_TRUE(s.ReadLineW(line, 256, &more, true));
    EXPECT_EQ(std::u16string(line), u"two\rthree\nfour");
    // A line longer than the buffer comes in parts.
    EXPECT_TRUE(s.ReadLineW(line, 256, &more, true));
    EXPECT_TRUE(more);
    EXPECT_EQ(std::u16string(line), std::u16string(255, u'x'));
    EXPECT_TRUE(s.ReadLineW(line, 256, &more, true));
    EXPECT_FALSE(more);
    EXPECT_EQ(std::u16string(line), std::u16string(45, u'x'));
    EXPECT_EQ(s.GetPosition(), s.GetLength());
    // Loose: the first CR ends the line and is taken as CR LF.
    s.Seek(10, 0);
    EXPECT_TRUE(s.ReadLineW(line, 256, &more, false));
    EXPECT_EQ(std::u16string(line), u"two");
    EXPECT_TRUE(s.ReadLineW(line, 256, &more, false));
    EXPECT_EQ(std::u16string(line), u"hree\nfour");
}

TEST_F(Stream, BufferedLineReaderSplitsAtCrOrLf) {
    put("b", "a\r\nb\rc\nd");
    ASSERT_TRUE(s.Open(name("b"), kGenericRead, 3, platform::kOpenExisting, 0));
    std::u16string line;
    bool more = false, end = false;
    std::vector<std::u16string> lines;
    while (s.ReadLineBuffered(line, 255, false, &more, &end) && !end)
        lines.push_back(line);
    EXPECT_EQ(lines, (std::vector<std::u16string>{u"a", u"b", u"c", u"d"}));
}

TEST_F(Stream, LockFailuresCarryPositionAndCount) {
    put("l", "0123456789");
    IXStream other;
    ASSERT_TRUE(s.Open(name("l"), kGenericRead | kGenericWrite, 3, platform::kOpenExisting, 0));
    ASSERT_TRUE(other.Open(name("l"), kGenericRead | kGenericWrite, 3, platform::kOpenExisting, 0));
    EXPECT_TRUE(other.Lock(0, 5));
    EXPECT_FALSE(s.Lock(2, 3));
    EXPECT_EQ(rec.system_code, 33u);
    EXPECT_TRUE(has(u"##(IXStream)-Handle=<"));
    EXPECT_TRUE(other.Unlock(0, 5));
    EXPECT_TRUE(s.Lock(2, 3));
}

TEST_F(Stream, ReopenUsesTheStoredName) {
    put("o", "data");
    ASSERT_TRUE(s.Open(name("o"), kGenericRead, 3, platform::kOpenExisting, 0));
    ASSERT_TRUE(s.Reopen(kGenericRead | kGenericWrite, 3, platform::kOpenExisting, 0));
    EXPECT_EQ(s.GetPosition(), 0u);
    EXPECT_TRUE(s.Write("D", 1));
    EXPECT_TRUE(s.Close());
    EXPECT_FALSE(s.is_open());
    EXPECT_TRUE(s.Close()); // nothing open: no effect
}

} // namespace
} // namespace kp::files
